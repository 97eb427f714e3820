#include "run_tool.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace GxfTesting {

namespace {

// A run takes milliseconds; under a sanitizer on a busy machine a few seconds.
constexpr auto longestRun = std::chrono::seconds(120);

struct Pipe {
    int read = -1;
    int write = -1;

    Pipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        read = ends[0];
        write = ends[1];
    }
};

void closeOne(int& descriptor) {
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
}

pid_t spawn(std::vector<std::string> const& command, int in, int out, int err) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    // The tests ignore SIGPIPE, the tool shall meet it.
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    std::vector<char*> arguments;
    for (std::string const& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    pid_t process = -1;
    int const error =
        ::posix_spawnp(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), command[0]);
    }
    return process;
}

/// False at the end.
bool readSome(int descriptor, std::string& to) {
    char bytes[65536];
    ssize_t const got = ::read(descriptor, bytes, sizeof(bytes));
    if (got > 0) {
        to.append(bytes, static_cast<std::size_t>(got));
    }
    return got > 0 || (got < 0 && errno == EINTR);
}

} // namespace

nlohmann::json ToolResult::json() const {
    nlohmann::json const value = nlohmann::json::parse(out, nullptr, false);
    EXPECT_FALSE(value.is_discarded()) << "no JSON: " << out << err;
    return value;
}

std::vector<std::string> ToolResult::lines() const {
    std::vector<std::string> result;
    std::istringstream stream(out);
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

ToolProcess::ToolProcess(std::vector<std::string> const& command) {
    std::signal(SIGPIPE, SIG_IGN);
    Pipe in;
    Pipe out;
    Pipe err;
    m_process = spawn(command, in.read, out.write, err.write);
    closeOne(in.read);
    closeOne(out.write);
    closeOne(err.write);
    m_in = in.write;
    m_out = out.read;
    m_err = err.read;
}

ToolProcess::~ToolProcess() {
    closeOne(m_in);
    closeOne(m_out);
    closeOne(m_err);
    if (m_process > 0) {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
    }
}

bool ToolProcess::write(std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t const written = ::write(m_in, bytes.data(), bytes.size());
        if (written < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

void ToolProcess::closeInput() { closeOne(m_in); }

void ToolProcess::send(int signal) { ::kill(m_process, signal); }

ToolResult ToolProcess::wait(std::string_view input) {
    ToolResult result;
    pump(input, true, result);
    reap(result);
    return result;
}

ToolResult ToolProcess::waitWithOpenInput() {
    ToolResult result;
    pump({}, false, result);
    reap(result);
    return result;
}

void ToolProcess::reap(ToolResult& result) {
    int status = 0;
    ::waitpid(m_process, &status, 0);
    m_process = -1;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

void ToolProcess::pump(std::string_view input, bool closes, ToolResult& result) {
    auto const deadline = std::chrono::steady_clock::now() + longestRun;
    if (m_in >= 0) {
        ::fcntl(m_in, F_SETFL, O_NONBLOCK);
    }
    while (m_out >= 0 || m_err >= 0) {
        if (input.empty() && closes) {
            closeInput();
        }
        pollfd polled[] = {
            {input.empty() ? -1 : m_in, POLLOUT, 0}, {m_out, POLLIN, 0}, {m_err, POLLIN, 0}};
        ::poll(polled, std::size(polled), 1000);
        if (polled[0].revents != 0) {
            ssize_t const written = ::write(m_in, input.data(), input.size());
            input.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
            if (written < 0 && errno != EAGAIN) {
                closeInput();
            }
        }
        if (polled[1].revents != 0 && !readSome(m_out, result.out)) {
            closeOne(m_out);
        }
        if (polled[2].revents != 0 && !readSome(m_err, result.err)) {
            closeOne(m_err);
        }
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "the run takes too long";
            ::kill(m_process, SIGKILL);
            return;
        }
    }
}

ToolResult runTool(std::vector<std::string> const& arguments, std::string_view input) {
    std::vector<std::string> command = {GXF_TOOL_PATH};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return ToolProcess(command).wait(input);
}

ToolResult runShell(std::string const& script, std::vector<std::string> const& arguments) {
    ::setenv("GXF", GXF_TOOL_PATH, 1);
    std::vector<std::string> command = {"/bin/sh", "-c", script, "sh"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return ToolProcess(command).wait();
}

std::string sample(std::string const& name) { return GXF_SAMPLES_DIR "/" + name; }

std::string readFile(std::string const& path) {
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream.good()) << path;
    return {std::istreambuf_iterator<char>(stream), {}};
}

void writeFile(std::string const& path, std::string_view bytes) {
    std::ofstream stream(path, std::ios::binary);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(stream.flush().good()) << path;
}

TemporaryFolder::TemporaryFolder()
    : m_path((std::filesystem::temp_directory_path() / "gxf_test.XXXXXX").string()) {
    if (::mkdtemp(m_path.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), m_path);
    }
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string TemporaryFolder::write(std::string const& name, std::string_view bytes) const {
    writeFile(*this / name, bytes);
    return *this / name;
}

std::vector<std::string> TemporaryFolder::names() const {
    std::vector<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(m_path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string asText(Bytes const& bytes) { return {bytes.vector().begin(), bytes.vector().end()}; }

} // namespace GxfTesting
