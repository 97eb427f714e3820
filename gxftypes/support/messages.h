#pragma once

namespace Zorvan {

enum class MessageKind { Info, Debug, Warning, Error, Trace };

/// Takes every message of the library; `text` lives for the call only. May be called from several
/// threads at the same time.
using MessageSink = void (*)(MessageKind kind, char const* text);

/// Sends all messages to `sink`; null restores the default, which writes warnings and errors to
/// standard error and drops the rest. Returns the sink before. Atomic.
MessageSink setMessageSink(MessageSink sink);

/// Sends a text as it stands.
void sendMessage(MessageKind kind, char const* text);

/// False when a message of this kind would be dropped, so that nobody needs to build its text.
bool isMessageWanted(MessageKind kind);

} // namespace Zorvan

void infoMsg(char const* format, ...) __attribute__((format(printf, 1, 2)));
void debugMsg(char const* format, ...) __attribute__((format(printf, 1, 2)));
void warningMsg(char const* format, ...) __attribute__((format(printf, 1, 2)));
void errorMsg(char const* format, ...) __attribute__((format(printf, 1, 2)));

/// Writes the failure of a check as one trace: what failed and where.
void logFalse(char const* what, char const* file, unsigned line);

/// A place for a debugger's breakpoint; returns to its caller.
void debugBkpt();
