#pragma once

#include <stdexcept>
#include <system_error>

namespace tool {

/// The virtual logger ended while a command was at work.
class LoggerGone : public std::runtime_error
{
public:
    LoggerGone() : std::runtime_error("the virtual logger has gone") {}
};

/// Calls what talks to a virtual logger that has answered before.
/// @throws LoggerGone if nobody is there any more; else what the call throws
template <typename Call>
auto askAgain(Call call)
{
    try {
        return call();
    } catch (const std::system_error& error) {
        for (const std::errc gone :
             {std::errc::connection_refused, std::errc::connection_reset, std::errc::no_such_file_or_directory,
              std::errc::broken_pipe, std::errc::protocol_error}) {
            if (error.code() == gone) {
                throw LoggerGone();
            }
        }
        throw;
    }
}

} // namespace tool
