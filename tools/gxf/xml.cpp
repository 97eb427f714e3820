#include <memory>

#include "input.h"
#include "output.h"
#include "umf_facts.h"

namespace Gxf {

using namespace GxfTypes;

namespace {

struct Options : StreamOptions {
    bool raw = false;
};

std::string_view asText(unsigned char const* bytes, std::size_t count) {
    return {reinterpret_cast<char const*>(bytes), count};
}

/// As UTF-8 without a closing NUL; empty when it could not be converted.
std::string_view documentOf(GxfXmlTree const& tree) {
    std::string_view text = asText(tree.getUtf8(), tree.getUtf8Length());
    if (!text.empty() && text.back() == '\0') {
        text.remove_suffix(1);
    }
    return text;
}

int run(Options const& options) {
    Input input(options);
    ClipUmf const clip(input);
    if (clip.get() == nullptr) {
        return input.notFound("has no UMF, and so no XML document");
    }
    UmfPacket const& umf = *clip.get()->packet;
    GxfPreservedData const& raw = umf.preservedData[0];
    std::string_view const document = documentOf(umf.xmlTree);
    // Of a document that isn't as long as claimed, only the text is kept.
    if (raw.size() == 0 && (options.raw || document.empty())) {
        return input.notFound("its UMF has no XML document");
    }
    std::string_view const text = options.raw ? asText(raw.getData(), raw.size()) : document;
    if (text.empty()) {
        return input.notFound("its XML document can't be converted; --raw gives its bytes");
    }
    Output output = Output::standard();
    output.write(text);
    output.finish();
    return input.status();
}

} // namespace

void addXml(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("xml", "The clip's XML document as UTF-8");
    addStreamOptions(*command, *options);
    command->add_flag("--raw", options->raw, "Its bytes as they stand");
    command->footer("Example: gxf xml clip.gxf > clip.xml");
    command->callback([options, &chosen] { chosen = [options] { return run(*options); }; });
}

} // namespace Gxf
