#pragma once

#include <vlogger/Usage.h>

#include <string>

/// What an action says that is wrong usage; empty if it is right.
template <typename Action>
std::string refusalOf(Action action)
{
    try {
        action();
    } catch (const tool::WrongUsage& error) {
        return error.what();
    }
    return "";
}
