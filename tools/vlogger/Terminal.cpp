#include "Terminal.h"

#include <sys/ioctl.h>

#include <unistd.h>

namespace tool {

std::optional<Terminal> terminalAt(int fd)
{
    if (::isatty(fd) != 1) {
        return std::nullopt;
    }
    winsize size{};
    if (::ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        return Terminal();
    }
    return Terminal{.columns = size.ws_col, .rows = size.ws_row};
}

} // namespace tool
