#include <cerrno>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/capture.h>
#include <testing/xml_document.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

xmlNode* const noNode = nullptr;
xmlAttr* const noAttribute = nullptr;
xmlError* const noError = nullptr;

unsigned char const* xml(char const* text) { return reinterpret_cast<unsigned char const*>(text); }

void expectResult(OpResult const& result, OpResult::Type type, int code, char const* text) {
    EXPECT_EQ(result.getType(), type);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), text);
}

/// A document with an entity of its own.
std::string withEntity(std::string const& root) {
    return "<!DOCTYPE r [<!ENTITY e \"held\"><!ENTITY empty \"\">]>" + root;
}

} // namespace

TEST(XmlStringCmp, TrueForEqualTextsInAnyCase) {
    EXPECT_TRUE(xmlStringCmp(xml("Track"), "Track"));
    EXPECT_TRUE(xmlStringCmp(xml("TRACK"), "track"));
    EXPECT_TRUE(xmlStringCmp(xml("tRaCk"), "TrAcK"));
    EXPECT_TRUE(xmlStringCmp(xml(""), ""));
    EXPECT_FALSE(xmlStringCmp(xml("Track"), "Tracks"));
    EXPECT_FALSE(xmlStringCmp(xml("Tracks"), "Track"));
    EXPECT_FALSE(xmlStringCmp(xml("Track "), "Track"));
    EXPECT_FALSE(xmlStringCmp(xml(""), "Track"));
}

TEST(XmlStringCmp, NullEqualsNothing) {
    EXPECT_FALSE(xmlStringCmp(nullptr, nullptr));
    EXPECT_FALSE(xmlStringCmp(xml("a"), nullptr));
    EXPECT_FALSE(xmlStringCmp(nullptr, "a"));
    EXPECT_FALSE(xmlStringCmp(xml(""), nullptr));
    EXPECT_FALSE(xmlStringCmp(nullptr, ""));
}

TEST(XmlValue, IsTheAttributesText) {
    XmlDocument const document("<r a='one &amp; &#x32; &lt;three&gt; '/>");
    OpResult result(OpResult::Error, 7, gxfOpSubsystem.getId(), "of before");
    EXPECT_STREQ(getValue(document.attribute(), result), "one & 2 <three> ");
    EXPECT_EQ(result.getType(), OpResult::Ok);
    EXPECT_STREQ(getValue(document.attribute()), "one & 2 <three> ");
}

TEST(XmlValue, FailsWithoutAnAttribute) {
    OpResult result;
    EXPECT_STREQ(getValue(noAttribute, result), "");
    expectResult(result, OpResult::Error, 7, "bad attribute node");
    EXPECT_STREQ(getValue(noAttribute), "");
}

TEST(XmlValue, FailsForAnEmptyValueHoweverItIsHeld) {
    OpResult result;
    XmlDocument const parsed("<r a=''/>");
    EXPECT_STREQ(getValue(parsed.attribute(), result), "");
    expectResult(result, OpResult::Error, 7, "bad value node");

    XmlDocument const made("<r/>");
    xmlNewProp(made.root(), xml("a"), xml(""));
    ASSERT_NE(made.attribute()->children, nullptr);
    EXPECT_STREQ(getValue(made.attribute(), result), "");
    expectResult(result, OpResult::Error, 7, "bad value node");

    XmlDocument const childless("<r/>");
    xmlNewProp(childless.root(), xml("a"), nullptr);
    ASSERT_EQ(childless.attribute()->children, nullptr);
    EXPECT_STREQ(getValue(childless.attribute(), result), "");
    expectResult(result, OpResult::Error, 7, "bad value node");
}

TEST(XmlValue, FailsForAReferenceToAnEntity) {
    for (char const* const root : {"<r a='&e;'/>", "<r a='&e;behind'/>", "<r a='&empty;'/>"}) {
        XmlDocument const document(withEntity(root));
        OpResult result;
        EXPECT_STREQ(getValue(document.attribute(), result), "");
        expectResult(result, OpResult::Error, 7,
                     "Attribute:name=a,content=null is not a Text Node");
    }
}

TEST(XmlValue, FailsForAReferenceToNoEntity) {
    XmlDocument const document("<!DOCTYPE r SYSTEM 'absent.dtd'><r a='&unknown;'/>");
    ASSERT_NE(document.root(), nullptr);
    OpResult result;
    EXPECT_STREQ(getValue(document.attribute(), result), "");
    expectResult(result, OpResult::Error, 7, "bad value node");
}

TEST(XmlValue, EndsAtAReferenceBehindText) {
    XmlDocument const document(withEntity("<r a='text&e;more'/>"));
    OpResult result;
    EXPECT_STREQ(getValue(document.attribute(), result), "text");
    EXPECT_TRUE(result);
}

TEST(XmlUint64, BasesAndRest) {
    struct Row {
        char const* text;
        unsigned long long value;
    };
    for (Row const& row : {
             Row{"16", 16},
             {"0x10", 16},
             {"0XfF", 255},
             {"010", 8},
             {"0", 0},
             {"09", 0},
             {" 7", 7},
             {"+7", 7},
             {"12abc", 12},
             {"abc", 0},
             {" ", 0},
             {"-1", 18446744073709551615U},
             {"18446744073709551615", 18446744073709551615U},
             {"0xffffffffffffffff", 18446744073709551615U},
         }) {
        SCOPED_TRACE(row.text);
        XmlDocument const document("<r a='" + std::string(row.text) + "'/>");
        OpResult result(OpResult::Error, 7, gxfOpSubsystem.getId(), "of before");
        errno = 0;
        EXPECT_EQ(getUint64(document.attribute(), result), row.value);
        EXPECT_EQ(result.getType(), OpResult::Ok);
    }
}

TEST(XmlUint64, BeyondTheRange) {
    XmlDocument const document("<r a='18446744073709551616'/>");
    OpResult result;
    errno = 0;
    EXPECT_EQ(getUint64(document.attribute(), result), 0U);
    EXPECT_EQ(errno, 0);
    expectResult(result, OpResult::Warning, 21, "18446744073709551616 (34)");
}

TEST(XmlUint64, AnErrorNumberOfBeforeFailsAGoodNumberOnce) {
    XmlDocument const document("<r a='5'/>");
    OpResult result;
    errno = 13;
    EXPECT_EQ(getUint64(document.attribute(), result), 0U);
    EXPECT_EQ(errno, 0);
    expectResult(result, OpResult::Warning, 21, "5 (13)");
    EXPECT_EQ(getUint64(document.attribute(), result), 5U);
    EXPECT_EQ(result.getType(), OpResult::Ok);
}

TEST(XmlUint64, WithoutATextTheErrorNumberIsNeitherReadNorCleared) {
    OpResult result;
    errno = 13;
    EXPECT_EQ(getUint64(noAttribute, result), 0U);
    expectResult(result, OpResult::Error, 7, "bad attribute node");
    XmlDocument const document("<r a=''/>");
    errno = 13;
    EXPECT_EQ(getUint64(document.attribute(), result), 0U);
    EXPECT_EQ(errno, 13);
    expectResult(result, OpResult::Error, 7, "bad value node");
    errno = 0;
}

TEST(XmlNodeToString, EachKind) {
    struct Row {
        char const* document;
        char const* text;
    };
    for (Row const& row : {
             Row{"<r><a>x</a></r>", "Element:name=a,content=null"},
             {"<r>some text</r>", "Text:name=text,content=some text"},
             {"<r><![CDATA[<x>]]></r>", "CDATA:name=null,content=<x>"},
             {"<r><!-- c --></r>", "Other(8):name=comment,content= c "},
             {"<r><?target data?></r>", "Other(7):name=target,content=data"},
             {"<r><?target?></r>", "Other(7):name=target,content=null"},
             {"<!DOCTYPE r [<!ENTITY e \"held\">]><r>&e;</r>", "Other(5):name=e,content=held"},
         }) {
        XmlDocument const document(row.document);
        EXPECT_STREQ(xmlNodeToString(document.child()).get(), row.text);
    }
}

TEST(XmlNodeToString, AnAttributeHasNoContentOfItsOwn) {
    XmlDocument const document("<r a='value'/>");
    EXPECT_STREQ(xmlNodeToString(document.attribute()).get(), "Attribute:name=a,content=null");
    EXPECT_STREQ(xmlNodeToString(reinterpret_cast<xmlNode*>(document.attribute())).get(),
                 "Attribute:name=a,content=null");
}

TEST(XmlNodeToString, ContentIsNoFormat) {
    XmlDocument const document("<r>100%% %s %n</r>");
    EXPECT_STREQ(xmlNodeToString(document.child()).get(), "Text:name=text,content=100%% %s %n");
}

TEST(XmlNodeToString, EmptyForNull) {
    EXPECT_STREQ(xmlNodeToString(noNode).get(), "");
    EXPECT_STREQ(xmlNodeToString(noAttribute).get(), "");
    EXPECT_STREQ(xmlNodeToString(noError).get(), "");
}

TEST(XmlNodeToString, AnErrorWithoutItsNewline) {
    struct Row {
        char const* message;
        char const* text;
    };
    for (Row const& row : {
             Row{"mismatch\n", "err=76:(mismatch)"},
             {"mismatch", "err=76:(mismatch)"},
             {"two\n\n", "err=76:(two\n)"},
             {"in\nside", "err=76:(in\nside)"},
             {"\n", "err=76:()"},
             {"", "err=76:()"},
             {nullptr, "err=76:(null)"},
         }) {
        std::string message = row.message != nullptr ? row.message : "";
        xmlError error{};
        error.code = 76;
        error.message = row.message != nullptr ? message.data() : nullptr;
        EXPECT_STREQ(xmlNodeToString(&error).get(), row.text);
        EXPECT_STREQ(message.c_str(), row.message != nullptr ? row.message : "");
    }
}

namespace {

struct MediaTypeRow {
    char const* word;
    unsigned number;
    char const* name;
};

/// In the order of the search.
constexpr MediaTypeRow mediaTypes[] = {
    {"AudioTrack", 2, "Audio"},
    {"TimeCodeTrack", 3, "Timecode"},
    {"AncillaryDataTrack", 8, "AncillaryData"},
    {"AvciVideoTrack", 11, "AvcI"},
    {"DvcproHdTrack", 10, "DV100"},
    {"Dvcpro50Track", 6, "DV50"},
    {"Dvcpro25Track", 5, "DV25"},
    {"MpegHiDefVideoTrack", 7, "Mpeg2HD"},
    {"MpegStdDefVideoTrack", 4, "Mpeg2SD"},
};

struct TrackTypeRow {
    char const* word;
    unsigned number;
    char const* name;
};

constexpr TrackTypeRow trackTypes[] = {
    {"TimeCodeTrack", 1, "Timecode"},
    {"AudioTrack", 3, "Audio"},
    {"VideoTrack", 4, "Video"},
    {"AncillaryDataTrack", 2, "AncillaryData"},
};

} // namespace

TEST(XmlMediaType, EachWordWhateverStandsAroundIt) {
    for (MediaTypeRow const& row : mediaTypes) {
        SCOPED_TRACE(row.word);
        std::string const word = row.word;
        EXPECT_EQ(getMediaType(word.c_str()), row.number);
        EXPECT_STREQ(getName(getMediaType(word.c_str())), row.name);
        EXPECT_EQ(getMediaType(upper(word).c_str()), row.number);
        EXPECT_EQ(getMediaType(("My" + word + "Copy").c_str()), row.number);
        EXPECT_EQ(getMediaType(word.substr(0, word.size() - 1).c_str()), 13U);
        EXPECT_EQ(getMediaType(word.substr(1).c_str()), 13U);
    }
}

TEST(XmlMediaType, TheFirstOfTheListWins) {
    for (MediaTypeRow const& first : mediaTypes) {
        for (MediaTypeRow const* later = &first + 1; later != std::end(mediaTypes); ++later) {
            EXPECT_EQ(getMediaType((std::string(later->word) + first.word).c_str()), first.number);
        }
    }
}

TEST(XmlMediaType, WithoutAKnownWord) {
    for (char const* const text :
         {"", "VideoTrack", "MotionJpegTrack", "MpegTrack", "Audio Track", "Track"}) {
        EXPECT_EQ(getMediaType(text), 13U) << text;
        EXPECT_STREQ(getName(getMediaType(text)), "?");
    }
    EXPECT_EQ(getMediaType(static_cast<char const*>(nullptr)), 13U);
}

TEST(XmlTrackType, EachWordWhateverStandsAroundIt) {
    for (TrackTypeRow const& row : trackTypes) {
        std::string const word = row.word;
        EXPECT_EQ(getTrackType(word.c_str()), row.number);
        EXPECT_STREQ(getName(getTrackType(word.c_str())), row.name);
        EXPECT_EQ(getTrackType(("x" + upper(word) + "x").c_str()), row.number);
        for (TrackTypeRow const* later = &row + 1; later != std::end(trackTypes); ++later) {
            EXPECT_EQ(getTrackType((std::string(later->word) + word).c_str()), row.number);
        }
    }
}

TEST(XmlTrackType, OfTheMediaTypesWords) {
    EXPECT_EQ(getTrackType("AvciVideoTrack"), trackTypeVideo);
    EXPECT_EQ(getTrackType("MpegHiDefVideoTrack"), trackTypeVideo);
    EXPECT_EQ(getTrackType("MpegStdDefVideoTrack"), trackTypeVideo);
    EXPECT_EQ(getTrackType("DvcproHdTrack"), trackTypeUnknown);
    EXPECT_EQ(getTrackType("Dvcpro50Track"), trackTypeUnknown);
    EXPECT_EQ(getTrackType("Dvcpro25Track"), trackTypeUnknown);
    EXPECT_EQ(getTrackType(""), trackTypeUnknown);
    EXPECT_STREQ(getName(getTrackType("")), "Unknown");
}

TEST(XmlTrackType, NullIsReported) {
    MessageCapture const messages;
    EXPECT_EQ(getTrackType("nothing known"), trackTypeUnknown);
    EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
    EXPECT_EQ(getTrackType(nullptr), trackTypeUnknown);
    EXPECT_THAT(messages.texts(MessageKind::Trace),
                ElementsAre(MatchesRegex(
                    "error internalError \\(getTrackType, xml_values.cpp:[0-9]+\\)\n")));
}

TEST(XmlArc, WholeWordsInAnyCase) {
    struct Row {
        char const* word;
        unsigned number;
    };
    for (Row const& row : {Row{"stretch", 1}, {"halfbars", 2}, {"crop", 3}, {"bars", 4}}) {
        std::string const word = row.word;
        EXPECT_EQ(getArc(word.c_str()), row.number);
        EXPECT_EQ(getArc(upper(word).c_str()), row.number);
        EXPECT_STREQ(getName(getArc(word.c_str())), row.word);
        EXPECT_EQ(getArc((word + " ").c_str()), 0U);
        EXPECT_EQ(getArc((" " + word).c_str()), 0U);
        EXPECT_EQ(getArc(word.substr(1).c_str()), 0U);
    }
    EXPECT_EQ(getArc("Stretch"), 1U);
    EXPECT_EQ(getArc("default"), 0U);
    EXPECT_EQ(getArc(""), 0U);
    EXPECT_EQ(getArc(nullptr), 0U);
    EXPECT_STREQ(getName(getArc(nullptr)), "default");
}
