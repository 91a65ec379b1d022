// Opens a device of the logger in the plainest way and prints what came of it.

#include <CanTxHandler.h>

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

int main()
{
    CanTxHandler::debugLevel = 0; // so that the library is needed whatever the linker leaves out
    const int fd = open("/dev/vqlog-fpgab", O_WRONLY);
    std::printf("%s\n", fd >= 0 ? "opened" : strerror(errno));
    return 0;
}
