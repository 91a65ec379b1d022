#pragma once

#include <string>
#include <system_error>

namespace vlogger {

/// The exception for a system call that failed with `errorNumber`.
inline std::system_error systemError(int errorNumber, const std::string& what)
{
    return {std::error_code(errorNumber, std::generic_category()), what};
}

} // namespace vlogger
