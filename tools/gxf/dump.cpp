#include <memory>

#include "input.h"
#include "output.h"
#include "text.h"

namespace Gxf {

using namespace GxfTypes;

namespace {

struct Options : StreamOptions {
    bool arrays = false;
};

int run(Options const& options) {
    if (options.arrays) {
        gxfDebug.set(gxfDebug.get() | (1U << gxfDebugArrays));
    }
    Input input(options);
    Output output = Output::standard();
    while (GxfStream::StreamPacket const* const packet = input.next()) {
        output.write(forPeople(packet->packet->toString().get()));
        output.write("\n");
        if (packet->umf != nullptr) {
            output.write(forPeople(packet->umf->packet->toString().get()));
            output.write("\n");
        }
    }
    output.finish();
    return input.status();
}

} // namespace

void addDump(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand("dump", "Every packet in the library's own text form");
    addStreamOptions(*command, *options);
    command->add_flag("--arrays", options->arrays,
                      "Print long lists whole: locator entries, timecodes, media bytes");
    command->footer("Example: gxf dump --arrays clip.gxf | less");
    command->callback([options, &chosen] { chosen = [options] { return run(*options); }; });
}

} // namespace Gxf
