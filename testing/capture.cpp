#include <testing/capture.h>

#include <mutex>

namespace GxfTesting {

namespace {

std::mutex captureMutex;
std::vector<std::pair<GxfTypes::MessageKind, std::string>> captured;

void capture(GxfTypes::MessageKind kind, char const* text) {
    std::lock_guard const lock(captureMutex);
    captured.emplace_back(kind, text);
}

} // namespace

MessageCapture::MessageCapture() : m_before(GxfTypes::setMessageSink(&capture)) { clear(); }

MessageCapture::~MessageCapture() { GxfTypes::setMessageSink(m_before); }

std::vector<std::string> MessageCapture::texts(GxfTypes::MessageKind kind) const {
    std::lock_guard const lock(captureMutex);
    std::vector<std::string> result;
    for (auto const& [messageKind, text] : captured) {
        if (messageKind == kind) {
            result.push_back(text);
        }
    }
    return result;
}

std::vector<std::string> MessageCapture::texts() const {
    std::lock_guard const lock(captureMutex);
    std::vector<std::string> result;
    for (auto const& [messageKind, text] : captured) {
        if (messageKind != GxfTypes::MessageKind::Trace) {
            result.push_back(text);
        }
    }
    return result;
}

unsigned MessageCapture::count(GxfTypes::MessageKind kind) const {
    return static_cast<unsigned>(texts(kind).size());
}

void MessageCapture::clear() {
    std::lock_guard const lock(captureMutex);
    captured.clear();
}

} // namespace GxfTesting
