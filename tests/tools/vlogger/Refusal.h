#pragma once

#include <vlogger/Usage.h>

#include <string>

/// What an action says that is wrong usage, or refused with another exception; empty if it is right.
template <typename Refusal = tool::WrongUsage, typename Action>
std::string refusalOf(Action action)
{
    try {
        action();
    } catch (const Refusal& error) {
        return error.what();
    }
    return "";
}
