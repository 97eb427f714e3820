#include <gxftypes/xml/xml_parser.h>

#include <cstring>
#include <libxml/SAX2.h>
#include <memory>

namespace GxfTypes {

namespace {

std::size_t lengthOf(xmlChar const* text) {
    return text != nullptr ? std::strlen(reinterpret_cast<char const*>(text)) : 0;
}

bool isQuote(char c) { return c == '"' || c == '\''; }

/// Equals signs with a quote behind them.
unsigned long long countValues(std::string_view text) {
    constexpr std::size_t none = std::string_view::npos;
    unsigned long long count = 0;
    for (std::size_t at = text.find('='); at != none; at = text.find('=', at)) {
        at = text.find_first_not_of(" \t\r\n", at + 1);
        count += at != none && isQuote(text[at]) ? 1 : 0;
    }
    return count;
}

unsigned countOf(std::string_view text, char wanted) {
    unsigned count = 0;
    for (char const c : text) {
        count += c == wanted ? 1 : 0;
    }
    return count;
}

/// By the exclamation mark, which is far rarer than the bracket in front of it.
std::size_t findComment(std::string_view text, std::size_t from) {
    constexpr std::size_t none = std::string_view::npos;
    std::size_t at = text.find("!--", from + 1);
    while (at != none && text[at - 1] != '<') {
        at = text.find("!--", at + 1);
    }
    return at != none ? at - 1 : none;
}

} // namespace

xmlDoc* XmlParser::read(char const* text, unsigned length, char const* url, int options) {
    std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)> const context(xmlNewParserCtxt(),
                                                                               &xmlFreeParserCtxt);
    m_refused = false;
    m_workLeft = allowedWork + allowedWorkPerByte * length;
    m_attributeDeclarations = 0;
    m_context = context.get();
    if (m_context == nullptr) {
        return nullptr;
    }
    chargeTags({text, length});
    chargeComments({text, length});
    if (m_refused) {
        return nullptr;
    }
    m_context->_private = this;
    m_context->sax->startElementNs = &startElement;
    m_context->sax->attributeDecl = &attributeDeclaration;
    m_context->sax->getParameterEntity = &parameterEntity;
    return xmlCtxtReadMemory(m_context, text, static_cast<int>(length), url, nullptr, options);
}

XmlParser& XmlParser::of(void* context) {
    return *static_cast<XmlParser*>(static_cast<xmlParserCtxt*>(context)->_private);
}

/// Each attribute of a tag is compared with all of the tag. A well-formed tag holds no other '<'.
void XmlParser::chargeTags(std::string_view text) {
    // So few can't amount to anything, even in one tag.
    unsigned long long const most = countOf(text, '=');
    if (most * most <= allowedWork) {
        return;
    }
    while (!m_refused) {
        std::size_t const end = text.find('<');
        unsigned long long const attributes = countValues(text.substr(0, end));
        charge(attributes * attributes);
        if (end == std::string_view::npos) {
            return;
        }
        text.remove_prefix(end + 1);
    }
}

/// Two hyphens inside a comment are an error, and each report copies the comment up to there. The
/// parser doesn't take "--->" for its end.
void XmlParser::chargeComments(std::string_view text) {
    constexpr std::size_t none = std::string_view::npos;
    std::size_t start = findComment(text, 0);
    while (start != none && !m_refused) {
        std::size_t const content = start + 4;
        std::size_t at = text.find("--", content);
        while (at != none && !m_refused &&
               (text.substr(at, 3) != "-->" || (at > content && text[at - 1] == '-'))) {
            charge(at - start);
            at = text.find("--", at + 1);
        }
        start = at != none ? findComment(text, at) : none;
    }
}

void XmlParser::charge(unsigned long long work) {
    if (work <= m_workLeft) {
        m_workLeft -= work;
        return;
    }
    m_workLeft = 0;
    m_refused = true;
    m_context->wellFormed = 0;
    xmlStopParser(m_context);
}

void XmlParser::startElement(void* context, xmlChar const* name, xmlChar const* prefix,
                             xmlChar const* uri, int namespaceCount, xmlChar const** namespaces,
                             int attributeCount, int defaultedCount, xmlChar const** attributes) {
    // The namespaces in scope are searched one by one; the element's own are copied.
    XmlParser& parser = of(context);
    unsigned long long work = static_cast<unsigned>(parser.m_context->nsNr);
    for (int i = 0; i < namespaceCount; ++i) {
        work += lengthOf(namespaces[2 * i + 1]);
    }
    parser.charge(work);
    if (!parser.m_refused) {
        xmlSAX2StartElementNs(context, name, prefix, uri, namespaceCount, namespaces,
                              attributeCount, defaultedCount, attributes);
    }
}

void XmlParser::attributeDeclaration(void* context, xmlChar const* element, xmlChar const* name,
                                     int type, int defaultKind, xmlChar const* defaultValue,
                                     xmlEnumeration* values) {
    // Each is compared with those before it.
    XmlParser& parser = of(context);
    parser.charge(++parser.m_attributeDeclarations);
    xmlSAX2AttributeDecl(context, element, name, type, defaultKind, defaultValue, values);
}

xmlEntity* XmlParser::parameterEntity(void* context, xmlChar const* name) {
    xmlEntity* const entity = xmlSAX2GetParameterEntity(context, name);
    if (entity != nullptr) {
        of(context).charge(lengthOf(entity->content));
    }
    return entity;
}

} // namespace GxfTypes
