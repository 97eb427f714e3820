#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include <gxftypes/packet/gxf.h>
#include <libxml/parser.h>
#include <testing/umf_builder.h>

namespace GxfTesting {

/// A document that is parsed without the library.
class XmlDocument {
  public:
    explicit XmlDocument(std::string_view text)
        : m_document(xmlReadMemory(text.data(), static_cast<int>(text.size()), "test", nullptr,
                                   XML_PARSE_NOERROR | XML_PARSE_NOWARNING)) {}
    XmlDocument(XmlDocument const&) = delete;
    XmlDocument& operator=(XmlDocument const&) = delete;
    ~XmlDocument() { xmlFreeDoc(m_document); }

    xmlNode* root() const { return xmlDocGetRootElement(m_document); }
    /// The first child of the root.
    xmlNode* child() const { return root()->children; }
    /// The first attribute of the root.
    xmlAttr* attribute() const { return root()->properties; }

  private:
    xmlDoc* m_document;
};

inline std::string upper(std::string_view text) { return GxfTypes::upperCase(std::string(text)); }

} // namespace GxfTesting
