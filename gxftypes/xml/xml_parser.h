#pragma once

#include <libxml/parser.h>
#include <string_view>

namespace GxfTypes {

/// libxml2 within limits. There are documents that keep it busy, or make it take memory, by the
/// square of their size: a namespace that a declaration gives to each of many elements, thousands
/// of attributes in one tag, a parameter entity that is repeated, a broken comment that each error
/// report copies. What such things cost is counted, and a document that costs far more than its
/// size is refused; no description of a clip comes near that.
class XmlParser {
  public:
    /// As xmlReadMemory(): null for a document that isn't well-formed or is refused.
    xmlDoc* read(char const* text, unsigned length, char const* url, int options);
    /// True when the last document was refused.
    bool isRefused() const { return m_refused; }

  private:
    /// Units of work, each of a few nanoseconds or a byte of memory.
    static constexpr unsigned long long allowedWork = 4'000'000;
    static constexpr unsigned long long allowedWorkPerByte = 64;

    static XmlParser& of(void* context);
    static void startElement(void* context, xmlChar const* name, xmlChar const* prefix,
                             xmlChar const* uri, int namespaceCount, xmlChar const** namespaces,
                             int attributeCount, int defaultedCount, xmlChar const** attributes);
    static void attributeDeclaration(void* context, xmlChar const* element, xmlChar const* name,
                                     int type, int defaultKind, xmlChar const* defaultValue,
                                     xmlEnumeration* values);
    static xmlEntity* parameterEntity(void* context, xmlChar const* name);

    void chargeTags(std::string_view text);
    void chargeComments(std::string_view text);
    void charge(unsigned long long work);

    xmlParserCtxt* m_context = nullptr;
    unsigned long long m_workLeft = 0;
    unsigned long long m_attributeDeclarations = 0;
    bool m_refused = false;
};

} // namespace GxfTypes
