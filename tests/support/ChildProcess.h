#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

/// How another program ended and what it wrote.
struct ChildResult
{
    int exitCode = -1; ///< -1: it did not exit by itself
    std::string out;
    std::string err;
};

/// Runs another program to its end.
class ChildProcess
{
public:
    explicit ChildProcess(std::vector<std::string> commandLine) : command(std::move(commandLine)) {}

    /// Sets a variable of its environment, which is otherwise ours.
    ChildProcess& with(const std::string& name, const std::string& value)
    {
        without(name);
        environment.push_back(name + "=" + value);
        return *this;
    }

    /// Removes a variable from its environment.
    ChildProcess& without(const std::string& name)
    {
        std::erase_if(environment, [&](const std::string& entry) { return entry.starts_with(name + "="); });
        return *this;
    }

    ChildResult run() const
    {
        int outPipe[2];
        int errPipe[2];
        EXPECT_EQ(pipe2(outPipe, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(errPipe, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
        pid_t child = -1;
        const int result = posix_spawn(&child, command.front().c_str(), &actions, nullptr,
                                       pointersTo(command).data(), pointersTo(environment).data());
        posix_spawn_file_actions_destroy(&actions);
        close(outPipe[1]);
        close(errPipe[1]);
        EXPECT_EQ(result, 0) << command.front();
        ChildResult ended;
        if (result == 0) {
            collect({outPipe[0], errPipe[0]}, {&ended.out, &ended.err});
            int status = 0;
            waitpid(child, &status, 0);
            ended.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        close(outPipe[0]);
        close(errPipe[0]);
        return ended;
    }

private:
    static std::vector<std::string> ourEnvironment()
    {
        std::vector<std::string> entries;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            entries.emplace_back(*entry);
        }
        return entries;
    }

    static std::vector<char*> pointersTo(const std::vector<std::string>& texts)
    {
        std::vector<char*> pointers;
        for (const std::string& text : texts) {
            pointers.push_back(const_cast<char*>(text.c_str()));
        }
        pointers.push_back(nullptr);
        return pointers;
    }

    /// Both at once, so that a program that writes much to one of them does not wait for us at the other.
    static void collect(std::array<int, 2> from, std::array<std::string*, 2> to)
    {
        std::array<pollfd, 2> watched{pollfd{from[0], POLLIN, 0}, pollfd{from[1], POLLIN, 0}};
        while (watched[0].fd >= 0 || watched[1].fd >= 0) {
            if (poll(watched.data(), watched.size(), -1) <= 0) {
                continue;
            }
            for (size_t i = 0; i < watched.size(); ++i) {
                if (watched[i].fd < 0 || watched[i].revents == 0) {
                    continue;
                }
                char buffer[4096];
                const ssize_t count = read(watched[i].fd, buffer, sizeof(buffer));
                if (count > 0) {
                    to[i]->append(buffer, static_cast<size_t>(count));
                } else {
                    watched[i].fd = -1;
                }
            }
        }
    }

    std::vector<std::string> command;
    std::vector<std::string> environment = ourEnvironment();
};
