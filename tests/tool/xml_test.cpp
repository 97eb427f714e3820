#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>
#include <system_error>

#include <testing/xml_document.h>

#include "run_tool.h"
#include "tool_streams.h"
#include "umf_clips.h"

namespace {

using namespace GxfTesting;
using testing::HasSubstr;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

std::string const piped = "standard input: ";
std::string const atUmf = "standard input: error at offset 40: ";
std::string const refused = "the tail of the UMF that begins here is refused, ";

/// A clip with that document, as bytes of the wire.
std::string clipWith(Bytes const& xml) {
    UmfContent content = newsContent();
    content.xml = xml;
    return clipOf(content);
}

std::string const document = "<?xml version=\"1.0\"?><Asset><Data/></Asset>";

/// A 16-bit number, least significant byte first.
unsigned wordOf(std::string const& bytes, std::size_t at) {
    auto const byte = [&bytes](std::size_t i) -> unsigned {
        return static_cast<unsigned char>(bytes[i]);
    };
    return byte(at) | byte(at + 1) << 8;
}

/// The document of a sample, in UTF-16LE, where its UMF says that it is.
std::string rawOfSample(std::string const& name) {
    std::string const stream = readFile(sample(name));
    for (RawPacket const& packet : packetsOf(stream)) {
        if (packet.type == umfType) {
            std::string const payload = packet.payload.substr(5);
            std::size_t const index = wordOf(payload, 40);
            return payload.substr(wordOf(payload, index + 4), wordOf(payload, index + 8));
        }
    }
    return {};
}

/// UTF-16LE of up to U+FFFF as UTF-8, as far as a NUL character at its end.
std::string utf8Of(std::string const& utf16) {
    std::string text;
    for (std::size_t i = 0; i + 1 < utf16.size(); i += 2) {
        unsigned const c = wordOf(utf16, i);
        if (c < 0x80) {
            text += static_cast<char>(c);
        } else if (c < 0x800) {
            text += static_cast<char>(0xC0 | c >> 6);
            text += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            text += static_cast<char>(0xE0 | c >> 12);
            text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
            text += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return text.substr(0, text.find('\0'));
}

TEST(Xml, OfTheSamplesIsTheirDocumentWithoutAClosingNul) {
    for (char const* const name : {"news_pal.gxf", "spot_ntsc.gxf", "hd_short.gxf"}) {
        SCOPED_TRACE(name);
        ToolResult const result = runTool({"xml", sample(name)});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        std::string const text = utf8Of(rawOfSample(name));
        EXPECT_EQ(result.out, text.substr(text.find("<?xml"))); // behind a byte-order mark
        EXPECT_NE(XmlDocument(result.out).root(), nullptr);
        EXPECT_EQ(runTool({"xml", "-"}, readFile(sample(name))).out, result.out);
    }
}

TEST(Xml, RawIsItsBytesAsTheyStand) {
    for (char const* const name : {"news_pal.gxf", "spot_ntsc.gxf", "hd_short.gxf"}) {
        ToolResult const result = runTool({"xml", "--raw", sample(name)});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(result.out == rawOfSample(name)) << name;
    }
}

TEST(Xml, IsConvertedWhateverStandsAroundIt) {
    struct Row {
        char const* what;
        Bytes raw;
        std::string text;
    };
    std::vector<Row> const rows = {
        {"bare", utf16(document), document},
        {"a closing NUL", utf16(document).fill(2), document},
        {"a line feed and a closing NUL", utf16(document + "\r\n").fill(2), document + "\r\n"},
        {"zeros to the end of the region", utf16(document).fill(100), document},
        {"a mark and junk in front", Bytes{0xFF, 0xFE}.text("junk").add(utf16(document)), document},
        {"an odd place", Bytes{'j'}.add(utf16(document)), document},
        {"NUL characters inside",
         utf16("<?xml version=\"1.0\"?><Asset>").fill(6).add(utf16("<Data/></Asset>")), document},
        {"two, three and four bytes",
         utf16("<?xml version=\"1.0\"?><A b=\"")
             .add({0xE9, 0x00, 0xAC, 0x20, 0x3D, 0xD8, 0x00, 0xDE})
             .add(utf16("\"/>")),
         "<?xml version=\"1.0\"?><A b=\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"/>"},
        {"escape sequences", utf16("<?xml version=\"1.0\"?><A>\x7F\r\n\t</A>"),
         "<?xml version=\"1.0\"?><A>\x7F\r\n\t</A>"},
    };
    for (Row const& row : rows) {
        ToolResult const result = runTool({"xml", "-"}, clipWith(row.raw));
        EXPECT_EQ(result.status, 0) << row.what;
        EXPECT_EQ(result.err, "") << row.what;
        EXPECT_EQ(result.out, row.text) << row.what;
        ToolResult const raw = runTool({"xml", "--raw", "-"}, clipWith(row.raw));
        EXPECT_EQ(raw.status, 0) << row.what;
        EXPECT_EQ(raw.out, asText(row.raw)) << row.what;
    }
}

TEST(Xml, ThatTheParserRefusesIsPrintedAllTheSame) {
    struct Row {
        char const* text;
        char const* reason;
    };
    for (Row const& row : {Row{"<?xml version=\"1.0\"?><Asset><Data>", "xml decode failed: "},
                           Row{"<?xml version=\"1.0\"?><Asset a=1/>", "xml decode failed: "},
                           Row{"<?xml version=\"1.0\"?><A/><B/>", "xml decode failed: "},
                           Row{"<?xml version=\"1.0\"?>", "xml decode failed: "}}) {
        std::string const stream = clipWith(utf16(row.text));
        ToolResult const result = runTool({"xml", "-"}, stream);
        EXPECT_EQ(result.status, 1) << row.text;
        EXPECT_EQ(result.out, row.text);
        EXPECT_THAT(result.err, StartsWith(atUmf + refused + row.reason));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        ToolResult const raw = runTool({"xml", "--raw", "-"}, stream);
        EXPECT_EQ(raw.status, 1);
        EXPECT_EQ(raw.out, asText(utf16(row.text)));
        EXPECT_EQ(raw.err, result.err);
    }
}

TEST(Xml, ThatCanNotBeConvertedIsGivenByRawAlone) {
    struct Row {
        char const* what;
        Bytes raw;
        std::string said; ///< by the library, in front of the fault
        std::string reason;
    };
    // The library tells the reason once, in its message: intended.
    auto const said = [](int error) {
        return "character conversion WC->MB failed [" + std::to_string(error) + "->" +
               std::generic_category().message(error) + "]\n";
    };
    std::string const notConverted =
        "xml data may not be usable: conversion to utf8 failed [Success]";
    std::string const noStart = "no xml data: could not locate xml start";
    Bytes const begin = utf16("<?xml version=\"1.0\"?><A>");
    Bytes const end = utf16("</A>");
    auto const around = [&](Bytes const& middle) {
        return Bytes().add(begin).add(middle).add(end);
    };
    std::vector<Row> const rows = {
        {"a lone surrogate", around({0x00, 0xD8}), said(EILSEQ), notConverted},
        {"surrogates the wrong way round", around({0x00, 0xDE, 0x3D, 0xD8}), said(EILSEQ),
         notConverted},
        {"an odd number of bytes", around({'x'}), said(EINVAL), notConverted},
        {"more bytes in UTF-8", around(Bytes().fill(1000, 0x4E)), said(E2BIG), notConverted},
        {"no begin", utf16("<Asset><Data/></Asset>"), "", noStart},
        {"no end", utf16("<?xml version=\"1.0\"?"), "", "no xml data: could not locate xml end"},
        {"UTF-8", Bytes().text(document), "", noStart},
        {"nothing but zeros", Bytes().fill(64), "", noStart},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.what);
        std::string const stream = clipWith(row.raw);
        std::string const fault = row.said + atUmf + refused + row.reason + "\n";
        ToolResult const result = runTool({"xml", "-"}, stream);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err,
                  fault + piped + "its XML document can't be converted; --raw gives its bytes\n");
        ToolResult const raw = runTool({"xml", "--raw", "-"}, stream);
        EXPECT_EQ(raw.status, 1);
        EXPECT_EQ(raw.out, asText(row.raw));
        EXPECT_EQ(raw.err, fault);
    }
}

TEST(Xml, AStreamWithoutOneSaysSo) {
    UmfContent content = newsContent();
    content.xml = {};
    UmfContent bare = content;
    bare.hasIndex = false;
    bare.rest.fill(16, 'r');
    for (Arguments const& command : {Arguments{"xml", "-"}, Arguments{"xml", "--raw", "-"}}) {
        for (UmfContent const& without : {content, bare}) {
            ToolResult const result = runTool(command, clipOf(without));
            EXPECT_EQ(result.status, 1);
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.err, piped + "its UMF has no XML document\n");
        }
        ToolResult const noUmf = runTool(command, asText(smallClip()));
        EXPECT_EQ(noUmf.status, 1);
        EXPECT_EQ(noUmf.out, "");
        EXPECT_EQ(noUmf.err, piped + "has no UMF, and so no XML document\n");
    }
}

TEST(Xml, BehindABadIndexIsNotFound) {
    Bytes payload = newsContent().payload();
    setWordAt(payload, 44, 15);
    ToolResult const result = runTool({"xml", "-"}, clipOf(payload));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, atUmf + refused + "badDecodeData: UMF index size 15b != 16b\n" + piped +
                              "its UMF has no XML document\n");
}

TEST(Xml, OfWhichTheIndexClaimsMoreThanThereIsIsGivenAsText) {
    Bytes payload = newsContent().payload();
    std::size_t const length = newsContent().indexOffset() + 8;
    for (unsigned const claimed : {93U, 0xFFFFU}) { // one more, and as many as there can be
        payload[length] = static_cast<unsigned char>(claimed);
        payload[length + 1] = static_cast<unsigned char>(claimed >> 8);
        std::string const fault = atUmf + "the index of the UMF that begins here claims " +
                                  std::to_string(claimed) + " bytes of XML, more than there are\n";
        ToolResult const result = runTool({"xml", "-"}, clipOf(payload));
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, document + "\r\n");
        EXPECT_EQ(result.err, fault);
        ToolResult const raw = runTool({"xml", "--raw", "-"}, clipOf(payload));
        EXPECT_EQ(raw.status, 1);
        EXPECT_EQ(raw.out, "");
        EXPECT_EQ(raw.err, fault + piped + "its UMF has no XML document\n");
    }
}

TEST(Xml, OfSeveralUmfsTheLastValidOneTells) {
    UmfContent first = newsContent();
    UmfContent second = newsContent();
    second.xml = utf16("<?xml version=\"1.0\"?><Second/>").fill(2);
    Bytes broken = first.payload();
    setWordAt(broken, 4, 9); // version
    ToolResult const result =
        runTool({"xml", "-"}, clipAround({umfPacket(3, first.payload()),
                                          umfPacket(3, second.payload()), umfPacket(3, broken)}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "<?xml version=\"1.0\"?><Second/>");
    EXPECT_THAT(result.err, HasSubstr(": the UMF that begins here is refused, "));
}

TEST(Xml, SpreadOverPacketsIsJoined) {
    std::string text = "<?xml version=\"1.0\"?><Asset>";
    while (text.size() < 30000) {
        text += "<Data/>";
    }
    text += "</Asset>";
    std::string const stream = clipWith(utf16(text));
    ASSERT_EQ(packetsOf(stream).size(), 6U);
    ToolResult const result = runTool({"xml", "-"}, stream);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.out == text);
}

TEST(Xml, OfAStreamWithFaultsIsPrintedWithStatus1) {
    std::string const stream = "garbage that is no packet" + clipWith(utf16(document));
    ToolResult const result = runTool({"xml", "-"}, stream.substr(0, stream.size() - 3));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, document);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2) << result.err;
}

TEST(Xml, AFullDeviceIsTold) {
    for (char const* const command : {"xml", "xml --raw"}) {
        ToolResult const result = runShell(
            std::string("\"$GXF\" ") + command + " \"$1\" > /dev/full", {sample("news_pal.gxf")});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.err, "gxf: standard output: writing failed, No space left on device; what "
                              "arrived there isn't whole\n");
    }
}

TEST(Xml, FetchesNothingThatTheDocumentNames) {
    TemporaryFolder const folder;
    std::string const secret = folder.write("secret", "SECRET");
    std::string const text =
        "<?xml version=\"1.0\"?><!DOCTYPE A [<!ENTITY e SYSTEM \"" + secret + "\">]><A>&e;</A>";
    ToolResult const result = runTool({"xml", "-"}, clipWith(utf16(text)));
    EXPECT_EQ(result.out, text);
    EXPECT_EQ(runTool({"info", "-"}, clipWith(utf16(text))).out.find("SECRET"), std::string::npos);
}

} // namespace
