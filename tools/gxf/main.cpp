#include <cstdio>
#include <exception>
#include <new>

#include "command.h"
#include "output.h"

namespace Gxf {

void addStreamOptions(CLI::App& app, StreamOptions& options) {
    app.add_option("FILE", options.file, "The stream: a path, or - for standard input")->required();
    app.add_flag("-q,--quiet", options.quiet, "No progress on standard error");
}

namespace {

int usageError(CLI::App const& app, CLI::ParseError const& error) {
    std::string command = "gxf";
    for (CLI::App const* sub : app.get_subcommands()) {
        command += ' ' + sub->get_name();
    }
    std::string what = error.what();
    if (app.get_subcommands().empty() && !app.remaining().empty()) {
        what = "there is no command '" + app.remaining().front() + "'";
    }
    for (char& c : what) {
        c = c == '\n' ? ' ' : c;
    }
    std::fprintf(stderr, "gxf: %s; see '%s --help'\n", what.c_str(), command.c_str());
    return notDone;
}

int failed(char const* what) {
    std::fprintf(stderr, "gxf: %s\n", what);
    return notDone;
}

int run(int argc, char** argv) {
    CLI::App app("Inspects and cuts GXF streams (General eXchange Format, SMPTE 360M).", "gxf");
    app.set_version_flag("--version", "gxf " GXF_VERSION);
    app.require_subcommand(1);
    app.footer("Exit status: 0 done and sound, 1 done but the stream has faults, 2 not done.\n"
               "Example: gxf info clip.gxf");

    Command chosen;
    addInfo(app, chosen);
    addPackets(app, chosen);
    addDump(app, chosen);
    addTimecode(app, chosen);
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

} // namespace

} // namespace Gxf

int main(int argc, char** argv) {
    try {
        return Gxf::run(argc, argv);
    } catch (std::bad_alloc const&) {
        return Gxf::failed("out of memory; free some and try again");
    } catch (std::exception const& error) {
        return Gxf::failed(error.what());
    }
}
