#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <new>
#include <unistd.h>
#include <vector>

#include "command.h"
#include "output.h"
#include "text.h"

namespace Gxf {

void addStreamOptions(CLI::App& app, StreamOptions& options) {
    app.add_option("FILE", options.file, "The stream: a path, or - for standard input")->required();
    app.add_flag("-q,--quiet", options.quiet, "No progress on standard error");
}

CLI::Option* addNumber(CLI::App& app, std::string const& name, NumberRange range,
                       std::function<void(std::uint64_t)> store, std::string const& what) {
    auto const parse = [name, range, store = std::move(store)](std::string const& text) {
        std::uint64_t number = 0;
        char const* const end = text.data() + text.size();
        auto const [stop, error] = std::from_chars(text.data(), end, number);
        if (error != std::errc() || stop != end || number < range.least || number > range.most) {
            throw CLI::ValidationError(name, "'" + text + "' is no whole number from " +
                                                 std::to_string(range.least) + " to " +
                                                 std::to_string(range.most));
        }
        store(number);
    };
    return app.add_option_function<std::string>(name, parse, what)->type_name("N");
}

namespace {

int failed(std::string const& what) {
    std::fprintf(stderr, "gxf: %s\n", inOneLine(forPeople(what)).c_str());
    return notDone;
}

bool isOption(std::string const& argument) {
    return argument.size() > 1 && argument.front() == '-';
}

/// What is wrong with an argument that nothing takes.
std::string leftoverText(std::string const& argument, bool hasCommand) {
    if (isOption(argument)) {
        return "there is no option '" + argument + "'";
    }
    return hasCommand ? "'" + argument + "' is one argument too many"
                      : "there is no command '" + argument + "'";
}

std::string whatIsWrong(CLI::App const& app, CLI::App const& level, CLI::ParseError const& error) {
    bool const hasCommand = level.get_require_subcommand_min() == 0;
    std::vector<std::string> leftover = app.remaining(true);
    std::erase(leftover, "--"); // which ends the options
    // A mistyped option may also be why something else is missing.
    bool const isMistyped = !leftover.empty() && isOption(leftover.front());
    bool const isExtra = dynamic_cast<CLI::ExtrasError const*>(&error) != nullptr;
    if (isMistyped || (!leftover.empty() && (isExtra || !hasCommand))) {
        return leftoverText(leftover.front(), hasCommand);
    }
    return hasCommand ? error.what() : "no command given";
}

int usageError(CLI::App const& app, CLI::ParseError const& error) {
    std::string command = "gxf";
    CLI::App const* level = &app;
    while (!level->get_subcommands().empty()) {
        level = level->get_subcommands().front();
        command += ' ' + level->get_name();
    }
    return failed(whatIsWrong(app, *level, error) + "; see '" + command + " --help'");
}

int run(int argc, char** argv) {
    CLI::App app("Inspects, cuts and corrects GXF streams (General eXchange Format, SMPTE 360M).",
                 "gxf");
    app.set_version_flag("--version", "gxf " GXF_VERSION);
    app.require_subcommand(1);
    app.footer("Exit status: 0 done and sound, 1 done but the stream has faults, 2 not done.\n"
               "Example: gxf info clip.gxf");

    Command chosen;
    addInfo(app, chosen);
    addPackets(app, chosen);
    addDump(app, chosen);
    addTimecode(app, chosen);
    addXml(app, chosen);
    addUserData(app, chosen);
    addExtract(app, chosen);
    addSeek(app, chosen);
    try {
        app.parse(argc, argv);
    } catch (CLI::Success const& help) {
        app.exit(help);
        return Output::standard().finish();
    } catch (CLI::ParseError const& error) {
        return usageError(app, error);
    }
    return chosen();
}

/// A file that is opened while one of the three standard descriptors is closed would take its
/// place, and get what is meant for that one.
void holdStandardDescriptors() {
    for (int const descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) < 0) {
            // Opened the wrong way round, so that its use fails as that of a closed one does.
            ::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

} // namespace

} // namespace Gxf

int main(int argc, char** argv) {
    Gxf::holdStandardDescriptors();
    // A limit on the size of files is a failed write, as a full disk is.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return Gxf::run(argc, argv);
    } catch (std::bad_alloc const&) {
        return Gxf::failed("out of memory; free some and try again");
    } catch (std::exception const& error) {
        return Gxf::failed(error.what());
    }
}
