#include <support/Program.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Pipe
{
    Pipe()
    {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
        readEnd = ends[0];
        writeEnd = ends[1];
    }
    int readEnd = -1;
    int writeEnd = -1;
};

/// The environment of this process with some variables set anew, as "NAME=value".
std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes)
{
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!changes.contains(text.substr(0, text.find('=')))) {
            all.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        all.push_back(name + "=" + value);
    }
    return all;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

Program::Program(const std::string& path, const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& environment)
{
    std::vector<std::string> words{path};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables = environmentWith(environment);

    const Pipe in;
    const Pipe out;
    const Pipe err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.readEnd, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.writeEnd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.writeEnd, STDERR_FILENO);
    const int failure =
        posix_spawn(&pid, path.c_str(), &actions, nullptr, pointersTo(words).data(), pointersTo(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(in.readEnd);
    ::close(out.writeEnd);
    ::close(err.writeEnd);
    input = in.writeEnd;
    output = std::make_unique<LineCollector>(out.readEnd);
    error = std::make_unique<LineCollector>(err.readEnd);
    if (failure != 0) {
        ::close(input);
        throw std::system_error(failure, std::generic_category(), path);
    }
}

Program::~Program()
{
    closeInput();
    if (!end) {
        signal(SIGKILL);
        awaitEnd();
    }
}

void Program::signal(int number) const
{
    if (!end) {
        ::kill(pid, number);
    }
}

void Program::closeInput()
{
    if (input >= 0) {
        ::close(input);
        input = -1;
    }
}

bool Program::awaitLine(std::string_view line, std::chrono::milliseconds limit)
{
    return output->awaitLine(line, limit);
}

size_t Program::count(std::string_view line)
{
    return output->count(line);
}

std::optional<int> Program::awaitEnd(std::chrono::milliseconds limit)
{
    if (end) {
        return end;
    }
    pollfd process{.fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)), .events = POLLIN, .revents = 0};
    const int ready = ::poll(&process, 1, static_cast<int>(limit.count()));
    ::close(process.fd);
    int status = 0;
    if (ready == 1 && ::waitpid(pid, &status, 0) == pid) {
        end = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return end;
}

std::vector<std::string> Program::outputLines()
{
    return output->allLines();
}

std::vector<std::string> Program::errorLines()
{
    return error->allLines();
}
