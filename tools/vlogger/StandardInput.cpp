#include "StandardInput.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <unistd.h>

namespace tool {

StandardInput::int_type StandardInput::underflow()
{
    if (stop != nullptr && stop->wait(STDIN_FILENO, -1)) {
        return traits_type::eof();
    }
    // What was read last moves in front of what comes.
    const auto kept = std::min(gptr() - eback(), static_cast<std::ptrdiff_t>(PUT_BACK_BYTES));
    char* const begin = buffer.data() + PUT_BACK_BYTES;
    if (kept != 0) {
        std::memmove(begin - kept, gptr() - kept, static_cast<size_t>(kept));
    }
    const ssize_t count = ::read(STDIN_FILENO, begin, buffer.size() - PUT_BACK_BYTES);
    if (count < 0) {
        // A stream knows no other way to tell this from the end.
        throw std::system_error(errno, std::generic_category(), "standard input");
    }
    setg(begin - kept, begin, begin + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(*begin);
}

} // namespace tool
