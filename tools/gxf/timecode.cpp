#include <memory>
#include <nlohmann/json.hpp>

#include "fields.h"
#include "input.h"
#include "output.h"

namespace Gxf {

using namespace GxfStream;
using namespace GxfTypes;
using nlohmann::ordered_json;

namespace {

struct Options : StreamOptions {
    FieldRange fields;
    std::optional<unsigned> track;
    bool csv = false;
    bool json = false;
};

/// Writes one row for each field in the chosen form.
class Rows {
  public:
    Rows(Options const& options, Output& output) : m_options(options), m_output(output) {}

    /// An empty timecode for a field without a valid one.
    void add(unsigned field, std::string const& timecode) {
        begin();
        if (m_options.json) {
            ordered_json row = {{"field", field}, {"timecode", nullptr}};
            if (!timecode.empty()) {
                row["timecode"] = timecode;
            }
            m_output.write((m_count == 0 ? "\n  " : ",\n  ") + row.dump());
        } else if (m_options.csv) {
            m_output.write(std::to_string(field) + ',' + timecode + '\n');
        } else {
            FormatStr const row("%10u  %s\n", field, timecode.empty() ? "-" : timecode.c_str());
            m_output.write(row.get());
        }
        ++m_count;
    }

    void finish() {
        begin();
        if (m_options.json) {
            m_output.write(m_count == 0 ? "]}\n" : "\n]}\n");
        }
        m_output.finish();
    }

    unsigned long long count() const { return m_count; }

  private:
    /// Not before a stream has shown that it is one.
    void begin() {
        if (m_count != 0) {
            return;
        }
        if (m_options.json) {
            m_output.write("{\"timecodes\": [");
        } else if (m_options.csv) {
            m_output.write("field,timecode\n");
        }
    }

    Options const& m_options;
    Output& m_output;
    unsigned long long m_count = 0;
};

int run(Options const& options) {
    Input input(options);
    Output output = Output::standard();
    Rows rows(options, output);
    std::optional<unsigned> track = options.track;
    bool anyBlock = false;
    while (StreamPacket const* const packet = input.next()) {
        MediaPacket const* const media = packet->media();
        if (media == nullptr || media->perFrameTc.get() == nullptr) {
            continue;
        }
        if (track.value_or(media->hdr.getTrackNum()) != media->hdr.getTrackNum()) {
            continue;
        }
        track = media->hdr.getTrackNum();
        anyBlock = true;
        TimecodeBlock const block(*media);
        if (block.firstField() > options.fields.last) {
            break;
        }
        for (unsigned i = block.firstEntry(); i <= block.lastEntry(); ++i) {
            if (options.fields.holds(block.fieldOf(i))) {
                rows.add(block.fieldOf(i), block.textOf(i));
            }
        }
    }
    rows.finish();
    std::string const ofTrack =
        options.track ? " of track " + std::to_string(*options.track) : std::string();
    if (!anyBlock) {
        return input.notFound("has no timecode packets" + ofTrack);
    }
    if (rows.count() == 0) {
        return input.notFound("has no timecodes" + ofTrack + " of " + options.fields.text());
    }
    return input.status();
}

} // namespace

void addTimecode(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("timecode", "The timecode of every field");
    addStreamOptions(*command, *options);
    addFieldRange(*command, options->fields);
    addNumber(
        *command, "--track", {0, 63},
        [options](std::uint64_t number) { options->track = static_cast<unsigned>(number); },
        "The timecode track, if not the first one of the stream");
    CLI::Option* const csv =
        command->add_flag("--csv", options->csv, "Comma-separated, with a line of headings");
    command->add_flag("--json", options->json, "One JSON object")->excludes(csv);
    command->footer("Example: gxf timecode --first 1000 --last 1049 --csv clip.gxf");
    command->callback([options, &chosen] {
        options->fields.check();
        chosen = [options] { return run(*options); };
    });
}

} // namespace Gxf
