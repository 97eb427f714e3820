#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <gxfstream/umf_rewriter.h>

#include "info_text.h"
#include "input.h"
#include "output.h"
#include "text.h"
#include "umf_facts.h"
#include "user_data_value.h"

namespace Gxf {

using namespace GxfStream;
using namespace GxfTypes;

namespace {

struct ListOptions : StreamOptions {
    bool json = false;
};

struct NameOptions : StreamOptions {
    std::string name;
};

struct ChangeOptions : NameOptions {
    std::optional<std::string> output;
    bool inPlace = false;
    bool discardTail = false;
};

struct SetOptions : ChangeOptions {
    std::string value;
    std::optional<std::string> valueFile;
    std::string type = "string";
    std::optional<std::string> track;
};

/// A change, and whether it found something to change.
struct Edit {
    UmfRewriter::Change change;
    std::shared_ptr<bool> found = std::make_shared<bool>(false);
};

/// The library's warnings would tell of each UMF several times what the command tells itself.
class QuietLibrary {
  public:
    QuietLibrary() : m_before(setMessageSink([](MessageKind, char const*) {})) {}
    ~QuietLibrary() { setMessageSink(m_before); }
    QuietLibrary(QuietLibrary const&) = delete;
    QuietLibrary& operator=(QuietLibrary const&) = delete;

  private:
    MessageSink m_before;
};

int list(ListOptions const& options) {
    Input input(options);
    ClipUmf const clip(input);
    Output output = Output::standard();
    if (clip.get() != nullptr) {
        UmfPacket const& umf = *clip.get()->packet;
        std::string const text = options.json ? userDataJson(umf).dump() : userDataText(umf);
        output.write(options.json ? text + "\n" : text);
    } else if (options.json) {
        output.write("[]\n");
    }
    output.finish();
    return clip.get() != nullptr ? input.status() : input.notFound("has no UMF");
}

std::string noSuchName(std::string const& name) { return "has no user data named '" + name + "'"; }

int get(NameOptions const& options) {
    Input input(options);
    ClipUmf const clip(input);
    UmfPacket::UserDataPair const* const pair =
        clip.get() != nullptr ? findUserData(*clip.get()->packet, options.name) : nullptr;
    if (pair == nullptr) {
        return input.notFound(clip.get() == nullptr ? "has no UMF" : noSuchName(options.name));
    }
    Output output = Output::standard();
    output.write(valueBytes(*pair));
    output.finish();
    return input.status();
}

/// Sections of a tail, as people call them.
std::string lossText(TailLoss const& loss) {
    std::string text;
    auto const add = [&text](std::uint32_t bytes, char const* what) {
        if (bytes != 0) {
            text += (text.empty() ? "" : " and ") + std::string(what) + " (" +
                    std::to_string(bytes) + " bytes)";
        }
    };
    add(loss.xml, "its XML document");
    add(loss.behind, "other bytes at its end");
    return text;
}

/// A stream that can be read once, in a file without a name, which goes with the process.
class KeptStream {
  public:
    KeptStream() {
        std::string path = folder() + "/gxf.XXXXXX";
        m_descriptor = ::mkostemp(path.data(), O_CLOEXEC);
        if (m_descriptor < 0) {
            fail();
        }
        ::unlink(path.c_str());
    }
    ~KeptStream() { ::close(m_descriptor); }
    KeptStream(KeptStream const&) = delete;
    KeptStream& operator=(KeptStream const&) = delete;

    void write(Span bytes) {
        if (!writeAll(m_descriptor, bytes, m_size)) {
            fail();
        }
        m_size += bytes.size();
    }
    /// To be opened as a file.
    std::string path() const { return "/dev/fd/" + std::to_string(m_descriptor); }

  private:
    static std::string folder() {
        char const* const chosen = std::getenv("TMPDIR");
        return chosen != nullptr && *chosen != '\0' ? chosen : "/tmp";
    }

    [[noreturn]] static void fail() {
        throw NotDone("a stream from a pipe can't be kept in " + folder() + ", " +
                      std::generic_category().message(errno) +
                      "; choose another folder with TMPDIR, or give -o and a file's name");
    }

    int m_descriptor = -1;
    std::uint64_t m_size = 0;
};

/// Makes a changed copy of a stream, or changes the stream itself.
class Rewriting {
  public:
    Rewriting(ChangeOptions const& options, Edit const& edit)
        : m_options(options), m_edit(edit),
          m_rewriter(edit.change,
                     options.discardTail ? UmfRewriter::discardTail : UmfRewriter::keepTail) {}

    int run() {
        if (m_options.inPlace) {
            openInPlace();
        } else if (isReadOnce(m_options.file)) {
            keepStream();
        }
        Input input = openInput();
        // Behind the opening, which undoes an interrupted change.
        std::optional<UnchangedFile> unchanged;
        if (!isKept()) {
            checkOutput(input);
        }
        if (!isKept() && m_file == nullptr) {
            unchanged.emplace(m_options.file);
        }
        takeIn(input);
        if (!*m_edit.found) {
            return input.notFound(noSuchName(m_options.name));
        }
        write(input);
        if (m_rewriter.loss().isAny()) {
            input.tell("its UMF has lost " + lossText(m_rewriter.loss()));
        }
        return input.status();
    }

  private:
    void openInPlace() {
        if (isReadOnce(m_options.file)) {
            throw NotDone("what is read from a pipe can't be changed in place; give -o OUT");
        }
        if (m_options.file.empty()) {
            throw NotDone("the stream has an empty name; give a path");
        }
        std::string error;
        m_file = InPlaceFile::open(m_options.file, error);
        if (m_file == nullptr) {
            throw NotDone(m_options.file + ": can't be changed in place, " + error +
                          "; check the path, or give -o OUT");
        }
        if (m_file->hasUndone()) {
            std::fprintf(stderr, "%s: a change that was interrupted is undone\n",
                         inOneLine(forPeople(m_options.file)).c_str());
        }
    }

    bool isToStandard() const { return m_options.output == "-"; }
    std::string outputName() const {
        return isToStandard() ? "standard output" : *m_options.output;
    }

    void checkOutput(Input const& input) const {
        if (m_options.output &&
            input.isSameFile(isToStandard() ? "/dev/stdout" : *m_options.output)) {
            throw NotDone(outputName() + ": is the stream itself; give --in-place to change it, or "
                                         "choose another output name");
        }
    }

    /// What can be read once is copied to where the result is to appear, or kept where that can't
    /// be written twice.
    void keepStream() {
        Input input(m_options);
        checkOutput(input);
        struct stat status {};
        bool const isRegular =
            !isToStandard() &&
            (::stat(m_options.output->c_str(), &status) != 0 || S_ISREG(status.st_mode));
        if (isRegular) {
            m_output.emplace(Output::file(*m_options.output));
        } else {
            m_kept.emplace();
        }
        std::uint64_t position = 0;
        for (Span bytes = input.source().read(0, chunk); !bytes.empty();
             bytes = input.source().read(position, chunk)) {
            isRegular ? m_output->write(bytes) : m_kept->write(bytes);
            position += bytes.size();
            input.source().release(position);
        }
        if (!input.source().error().empty()) {
            throw NotDone(input.name() + ": " + input.source().error() + "; nothing is written");
        }
    }

    bool isKept() const { return m_output || m_kept; }

    Input openInput() {
        if (!isKept()) {
            return Input(m_options);
        }
        StreamOptions options = m_options;
        options.file = m_output ? m_output->unfinished() : m_kept->path();
        return Input(options, m_options.file == "-" ? "standard input" : m_options.file);
    }

    /// The whole stream, and of its UMFs what they are going to be.
    void takeIn(Input& input) {
        QuietLibrary const quiet;
        bool isGood = true;
        while (StreamPacket const* const packet = isGood ? input.next() : nullptr) {
            isGood = m_rewriter.take(*packet, input.source());
        }
        input.finish();
        if (input.status() == notDone) {
            throw NotDone(input.name() + ": reading failed; nothing is changed");
        }
        if (!isGood || !m_rewriter.finish(input.reader())) {
            throw NotDone(input.name() + ": " + refusalText());
        }
        if (m_rewriter.umfs() == 0) {
            throw NotDone(input.name() +
                          ": has no UMF that could hold user data; nothing is changed");
        }
    }

    std::string refusalText() const {
        std::string const text = m_rewriter.refusal().text;
        switch (m_rewriter.refusal().kind) {
        case RewriteRefusal::tail:
            return text + ": it would lose " + lossText(m_rewriter.loss()) +
                   "; allow that with --discard-tail, or give a shorter value";
        case RewriteRefusal::room:
            return text + "; give a shorter value";
        default:
            return text + "; nothing is changed";
        }
    }

    void write(Input& input) {
        if (m_file != nullptr) {
            InterruptsHeld const held;
            if (!m_rewriter.patches().empty() && !m_file->apply(m_rewriter.patches())) {
                throw NotDone(input.name() + ": can't be changed, " + m_file->error() +
                              "; try again, or give -o OUT");
            }
            return;
        }
        if (m_output) {
            for (Patch const& patch : m_rewriter.patches()) {
                m_output->rewrite(patch.after, patch.offset);
            }
        } else {
            copy(input);
        }
        m_output->finish();
    }

    void copy(Input& input) {
        m_output.emplace(isToStandard() ? Output::standard() : Output::file(*m_options.output));
        if (m_output->isTerminal()) {
            throw NotDone("a stream isn't written to a terminal; give -o OUT, or pipe it on");
        }
        Progress progress;
        progress.start(m_options.quiet, input.size());
        std::uint64_t position = 0;
        bool const isWhole =
            copyPatched(input.source(), m_rewriter.patches(), [&](Span const& bytes) {
                m_output->write(bytes);
                position += bytes.size();
                progress.update(position);
                return true;
            });
        progress.stop();
        if (!isWhole) {
            throw NotDone(input.name() + ": reading failed, " +
                          (input.source().error().empty() ? "it has changed meanwhile"
                                                          : input.source().error()) +
                          "; nothing is written");
        }
    }

    static constexpr std::size_t chunk = std::size_t{1} << 20;

    ChangeOptions const& m_options;
    Edit const& m_edit;
    UmfRewriter m_rewriter;
    std::unique_ptr<InPlaceFile> m_file;
    std::optional<KeptStream> m_kept;
    std::optional<Output> m_output;
};

[[noreturn]] void cantRead(std::string const& path) {
    throw NotDone(path + ": can't be read, " + std::generic_category().message(errno) +
                  "; check the path");
}

std::string contentOf(std::string const& path) {
    // More than any UMF has room for.
    constexpr std::size_t most = UmfJoiner::largestUmf;
    if (path.empty()) {
        throw NotDone("--value-file has an empty name; give a path");
    }
    std::FILE* const file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        cantRead(path);
    }
    std::string content;
    char bytes[65536];
    while (std::size_t const got = std::fread(bytes, 1, sizeof bytes, file)) {
        content.append(bytes, got);
        if (content.size() > most) {
            break;
        }
    }
    if (std::ferror(file) != 0) {
        cantRead(path == "-" ? "standard input" : path);
    }
    std::fclose(file);
    if (content.size() > most) {
        throw NotDone(path + ": is larger than a UMF can be; give a shorter value");
    }
    return content;
}

/// A text that the library takes in the role of a format, where two percent signs stand for one.
std::string asFormat(std::string const& text) {
    std::string format;
    for (char const c : text) {
        format.append(c == '%' ? 2 : 1, c);
    }
    return format;
}

/// The track of a UMF with that letter and number, or its first one; why not in `error`.
UmfTrackNum trackOf(UmfPacket const& umf, std::optional<std::string> const& name,
                    std::string& error) {
    std::string names;
    for (unsigned i = 0; i < umf.trackDescs.size(); ++i) {
        UmfTrackNum const track(umf.trackDescs[i].trackType, umf.trackDescs[i].trackNumber);
        std::string const text = umfTrackText(track);
        if (!name || name == text) {
            return track;
        }
        names += (i != 0 ? ", " : "") + text;
    }
    if (name) {
        error = "it has no track '" + *name + "'" +
                (names.empty() ? "" : ", choose from " + inOneLine(forPeople(names)));
    }
    return {};
}

/// Replaces the pair's value, type and track. What else the pair says stays.
void replace(UmfPacket::UserDataPair& pair, UmfTrackNum track, UmfPacket::GxfUserDataType type,
             std::string const& value) {
    auto const* const bytes = reinterpret_cast<unsigned char const*>(value.data());
    UmfPacket::UserDataKey& key = *pair.keyItem;
    FormatStr typeName("%s", key.getValueStr(type));
    key.valueTypeName = typeName.releaseArrayString();
    key.valueSize = static_cast<unsigned>(value.size());
    key.trackNum = track;
    UmfPacket::UserData& item = *pair.valueItem;
    auto const pos = item.pos;
    auto const sequence = item.sequence;
    item.init(UmfPacket::GxfKey(item.getKey()), track, bytes, static_cast<unsigned>(value.size()));
    item.pos = pos;
    item.sequence = sequence;
}

int set(SetOptions const& options) {
    UmfPacket::GxfUserDataType const type = userDataTypeOf(options.type);
    std::string const value =
        options.valueFile ? contentOf(*options.valueFile) : valueOf(type, options.value);
    if (value.empty()) {
        throw NotDone("the value is empty; give one of at least one byte, or remove the name");
    }
    Edit edit;
    edit.change = [&, found = edit.found](UmfPacket& umf) {
        *found = true;
        std::string error;
        UmfTrackNum const track = trackOf(umf, options.track, error);
        if (!error.empty()) {
            return error;
        }
        if (UmfPacket::UserDataPair* const pair = findUserData(umf, options.name)) {
            replace(*pair, track, type, value);
            return error;
        }
        OpResult const result =
            umf.userData.addUserData(asFormat(options.name).c_str(), track, type,
                                     reinterpret_cast<unsigned char const*>(value.data()),
                                     static_cast<unsigned>(value.size()));
        return result ? error : std::string("the library refuses the pair");
    };
    return Rewriting(options, edit).run();
}

int remove(ChangeOptions const& options) {
    Edit edit;
    edit.change = [&, found = edit.found](UmfPacket& umf) {
        if (UmfPacket::UserDataPair const* const pair = findUserData(umf, options.name)) {
            *found = true;
            std::string const stored = pair->getKey();
            umf.userData.removeUserData(stored.c_str());
        }
        return std::string();
    };
    return Rewriting(options, edit).run();
}

void addNameOption(CLI::App& command, NameOptions& options) {
    command.add_option("NAME", options.name, "The name of the pair")->required();
}

void addChangeOptions(CLI::App& command, ChangeOptions& options) {
    command.add_option("-o,--output", options.output,
                       "Where the changed copy goes; - is standard output");
    command.add_flag("--in-place", options.inPlace, "Change the stream itself");
    command.add_flag("--discard-tail", options.discardTail,
                     "Throw away the end of the UMF, its XML document among it, where the change "
                     "needs the room");
}

void checkWhereTo(ChangeOptions const& options) {
    if (options.inPlace == options.output.has_value()) {
        throw CLI::ValidationError(options.inPlace
                                       ? "give -o OUT or --in-place, not both"
                                       : "give -o OUT for a changed copy, or --in-place");
    }
}

void checkName(std::string const& name) {
    // A field of 80 bytes that ends in a zero byte.
    constexpr std::size_t longest = 79;
    if (name.empty() || name.size() > longest) {
        throw CLI::ValidationError("a name has 1 to " + std::to_string(longest) + " bytes");
    }
}

void addList(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<ListOptions>();
    CLI::App* const command = app.add_subcommand("list", "All pairs");
    addStreamOptions(*command, *options);
    command->add_flag("--json", options->json, "A JSON array");
    command->footer("Example: gxf userdata list clip.gxf");
    command->callback([options, &chosen] { chosen = [options] { return list(*options); }; });
}

void addGet(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<NameOptions>();
    CLI::App* const command = app.add_subcommand("get", "A value's bytes as they stand");
    addNameOption(*command, *options);
    addStreamOptions(*command, *options);
    command->footer("Example: gxf userdata get Title clip.gxf");
    command->callback([options, &chosen] { chosen = [options] { return get(*options); }; });
}

void addSet(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<SetOptions>();
    CLI::App* const command = app.add_subcommand("set", "Replace the pair of a name, or add one");
    addNameOption(*command, *options);
    CLI::Option* const value =
        command->add_option("VALUE", options->value, "The value; not with --value-file");
    addStreamOptions(*command, *options);
    CLI::Option* const file = command->get_option("FILE")->required(false);
    command->add_option("--type", options->type,
                        "The value's type, string if not given: " + userDataTypeNames());
    command->add_option("--track", options->track,
                        "The track that it belongs to, such as M0; the first one if not given");
    CLI::Option* const valueFile =
        command->add_option("--value-file", options->valueFile,
                            "Take the value's bytes from this file; - is standard input");
    addChangeOptions(*command, *options);
    command->footer("Example: gxf userdata set Title \"Late news\" --in-place clip.gxf\n"
                    "A value that begins with a dash comes behind two dashes: "
                    "gxf userdata set --in-place -- Gain -6 clip.gxf");
    command->callback([options, value, file, valueFile, &chosen] {
        bool const fromFile = valueFile->count() != 0;
        if (fromFile && value->count() != 0 && file->count() != 0) {
            throw CLI::ValidationError("give VALUE or --value-file, not both");
        }
        if (fromFile && file->count() == 0) {
            options->file = options->value;
        }
        if (fromFile ? value->count() == 0 : file->count() == 0) {
            throw CLI::RequiredError(value->count() == 0 && !fromFile ? "VALUE" : "FILE");
        }
        if (options->valueFile == "-" && options->file == "-") {
            throw CLI::ValidationError("the value and the stream can't both be standard input");
        }
        checkWhereTo(*options);
        checkName(options->name);
        chosen = [options] { return set(*options); };
    });
}

void addRemove(CLI::App& app, Command& chosen) {
    auto const options = std::make_shared<ChangeOptions>();
    CLI::App* const command = app.add_subcommand("remove", "Remove the pair of a name");
    addNameOption(*command, *options);
    addStreamOptions(*command, *options);
    addChangeOptions(*command, *options);
    command->footer("Example: gxf userdata remove Title -o changed.gxf clip.gxf");
    command->callback([options, &chosen] {
        checkWhereTo(*options);
        chosen = [options] { return remove(*options); };
    });
}

} // namespace

void addUserData(CLI::App& app, Command& chosen) {
    CLI::App* const command =
        app.add_subcommand("userdata", "The user data of the clip: list, get, set, remove");
    command->require_subcommand(1);
    command->footer("Example: gxf userdata list clip.gxf");
    addList(*command, chosen);
    addGet(*command, chosen);
    addSet(*command, chosen);
    addRemove(*command, chosen);
}

} // namespace Gxf
