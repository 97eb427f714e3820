#include <gxftypes/support/messages.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include <gxftypes/support/format_str.h>

namespace Zorvan {

namespace {

void defaultSink(MessageKind kind, char const* text) {
    if (kind == MessageKind::Warning || kind == MessageKind::Error) {
        std::fputs(text, stderr);
    }
}

std::atomic<MessageSink> currentSink{&defaultSink};

void sendFormatted(MessageKind kind, char const* format, std::va_list arguments)
    __attribute__((format(printf, 2, 0)));

void sendFormatted(MessageKind kind, char const* format, std::va_list arguments) {
    if (!isMessageWanted(kind)) {
        return;
    }
    FormatStr text(128);
    text.vformat(format, arguments);
    sendMessage(kind, text.get());
}

} // namespace

MessageSink setMessageSink(MessageSink sink) {
    return currentSink.exchange(sink != nullptr ? sink : &defaultSink);
}

void sendMessage(MessageKind kind, char const* text) { currentSink.load()(kind, text); }

bool isMessageWanted(MessageKind kind) {
    return kind == MessageKind::Warning || kind == MessageKind::Error ||
           currentSink.load() != &defaultSink;
}

} // namespace Zorvan

void infoMsg(char const* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    Zorvan::sendFormatted(Zorvan::MessageKind::Info, format, arguments);
    va_end(arguments);
}

void debugMsg(char const* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    Zorvan::sendFormatted(Zorvan::MessageKind::Debug, format, arguments);
    va_end(arguments);
}

void warningMsg(char const* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    Zorvan::sendFormatted(Zorvan::MessageKind::Warning, format, arguments);
    va_end(arguments);
}

void errorMsg(char const* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    Zorvan::sendFormatted(Zorvan::MessageKind::Error, format, arguments);
    va_end(arguments);
}

void logFalse(char const* what, char const* file, unsigned line) {
    if (!Zorvan::isMessageWanted(Zorvan::MessageKind::Trace)) {
        return;
    }
    Zorvan::FormatStr text("check failed: %s (%s:%u)\n", what, file, line);
    Zorvan::sendMessage(Zorvan::MessageKind::Trace, text.get());
}

void debugBkpt() { asm volatile(""); }
