#pragma once

#include <csignal>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include <nlohmann/json.hpp>

#include <testing/bytes.h>

namespace GxfTesting {

/// What a run of the tool left behind.
struct ToolResult {
    int status = -1; ///< the exit status; negative when a signal ended it
    int signal = 0;  ///< that ended it, or 0. A run that took too long is killed
    std::string out;
    std::string err;

    /// Standard output as one JSON value; fails the test when it isn't one in UTF-8.
    nlohmann::json json() const;
    /// Standard output, line by line.
    std::vector<std::string> lines() const;
};

/// A process with a pipe to its standard input and pipes from its outputs.
class ToolProcess {
  public:
    explicit ToolProcess(std::vector<std::string> const& command);
    ToolProcess(ToolProcess const&) = delete;
    ToolProcess& operator=(ToolProcess const&) = delete;
    /// Kills what still runs.
    ~ToolProcess();

    /// False when the process reads no more.
    bool write(std::string_view bytes);
    void closeInput();
    void send(int signal);
    /// Feeds the rest of the input, closes it, and collects the outputs until the process ends.
    ToolResult wait(std::string_view input = {});
    /// Collects the outputs of a process that ends while its input is still open.
    ToolResult waitWithOpenInput();

  private:
    void pump(std::string_view input, bool closes, ToolResult& result);
    void reap(ToolResult& result);

    pid_t m_process = -1;
    int m_in = -1;
    int m_out = -1;
    int m_err = -1;
};

/// Runs the tool with these arguments; `input` goes to its standard input.
ToolResult runTool(std::vector<std::string> const& arguments, std::string_view input = {});

/// Runs a script of the shell, in which "$GXF" is the tool and "$1", "$2" ... the arguments.
ToolResult runShell(std::string const& script, std::vector<std::string> const& arguments = {});

/// The path of a clip that comes with the project.
std::string sample(std::string const& name);

std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string_view bytes);

/// A folder of its own for a test, which goes with it.
class TemporaryFolder {
  public:
    TemporaryFolder();
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;
    ~TemporaryFolder();

    std::string const& path() const { return m_path; }
    std::string operator/(std::string const& name) const { return m_path + '/' + name; }
    /// Writes a file and returns its path.
    std::string write(std::string const& name, std::string_view bytes) const;
    /// The names in it, sorted.
    std::vector<std::string> names() const;

  private:
    std::string m_path;
};

/// The bytes as the tool's input.
std::string asText(Bytes const& bytes);

} // namespace GxfTesting
