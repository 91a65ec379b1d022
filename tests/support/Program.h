#pragma once

#include <support/LineCollector.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

/// A child process whose output the test sees.
///
/// Its standard input is a pipe that closeInput(), or the end of this object, ends. A child that still runs then is
/// killed.
class Program
{
public:
    /// @param environment  variables in addition to, or instead of, those of this process
    /// @throws std::system_error if the program cannot be started
    Program(const std::string& path, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t id() const { return pid; }

    /// Sends a signal to the child unless awaitEnd() has told its end.
    void signal(int number) const;

    void closeInput();

    /// Waits until the child has written this line to standard output.
    bool awaitLine(std::string_view line, std::chrono::milliseconds limit = LIMIT);

    /// How often the child has written this line to standard output so far.
    size_t count(std::string_view line);

    /// Waits for the end of the child.
    /// @return its exit code, minus the signal's number if a signal ended it; nothing if it still runs after the
    ///         limit
    std::optional<int> awaitEnd(std::chrono::milliseconds limit = LIMIT);

    /// Every line of the child that has ended.
    std::vector<std::string> outputLines();
    std::vector<std::string> errorLines();

private:
    pid_t pid = -1;
    int input = -1;
    std::optional<int> end;
    std::unique_ptr<LineCollector> output;
    std::unique_ptr<LineCollector> error;
};
