#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include <gxftypes/support/auto_ref_ptr.h>
#include <gxftypes/support/op_subsystem.h>
#include <gxftypes/support/ref_count.h>

namespace Zorvan {

/// The file name without its folders.
inline char const* baseName(char const* path) {
    // The compiler searches a literal, so that a place costs nothing where nothing goes wrong.
    char const* const slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

/// The place in the source at which a result is raised.
struct OpCodeLocation {
    OpCodeLocation(char const* sourceFile, char const* functionName, unsigned sourceLine)
        : file(sourceFile), function(functionName), line(sourceLine) {}

    /// The place of the call.
    static OpCodeLocation here(char const* file = __builtin_FILE(),
                               char const* function = __builtin_FUNCTION(),
                               unsigned line = __builtin_LINE()) {
        return {baseName(file), function, line};
    }

    char const* file;
    char const* function;
    std::uint32_t line;
};

/// What an operation came to: null for plain success, else a shared note.
///
/// Info results (and plain success) count as success, warnings and errors don't. All copies share
/// one note. Building a result that isn't plain success is itself a report: it sends one Trace
/// message, also when the result is dropped at once.
class OpResult {
  public:
    enum InfoType : std::int32_t { Info = 0 };
    enum OkType : std::int32_t { Ok = 2 };
    enum WarningType : std::int32_t { Warning = 3 };
    enum ErrorType : std::int32_t { Error = 4 };

    /// One of the four values above.
    using Type = std::int32_t;

    OpResult() = default;
    OpResult(OkType) {}
    OpResult(ErrorType, int code, OpSubsystem, OpCodeLocation const&, char const* text);
    OpResult(ErrorType, int code, OpSubsystem, char const* text);
    OpResult(WarningType, int code, OpSubsystem, OpCodeLocation const&, char const* text);
    OpResult(WarningType, int code, OpSubsystem, char const* text);
    OpResult(InfoType, int code, OpSubsystem, char const* text);

    class Note : public RefCount {
      public:
        /// `location` and `text` may be null; both are copied.
        Note(Type type, int code, OpSubsystem subsystem, OpCodeLocation const* location,
             char const* text);

        bool success() const { return m_type <= Ok; }
        Type type() const { return m_type; }
        int code() const { return m_code; }
        std::string const& text() const { return m_text; }
        OpCodeLocation const& location() const { return m_location; }
        std::string toString() const;

        void prefixNote(char const* text) { m_text.insert(0, text); }
        void appendNote(char const* text) { m_text.append(text); }
        void downgradeTo(Type type);

      private:
        Type m_type;
        std::int32_t m_code;
        OpSubsystem m_subsystem;
        OpCodeLocation m_location;
        std::string m_text;
    };

    bool success() const { return m_note.get() == nullptr || m_note->success(); }
    operator bool() const { return success(); }
    bool operator!() const { return !success(); }

    /// The subsystem's code; 0 for plain success, which is also the code of "umf partial".
    int getCode() const { return m_note.get() != nullptr ? m_note->code() : 0; }
    /// 2 for plain success.
    Type getType() const { return m_note.get() != nullptr ? m_note->type() : Ok; }
    /// The text with all that was put in front and behind; "" if none. Lives as long as the note
    /// and until its next change.
    char const* getText() const { return m_note.get() != nullptr ? m_note->text().c_str() : ""; }
    /// Where it was raised; empty texts and line 0 when no place was given.
    OpCodeLocation getLocation() const;
    /// Kind, name of the code, text and place in one line.
    std::string toString() const;

    /// Puts a text in front of the note's text, with nothing between. Without a note: nothing.
    OpResult& prefixNote(char const* text);
    /// Puts a text behind the note's text, with nothing between. Without a note: nothing.
    OpResult& appendNote(char const* text);
    /// Lowers the kind, never raises it.
    OpResult& downgradeTo(Type type);

  private:
    AutoRefPtr<Note> m_note;
};

} // namespace Zorvan
