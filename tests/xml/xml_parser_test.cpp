#include <algorithm>
#include <cstring>
#include <functional>
#include <malloc.h>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <testing/xml_document.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

/// The memory that the parser holds, counted for a scope.
class ParserMemory {
  public:
    ParserMemory() {
        xmlInitParser();
        xmlMemGet(&m_free, &m_malloc, &m_realloc, &m_strdup);
        held = 0;
        peak = 0;
        xmlMemSetup(&release, &allocate, &resize, &duplicate);
    }
    ParserMemory(ParserMemory const&) = delete;
    ParserMemory& operator=(ParserMemory const&) = delete;
    ~ParserMemory() { xmlMemSetup(m_free, m_malloc, m_realloc, m_strdup); }

    static inline std::ptrdiff_t held = 0;
    static inline std::ptrdiff_t peak = 0;

  private:
    static void* counted(void* memory) {
        held += static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
        peak = std::max(peak, held);
        return memory;
    }
    static void forget(void* memory) {
        held -= static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
    }
    static void release(void* memory) {
        forget(memory);
        std::free(memory);
    }
    static void* allocate(std::size_t size) { return counted(std::malloc(size)); }
    static void* resize(void* memory, std::size_t size) {
        forget(memory);
        return counted(std::realloc(memory, size));
    }
    static char* duplicate(char const* text) { return static_cast<char*>(counted(::strdup(text))); }

    xmlFreeFunc m_free = nullptr;
    xmlMallocFunc m_malloc = nullptr;
    xmlReallocFunc m_realloc = nullptr;
    xmlStrdupFunc m_strdup = nullptr;
};

std::string repeated(std::string const& text, unsigned count) {
    std::string all;
    all.reserve(text.size() * count);
    for (unsigned i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

std::string numbered(std::string const& before, std::string const& behind, unsigned count) {
    std::string all;
    for (unsigned i = 0; i < count; ++i) {
        all += before + std::to_string(i) + behind;
    }
    return all;
}

OpResult decode(GxfXmlTree& tree, std::string const& text) {
    return tree.decodeXml(reinterpret_cast<unsigned char const*>(text.data()),
                          static_cast<unsigned>(text.size()));
}

struct Attack {
    char const* name;
    std::function<std::string(unsigned)> document;
    bool isWellFormed;
};

/// Documents whose cost grows with the square of their size.
Attack const attacks[] = {
    {"a namespace that a declaration gives to each element",
     [](unsigned n) {
         return "<!DOCTYPE r [<!ATTLIST a xmlns CDATA '" + std::string(4 * n, 'x') + "'>]><r>" +
                repeated("<a/>", n) + "</r>";
     },
     true},
    {"attributes of one tag", [](unsigned n) { return "<r" + numbered(" a", "=''", n) + "/>"; },
     true},
    {"attributes of one tag with blanks",
     [](unsigned n) { return "<r" + numbered(" a", " = \n\"\"", n) + "/>"; }, true},
    {"namespaces in scope",
     [](unsigned n) {
         return "<r" + numbered(" xmlns:a", "='u'", n) + ">" + repeated("<a0:b/>", n) + "</r>";
     },
     true},
    {"namespaces over several tags",
     [](unsigned n) {
         std::string const open = numbered("<e xmlns:a", "='u'>", 200);
         return "<r" + numbered(" xmlns:b", "='u'", n / 8) + ">" + open +
                repeated("<a0:b/>", 8 * n) + repeated("</e>", 200) + "</r>";
     },
     true},
    {"declared attributes",
     [](unsigned n) {
         return "<!DOCTYPE r [<!ATTLIST r" + numbered(" a", " CDATA ''", n) + ">]><r/>";
     },
     true},
    {"a parameter entity that is repeated",
     [](unsigned n) {
         return "<!DOCTYPE r [<!ENTITY % e '<!--" + std::string(4 * n, 'x') + "-->'>" +
                repeated("%e;", n) + "]><r/>";
     },
     false},
    {"hyphens in a comment", [](unsigned n) { return "<r>" + repeated("<!-- a --->", n) + "</r>"; },
     false},
    {"pairs of hyphens in a comment",
     [](unsigned n) { return "<r><!--" + repeated(" -- ", n) + "--></r>"; }, false},
};

} // namespace

TEST(XmlParser, RefusesWhatCostsTheSquareOfItsSize) {
    for (Attack const& attack : attacks) {
        for (unsigned const n : {16000U, 100000U}) {
            SCOPED_TRACE(attack.name);
            std::string const document = attack.document(n);
            ParserMemory const memory;
            GxfXmlTree tree;
            OpResult const result = decode(tree, document);
            EXPECT_EQ(result.getType(), OpResult::Error);
            EXPECT_EQ(result.getCode(), 22);
            EXPECT_STREQ(result.getText(), "out of proportion to its size");
            EXPECT_EQ(tree.xmlDoc, nullptr);
            EXPECT_LT(ParserMemory::peak,
                      16'000'000 + 100 * static_cast<std::ptrdiff_t>(document.size()));
        }
    }
}

TEST(XmlParser, TakesTheSameInModeration) {
    for (Attack const& attack : attacks) {
        SCOPED_TRACE(attack.name);
        GxfXmlTree tree;
        OpResult const result = decode(tree, attack.document(100));
        EXPECT_EQ(result.success(), attack.isWellFormed);
        EXPECT_STRNE(result.getText(), "out of proportion to its size");
        EXPECT_EQ(tree.xmlDoc != nullptr, attack.isWellFormed);
    }
}

TEST(XmlParser, ARefusalDoesNotOutlastItsDocument) {
    GxfXmlTree tree;
    EXPECT_FALSE(decode(tree, attacks[0].document(16000)));
    EXPECT_TRUE(decode(tree, "<r/>"));
    EXPECT_STRNE(decode(tree, "<r").getText(), "out of proportion to its size");
}

TEST(XmlParser, TakesLargeDocuments) {
    std::string const element = "<e" + numbered(" attribute", "=\"a value = 'one'\"", 24) + "/>";
    for (std::string const& document :
         {"<r>" + repeated(element, 5000) + "</r>", "<r>" + repeated("<a>b</a>", 200000) + "</r>",
          "<r>" + repeated("<!-- a comment - of one hyphen --><!---->", 50000) + "</r>",
          "<r>" + std::string(5'000'000, '-') + "</r>", "<r a='" + repeated("=\"\" ", 300) + "'/>",
          "<r xmlns='http://localhost/a' xmlns:b='http://localhost/b'>" +
              repeated("<b:c d='e'/>", 100000) + "</r>"}) {
        GxfXmlTree tree;
        EXPECT_STREQ(decode(tree, document).getText(), "") << document.substr(0, 80);
    }
}

TEST(XmlParser, EntitiesThatHoldEntitiesAreNotExpanded) {
    std::string declarations = "<!DOCTYPE r [<!ENTITY e0 'lollollollollollollollollollol'>";
    for (unsigned level = 1; level < 12; ++level) {
        declarations += "<!ENTITY e" + std::to_string(level) + " '" +
                        repeated("&e" + std::to_string(level - 1) + ";", 10) + "'>";
    }
    declarations += "]>";
    for (char const* const root : {"<r>&e11;</r>", "<r a='&e11;'/>", "<r>&e2;&e3;&e4;</r>",
                                   "<r><Track trackLabel='&e11;'>&e11;</Track></r>"}) {
        ParserMemory const memory;
        GxfXmlTree tree;
        decode(tree, declarations + root);
        EXPECT_LT(ParserMemory::peak, 4'000'000) << root;
        EXPECT_LE(tree.getXmlTracks().size(), 1U);
    }
}

TEST(XmlParser, ALongEntityThatIsRepeatedIsNotExpanded) {
    std::string const declaration = "<!DOCTYPE r [<!ENTITY e '" + std::string(50000, 'x') + "'>]>";
    for (std::string const& root :
         {"<r>" + repeated("&e;", 20000) + "</r>", "<r a='" + repeated("&e;", 20000) + "'/>",
          "<r>" + repeated("<Track trackLabel='&e;'/>", 2000) + "</r>"}) {
        ParserMemory const memory;
        GxfXmlTree tree;
        decode(tree, declaration + root);
        EXPECT_LT(ParserMemory::peak, 16'000'000);
    }
}

TEST(XmlParser, AnEntityThatHoldsItselfEnds) {
    GxfXmlTree tree;
    OpResult const result =
        decode(tree, "<!DOCTYPE r [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><r>&a;</r>");
    EXPECT_EQ(result.getCode(), 22);
}
