#include "vqio/OpenProbe.h"
#include "vqutil/ErrorLine.h"

#include <dlfcn.h>

#include <cerrno>

namespace vqhost {

namespace {

using OpenFunction = int (*)(const char*, int, ...);

/// True if a call of `function` comes to this library in the end, as it does from a sanitizer's or another
/// preloaded library's open().
bool leadsHere(void* function)
{
    const int savedErrno = errno;
    openProbeArrived = false;
    reinterpret_cast<OpenFunction>(function)(OPEN_PROBE_PATH, 0);
    errno = savedErrno;
    return openProbeArrived;
}

/// Before main(): a program that has this library only as a dependency of another one finds the C library's open()
/// first, and could wonder for long why its devices are missing.
__attribute__((constructor)) void checkOpen()
{
    void* const first = dlsym(RTLD_DEFAULT, "open");
    if (first == nullptr || first == reinterpret_cast<void*>(vqhostOpen) || leadsHere(first)) {
        return;
    }
    writeErrorLine("[WARNING] host platform: open() of this program does not come here, so it cannot open the "
                   "logger's devices; link the program itself with vqhost, ahead of the C library "
                   "(-Wl,--push-state,--no-as-needed -lvqhost -Wl,--pop-state)");
}

} // namespace

} // namespace vqhost
