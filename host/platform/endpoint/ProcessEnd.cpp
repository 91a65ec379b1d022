#include "endpoint/ProcessEnd.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace vqhost {

namespace {

constinit std::atomic<bool> ending{false};

void noteEnd()
{
    ending = true;
}

/// Exit handlers run in the reverse order of their registration, so one that is registered when the library is
/// loaded runs after the destructors of the program's static objects. exit() begins, however, with the destructors
/// of the calling thread's own objects, and a handler that these register is the next one to run. A main thread
/// that ends without exit() registers it as well; it then runs whenever the process exits.
struct MainThreadEnd
{
    ~MainThreadEnd() { std::atexit(noteEnd); }
};

thread_local MainThreadEnd mainThreadEnd;

__attribute__((constructor)) void watchForEnd()
{
    std::atexit(noteEnd);
    if (getpid() == gettid()) {
        static_cast<void>(&mainThreadEnd); // the first use registers its destructor
    }
}

} // namespace

bool processIsEnding()
{
    return ending;
}

} // namespace vqhost
