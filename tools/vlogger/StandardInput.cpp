#include "StandardInput.h"

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace tool {

StandardInput::int_type StandardInput::underflow()
{
    if (stop.wait(STDIN_FILENO, -1)) {
        return traits_type::eof();
    }
    // The byte before stays, so that the reader can put one back.
    if (gptr() != eback()) {
        buffer.front() = gptr()[-1];
    }
    char* const begin = buffer.data() + 1;
    const ssize_t count = ::read(STDIN_FILENO, begin, buffer.size() - 1);
    if (count < 0) {
        // A stream knows no other way to tell this from the end.
        throw std::system_error(errno, std::generic_category(), "standard input");
    }
    setg(eback() == nullptr ? begin : buffer.data(), begin, begin + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(*begin);
}

} // namespace tool
