#include <gxftypes/support/op_result.h>

#include <gxftypes/support/format_str.h>
#include <gxftypes/support/messages.h>

namespace Zorvan {

namespace {

OpCodeLocation const nowhere{"", "", 0};

char const* kindName(OpResult::Type type) {
    switch (type) {
    case OpResult::Info:
        return "info";
    case OpResult::Ok:
        return "ok";
    case OpResult::Warning:
        return "warning";
    default:
        return "error";
    }
}

AutoRefPtr<OpResult::Note> raise(OpResult::Type type, int code, OpSubsystem subsystem,
                                 OpCodeLocation const* location, char const* text) {
    AutoRefPtr<OpResult::Note> note(new OpResult::Note(type, code, subsystem, location, text));
    if (isMessageWanted(MessageKind::Trace)) {
        sendMessage(MessageKind::Trace, (note->toString() + '\n').c_str());
    }
    return note;
}

} // namespace

OpResult::Note::Note(Type type, int code, OpSubsystem subsystem, OpCodeLocation const* location,
                     char const* text)
    : m_type(type), m_code(code), m_subsystem(subsystem),
      m_location(location != nullptr ? *location : nowhere), m_text(text != nullptr ? text : "") {}

void OpResult::Note::downgradeTo(Type type) {
    if (type < m_type) {
        m_type = type;
    }
}

std::string OpResult::Note::toString() const {
    FormatStr line("%s %s", kindName(m_type), OpSubsystemDecl::errorNameOf(m_subsystem, m_code));
    if (!m_text.empty()) {
        line.format(": %s", m_text.c_str());
    }
    if (m_location.line != 0) {
        line.format(" (%s, %s:%u)", m_location.function, m_location.file, m_location.line);
    }
    std::string text(line.get(), line.size());
    for (char& c : text) {
        if (c == '\n') {
            c = ' ';
        }
    }
    return text;
}

OpResult::OpResult(ErrorType, int code, OpSubsystem subsystem, OpCodeLocation const& location,
                   char const* text)
    : m_note(raise(Error, code, subsystem, &location, text)) {}

OpResult::OpResult(ErrorType, int code, OpSubsystem subsystem, char const* text)
    : m_note(raise(Error, code, subsystem, nullptr, text)) {}

OpResult::OpResult(WarningType, int code, OpSubsystem subsystem, OpCodeLocation const& location,
                   char const* text)
    : m_note(raise(Warning, code, subsystem, &location, text)) {}

OpResult::OpResult(WarningType, int code, OpSubsystem subsystem, char const* text)
    : m_note(raise(Warning, code, subsystem, nullptr, text)) {}

OpResult::OpResult(InfoType, int code, OpSubsystem subsystem, char const* text)
    : m_note(raise(Info, code, subsystem, nullptr, text)) {}

OpCodeLocation OpResult::getLocation() const {
    return m_note.get() != nullptr ? m_note->location() : nowhere;
}

std::string OpResult::toString() const {
    return m_note.get() != nullptr ? m_note->toString() : "ok";
}

OpResult& OpResult::prefixNote(char const* text) {
    if (m_note.get() != nullptr) {
        m_note->prefixNote(text);
    }
    return *this;
}

OpResult& OpResult::appendNote(char const* text) {
    if (m_note.get() != nullptr) {
        m_note->appendNote(text);
    }
    return *this;
}

OpResult& OpResult::downgradeTo(Type type) {
    if (m_note.get() != nullptr) {
        m_note->downgradeTo(type);
    }
    return *this;
}

} // namespace Zorvan
