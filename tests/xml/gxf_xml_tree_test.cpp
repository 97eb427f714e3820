#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <testing/capture.h>
#include <testing/xml_document.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

constexpr unsigned xmlBit = 1U << 9;
constexpr unsigned dumpBit = 1U << 10;

OpResult decode(GxfXmlTree& tree, std::string const& text) {
    errno = 0;
    return tree.decodeXml(reinterpret_cast<unsigned char const*>(text.data()),
                          static_cast<unsigned>(text.size()));
}

/// The numbers of the tracks that the walk finds, as the document counts them.
std::vector<int> trackNumbers(std::string const& text) {
    GxfXmlTree tree;
    EXPECT_EQ(decode(tree, text).getType(), OpResult::Ok) << text;
    std::vector<int> numbers;
    for (unsigned i = 0; i < tree.getXmlTracks().size(); ++i) {
        EXPECT_TRUE(tree.getXmlTracks()[i].isValid());
        numbers.push_back(tree.getXmlTracks()[i].getTrackNum() + 1);
    }
    return numbers;
}

std::string track(unsigned number) {
    return "<Track trackNumber='" + std::to_string(number) + "'/>";
}

/// A track `level` levels below the root.
std::string trackAtLevel(unsigned level) {
    std::string text = track(7);
    for (unsigned i = 1; i < level; ++i) {
        text = "<x>" + text + "</x>";
    }
    return "<r>" + text + "</r>";
}

struct Reader {
    char const* function;
    OpResult (GxfXmlTree::*read)(xmlNode*);
    char const* name;
    char const* text; ///< behind the node of another name
    std::vector<char const*> attributes;
};

std::vector<Reader> const readers = {
    {"decodeHeader", &GxfXmlTree::decodeHeader, "Header", " is not a header node", {"Version"}},
    {"decodeMovie",
     &GxfXmlTree::decodeMovie,
     "Movie",
     " is not a movie node",
     {"uri",       "machineName", "movieName",         "groupName",        "datasetName",
      "movieId",   "groupId",     "minLength",         "maxLength",        "markIn",
      "markOut",   "created",     "modified",          "videoFormat",      "lengthStr",
      "markInStr", "markOutStr",  "firstTimecodeMask", "lastTimecodeMask", "startTimecodeMask",
      "openCount", "accessCount", "totalExtensions",   "numExtensions"}},
    {"decodeTrackCount",
     &GxfXmlTree::decodeTrackCount,
     "TrackCount",
     " is not a track count node",
     {"NumJpeg", "NumMpeg", "NumMpegHiDef", "NumDVCPRO25", "NumDVCPRO50", "NumMpeg1", "NumAudio",
      "NumTimecode", "NumAncData", "NumVideo"}},
    {"decodeMovieAttributes",
     &GxfXmlTree::decodeMovieAttributes,
     "Attributes",
     " is not a movie attribute node",
     {"AttributeMask1", "AttributeMask2", "OpenMode", "Locked", "ReadOnly", "Structure", "Extended",
      "Construction", "VideoSampleRate", "VideoCompressionType", "AudioSampleSize", "DropFrame",
      "Repeat"}},
};

bool holds(std::vector<char const*> const& names, std::string const& name) {
    for (char const* const known : names) {
        if (name == known) {
            return true;
        }
    }
    return false;
}

/// The parser's own loader of files and addresses, counted for a scope.
class LoaderWatch {
  public:
    LoaderWatch() : m_before(xmlGetExternalEntityLoader()) {
        calls = 0;
        xmlSetExternalEntityLoader(&load);
    }
    LoaderWatch(LoaderWatch const&) = delete;
    LoaderWatch& operator=(LoaderWatch const&) = delete;
    ~LoaderWatch() { xmlSetExternalEntityLoader(m_before); }

    static inline unsigned calls = 0;

  private:
    static xmlParserInput* load(char const*, char const*, xmlParserCtxt*) {
        ++calls;
        return nullptr;
    }

    xmlExternalEntityLoader m_before;
};

} // namespace

TEST(GxfXmlTree, NewTree) {
    GxfXmlTree const tree;
    EXPECT_FALSE(tree.isValid());
    EXPECT_FALSE(tree.hasSantizedData());
    EXPECT_EQ(tree.getXmlTracks().size(), 0U);
    EXPECT_EQ(tree.getUtf8(), nullptr);
    EXPECT_EQ(tree.getUtf8Length(), 0U);
    EXPECT_EQ(tree.xmlDoc, nullptr);
    EXPECT_EQ(tree.sanitizedLength, 0U);
}

TEST(GxfXmlTree, RootAlone) {
    EXPECT_THAT(trackNumbers("<r/>"), IsEmpty());
    EXPECT_THAT(trackNumbers("<r></r>"), IsEmpty());
}

TEST(GxfXmlTree, ParsingAloneDoesNotMakeItValid) {
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, "<r/>"));
    EXPECT_FALSE(tree.isValid());
    EXPECT_NE(tree.xmlDoc, nullptr);
    EXPECT_EQ(tree.getUtf8(), nullptr);
}

TEST(GxfXmlTree, TheRootsNameIsNotRead) {
    EXPECT_THAT(trackNumbers("<Track trackNumber='4'>" + track(5) + "</Track>"), ElementsAre(5));
    EXPECT_THAT(trackNumbers("<anything>" + track(5) + "</anything>"), ElementsAre(5));
}

TEST(GxfXmlTree, NamesInAnyCase) {
    EXPECT_THAT(trackNumbers("<r><TRACK tracknumber='3'/><track TRACKNUMBER='4'/></r>"),
                ElementsAre(3, 4));
    ChannelSetting const on(gxfDebug, xmlBit);
    for (char const* const name :
         {"Data", "Header", "Movie", "TrackCount", "Attributes", "Extension", "DVParameters",
          "MpegParameters", "AvciParameters"}) {
        for (std::string const& written : {std::string(name), upper(name)}) {
            MessageCapture const messages;
            EXPECT_THAT(trackNumbers("<r><" + written + "/></r>"), IsEmpty());
            for (std::string const& text : messages.texts()) {
                EXPECT_EQ(text, "") << written;
            }
        }
    }
}

TEST(GxfXmlTree, EntersEveryElementButTracks) {
    for (char const* const name :
         {"Data", "Header", "Movie", "TrackCount", "Attributes", "Extension", "DVParameters",
          "MpegParameters", "AvciParameters", "Segment", "unknown"}) {
        std::string const element = name;
        EXPECT_THAT(trackNumbers("<r><" + element + ">" + track(9) + "</" + element + "></r>"),
                    ElementsAre(9))
            << name;
    }
    EXPECT_THAT(trackNumbers("<r><Track trackNumber='2'>" + track(3) + "<x>" + track(4) +
                             "</x></Track></r>"),
                ElementsAre(2));
}

TEST(GxfXmlTree, ATrackInsideAnUnknownElementInsideData) {
    EXPECT_THAT(trackNumbers("<r><Data><unknown>" + track(6) + "</unknown></Data></r>"),
                ElementsAre(6));
}

TEST(GxfXmlTree, TracksInTheDocumentsOrder) {
    EXPECT_THAT(trackNumbers("<r>" + track(1) + "<Data><Movie>" + track(2) + "<a><b>" + track(3) +
                             "</b></a>" + track(4) + "</Movie>" + track(5) + "</Data>" + track(6) +
                             "</r>"),
                ElementsAre(1, 2, 3, 4, 5, 6));
}

TEST(GxfXmlTree, MoreTracksThanItHasRoomForAtFirst) {
    std::string text = "<r>";
    for (unsigned i = 1; i <= 100; ++i) {
        text += "<Track trackNumber='" + std::to_string(i) + "' trackLabel='T" + std::to_string(i) +
                "'/>";
    }
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, text + "</r>"));
    ASSERT_EQ(tree.getXmlTracks().size(), 100U);
    for (unsigned i = 0; i < 100; ++i) {
        EXPECT_EQ(tree.getXmlTracks()[i].getTrackNum(), i);
        EXPECT_EQ(tree.getXmlTracks()[i].getLabel(), "T" + std::to_string(i + 1));
    }
}

TEST(GxfXmlTree, SixLevelsAreRead) {
    for (unsigned level = 1; level <= 6; ++level) {
        EXPECT_THAT(trackNumbers(trackAtLevel(level)), ElementsAre(7)) << level;
    }
    for (unsigned level = 7; level <= 200; ++level) {
        EXPECT_THAT(trackNumbers(trackAtLevel(level)), IsEmpty()) << level;
    }
}

TEST(GxfXmlTree, WhatFollowsATooDeepTreeIsRead) {
    std::string const deep = "<a><a><a><a><a><a>" + track(1) + "</a></a></a></a></a></a>";
    EXPECT_THAT(trackNumbers("<r>" + deep + track(2) + "<b>" + deep + track(3) + "</b></r>"),
                ElementsAre(2, 3));
}

TEST(GxfXmlTree, TooDeepIsAWarningToADirectCaller) {
    XmlDocument const document("<r><a/></r>");
    MessageCapture const messages;
    GxfXmlTree tree;
    EXPECT_EQ(tree.readSubTree(document.child(), 5).getType(), OpResult::Ok);
    OpResult const result = tree.readSubTree(document.child(), 6);
    EXPECT_EQ(result.getType(), OpResult::Warning);
    EXPECT_EQ(result.getCode(), 20);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().function, "readSubTree");
    EXPECT_EQ(tree.readSubTree(document.child(), 4294967295U).getCode(), 20);
    EXPECT_EQ(tree.readSubTree(nullptr, 5).getType(), OpResult::Ok);
    EXPECT_EQ(tree.readSubTree(nullptr, 6).getCode(), 20);
    EXPECT_THAT(messages.texts(), IsEmpty());
    ChannelSetting const on(gxfDebug, xmlBit);
    EXPECT_EQ(tree.readSubTree(document.child(), 6).getCode(), 20);
    EXPECT_EQ(tree.readSubTree(nullptr, 6).getCode(), 20);
    EXPECT_THAT(messages.texts(),
                ElementsAre("reached max xml depth with Element:name=a,content=null",
                            "reached max xml depth with "));
}

TEST(GxfXmlTree, Notes) {
    std::string const text = "<r><x a='1'/>t<!--c--><y/></r>";
    {
        ChannelSetting const others(gxfDebug, ~(xmlBit | dumpBit));
        MessageCapture const messages;
        EXPECT_THAT(trackNumbers(text), IsEmpty());
        EXPECT_THAT(messages.texts(), IsEmpty());
    }
    ChannelSetting const on(gxfDebug, xmlBit);
    MessageCapture const messages;
    EXPECT_THAT(trackNumbers(text), IsEmpty());
    // The empty rows below the four nodes come first.
    EXPECT_THAT(messages.texts(MessageKind::Debug),
                ElementsAre("", "", "", "",
                            "Unknown element:[Element:name=x,content=null]\n"
                            "Unknown element:[Element:name=y,content=null]\n"));
}

TEST(GxfXmlTree, DumpsTheDocument) {
    ChannelSetting const on(gxfDebug, dumpBit);
    MessageCapture const messages;
    EXPECT_THAT(trackNumbers("<r><a b='100% %s'/><c>d</c></r>"), IsEmpty());
    EXPECT_THAT(messages.texts(MessageKind::Debug),
                ElementsAre("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                            "<r>\n  <a b=\"100% %s\"/>\n  <c>d</c>\n</r>\n"));
}

TEST(GxfXmlTree, ADocumentThatIsNotWellFormed) {
    for (char const* const text :
         {"<a><b></a>", "<?xml version='1.0'?>", "<r", "text", "<r>&undeclared;</r>", "<r/><r/>",
          "<r a='1' a='2'/>", "\xff", "<?xml version='1.0' encoding='UTF-16'?><r/>"}) {
        SCOPED_TRACE(text);
        GxfXmlTree tree;
        OpResult const result = decode(tree, text);
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 22);
        // The last error of the thread is still there.
        EXPECT_STREQ(result.getText(), xmlNodeToString(xmlGetLastError()).get());
        EXPECT_THAT(result.getText(), testing::MatchesRegex("err=[0-9]+:\\([^\n]+\\)"));
        EXPECT_EQ(tree.xmlDoc, nullptr);
        EXPECT_FALSE(tree.isValid());
    }
}

TEST(GxfXmlTree, AMismatchIsNamed) {
    GxfXmlTree tree;
    EXPECT_STREQ(decode(tree, "<a></b>").getText(),
                 "err=76:(Opening and ending tag mismatch: a line 1 and b)");
}

TEST(GxfXmlTree, NoText) {
    GxfXmlTree tree;
    OpResult const result = decode(tree, "");
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), 22);
    EXPECT_EQ(tree.decodeXml(nullptr, 0).getCode(), 22);
}

TEST(GxfXmlTree, TheParserReportsAtItsBitOnly) {
    GxfXmlTree tree;
    {
        ChannelSetting const others(gxfDebug, ~(xmlBit | dumpBit));
        CaptureStderr();
        EXPECT_FALSE(decode(tree, "<a></b>"));
        EXPECT_EQ(GetCapturedStderr(), "");
    }
    ChannelSetting const on(gxfDebug, xmlBit);
    CaptureStderr();
    EXPECT_FALSE(decode(tree, "<a></b>"));
    EXPECT_THAT(GetCapturedStderr(),
                testing::HasSubstr("Opening and ending tag mismatch: a line 1 and b"));
}

TEST(GxfXmlTree, ASecondDocumentReplacesTheFirstAndAddsItsTracks) {
    GxfXmlTree tree;
    MessageCapture const messages;
    EXPECT_TRUE(decode(tree, "<r>" + track(1) + track(2) + "</r>"));
    EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
    EXPECT_TRUE(decode(tree, "<r>" + track(3) + "</r>"));
    EXPECT_THAT(messages.texts(MessageKind::Trace),
                ElementsAre("warning internalWarning: existing XML tree \n"));
    ASSERT_EQ(tree.getXmlTracks().size(), 3U);
    EXPECT_EQ(tree.getXmlTracks()[0].getTrackNum(), 0);
    EXPECT_EQ(tree.getXmlTracks()[2].getTrackNum(), 2);
    EXPECT_FALSE(decode(tree, "<broken"));
    EXPECT_EQ(tree.xmlDoc, nullptr);
    EXPECT_EQ(tree.getXmlTracks().size(), 3U);
    EXPECT_TRUE(messages.texts().empty());
}

TEST(GxfXmlTree, AClosingNulIsNoPartOfTheDocument) {
    EXPECT_THAT(trackNumbers("<r>" + track(2) + "</r>" + std::string(1, '\0')), ElementsAre(2));
}

TEST(GxfXmlTreeReaders, TakeTheirNamesInAnyCase) {
    GxfXmlTree tree;
    for (Reader const& reader : readers) {
        for (Reader const& other : readers) {
            XmlDocument const asWritten("<" + std::string(other.name) + "/>");
            XmlDocument const inUpperCase("<" + upper(other.name) + "/>");
            bool const isItsOwn = reader.function == other.function;
            EXPECT_EQ((tree.*reader.read)(asWritten.root()).success(), isItsOwn);
            EXPECT_EQ((tree.*reader.read)(inUpperCase.root()).success(), isItsOwn);
        }
    }
}

TEST(GxfXmlTreeReaders, RefuseAnotherNameAndNull) {
    XmlDocument const document("<other/>");
    GxfXmlTree tree;
    for (Reader const& reader : readers) {
        OpResult const result = (tree.*reader.read)(document.root());
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 7);
        EXPECT_EQ(result.getText(), "Element:name=other,content=null" + std::string(reader.text));
        OpResult const ofNull = (tree.*reader.read)(nullptr);
        EXPECT_EQ(ofNull.getType(), OpResult::Error);
        EXPECT_EQ(ofNull.getCode(), 7);
        EXPECT_STREQ(ofNull.getText(), "");
        EXPECT_STREQ(ofNull.getLocation().function, reader.function);
        EXPECT_NE(ofNull.getLocation().line, 0U);
    }
}

TEST(GxfXmlTreeReaders, NoteUnknownAttributes) {
    GxfXmlTree tree;
    for (Reader const& reader : readers) {
        for (Reader const& other : readers) {
            for (char const* const attribute : other.attributes) {
                for (std::string const& name : {std::string(attribute), upper(attribute)}) {
                    XmlDocument const document("<" + std::string(reader.name) + " " + name +
                                               "=''/>");
                    MessageCapture const messages;
                    EXPECT_TRUE((tree.*reader.read)(document.root()));
                    EXPECT_THAT(messages.texts(), IsEmpty());
                    ChannelSetting const on(gxfDebug, xmlBit);
                    EXPECT_TRUE((tree.*reader.read)(document.root()));
                    EXPECT_THAT(messages.texts(MessageKind::Debug),
                                ElementsAre(holds(reader.attributes, attribute)
                                                ? ""
                                                : "Unknown attribute:[Attribute:name=" + name +
                                                      ",content=null]\n"));
                }
            }
        }
    }
}

TEST(GxfXmlTreeReaders, AreCalledByTheWalk) {
    ChannelSetting const on(gxfDebug, xmlBit);
    for (Reader const& reader : readers) {
        MessageCapture const messages;
        EXPECT_THAT(trackNumbers("<r><" + std::string(reader.name) + " a='' b=''/></r>"),
                    IsEmpty());
        EXPECT_THAT(messages.texts(),
                    ElementsAre("Unknown attribute:[Attribute:name=a,content=null]\n"
                                "Unknown attribute:[Attribute:name=b,content=null]\n",
                                "", ""));
    }
}

TEST(GxfXmlEntities, AreNotEntered) {
    std::string const declarations =
        "<!DOCTYPE r [<!ENTITY tracks \"<Track trackNumber='3'/><Track trackNumber='4'/>\">"
        "<!ENTITY Track \"<Track trackNumber='5'/>\"><!ENTITY Header 'x'><!ENTITY Movie 'y'>]>";
    EXPECT_THAT(
        trackNumbers(declarations + "<r>&tracks;&Track;" + track(6) + "&Header;&Movie;</r>"),
        ElementsAre(6));
    ChannelSetting const on(gxfDebug, xmlBit);
    MessageCapture const messages;
    EXPECT_THAT(trackNumbers(declarations + "<r>&tracks;</r>"), IsEmpty());
    EXPECT_THAT(messages.texts(), ElementsAre(""));
}

TEST(GxfXmlEntities, NothingIsLoaded) {
    std::string const path =
        (std::filesystem::path(testing::TempDir()) / ("entity_" + std::to_string(::getpid())))
            .string();
    std::ofstream(path) << "<!ENTITY inner 'secret'>";
    LoaderWatch const watch;
    for (unsigned const bits : {0U, xmlBit}) {
        ChannelSetting const setting(gxfDebug, bits);
        for (std::string const& place : {"file://" + path, path, std::string("http://localhost/x"),
                                         std::string("ftp://localhost/x")}) {
            for (std::string const& text :
                 {"<!DOCTYPE r [<!ENTITY e SYSTEM '" + place + "'>]><r>&e;<a b='1'/></r>",
                  "<!DOCTYPE r SYSTEM '" + place + "'><r>&inner;</r>",
                  "<!DOCTYPE r PUBLIC 'p' '" + place + "'><r/>",
                  "<!DOCTYPE r [<!ENTITY % e SYSTEM '" + place + "'>%e;]><r/>",
                  "<r xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include href='" + place +
                      "'/></r>",
                  "<r xsi:schemaLocation='a " + place +
                      "' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'/>"}) {
                CaptureStderr();
                GxfXmlTree tree;
                EXPECT_TRUE(decode(tree, text)) << text;
                EXPECT_EQ(GetCapturedStderr().find("secret"), std::string::npos);
            }
            CaptureStderr();
            GxfXmlTree tree;
            EXPECT_FALSE(
                decode(tree, "<!DOCTYPE r [<!ENTITY e SYSTEM '" + place + "'>]><r a='&e;'/>"));
            GetCapturedStderr();
        }
    }
    EXPECT_EQ(LoaderWatch::calls, 0U);
    std::filesystem::remove(path);
}

TEST(GxfXmlEntities, AValueOfOneIsNotTaken) {
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, "<!DOCTYPE r [<!ENTITY e 'AudioTrack'>]>"
                             "<r><Track trackType='&e;' trackNumber='2' trackLabel='a&e;b'/></r>"));
    ASSERT_EQ(tree.getXmlTracks().size(), 1U);
    EXPECT_STREQ(tree.getXmlTracks()[0].toString().get(), "valid=t,type=?,num=1,label=a\n");
}
