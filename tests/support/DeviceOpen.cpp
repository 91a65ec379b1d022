// clang puts its sanitizers' open() into the program itself, where it stands before the one of the host platform's
// static twin, which then never comes in. Programs that link the twin send their calls here instead.
#include <vqio/LoggerDevice.h>

#include <cstdarg>
#include <string_view>

#include <fcntl.h>

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);

int __wrap_open(const char* path, int flags, ...)
{
    if (std::string_view(path).starts_with("/dev/vqlog-")) {
        return vqhost::openLoggerDevice(path, flags);
    }
    if ((flags & O_CREAT) == 0) {
        return __real_open(path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    return __real_open(path, flags, mode);
}
}
