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

void write(Output& output, Packet const& packet) {
    output.write(forPeople(packet.toString().get()));
    output.write("\n");
}

int run(Options const& options) {
    if (options.arrays) {
        gxfDebug.set(gxfDebug.get() | (1U << gxfDebugArrays));
    }
    Input input(options);
    Output output = Output::standard();
    while (GxfStream::StreamPacket const* const packet = input.next()) {
        // A UMF of one packet says all that its packet does.
        GxfStream::StreamUmf const* const umf = packet->umf;
        if (umf == nullptr || umf->packets.size() > 1) {
            write(output, *packet->packet);
        }
        if (umf != nullptr) {
            write(output, *umf->packet);
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
