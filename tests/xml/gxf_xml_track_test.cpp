#include <cerrno>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/capture.h>
#include <testing/xml_document.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr unsigned xmlBit = 1U << 9;

struct Reader {
    char const* function;
    std::function<OpResult(xmlNode*)> read;
    std::vector<char const*> names;
    char const* text; ///< behind the node of another name
    std::vector<char const*> attributes;
    std::vector<char const*> children; ///< those that leave no note
    bool looksAtChildren;
};

template <typename Record, OpResult (Record::*decode)(xmlNode*)> OpResult readWith(xmlNode* node) {
    Record record;
    return (record.*decode)(node);
}

std::vector<char const*> const pictureAttributes = {"Lines", "Pixels", "AspectRatio",
                                                    "AspectRatioConversion", "Afd"};

std::vector<Reader> const readers = {
    {"decode",
     readWith<GxfXmlTrack, &GxfXmlTrack::decode>,
     {"track"},
     " is not a track node",
     {"trackType", "trackNumber", "trackLabel", "trackId", "trackLength", "numSegments",
      "numExtensions"},
     {"Segment"},
     true},
    {"decode",
     readWith<GxfXmlSegment, &GxfXmlSegment::decode>,
     {"segment"},
     " is not a segment node",
     {"segmentIndex", "segmentName", "segmentCode", "segmentId", "editId", "duration",
      "naturalDuration", "startPosition", "numExtensions"},
     {"MediaSegment"},
     true},
    {"decodeMediaSegment",
     readWith<GxfXmlSegment, &GxfXmlSegment::decodeMediaSegment>,
     {"mediaSegment"},
     " is not a media node",
     {"fileType", "mediaIn", "mediaOut", "minMediaIn", "maxMediaOut", "fileName", "indexFileName",
      "sampleRate", "sampleSize", "videoFormat"},
     {"AudioSegment", "TimecodeSegment", "AncillaryDataSegment", "AvciSegment", "DVCPRO25Segment",
      "DVCPRO50Segment", "DVCPROHDSegment", "MpegSegment", "MpegHiDefSegment"},
     true},
    {"decodeMpegSegment",
     readWith<GxfXmlSegment, &GxfXmlSegment::decodeMpegSegment>,
     {"MpegSegment", "MpegHiDefSegment"},
     " is not a mpeg node",
     pictureAttributes,
     {"MpegParameters"},
     true},
    {"decodeDvSegment",
     readWith<GxfXmlSegment, &GxfXmlSegment::decodeDvSegment>,
     {"DVCPROHDSegment", "DVCPRO25Segment", "DVCPRO50Segment"},
     " is not a dv node",
     pictureAttributes,
     {"DvParameters"},
     true},
    {"decodeAvciSegment",
     readWith<GxfXmlSegment, &GxfXmlSegment::decodeAvciSegment>,
     {"AvciSegment"},
     " is not an avci node",
     pictureAttributes,
     {"AvciParameters"},
     true},
    {"decodeMpegParams",
     readWith<GxfXmlSegment, &GxfXmlSegment::decodeMpegParams>,
     {"MpegParameters"},
     " is not a mpeg params node",
     {"Chroma", "GOPEnd", "PixType", "IPixPerGop", "PPixPerIPix", "BPixPerIPPix",
      "MpegCompressionType"},
     {},
     false},
    {"decodeAudioSegment",
     readWith<GxfXmlSegment, &GxfXmlSegment::decodeAudioSegment>,
     {"AudioSegment"},
     " is not an audio node",
     {"inputGain", "inputGainDuration", "outputGain", "outputGainDuration", "audioFormat"},
     {},
     false},
    {"decodeTimecodeSegment",
     readWith<GxfXmlSegment, &GxfXmlSegment::decodeTimecodeSegment>,
     {"timeCodeSegment"},
     " is not a timecode node",
     {"FirstMediaTimecodeMask", "LastMediaTimecodeMask", "MediaInStr", "MediaOutStr", "DropFrame"},
     {},
     false},
};

/// All that the readers could be given, so that each refuses what it doesn't know.
std::vector<char const*> const allChildren = {"Segment",
                                              "MediaSegment",
                                              "AudioSegment",
                                              "TimecodeSegment",
                                              "AvciSegment",
                                              "DVCPRO25Segment",
                                              "DVCPRO50Segment",
                                              "AncillaryDataSegment",
                                              "DVCPROHDSegment",
                                              "MpegSegment",
                                              "MpegHiDefSegment",
                                              "MpegParameters",
                                              "DvParameters",
                                              "AvciParameters",
                                              "Track",
                                              "other"};

bool holds(std::vector<char const*> const& names, std::string const& name) {
    for (char const* const known : names) {
        if (name == known) {
            return true;
        }
    }
    return false;
}

std::string element(std::string const& name, std::string const& attributes,
                    std::string const& content = {}) {
    return "<" + name + " " + attributes + ">" + content + "</" + name + ">";
}

/// The record of a track that is given as text. The error number is that of a fresh thread.
GxfXmlTrack trackOf(std::string const& text) {
    XmlDocument const document(text);
    GxfXmlTrack track;
    errno = 0;
    EXPECT_TRUE(track.decode(document.root())) << text;
    return track;
}

GxfXmlSegment segmentOf(std::string const& picture) {
    XmlDocument const document("<Segment><MediaSegment>" + picture + "</MediaSegment></Segment>");
    GxfXmlSegment segment;
    EXPECT_TRUE(segment.decode(document.root())) << picture;
    return segment;
}

} // namespace

TEST(GxfXmlReaders, TakeTheirNamesInAnyCase) {
    for (Reader const& reader : readers) {
        for (char const* const name : reader.names) {
            EXPECT_EQ(reader.read(XmlDocument(element(name, "")).root()).getType(), OpResult::Ok);
            EXPECT_EQ(reader.read(XmlDocument(element(upper(name), "")).root()).getType(),
                      OpResult::Ok);
        }
    }
}

TEST(GxfXmlReaders, RefuseAnotherName) {
    XmlDocument const document("<other/>");
    for (Reader const& reader : readers) {
        OpResult const result = reader.read(document.root());
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 7);
        EXPECT_EQ(result.getText(), "Element:name=other,content=null" + std::string(reader.text));
    }
}

TEST(GxfXmlReaders, RefuseEachOthersNames) {
    for (Reader const& reader : readers) {
        for (Reader const& other : readers) {
            for (char const* const name : other.names) {
                EXPECT_EQ(reader.read(XmlDocument(element(name, "")).root()).success(),
                          holds(reader.names, name))
                    << reader.text << ": " << name;
            }
        }
    }
}

TEST(GxfXmlReaders, RefuseNull) {
    for (Reader const& reader : readers) {
        OpResult const result = reader.read(nullptr);
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 7);
        EXPECT_STREQ(result.getText(), "");
        EXPECT_STREQ(result.getLocation().function, reader.function);
        EXPECT_NE(result.getLocation().line, 0U);
    }
}

TEST(GxfXmlReaders, LeaveNoNoteOnTheirAttributes) {
    ChannelSetting const on(gxfDebug, xmlBit);
    for (Reader const& reader : readers) {
        for (char const* const attribute : reader.attributes) {
            for (std::string const& name : {std::string(attribute), upper(attribute)}) {
                XmlDocument const document(element(reader.names[0], name + "='1'"));
                MessageCapture const messages;
                EXPECT_TRUE(reader.read(document.root()));
                EXPECT_THAT(messages.texts(), ElementsAre("")) << reader.text << ": " << name;
            }
        }
    }
}

TEST(GxfXmlReaders, NoteEachOthersAttributes) {
    ChannelSetting const on(gxfDebug, xmlBit);
    for (Reader const& reader : readers) {
        for (Reader const& other : readers) {
            for (char const* const attribute : other.attributes) {
                if (holds(reader.attributes, attribute)) {
                    continue;
                }
                XmlDocument const document(
                    element(reader.names[0], std::string(attribute) + "='1'"));
                MessageCapture const messages;
                EXPECT_TRUE(reader.read(document.root()));
                EXPECT_THAT(messages.texts(MessageKind::Debug),
                            ElementsAre("Unknown attribute:[Attribute:name=" +
                                        std::string(attribute) + ",content=null]\n"));
            }
        }
    }
}

TEST(GxfXmlReaders, NoteTheChildrenThatTheyDoNotAccept) {
    ChannelSetting const on(gxfDebug, xmlBit);
    for (Reader const& reader : readers) {
        for (char const* const child : allChildren) {
            XmlDocument const document(
                element(reader.names[0], "", element(child, "", "<below/>")));
            MessageCapture const messages;
            EXPECT_TRUE(reader.read(document.root()));
            bool const isNoted = reader.looksAtChildren && !holds(reader.children, child);
            std::string const note =
                "Unknown child:[Element:name=" + std::string(child) + ",content=null]\n";
            EXPECT_EQ(messages.texts().back(), isNoted ? note : "") << reader.text << ": " << child;
        }
    }
}

TEST(GxfXmlReaders, NotesInOrderAndFromTheInsideOut) {
    ChannelSetting const on(gxfDebug, xmlBit);
    XmlDocument const document("<Track a='' b=''>\n"
                               "<Segment c=''><x/><!--y--><MediaSegment d=''>"
                               "<MpegSegment e=''>z<MpegParameters f=''><g/></MpegParameters>"
                               "</MpegSegment></MediaSegment></Segment></Track>");
    MessageCapture const messages;
    GxfXmlTrack track;
    EXPECT_TRUE(track.decode(document.root()));
    EXPECT_THAT(messages.texts(), ElementsAre("Unknown attribute:[Attribute:name=f,content=null]\n",
                                              "Unknown attribute:[Attribute:name=e,content=null]\n"
                                              "Unknown child:[Text:name=text,content=z]\n",
                                              "Unknown attribute:[Attribute:name=d,content=null]\n",
                                              "Unknown attribute:[Attribute:name=c,content=null]\n"
                                              "Unknown child:[Element:name=x,content=null]\n"
                                              "Unknown child:[Other(8):name=comment,content=y]\n",
                                              "Unknown attribute:[Attribute:name=a,content=null]\n"
                                              "Unknown attribute:[Attribute:name=b,content=null]\n"
                                              "Unknown child:[Text:name=text,content=\n]\n"));
}

TEST(GxfXmlReaders, AreSilentWithoutTheirBit) {
    ChannelSetting const others(gxfDebug, ~xmlBit);
    MessageCapture const messages;
    for (Reader const& reader : readers) {
        XmlDocument const document(element(reader.names[0], "other=''", "<other/>"));
        EXPECT_TRUE(reader.read(document.root()));
    }
    EXPECT_THAT(messages.texts(), IsEmpty());
}

TEST(GxfXmlReaders, AudioAndTimecodeAndParametersAreNotRead) {
    ChannelSetting const on(gxfDebug, xmlBit);
    XmlDocument const document("<MediaSegment><AudioSegment x=''/><TimecodeSegment x=''/>"
                               "<AncillaryDataSegment x=''/></MediaSegment>");
    MessageCapture const messages;
    GxfXmlSegment segment;
    EXPECT_TRUE(segment.decodeMediaSegment(document.root()));
    EXPECT_THAT(messages.texts(), ElementsAre(""));

    for (char const* const text : {"<AvciSegment><AvciParameters x=''/></AvciSegment>",
                                   "<DVCPRO25Segment><DvParameters x=''/></DVCPRO25Segment>"}) {
        XmlDocument const picture("<MediaSegment>" + std::string(text) + "</MediaSegment>");
        MessageCapture const pictureMessages;
        EXPECT_TRUE(segment.decodeMediaSegment(picture.root()));
        EXPECT_THAT(pictureMessages.texts(), ElementsAre("", ""));
    }
}

TEST(GxfXmlSegment, NewSegment) {
    GxfXmlSegment const segment;
    EXPECT_FALSE(segment.isValid());
    EXPECT_EQ(segment.getAspectRatioConversion(), 0U);
    EXPECT_EQ(segment.getAspectRatio(), 2U);
    EXPECT_STREQ(segment.toString().get(), "valid=f,arc=default,aspect=unknown");
}

TEST(GxfXmlSegment, WithoutMedia) {
    XmlDocument const document("<Segment duration='5'/>");
    GxfXmlSegment segment;
    EXPECT_TRUE(segment.decode(document.root()));
    EXPECT_TRUE(segment.isValid());
    EXPECT_STREQ(segment.toString().get(), "valid=t,arc=default,aspect=unknown");
}

TEST(GxfXmlSegment, IsNotValidAfterAFailure) {
    XmlDocument const document("<Sequence/>");
    GxfXmlSegment segment;
    EXPECT_FALSE(segment.decode(document.root()));
    EXPECT_FALSE(segment.isValid());
    EXPECT_FALSE(segment.decode(nullptr));
    EXPECT_FALSE(segment.isValid());
}

TEST(GxfXmlSegment, PictureOfEachVideoKind) {
    for (char const* const name : {"MpegSegment", "MpegHiDefSegment", "DVCPRO25Segment",
                                   "DVCPRO50Segment", "DVCPROHDSegment", "AvciSegment"}) {
        GxfXmlSegment const segment = segmentOf(
            element(name, "Lines='720' AspectRatio='9x16' Afd='1' AspectRatioConversion='Crop'"));
        EXPECT_STREQ(segment.toString().get(), "valid=t,arc=crop,aspect=16x9") << name;
    }
}

TEST(GxfXmlSegment, OtherKindsGiveNoPicture) {
    for (char const* const name :
         {"AudioSegment", "TimecodeSegment", "AncillaryDataSegment", "other"}) {
        GxfXmlSegment const segment =
            segmentOf(element(name, "AspectRatio='9x16' AspectRatioConversion='crop'"));
        EXPECT_STREQ(segment.toString().get(), "valid=t,arc=default,aspect=unknown") << name;
    }
}

TEST(GxfXmlSegment, TheLastVideoWins) {
    GxfXmlSegment const segment =
        segmentOf("<MpegSegment AspectRatio='3x4' AspectRatioConversion='bars'/>"
                  "<AvciSegment AspectRatio='9x16'/>"
                  "<DVCPRO50Segment AspectRatioConversion='stretch'/>");
    EXPECT_STREQ(segment.toString().get(), "valid=t,arc=stretch,aspect=16x9");
}

TEST(GxfXmlSegment, ABadValueLeavesTheField) {
    GxfXmlSegment const segment =
        segmentOf("<MpegSegment AspectRatio='3x4' AspectRatioConversion='bars'/>"
                  "<MpegSegment AspectRatio='' AspectRatioConversion=''/>");
    EXPECT_STREQ(segment.toString().get(), "valid=t,arc=bars,aspect=4x3");
}

TEST(GxfXmlSegment, AnUnknownWordReplacesTheField) {
    GxfXmlSegment const segment =
        segmentOf("<MpegSegment AspectRatio='3x4' AspectRatioConversion='bars'/>"
                  "<MpegSegment AspectRatio='wide' AspectRatioConversion='squeeze'/>");
    EXPECT_STREQ(segment.toString().get(), "valid=t,arc=default,aspect=unknown");
}

TEST(GxfXmlSegment, AspectRatios) {
    struct Row {
        char const* text;
        unsigned number;
    };
    GxfXmlSegment segment;
    for (Row const& row : {Row{"3x4", 0},
                           {"3X4", 0},
                           {"3x4 or so", 0},
                           {"9x16", 1},
                           {"9X16", 1},
                           {"9x1", 1},
                           {"9x100", 1},
                           {"16x9", 2},
                           {"4x3", 2},
                           {"3x", 2},
                           {"9x", 2},
                           {" 3x4", 2},
                           {"", 2},
                           {nullptr, 2}}) {
        EXPECT_EQ(segment.getAspect(row.text), row.number)
            << (row.text != nullptr ? row.text : "null");
    }
}

TEST(GxfXmlTrack, NewTrack) {
    GxfXmlTrack const track;
    EXPECT_FALSE(track.isValid());
    EXPECT_EQ(track.getType(), 13U);
    EXPECT_EQ(track.getTrackNum(), 0);
    EXPECT_EQ(track.getLabel(), nullptr);
    EXPECT_EQ(track.getSegments().size(), 0U);
    EXPECT_STREQ(track.toString().get(), "valid=f,type=?,num=0,label=null\n");
}

TEST(GxfXmlTrack, WithoutAttributes) {
    GxfXmlTrack const track = trackOf("<Track/>");
    EXPECT_TRUE(track.isValid());
    EXPECT_STREQ(track.toString().get(), "valid=t,type=?,num=0,label=null\n");
}

TEST(GxfXmlTrack, WithAll) {
    GxfXmlTrack const track = trackOf(
        "<Track trackId='9' trackType='CMpegHiDefVideoTrackX' trackNumber='3' trackLabel='V 3'>\n"
        "<Segment><MediaSegment><MpegHiDefSegment AspectRatio='9x16'/></MediaSegment></Segment>\n"
        "<Segment><MediaSegment><MpegHiDefSegment AspectRatio='3x4' "
        "AspectRatioConversion='halfbars'/></MediaSegment></Segment></Track>");
    EXPECT_EQ(track.getType(), mediaTypeMpeg2HD);
    EXPECT_EQ(track.getTrackNum(), 2);
    EXPECT_STREQ(track.getLabel(), "V 3");
    ASSERT_EQ(track.getSegments().size(), 2U);
    EXPECT_EQ(track.getSegments()[0].getAspectRatio(), aspectRatio16x9);
    EXPECT_EQ(track.getSegments()[1].getAspectRatio(), aspectRatio4x3);
    EXPECT_STREQ(track.toString().get(), "valid=t,type=Mpeg2HD,num=2,label=V 3\n"
                                         "  clip[0]:valid=t,arc=default,aspect=16x9"
                                         "  clip[1]:valid=t,arc=halfbars,aspect=4x3");
}

TEST(GxfXmlTrack, ManySegmentsInOrder) {
    std::string content;
    for (unsigned i = 0; i < 100; ++i) {
        content += "<SEGMENT><MediaSegment><AvciSegment AspectRatio='";
        content += i % 3 == 0 ? "3x4" : "9x16";
        content += "'/></MediaSegment></SEGMENT>";
    }
    GxfXmlTrack const track = trackOf(element("Track", "", content));
    ASSERT_EQ(track.getSegments().size(), 100U);
    for (unsigned i = 0; i < 100; ++i) {
        EXPECT_EQ(track.getSegments()[i].getAspectRatio(), i % 3 == 0 ? 0U : 1U);
    }
}

TEST(GxfXmlTrack, Numbers) {
    struct Row {
        char const* text;
        int number;
    };
    for (Row const& row : {Row{"0", 0},
                           {"1", 0},
                           {"2", 1},
                           {"255", 254},
                           {"256", 0},
                           {"", 0},
                           {"abc", 0},
                           {"0x10", 15},
                           {"010", 7},
                           {"-1", 0},
                           {"18446744073709551616", 0},
                           {"18446744073709551617", 0}}) {
        GxfXmlTrack const track =
            trackOf(element("Track", "trackNumber='" + std::string(row.text) + "'"));
        EXPECT_EQ(track.getTrackNum(), row.number) << row.text;
    }
}

TEST(GxfXmlTrack, AnErrorNumberOfBeforeHidesTheNumber) {
    XmlDocument const document("<Track trackNumber='5'/>");
    GxfXmlTrack track;
    errno = 13;
    EXPECT_TRUE(track.decode(document.root()));
    EXPECT_EQ(track.getTrackNum(), 0);
    EXPECT_EQ(errno, 0);
}

TEST(GxfXmlTrack, BadValuesLeaveTheFields) {
    XmlDocument const good("<Track trackType='AudioTrack' trackNumber='5' trackLabel='five'/>");
    GxfXmlTrack track;
    errno = 0;
    EXPECT_TRUE(track.decode(good.root()));
    for (char const* const text :
         {"<Track trackType='' trackNumber='' trackLabel=''/>", "<Track trackNumber='256'/>",
          "<Track trackNumber='99999999999999999999'/>",
          "<!DOCTYPE Track [<!ENTITY e 'x'>]>"
          "<Track trackType='&e;' trackNumber='&e;' trackLabel='&e;'/>"}) {
        XmlDocument const bad(text);
        EXPECT_TRUE(track.decode(bad.root()));
        EXPECT_STREQ(track.toString().get(), "valid=t,type=Audio,num=4,label=five\n");
    }
    XmlDocument const unknown("<Track trackType='other'/>");
    EXPECT_TRUE(track.decode(unknown.root()));
    EXPECT_STREQ(track.toString().get(), "valid=t,type=?,num=4,label=five\n");
}

TEST(GxfXmlTrack, Labels) {
    struct Row {
        char const* text;
        char const* label;
    };
    for (Row const& row : {Row{"", nullptr},
                           {" ", " "},
                           {"100%", "100%"},
                           {"%", "%"},
                           {"%%", "%"},
                           {"%%%", "%%"},
                           {"a %s %d %n %% b", "a %s %d %n % b"},
                           {"&quot;&lt;", "\"<"},
                           {"K\xc3\xb6ln", "K\xc3\xb6ln"}}) {
        GxfXmlTrack const track =
            trackOf(element("Track", "trackLabel='" + std::string(row.text) + "'"));
        EXPECT_STREQ(track.getLabel(), row.label);
    }
    std::string const longLabel(5000, 'x');
    EXPECT_EQ(trackOf(element("Track", "trackLabel='" + longLabel + "'")).getLabel(), longLabel);
}

TEST(GxfXmlTrack, ALaterLabelReplacesTheFirst) {
    GxfXmlTrack const track = trackOf("<Track trackLabel='first' TRACKLABEL='second'/>");
    EXPECT_STREQ(track.getLabel(), "second");
}

TEST(GxfXmlTrack, IsNotValidAfterAFailure) {
    XmlDocument const document("<Trackx/>");
    GxfXmlTrack track;
    EXPECT_FALSE(track.decode(document.root()));
    EXPECT_FALSE(track.decode(nullptr));
    EXPECT_FALSE(track.isValid());
}

TEST(GxfXmlTrack, UmfTrackNumbers) {
    struct Type {
        char const* word;
        unsigned encoding;
    };
    for (Type const& type : {Type{"AudioTrack", 'A'},
                             {"TimeCodeTrack", 'T'},
                             {"AncillaryDataTrack", 'N'},
                             {"AvciVideoTrack", 'I'},
                             {"DvcproHdTrack", 'F'},
                             {"Dvcpro50Track", 'E'},
                             {"Dvcpro25Track", 'D'},
                             {"MpegHiDefVideoTrack", 'H'},
                             {"MpegStdDefVideoTrack", 'M'},
                             {"other", 0U}}) {
        GxfXmlTrack const track =
            trackOf(element("Track", "trackNumber='1' trackType='" + std::string(type.word) + "'"));
        EXPECT_EQ(track.getUmfTrackNum().trackType, type.encoding) << type.word;
        EXPECT_EQ(track.getUmfTrackNum().trackNumber, unsigned{'0'});
    }
    struct Number {
        char const* text;
        unsigned encoding;
    };
    for (Number const& number : {Number{"0", '0'},
                                 {"2", '1'},
                                 {"10", '9'},
                                 {"11", 'A'},
                                 {"12", 'B'},
                                 {"36", 'Z'},
                                 {"37", 'Z' + 1U}}) {
        GxfXmlTrack const track =
            trackOf(element("Track", "trackNumber='" + std::string(number.text) + "'"));
        EXPECT_EQ(track.getUmfTrackNum().trackNumber, number.encoding) << number.text;
    }
}

TEST(GxfXmlTrack, ACopyTakesTheLabelAway) {
    GxfXmlTrack const source = trackOf(
        "<Track trackType='AudioTrack' trackNumber='3' trackLabel='three'><Segment/></Track>");
    GxfXmlTrack copy;
    copy.label = new char[4]{'o', 'l', 'd', '\0'};
    copy = source;
    EXPECT_EQ(source.getLabel(), nullptr);
    EXPECT_STREQ(source.toString().get(), "valid=t,type=Audio,num=2,label=null\n"
                                          "  clip[0]:valid=t,arc=default,aspect=unknown");
    EXPECT_STREQ(copy.toString().get(), "valid=t,type=Audio,num=2,label=three\n"
                                        "  clip[0]:valid=t,arc=default,aspect=unknown");
}

TEST(GxfXmlTrack, NodesGoByTheirNamesWhateverTheirKind) {
    GxfXmlTrack const track = trackOf("<Track><?Segment x?></Track>");
    ASSERT_EQ(track.getSegments().size(), 1U);
    EXPECT_STREQ(track.getSegments()[0].toString().get(), "valid=t,arc=default,aspect=unknown");
}

TEST(GxfXmlTrack, DoesNotEnterDeclarationsOfEntities) {
    std::string const declarations =
        "<!DOCTYPE Track [<!ENTITY Segment 's'><!ENTITY MediaSegment 'm'>"
        "<!ENTITY MpegSegment 'p'><!ENTITY MpegParameters 'q'>]>";
    GxfXmlTrack const track = trackOf(declarations + "<Track>&Segment;</Track>");
    ASSERT_EQ(track.getSegments().size(), 1U);
    EXPECT_STREQ(track.getSegments()[0].toString().get(), "valid=t,arc=default,aspect=unknown");
    for (char const* const content :
         {"<Segment>&MediaSegment;</Segment>",
          "<Segment><MediaSegment>&MpegSegment;</MediaSegment></Segment>",
          "<Segment><MediaSegment><MpegSegment>&MpegParameters;</MpegSegment></MediaSegment>"
          "</Segment>"}) {
        EXPECT_STREQ(trackOf(declarations + "<Track>" + content + "</Track>").toString().get(),
                     "valid=t,type=?,num=0,label=null\n"
                     "  clip[0]:valid=t,arc=default,aspect=unknown");
    }
}

TEST(GxfXmlTrack, OutlivesItsDocument) {
    GxfXmlTrack track;
    {
        XmlDocument const document("<Track trackType='AudioTrack' trackLabel='kept'/>");
        EXPECT_TRUE(track.decode(document.root()));
    }
    EXPECT_STREQ(track.toString().get(), "valid=t,type=Audio,num=0,label=kept\n");
}
