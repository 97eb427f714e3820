#include "progress.h"

#include <cstdio>
#include <unistd.h>

namespace Gxf {

namespace {

using namespace std::chrono_literals;

// A job that ends sooner needs no progress.
constexpr auto firstShown = 800ms;
constexpr auto interval = 200ms;
constexpr unsigned callsPerLookAtClock = 64;

} // namespace

void Progress::start(bool quiet, std::optional<std::uint64_t> total) {
    m_enabled = !quiet && ::isatty(STDERR_FILENO) != 0;
    m_total = total;
    m_next = Clock::now() + firstShown;
}

void Progress::update(std::uint64_t position) {
    if (!m_enabled || ++m_calls % callsPerLookAtClock != 0 || Clock::now() < m_next) {
        return;
    }
    m_next = Clock::now() + interval;
    m_shown = true;
    show(position);
}

void Progress::show(std::uint64_t position) const {
    double const megabytes = static_cast<double>(position) / 1e6;
    if (m_total && *m_total != 0) {
        std::fprintf(stderr, "\r\033[K%3.0f %%  %.0f MB",
                     100.0 * static_cast<double>(position) / static_cast<double>(*m_total),
                     megabytes);
    } else {
        std::fprintf(stderr, "\r\033[K%.0f MB", megabytes);
    }
    std::fflush(stderr);
}

void Progress::clearLine() {
    if (m_shown) {
        std::fputs("\r\033[K", stderr);
        m_shown = false;
    }
}

void Progress::stop() {
    clearLine();
    m_enabled = false;
}

} // namespace Gxf
