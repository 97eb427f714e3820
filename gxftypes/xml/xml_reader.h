#pragma once

#include <libxml/tree.h>

#include <gxftypes/xml/xml_values.h>

namespace GxfTypes {

/// What the readers of elements share: the test of the node, and notes on what isn't known, which
/// are written when the XML bit of gxfDebug is on.
class XmlReaderNotes {
  public:
    XmlReaderNotes() : m_enabled(gxfDebug.on(gxfDebugXml)), m_notes(128U) {}

    void unknownAttribute(xmlAttr* attr) {
        if (m_enabled) {
            m_notes.format("Unknown attribute:[%s]\n", xmlNodeToString(attr).get());
        }
    }
    void unknownChild(xmlNode* child) {
        if (m_enabled) {
            m_notes.format("Unknown child:[%s]\n", xmlNodeToString(child).get());
        }
    }
    void unknownElement(xmlNode* node) {
        if (m_enabled) {
            m_notes.format("Unknown element:[%s]\n", xmlNodeToString(node).get());
        }
    }
    void write() const {
        if (m_enabled) {
            debugMsg("%s", m_notes.get());
        }
    }

  private:
    bool m_enabled;
    FormatStr m_notes;
};

/// The first child. Below a reference to an entity hangs its declaration, which is another kind of
/// record and no part of the document.
inline xmlNode* childrenOf(xmlNode const* node) {
    return node->type != XML_ENTITY_REF_NODE ? node->children : nullptr;
}

/// The first attribute, which only an element has.
inline xmlAttr* attributesOf(xmlNode const* node) {
    return node->type == XML_ELEMENT_NODE ? node->properties : nullptr;
}

/// True when the name is one of the list, whatever the case.
template <std::size_t N> bool isOneOf(xmlChar const* name, char const* const (&names)[N]) {
    for (char const* const known : names) {
        if (xmlStringCmp(name, known)) {
            return true;
        }
    }
    return false;
}

/// Success for a node of one of the names; else an error of code 7, with a text made of the node
/// and `what` it is not.
template <std::size_t N>
OpResult checkNode(xmlNode* node, char const* const (&names)[N], char const* what,
                   OpCodeLocation const& location = OpCodeLocation::here()) {
    if (node == nullptr) {
        return gxfError(GxfOpSubsystem::internalError, nullptr, location);
    }
    if (!isOneOf(node->name, names)) {
        FormatStr const text("%s is not %s", xmlNodeToString(node).get(), what);
        return {OpResult::Error, GxfOpSubsystem::internalError, gxfOpSubsystem.getId(), text.get()};
    }
    return OpResult::Ok;
}

/// Passes over the attributes of the list and notes the others.
template <std::size_t N>
void passAttributes(xmlNode* node, char const* const (&names)[N], XmlReaderNotes& notes) {
    for (xmlAttr* attr = attributesOf(node); attr != nullptr; attr = attr->next) {
        if (!isOneOf(attr->name, names)) {
            notes.unknownAttribute(attr);
        }
    }
}

/// Checks an element of which nothing is kept, and notes the attributes that it shouldn't have.
template <std::size_t N>
OpResult passElement(xmlNode* node, char const* name, char const* what,
                     char const* const (&attributes)[N],
                     OpCodeLocation const& location = OpCodeLocation::here()) {
    char const* const names[] = {name};
    OpResult const result = checkNode(node, names, what, location);
    if (result) {
        XmlReaderNotes notes;
        passAttributes(node, attributes, notes);
        notes.write();
    }
    return result;
}

} // namespace GxfTypes
