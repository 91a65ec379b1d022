#pragma once

#include <support/Waiting.h>

#include <fstream>
#include <string>

#include <sys/types.h>

/// True if a thread of this process waits in the kernel. For what it waits is not known: the caller has to make sure
/// that only one thing is left, for example by a lock that the thread holds.
inline bool isAsleep(pid_t thread)
{
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(file, text);
    const size_t end = text.rfind(')'); // of the name, which may hold anything; the state follows
    return end != std::string::npos && text.compare(end, 3, ") S") == 0;
}

/// Waits, with a generous limit, until the thread waits in the kernel.
inline bool fallsAsleep(pid_t thread)
{
    return becomesTrue([thread] { return isAsleep(thread); });
}
