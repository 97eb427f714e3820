#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <testing/capture.h>
#include <testing/xml_document.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr unsigned xmlBit = 1U << 9;

std::string const small = "<?xml version=\"1.0\"?><r/>"; // 25 characters
std::string const opening = "<?xml";

Bytes const nul{0, 0};

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (Bytes const& part : parts) {
        all.add(part);
    }
    return all;
}

OpResult decode(GxfXmlTree& tree, Bytes region) {
    errno = 0;
    GxfBuffer const buffer = region.filledBuffer();
    return tree.decode(buffer, static_cast<unsigned>(region.size()));
}

Bytes sanitizedOf(GxfXmlTree const& tree) {
    Bytes bytes;
    for (unsigned i = 0; i < tree.sanitizedLength; ++i) {
        bytes.u8(tree.sanitizedXml[i]);
    }
    return bytes;
}

std::string utf8Of(GxfXmlTree const& tree) {
    return {reinterpret_cast<char const*>(tree.getUtf8()), tree.getUtf8Length()};
}

OpResult sanitize(GxfXmlTree& tree, Bytes const& text) {
    return tree.sanitizeXmlStream(text.data(), static_cast<unsigned>(text.size()));
}

void expectResult(OpResult const& result, OpResult::Type type, int code, char const* text) {
    EXPECT_EQ(result.getType(), type);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), text);
}

void expectPlaced(OpResult const& result, OpResult::Type type, int code, char const* function) {
    expectResult(result, type, code, "");
    EXPECT_STREQ(result.getLocation().function, function);
    EXPECT_STREQ(result.getLocation().file, "gxf_xml_extraction.cpp");
    EXPECT_NE(result.getLocation().line, 0U);
}

std::string withTracks(unsigned count, std::string const& label) {
    std::string text = "<?xml version=\"1.0\"?><r><Data>";
    for (unsigned i = 1; i <= count; ++i) {
        text += "<Track trackType=\"AudioTrack\" trackNumber=\"" + std::to_string(i) +
                "\" trackLabel=\"" + label + std::to_string(i) + "\"/>";
    }
    return text + "</Data></r>";
}

class TemporaryPath {
  public:
    TemporaryPath()
        : m_path(std::filesystem::path(testing::TempDir()) /
                 ("gxf_xml_extraction_test_" + std::to_string(::getpid()))) {
        std::filesystem::remove_all(m_path);
    }
    TemporaryPath(TemporaryPath const&) = delete;
    TemporaryPath& operator=(TemporaryPath const&) = delete;
    ~TemporaryPath() { std::filesystem::remove_all(m_path); }

    char const* get() const { return m_path.c_str(); }
    std::string content() const {
        std::ifstream file(m_path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::filesystem::path m_path;
};

} // namespace

TEST(GxfXmlBounds, Found) {
    Bytes const document = utf16("<?xml?><r/>"); // 22 bytes
    Bytes const lines = joined({document, {0x0d, 0, 0x0a, 0, 0, 0}});
    struct Row {
        char const* name;
        Bytes region;
        unsigned start;
        unsigned end;
    };
    for (Row const& row : {
             Row{"alone", document, 0, 21},
             {"behind a byte-order mark", joined({{0xff, 0xfe}, document}), 2, 23},
             {"at an odd offset", joined({{1, 2, 3}, document}), 3, 24},
             {"behind the start of a start", joined({utf16("<?xm"), document}), 8, 29},
             {"the first of two starts", joined({document, document}), 0, 43},
             {"in front of zeros", joined({document, Bytes().fill(9)}), 0, 21},
             {"in front of junk", joined({document, {1, 2, 3}}), 0, 21},
             {"up to a later bracket", joined({document, utf16("abc>x")}), 0, 29},
             {"a line's end and a NUL are kept", lines, 0, 27},
             {"the same in front of zeros", joined({lines, Bytes().fill(3)}), 0, 27},
             {"a line's end without a NUL is cut off", joined({document, {0x0d, 0, 0x0a, 0}}), 0,
              21},
             {"half a NUL is cut off", joined({document, {0x0d, 0, 0x0a, 0, 0}}), 0, 21},
             {"a line feed alone is cut off", joined({document, {0x0a, 0, 0, 0}}), 0, 21},
             {"an end of the other parity", joined({document, {9, 0x3e, 0}}), 0, 24},
             {"the smallest", joined({utf16(opening), {0x3e, 0}}), 0, 11},
             {"brackets in front of the start don't count",
              joined({utf16(">"), document, utf16("x")}), 2, 23},
         }) {
        SCOPED_TRACE(row.name);
        unsigned start = 77;
        unsigned end = 77;
        GxfXmlTree const tree;
        EXPECT_EQ(tree.findXmlBounds(row.region.data(), static_cast<unsigned>(row.region.size()),
                                     start, end)
                      .getType(),
                  OpResult::Ok);
        EXPECT_EQ(start, row.start);
        EXPECT_EQ(end, row.end);
    }
}

TEST(GxfXmlBounds, NoStart) {
    Bytes const whole = joined({utf16(opening), utf16(">")});
    std::vector<Bytes> regions = {Bytes(), Bytes().text("<?xml version='1.0'?><r/>"),
                                  utf16("<?XML?><r/>"), utf16("<r/>"), Bytes().fill(1000)};
    for (unsigned length = 1; length < 10; ++length) {
        Bytes part;
        for (unsigned i = 0; i < length; ++i) {
            part.u8(whole.vector()[i]);
        }
        regions.push_back(part);
    }
    for (unsigned i = 0; i < 10; ++i) {
        Bytes wrong = whole;
        wrong[i] ^= 1;
        regions.push_back(wrong);
    }
    for (Bytes const& region : regions) {
        unsigned start = 77;
        unsigned end = 77;
        GxfXmlTree const tree;
        expectResult(
            tree.findXmlBounds(region.data(), static_cast<unsigned>(region.size()), start, end),
            OpResult::Warning, 19, "could not locate xml start");
        EXPECT_EQ(start, 0U);
        EXPECT_EQ(end, 0U);
    }
}

TEST(GxfXmlBounds, NoEnd) {
    for (Bytes const& behind :
         {Bytes(), Bytes{0x3e}, Bytes{0x3e, 1}, Bytes().fill(100), utf16(" version")}) {
        Bytes const region = joined({utf16(">"), utf16(opening), behind});
        unsigned start = 77;
        unsigned end = 77;
        GxfXmlTree const tree;
        expectResult(
            tree.findXmlBounds(region.data(), static_cast<unsigned>(region.size()), start, end),
            OpResult::Warning, 19, "could not locate xml end");
        EXPECT_EQ(start, 2U);
        EXPECT_EQ(end, 0U);
    }
}

TEST(GxfXmlSanitizer, StepByStep) {
    struct Row {
        char const* name;
        Bytes text;
        bool isRepaired;
        Bytes repaired;
    };
    for (Row const& row : {
             Row{"ends in a NUL", {0x61, 0, 0x62, 0, 0, 0}, false, {}},
             {"lacks a NUL", {0x61, 0, 0x62, 0}, true, {0x61, 0, 0x62, 0, 0, 0}},
             {"of one character beyond Latin",
              {0x61, 0, 0x00, 0x4e},
              true,
              {0x61, 0, 0x00, 0x4e, 0, 0}},
             {"two zero bytes inside stay", {0x78, 0, 0x61, 0, 0, 0x62, 0, 0}, false, {}},
             {"two zero bytes inside stay in a copy",
              {0x78, 0, 0x61, 0, 0, 0x62},
              true,
              {0x78, 0, 0x61, 0, 0, 0x62, 0, 0}},
             {"a NUL between two characters",
              {0x78, 0, 0x61, 0, 0, 0, 0x62, 0},
              true,
              {0x78, 0, 0x61, 0, 0x62, 0, 0, 0}},
             {"the copy has its NUL already",
              {0x78, 0, 0x61, 0, 0, 0, 0x62, 0, 0, 0},
              true,
              {0x78, 0, 0x61, 0, 0x62, 0, 0, 0}},
             {"an even run",
              {0x78, 0, 0x61, 0, 0, 0, 0, 0x62, 0},
              true,
              {0x78, 0, 0x61, 0, 0x62, 0, 0, 0}},
             {"a long run",
              joined({{0x78, 0, 0x61}, Bytes().fill(1000), {0x62, 0, 0, 0}}),
              true,
              {0x78, 0, 0x61, 0, 0x62, 0, 0, 0}},
             {"three runs",
              {0x78, 0, 0x61, 0, 0, 0, 0x62, 0, 0, 0, 0, 0x63, 0x64, 0, 0, 0, 0x65, 0x66},
              true,
              {0x78, 0, 0x61, 0, 0x62, 0, 0x63, 0x64, 0, 0x65, 0x66, 0, 0}},
             {"a run at the end stays", joined({{0x61, 0, 0x62}, Bytes().fill(9)}), false, {}},
             {"a run at the end stays in a copy",
              joined({{0x78, 0, 0x61, 0, 0, 0, 0x62}, Bytes().fill(9)}), true,
              joined({{0x78, 0, 0x61, 0, 0x62}, Bytes().fill(9)})},
             {"no byte", {}, true, {0, 0}},
             {"one byte", {0}, true, {0, 0, 0}},
             {"one character", {0x61, 0}, true, {0x61, 0, 0, 0}},
             {"one zero character", {0, 0}, false, {}},
             {"one byte and a NUL", {0x61, 0, 0}, false, {}},
             // The scan begins at byte 3, and a run in front of it has no mark.
             {"a run of three from byte 1",
              {0x61, 0, 0, 0, 0x62, 0},
              true,
              {0x61, 0, 0, 0, 0x62, 0, 0, 0}},
             {"a run of four from byte 1", {0x61, 0, 0, 0, 0, 0x62, 0}, true, {0x62, 0, 0, 0}},
             {"a run of three from byte 2",
              {0x61, 0x62, 0, 0, 0, 0x63, 0},
              true,
              {0x61, 0x62, 0, 0x63, 0, 0, 0}},
             {"a run of four from byte 0",
              {0, 0, 0, 0, 0x61, 0},
              true,
              {0, 0, 0, 0, 0x61, 0, 0, 0}},
             {"a run of five from byte 0", {0, 0, 0, 0, 0, 0x61, 0}, true, {0x61, 0, 0, 0}},
         }) {
        SCOPED_TRACE(row.name);
        GxfXmlTree tree;
        EXPECT_EQ(sanitize(tree, row.text).getType(), OpResult::Ok);
        EXPECT_EQ(tree.hasSantizedData(), row.isRepaired);
        EXPECT_EQ(tree.sanitizedLength, row.repaired.size());
        EXPECT_EQ(sanitizedOf(tree), row.repaired);
    }
}

namespace {

/// The repaired text, byte by byte; nothing for a text that needs no repair. Runs that begin in
/// front of byte 2 are another matter: the scan doesn't see their start.
Bytes repairedOneByOne(std::vector<unsigned char> const& text) {
    Bytes repaired;
    bool isChanged = false;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t run = 0;
        while (i + run < text.size() && text[i + run] == 0) {
            ++run;
        }
        bool const isCut = run > 2 && i + run < text.size();
        isChanged = isChanged || isCut;
        repaired.fill(isCut ? 1 : run);
        i += run;
        if (i < text.size()) {
            repaired.u8(text[i]);
            ++i;
        }
    }
    auto const endsInNul = [](std::vector<unsigned char> const& bytes) {
        std::size_t const n = bytes.size();
        return n >= 2 && bytes[n - 1] == 0 && bytes[n - 2] == 0;
    };
    if (!isChanged && endsInNul(text)) {
        return {};
    }
    return endsInNul(repaired.vector()) ? repaired : repaired.fill(2);
}

} // namespace

TEST(GxfXmlSanitizer, RunsOfAnyLengthAtAnyPlace) {
    for (unsigned size : {60U, 61U, 96U, 97U, 131U}) {
        for (unsigned place = 2; place < size; ++place) {
            for (unsigned run = 1; run <= 7 && place + run <= size; ++run) {
                Bytes text = Bytes().fill(size, 0x61);
                for (unsigned i = 0; i < run; ++i) {
                    text[place + i] = 0;
                }
                GxfXmlTree tree;
                EXPECT_TRUE(sanitize(tree, text));
                ASSERT_EQ(sanitizedOf(tree), repairedOneByOne(text.vector()))
                    << run << " of " << size << " at " << place;
            }
        }
    }
    std::mt19937 random(81);
    for (unsigned round = 0; round < 3000; ++round) {
        Bytes text{0x61, 0x62};
        for (auto parts = random() % 12; parts != 0; --parts) {
            text.fill(random() % 40, 1 + static_cast<unsigned>(random() % 255)).fill(random() % 6);
            // Latin text, whose every second byte is zero.
            for (auto letters = random() % 20; letters != 0; --letters) {
                text.u8(0x63).u8(0);
            }
        }
        GxfXmlTree tree;
        EXPECT_TRUE(sanitize(tree, text));
        ASSERT_EQ(sanitizedOf(tree), repairedOneByOne(text.vector())) << round;
        EXPECT_EQ(tree.hasSantizedData(), tree.sanitizedLength != 0);
    }
}

TEST(GxfXmlSanitizer, NoTextAtAll) {
    GxfXmlTree tree;
    EXPECT_TRUE(tree.sanitizeXmlStream(nullptr, 0));
    EXPECT_EQ(sanitizedOf(tree), nul);
}

TEST(GxfXmlSanitizer, ASecondTextHasTheRoomOfTheFirst) {
    Bytes const first{0x61, 0, 0x62, 0, 0x63, 0}; // 8 bytes with its NUL
    struct Row {
        char const* name;
        Bytes text;
        Bytes repaired;
    };
    for (Row const& row : {
             Row{"shorter", {0x78, 0}, {0x78, 0, 0, 0}},
             {"with its NUL it fills the room", {1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6, 0, 0}},
             {"ends in a NUL, and is copied all the same", {1, 2, 3, 4, 0, 0}, {1, 2, 3, 4, 0, 0}},
             {"fills the room", {1, 2, 3, 4, 5, 6, 0, 0}, {1, 2, 3, 4, 5, 6, 0, 0}},
             {"fits without its run", {1, 2, 3, 0, 0, 0, 0, 4, 0, 0}, {1, 2, 3, 0, 4, 0, 0}},
             {"none", {}, {0, 0}},
         }) {
        SCOPED_TRACE(row.name);
        GxfXmlTree tree;
        EXPECT_TRUE(sanitize(tree, first));
        EXPECT_EQ(tree.sanitizedLength, 8U);
        EXPECT_TRUE(sanitize(tree, row.text));
        EXPECT_EQ(sanitizedOf(tree), row.repaired);
    }
}

TEST(GxfXmlSanitizer, EachPlaceWithoutRoom) {
    Bytes const first{0x61, 0, 0x62, 0, 0x63, 0};
    std::vector<unsigned> lines;
    for (Bytes const& text : {
             Bytes{1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 9}, // 9 bytes up to the run
             Bytes{1, 2, 3, 4, 5, 6, 7, 0, 0},          // 9 bytes
             Bytes{1, 2, 3, 4, 5, 6, 7},                // 9 bytes with a NUL
         }) {
        GxfXmlTree tree;
        EXPECT_TRUE(sanitize(tree, first));
        OpResult const result = sanitize(tree, text);
        expectPlaced(result, OpResult::Error, 7, "sanitizeXmlStream");
        EXPECT_EQ(tree.sanitizedLength, 8U);
        lines.push_back(result.getLocation().line);
    }
    EXPECT_NE(lines[0], lines[1]);
    EXPECT_NE(lines[1], lines[2]);
    EXPECT_NE(lines[0], lines[2]);
}

TEST(GxfXmlSanitizer, TheRoomShrinksWithEachText) {
    GxfXmlTree tree;
    EXPECT_TRUE(sanitize(tree, {0x61, 0, 0x62, 0, 0x63, 0}));
    EXPECT_TRUE(sanitize(tree, {0x61, 0}));
    EXPECT_EQ(tree.sanitizedLength, 4U);
    EXPECT_EQ(sanitize(tree, {0x61, 0, 0x62, 0}).getCode(), 7);
    EXPECT_TRUE(sanitize(tree, {0x63, 0}));
}

TEST(GxfXmlSanitizer, AnUntouchedTextLeavesNoRoomBehind) {
    GxfXmlTree tree;
    EXPECT_TRUE(sanitize(tree, {0x61, 0, 0, 0}));
    EXPECT_FALSE(tree.hasSantizedData());
    EXPECT_TRUE(sanitize(tree, {0x61, 0, 0x62, 0, 0x63, 0}));
    EXPECT_EQ(tree.sanitizedLength, 8U);
}

TEST(WideCharToMultiByte, Converts) {
    struct Row {
        Bytes wide;
        Bytes narrow;
    };
    for (Row const& row : {
             Row{utf16("abc"), Bytes().text("abc")},
             {{0xe9, 0x00}, {0xc3, 0xa9}},
             {{0xff, 0x07}, {0xdf, 0xbf}},
             {{0x00, 0x08}, {0xe0, 0xa0, 0x80}},
             {{0xac, 0x20}, {0xe2, 0x82, 0xac}},
             {{0x3d, 0xd8, 0x00, 0xde}, {0xf0, 0x9f, 0x98, 0x80}},
             {{0xff, 0xfe, 0x61, 0x00}, {0xef, 0xbb, 0xbf, 0x61}},
             {{0, 0, 0x61, 0}, {0, 0x61}},
         }) {
        std::vector<char> to(row.narrow.size());
        bool usedDefault = true;
        EXPECT_EQ(wideCharToMultiByte(4711, 4712, reinterpret_cast<char const*>(row.wide.data()),
                                      static_cast<int>(row.wide.size()), to.data(),
                                      static_cast<int>(to.size()), "?", &usedDefault),
                  static_cast<int>(row.narrow.size()));
        EXPECT_EQ(Bytes().text({to.data(), to.size()}), row.narrow);
        EXPECT_TRUE(usedDefault);
    }
}

TEST(WideCharToMultiByte, BadArguments) {
    char from[2] = {'a', 0};
    char to[2] = {};
    struct Row {
        char const* from;
        int fromBytes;
        char* to;
        int toBytes;
    };
    for (Row const& row : {Row{nullptr, 2, to, 2}, Row{from, 2, nullptr, 2}, Row{from, 0, to, 2},
                           Row{from, -2, to, 2}, Row{from, 2, to, 0}, Row{from, 2, to, -1}}) {
        MessageCapture const messages;
        EXPECT_EQ(wideCharToMultiByte(1, 0, row.from, row.fromBytes, row.to, row.toBytes, nullptr,
                                      nullptr),
                  -1);
        EXPECT_THAT(messages.texts(MessageKind::Trace),
                    ElementsAre(MatchesRegex("error internalError \\(wideCharToMultiByte, "
                                             "gxf_xml_extraction.cpp:[0-9]+\\)\n")));
        EXPECT_THAT(messages.texts(), IsEmpty());
    }
}

TEST(WideCharToMultiByte, TheCauseOfAFailureIsReportedAndCleared) {
    struct Row {
        Bytes wide;
        int room;
        std::string written;
        char const* message;
    };
    for (Row const& row : {
             Row{{0x61, 0, 0x00, 0xdc, 0x62, 0},
                 9,
                 "a",
                 "character conversion WC->MB failed "
                 "[84->Invalid or incomplete multibyte or wide character]\n"},
             Row{{0x61, 0, 0x00, 0xd8},
                 9,
                 "a",
                 "character conversion WC->MB failed [22->Invalid argument]\n"},
             Row{utf16("abc"), 2, "ab",
                 "character conversion WC->MB failed [7->Argument list too long]\n"},
         }) {
        char to[10] = {};
        MessageCapture const messages;
        errno = 0;
        EXPECT_EQ(wideCharToMultiByte(1, 0, reinterpret_cast<char const*>(row.wide.data()),
                                      static_cast<int>(row.wide.size()), to, row.room, nullptr,
                                      nullptr),
                  0);
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(to, row.written);
        EXPECT_THAT(messages.texts(MessageKind::Error), ElementsAre(row.message));
        EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
    }
}

TEST(WideCharToMultiByte, AnOddLengthGoesOnToItsStrayByte) {
    char to[10] = {};
    MessageCapture const messages;
    EXPECT_EQ(wideCharToMultiByte(1, 0, "a\0b\0c", 5, to, 10, nullptr, nullptr), 0);
    EXPECT_STREQ(to, "ab");
    EXPECT_THAT(messages.texts(MessageKind::Trace),
                ElementsAre("error internalError: UTF-16 input is an odd length of 5\n"));
    EXPECT_THAT(messages.texts(),
                ElementsAre("character conversion WC->MB failed [22->Invalid argument]\n"));
}

namespace {

/// In a process that has converted nothing yet: the converter is a file, which can't be opened.
[[noreturn]] void convertWithoutFiles() {
    rlimit const none{0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    char to[4] = {};
    MessageCapture const messages;
    bool good = true;
    for (unsigned i = 0; i < 3; ++i) {
        good = good && wideCharToMultiByte(1, 0, "a", 2, to, 4, nullptr, nullptr) == 0;
    }
    std::vector<std::string> const errors = messages.texts(MessageKind::Error);
    good = good && errors.size() == 1 && messages.texts().size() == 1 && to[0] == '\0' &&
           errors[0] == "iconv_open(unicode => utf8) failure, are iconv libraries installed?\n";
    _exit(good ? 17 : 1);
}

} // namespace

TEST(WideCharToMultiByte, WithoutAConverterSaysSoOnce) {
    // Starts a process of its own, and so doesn't depend on the tests before it.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(convertWithoutFiles(), testing::ExitedWithCode(17), "");
}

TEST(GxfXmlConversion, Succeeds) {
    GxfXmlTree tree;
    Bytes const wide = joined({utf16("ab"), {0xe9, 0}});
    unsigned char to[6] = {};
    OpResult result(OpResult::Error, 7, gxfOpSubsystem.getId(), "of before");
    MessageCapture const messages;
    EXPECT_EQ(tree.convertToUtf8(wide.data(), 6, to, 6, result), 4U);
    EXPECT_EQ(result.getType(), OpResult::Ok);
    EXPECT_STREQ(reinterpret_cast<char const*>(to), "ab\xc3\xa9");
    EXPECT_THAT(messages.texts(), IsEmpty());
    ChannelSetting const on(gxfDebug, xmlBit);
    EXPECT_EQ(tree.convertToUtf8(wide.data(), 6, to, 6, result), 4U);
    EXPECT_THAT(messages.texts(MessageKind::Debug),
                ElementsAre("Converted 3 UTF-16 chars to 4 UTF-8 characters\n"));
}

TEST(GxfXmlConversion, WithoutRoomForHalfTheBytes) {
    GxfXmlTree tree;
    Bytes const wide = utf16("abc");
    unsigned char to[3] = {};
    OpResult result;
    EXPECT_EQ(tree.convertToUtf8(wide.data(), 6, to, 2, result), 0U);
    expectPlaced(result, OpResult::Error, 7, "convertToUtf8");
    EXPECT_EQ(tree.convertToUtf8(wide.data(), 6, to, 3, result), 3U);
    EXPECT_EQ(result.getType(), OpResult::Ok);
}

TEST(GxfXmlConversion, AFailureNamesNoCause) {
    GxfXmlTree tree;
    Bytes const wide{0x00, 0xdc};
    unsigned char to[4] = {};
    OpResult result;
    MessageCapture const messages;
    ChannelSetting const on(gxfDebug, xmlBit);
    EXPECT_EQ(tree.convertToUtf8(wide.data(), 2, to, 4, result), 0U);
    expectResult(result, OpResult::Warning, 21, "conversion to utf8 failed [Success]");
    EXPECT_THAT(messages.texts(),
                ElementsAre("character conversion WC->MB failed "
                            "[84->Invalid or incomplete multibyte or wide character]\n"));
}

TEST(GxfXmlConversion, BadArgumentsPassAsASuccess) {
    GxfXmlTree tree;
    unsigned char to[4] = {};
    OpResult result;
    EXPECT_EQ(tree.convertToUtf8(nullptr, 0, to, 4, result), 4294967295U);
    EXPECT_EQ(result.getType(), OpResult::Ok);
}

TEST(GxfXmlExtraction, ADocument) {
    GxfXmlTree tree;
    Bytes region = joined({{0xff, 0xfe}, utf16(withTracks(2, "A")), Bytes().fill(50)});
    GxfBuffer const buffer = region.filledBuffer();
    EXPECT_EQ(tree.decode(buffer, static_cast<unsigned>(region.size())).getType(), OpResult::Ok);
    EXPECT_EQ(buffer.nOccupied(), region.size());
    EXPECT_EQ(buffer.ptrBegin(), region.data());
    EXPECT_TRUE(tree.isValid());
    EXPECT_TRUE(tree.hasSantizedData());
    EXPECT_EQ(sanitizedOf(tree), joined({utf16(withTracks(2, "A")), nul}));
    EXPECT_EQ(utf8Of(tree), withTracks(2, "A") + std::string(1, '\0'));
    EXPECT_STREQ(tree.toString().get(), "GxfXml:valid=t,sanitized=t\n"
                                        " track[0]:valid=t,type=Audio,num=0,label=A1\n\n"
                                        " track[1]:valid=t,type=Audio,num=1,label=A2\n\n");
}

TEST(GxfXmlExtraction, TextOfANewTree) {
    GxfXmlTree const tree;
    EXPECT_STREQ(tree.toString().get(), "GxfXml:valid=f,sanitized=f\n");
}

TEST(GxfXmlExtraction, ADocumentThatEndsInANulIsNotCopied) {
    GxfXmlTree tree;
    MessageCapture const messages;
    EXPECT_TRUE(decode(tree, joined({utf16(small), utf16("\r\n"), nul})));
    EXPECT_FALSE(tree.hasSantizedData());
    EXPECT_EQ(tree.sanitizedLength, 0U);
    EXPECT_EQ(utf8Of(tree), small + "\r\n" + std::string(1, '\0'));
    EXPECT_STREQ(tree.toString().get(), "GxfXml:valid=t,sanitized=f\n");
    TemporaryPath const path;
    EXPECT_FALSE(tree.saveUtf16ToFile(path.get()));
    EXPECT_FALSE(std::filesystem::exists(path.get()));
    EXPECT_THAT(messages.texts(MessageKind::Debug), ElementsAre("UTF16 data was not saved\n"));
}

TEST(GxfXmlExtraction, RunsOfZerosInsideAreTakenOut) {
    GxfXmlTree tree;
    Bytes const region = joined({utf16("<?xml version=\"1.0\"?><r><Tr"), Bytes().fill(102),
                                 utf16("ack trackNumber=\"2\"/>"), Bytes().fill(2), utf16("</r>"),
                                 utf16("\r\n"), nul});
    EXPECT_TRUE(decode(tree, region));
    EXPECT_EQ(utf8Of(tree), "<?xml version=\"1.0\"?><r><Track trackNumber=\"2\"/></r>\r\n" +
                                std::string(1, '\0'));
    EXPECT_EQ(tree.getXmlTracks().size(), 1U);
}

TEST(GxfXmlExtraction, Messages) {
    Bytes const bare = utf16(small);
    Bytes const closed = joined({utf16(small), utf16("\r\n"), nul});
    {
        ChannelSetting const others(gxfDebug, ~(xmlBit | 1U << 10));
        MessageCapture const messages;
        GxfXmlTree tree;
        EXPECT_TRUE(decode(tree, bare));
        EXPECT_THAT(messages.texts(), IsEmpty());
        EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
    }
    ChannelSetting const on(gxfDebug, xmlBit);
    {
        MessageCapture const messages;
        GxfXmlTree tree;
        EXPECT_TRUE(decode(tree, bare));
        EXPECT_THAT(messages.texts(MessageKind::Debug),
                    ElementsAre("xml needed sanitation\n",
                                "Converted 26 UTF-16 chars to 26 UTF-8 characters\n", ""));
    }
    MessageCapture const messages;
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, closed));
    EXPECT_THAT(messages.texts(MessageKind::Debug),
                ElementsAre("Converted 28 UTF-16 chars to 28 UTF-8 characters\n", ""));
}

TEST(GxfXmlExtraction, Failures) {
    std::string const beyondLatin = [] {
        std::string text;
        for (unsigned i = 0; i < 100; ++i) {
            text += '\x00';
            text += '\x4e';
        }
        return text;
    }();
    struct Row {
        char const* name;
        Bytes region;
        OpResult::Type type;
        int code;
        char const* text;
        bool hasUtf8;
        unsigned utf8Length;
    };
    for (Row const& row : {
             Row{"no byte", {}, OpResult::Warning, 19, "could not locate xml start", false, 0},
             {"nine bytes",
              {0x3c, 0, 0x3f, 0, 0x78, 0, 0x6d, 0, 0x6c},
              OpResult::Warning,
              19,
              "could not locate xml start",
              false,
              0},
             {"no end", utf16("<?xml version"), OpResult::Warning, 19, "could not locate xml end",
              false, 0},
             {"longer in UTF-8",
              joined(
                  {utf16("<?xml version=\"1.0\"?><r>"), Bytes().text(beyondLatin), utf16("</r>")}),
              OpResult::Warning, 21, "conversion to utf8 failed [Success]", true, 0},
             {"half a surrogate pair",
              joined({utf16("<?xml version=\"1.0\"?><r>"), {0x00, 0xdc}, utf16("</r>")}),
              OpResult::Warning, 21, "conversion to utf8 failed [Success]", true, 0},
             {"not well-formed", utf16("<?xml version=\"1.0\"?><a></b>"), OpResult::Error, 22,
              "err=76:(Opening and ending tag mismatch: a line 1 and b)", true, 29},
             {"the smallest region with both ends", utf16("<?xml>"), OpResult::Error, 22, nullptr,
              true, 7},
         }) {
        SCOPED_TRACE(row.name);
        MessageCapture const messages;
        GxfXmlTree tree;
        OpResult const result = decode(tree, row.region);
        expectResult(result, row.type, row.code, row.text != nullptr ? row.text : result.getText());
        EXPECT_FALSE(tree.isValid());
        EXPECT_EQ(tree.getUtf8() != nullptr, row.hasUtf8);
        EXPECT_EQ(tree.getUtf8Length(), row.utf8Length);
        EXPECT_EQ(tree.getXmlTracks().size(), 0U);
    }
}

TEST(GxfXmlExtraction, WhatWasConvertedStaysAfterAFailure) {
    MessageCapture const messages;
    GxfXmlTree tree;
    EXPECT_FALSE(decode(tree, joined({utf16(small), {0x00, 0xdc}, utf16(">")})));
    EXPECT_EQ(std::string(reinterpret_cast<char const*>(tree.getUtf8()), small.size()), small);
    EXPECT_THAT(messages.texts(MessageKind::Error),
                ElementsAre("character conversion WC->MB failed "
                            "[84->Invalid or incomplete multibyte or wide character]\n"));
}

TEST(GxfXmlExtraction, TextBeyondLatinFitsWhenThereIsEnoughLatin) {
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, joined({utf16("<?xml version=\"1.0\"?><r><Track trackLabel=\""),
                                     {0x00, 0x4e, 0x3d, 0xd8, 0x00, 0xde},
                                     utf16("\"/></r>")})));
    ASSERT_EQ(tree.getXmlTracks().size(), 1U);
    EXPECT_STREQ(tree.getXmlTracks()[0].getLabel(), "\xe4\xb8\x80\xf0\x9f\x98\x80");
}

TEST(GxfXmlExtraction, OnlyTheLengthIsSearched) {
    Bytes region = joined({utf16(small), utf16("<broken>")});
    GxfBuffer const buffer = region.filledBuffer();
    GxfXmlTree tree;
    EXPECT_TRUE(tree.decode(buffer, 50));
    GxfXmlTree all;
    EXPECT_EQ(all.decode(buffer, 66).getCode(), 22);
    GxfXmlTree none;
    EXPECT_EQ(none.decode(buffer, 0).getCode(), 19);
}

TEST(GxfXmlExtraction, AClaimedLengthBeyondTheBytesIsCut) {
    Bytes region = utf16(small);
    GxfBuffer const buffer = region.filledBuffer();
    for (unsigned const length : {51U, 1000000U, 0x7fffffffU, 0xffffffffU}) {
        GxfXmlTree tree;
        EXPECT_TRUE(tree.decode(buffer, length));
        EXPECT_EQ(tree.getUtf8Length(), 26U);
    }
    GxfBuffer const empty{MediaAgent(nullptr)};
    GxfXmlTree tree;
    EXPECT_EQ(tree.decode(empty, 0xffffffffU).getCode(), 19);
}

TEST(GxfXmlExtraction, ASecondDocumentMeetsTheStateOfTheFirst) {
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, utf16(withTracks(2, "old"))));
    MessageCapture const messages;
    EXPECT_TRUE(decode(tree, utf16(withTracks(1, "new"))));
    EXPECT_THAT(messages.texts(MessageKind::Trace),
                ElementsAre("warning internalWarning: existing XML tree \n"));
    EXPECT_EQ(utf8Of(tree), withTracks(1, "new") + std::string(1, '\0'));
    ASSERT_EQ(tree.getXmlTracks().size(), 3U);
    EXPECT_STREQ(tree.getXmlTracks()[0].getLabel(), "old1");
    EXPECT_STREQ(tree.getXmlTracks()[2].getLabel(), "new1");

    // Longer than the last: no room, and nothing changes.
    OpResult const result = decode(tree, utf16(withTracks(2, "old")));
    expectPlaced(result, OpResult::Warning, 21, "decode");
    EXPECT_TRUE(tree.isValid());
    EXPECT_EQ(utf8Of(tree), withTracks(1, "new") + std::string(1, '\0'));
    EXPECT_EQ(tree.getXmlTracks().size(), 3U);

    EXPECT_EQ(decode(tree, utf16("nothing")).getCode(), 19);
    EXPECT_TRUE(tree.isValid());
}

TEST(GxfXmlExtraction, ASecondDocumentIsCopiedAlsoWhenItIsClean) {
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, utf16(withTracks(1, "A"))));
    ChannelSetting const on(gxfDebug, xmlBit);
    MessageCapture const messages;
    EXPECT_TRUE(decode(tree, joined({utf16(small), utf16("\r\n"), nul})));
    EXPECT_EQ(messages.texts().front(), "xml needed sanitation\n");
    EXPECT_EQ(sanitizedOf(tree), joined({utf16(small), utf16("\r\n"), nul}));
}

TEST(GxfXmlExtraction, AFailingSecondDocumentLeavesTheFirstValid) {
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, utf16(withTracks(1, "A"))));
    EXPECT_EQ(decode(tree, utf16("<?xml version=\"1.0\"?><a></b>")).getCode(), 22);
    EXPECT_TRUE(tree.isValid());
    EXPECT_EQ(tree.xmlDoc, nullptr);
    EXPECT_EQ(tree.getXmlTracks().size(), 1U);
    MessageCapture const messages;
    EXPECT_EQ(decode(tree, joined({utf16("<?xml"), {0x00, 0xdc}, utf16(">")})).getCode(), 21);
    EXPECT_TRUE(tree.isValid());
    EXPECT_EQ(tree.getUtf8Length(), 0U);
}

TEST(GxfXmlSaving, TheDocumentWithoutItsNul) {
    TemporaryPath const path;
    std::ofstream(path.get()) << std::string(1000, 'x');
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, utf16(small)));
    MessageCapture const messages;
    // Fewer bytes than getUtf8Length() counts.
    EXPECT_FALSE(tree.saveXmlToFile(path.get()));
    EXPECT_EQ(path.content(), small);
    EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
    EXPECT_THAT(messages.texts(), IsEmpty());
}

TEST(GxfXmlSaving, ADocumentWithoutANul) {
    TemporaryPath const path;
    GxfXmlTree tree;
    tree.utf8Xml = new unsigned char[3]{'a', 'b', 'c'};
    tree.utf8Length = 3;
    EXPECT_TRUE(tree.saveXmlToFile(path.get()));
    EXPECT_EQ(path.content(), "abc");
}

TEST(GxfXmlSaving, NoDocument) {
    TemporaryPath const path;
    GxfXmlTree tree;
    MessageCapture const messages;
    EXPECT_FALSE(tree.saveXmlToFile(path.get()));
    tree.utf8Xml = new unsigned char[3]{};
    EXPECT_FALSE(tree.saveXmlToFile(path.get()));
    EXPECT_FALSE(tree.saveUtf16ToFile(path.get()));
    EXPECT_THAT(messages.texts(MessageKind::Debug),
                ElementsAre("no xml data was not saved\n", "no xml data was not saved\n",
                            "UTF16 data was not saved\n"));
    EXPECT_FALSE(std::filesystem::exists(path.get()));
    EXPECT_FALSE(tree.saveXmlToFile(nullptr));
    EXPECT_FALSE(tree.saveUtf16ToFile(nullptr));
    EXPECT_EQ(messages.texts().size(), 3U);
}

TEST(GxfXmlSaving, TheRepairedText) {
    TemporaryPath const path;
    std::ofstream(path.get()) << std::string(1000, 'x');
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, utf16(small)));
    EXPECT_TRUE(tree.saveUtf16ToFile(path.get()));
    EXPECT_EQ(Bytes().text(path.content()), joined({utf16(small), nul}));
}

TEST(GxfXmlSaving, APathThatCannotBeWritten) {
    TemporaryPath const folder;
    std::filesystem::create_directory(folder.get());
    std::string const below = std::string(folder.get()) + "/none/file";
    GxfXmlTree tree;
    EXPECT_TRUE(decode(tree, utf16(small)));
    MessageCapture const messages;
    EXPECT_FALSE(tree.saveXmlToFile(folder.get()));
    EXPECT_FALSE(tree.saveXmlToFile(below.c_str()));
    EXPECT_FALSE(tree.saveUtf16ToFile(folder.get()));
    EXPECT_FALSE(tree.saveUtf16ToFile(below.c_str()));
    std::string const place = " \\(gxf_xml_extraction.cpp:[0-9]+\\)\n";
    std::vector<std::string> const traces = messages.texts(MessageKind::Trace);
    EXPECT_THAT(traces, ElementsAre(MatchesRegex("check failed: saveXmlToFile" + place),
                                    MatchesRegex("check failed: saveXmlToFile" + place),
                                    MatchesRegex("check failed: saveUtf16ToFile" + place),
                                    MatchesRegex("check failed: saveUtf16ToFile" + place)));
    EXPECT_NE(traces[0], traces[1]);
    EXPECT_TRUE(std::filesystem::is_directory(folder.get()));
}

TEST(GxfXmlExtraction, AnyBytesAreSafe) {
    MessageCapture const messages;
    ChannelSetting const on(gxfDebug, 0);
    std::mt19937 random(20240517);
    Bytes const seed =
        joined({{0xff, 0xfe}, utf16(withTracks(3, "%n")), utf16("\r\n"), nul, Bytes().fill(7)});
    GxfXmlTree reused;
    for (unsigned round = 0; round < 3000; ++round) {
        Bytes region = seed;
        for (unsigned changes = random() % 8; changes != 0; --changes) {
            // Behind the start, so that most documents are still looked at.
            region[12 + random() % (region.size() - 12)] = static_cast<unsigned char>(random());
        }
        GxfXmlTree tree;
        OpResult const result = decode(tree, region);
        EXPECT_EQ(result.success(), tree.isValid());
        EXPECT_NE(tree.toString().get(), nullptr);
        decode(reused, region);
    }
    for (unsigned round = 0; round < 3000; ++round) {
        Bytes region = utf16(opening);
        for (auto length = random() % 200; length != 0; --length) {
            region.u8(random() % 3 == 0 ? 0U : static_cast<unsigned>(random()));
        }
        GxfXmlTree tree;
        decode(tree, joined({region, utf16(">")}));
        decode(tree, region);
        EXPECT_FALSE(tree.isValid());
    }
}

TEST(GxfXmlExtraction, AnyTruncationIsSafe) {
    MessageCapture const messages;
    Bytes const whole = utf16(withTracks(2, "T"));
    Bytes part;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        GxfXmlTree tree;
        EXPECT_EQ(decode(tree, part).success(), length == whole.size()) << length;
        if (length < whole.size()) {
            part.u8(whole.vector()[length]);
        }
    }
}

TEST(GxfXmlExtraction, TwoThreadsAtTheSameTime) {
    std::atomic<unsigned> good{0};
    auto const decodeMany = [&good](std::string const& label) {
        std::string const text = withTracks(20, label);
        Bytes const region = utf16(text);
        Bytes const broken = utf16("<?xml version=\"1.0\"?><a></" + label + ">");
        std::string const error =
            "err=76:(Opening and ending tag mismatch: a line 1 and " + label + ")";
        for (unsigned i = 0; i < 100; ++i) {
            GxfXmlTree tree;
            bool const isRead = decode(tree, region) && tree.getXmlTracks().size() == 20 &&
                                tree.getXmlTracks()[19].getLabel() == label + "20";
            GxfXmlTree second;
            good += isRead && decode(second, broken).getText() == error ? 1 : 0;
        }
    };
    std::thread one(decodeMany, "one");
    std::thread two(decodeMany, "two");
    one.join();
    two.join();
    EXPECT_EQ(good, 200U);
}
