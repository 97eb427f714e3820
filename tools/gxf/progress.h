#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace Gxf {

/// How far a long job is, on standard error when that is a terminal.
class Progress {
  public:
    void start(bool quiet, std::optional<std::uint64_t> total);
    /// Cheap enough to be called for every packet.
    void update(std::uint64_t position);
    /// Makes room for another line on standard error.
    void clearLine();
    void stop();

  private:
    using Clock = std::chrono::steady_clock;

    void show(std::uint64_t position) const;

    bool m_enabled = false;
    bool m_shown = false;
    std::optional<std::uint64_t> m_total;
    unsigned m_calls = 0;
    Clock::time_point m_next;
};

} // namespace Gxf
