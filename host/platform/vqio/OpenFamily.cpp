// The C library's open family, answered for the four devices of the logger; any other path goes on untouched.
//
// This source is built without instrumentation, since it may run before a sanitizer is ready, and for the same
// reason uses no inline function that another source may have instrumented. It includes nothing that declares the
// family: fortified declarations are definitions. It is built without _FILE_OFFSET_BITS, which would rename what it
// defines.
#include "vqio/LoggerDevice.h"
#include "vqio/OpenProbe.h"

#include <vqutil/Export.h>

#include <dlfcn.h>
#include <linux/fcntl.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

namespace vqhost {

const char OPEN_PROBE_PATH[] = "/dev/vqlog-probe";
bool openProbeArrived = false;

} // namespace vqhost

namespace {

using OpenFunction = int (*)(const char*, int, ...);
using OpenAtFunction = int (*)(int, const char*, int, ...);
using CheckedOpenFunction = int (*)(const char*, int);
using CheckedOpenAtFunction = int (*)(int, const char*, int);

bool isSame(const char* left, const char* right)
{
    while (*left != '\0' && *left == *right) {
        ++left;
        ++right;
    }
    return *left == *right;
}

bool isDevice(const char* path)
{
    return path != nullptr && (isSame(path, "/dev/vqlog-fpgab") || isSame(path, "/dev/vqlog-fpgac") ||
                               isSame(path, "/dev/vqlog-fpgam") || isSame(path, "/dev/vqlog-fpgame"));
}

/// The mode argument is there only if a file may be created; otherwise reading it would be undefined.
bool takesMode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

/// Set while this thread looks up a function: an allocator that opens a file on the way must not look up again.
/// Initial-exec, because the general model may allocate.
thread_local bool lookingUp __attribute__((tls_model("initial-exec"))) = false;

/// The definition behind ours, looked up at its first use.
/// @return null while it cannot be had
template <typename Function>
Function next(void*& cache, const char* name)
{
    void* function = __atomic_load_n(&cache, __ATOMIC_ACQUIRE);
    if (function == nullptr && !lookingUp) {
        const int savedErrno = errno;
        lookingUp = true;
        function = dlsym(RTLD_NEXT, name);
        lookingUp = false;
        errno = savedErrno;
        __atomic_store_n(&cache, function, __ATOMIC_RELEASE);
    }
    return reinterpret_cast<Function>(function);
}

int openBySystemCall(int directory, const char* path, int flags, mode_t mode)
{
    return static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
}

int openNext(void*& cache, const char* name, const char* path, int flags, mode_t mode)
{
    const auto function = next<OpenFunction>(cache, name);
    if (function == nullptr) {
        return openBySystemCall(AT_FDCWD, path, flags, mode);
    }
    return takesMode(flags) ? function(path, flags, mode) : function(path, flags);
}

int openAtNext(void*& cache, const char* name, int directory, const char* path, int flags, mode_t mode)
{
    const auto function = next<OpenAtFunction>(cache, name);
    if (function == nullptr) {
        return openBySystemCall(directory, path, flags, mode);
    }
    return takesMode(flags) ? function(directory, path, flags, mode) : function(directory, path, flags);
}

mode_t modeOf(int flags, va_list arguments)
{
    return takesMode(flags) ? va_arg(arguments, mode_t) : 0;
}

void* nextOpen = nullptr;
void* nextOpen64 = nullptr;
void* nextOpenAt = nullptr;
void* nextOpenAt64 = nullptr;
void* nextCheckedOpen = nullptr;
void* nextCheckedOpen64 = nullptr;
void* nextCheckedOpenAt = nullptr;
void* nextCheckedOpenAt64 = nullptr;

} // namespace

// The forms with _2 are what a fortified program calls when it passes no mode; the C library's own ends the program
// if the flags would need one.
extern "C" {

VQ_API int open(const char* path, int flags, ...);
VQ_API int open64(const char* path, int flags, ...);
VQ_API int openat(int directory, const char* path, int flags, ...);
VQ_API int openat64(int directory, const char* path, int flags, ...);
VQ_API int __open_2(const char* path, int flags);
VQ_API int __open64_2(const char* path, int flags);
VQ_API int __openat_2(int directory, const char* path, int flags);
VQ_API int __openat64_2(int directory, const char* path, int flags);

int vqhostOpen(const char* path, int flags, ...) __attribute__((alias("open")));

int open(const char* path, int flags, ...)
{
    if (isDevice(path)) {
        return vqhost::openLoggerDevice(path, flags);
    }
    if (path == vqhost::OPEN_PROBE_PATH) {
        vqhost::openProbeArrived = true;
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openNext(nextOpen, "open", path, flags, mode);
}

int open64(const char* path, int flags, ...)
{
    if (isDevice(path)) {
        return vqhost::openLoggerDevice(path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openNext(nextOpen64, "open64", path, flags, mode);
}

// The device names are absolute: the directory does not matter.
int openat(int directory, const char* path, int flags, ...)
{
    if (isDevice(path)) {
        return vqhost::openLoggerDevice(path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openAtNext(nextOpenAt, "openat", directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...)
{
    if (isDevice(path)) {
        return vqhost::openLoggerDevice(path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openAtNext(nextOpenAt64, "openat64", directory, path, flags, mode);
}

int __open_2(const char* path, int flags)
{
    if (isDevice(path)) {
        return vqhost::openLoggerDevice(path, flags);
    }
    const auto function = next<CheckedOpenFunction>(nextCheckedOpen, "__open_2");
    return function != nullptr ? function(path, flags) : openBySystemCall(AT_FDCWD, path, flags, 0);
}

int __open64_2(const char* path, int flags)
{
    if (isDevice(path)) {
        return vqhost::openLoggerDevice(path, flags);
    }
    const auto function = next<CheckedOpenFunction>(nextCheckedOpen64, "__open64_2");
    return function != nullptr ? function(path, flags) : openBySystemCall(AT_FDCWD, path, flags, 0);
}

int __openat_2(int directory, const char* path, int flags)
{
    if (isDevice(path)) {
        return vqhost::openLoggerDevice(path, flags);
    }
    const auto function = next<CheckedOpenAtFunction>(nextCheckedOpenAt, "__openat_2");
    return function != nullptr ? function(directory, path, flags) : openBySystemCall(directory, path, flags, 0);
}

int __openat64_2(int directory, const char* path, int flags)
{
    if (isDevice(path)) {
        return vqhost::openLoggerDevice(path, flags);
    }
    const auto function = next<CheckedOpenAtFunction>(nextCheckedOpenAt64, "__openat64_2");
    return function != nullptr ? function(directory, path, flags) : openBySystemCall(directory, path, flags, 0);
}

} // extern "C"
