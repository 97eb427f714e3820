#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace Gxf {

/// What the command answers to its caller.
enum ExitStatus : int {
    done = 0,       ///< and the stream is sound as far as the command looked
    withFaults = 1, ///< done, but the stream has faults, or not what was asked for
    notDone = 2,
};

/// Ends a command with status 2. The text says in one line what is wrong and what to do.
class NotDone : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What the command line chose; set while it is parsed, called afterwards.
using Command = std::function<int()>;

/// Options that every command reading a stream has.
struct StreamOptions {
    std::string file;
    bool quiet = false;
};

void addStreamOptions(CLI::App& app, StreamOptions& options);

/// The whole numbers that an option takes, both ends included.
struct NumberRange {
    std::uint64_t least;
    std::uint64_t most;
};

/// An option with a number, in decimal digits alone.
CLI::Option* addNumber(CLI::App& app, std::string const& name, NumberRange range,
                       std::function<void(std::uint64_t)> store, std::string const& what);

// Each adds its sub-command, which stores what is to be done in `chosen`.

void addInfo(CLI::App& app, Command& chosen);
void addPackets(CLI::App& app, Command& chosen);
void addDump(CLI::App& app, Command& chosen);
void addTimecode(CLI::App& app, Command& chosen);
void addXml(CLI::App& app, Command& chosen);
void addUserData(CLI::App& app, Command& chosen);
void addExtract(CLI::App& app, Command& chosen);
void addSeek(CLI::App& app, Command& chosen);

} // namespace Gxf
