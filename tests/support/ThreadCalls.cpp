#include <support/ThreadCalls.h>

#include <support/Recorder.h>

#include <atomic>
#include <cerrno>

#include <pthread.h>

extern "C" int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                                     void* argument);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                                     void* argument);
extern "C" int __real_pthread_join(pthread_t thread, void** result);
extern "C" int __wrap_pthread_join(pthread_t thread, void** result);

namespace threadcalls {

namespace {

std::atomic<bool> refusing{false};
std::atomic<size_t> created{0};
std::atomic<bool> withAttributes{false};

/// Never destroyed: threads are joined at process exit, too.
Recorder<pthread_t>& joined()
{
    static auto* const recorder = new Recorder<pthread_t>;
    return *recorder;
}

} // namespace

void refuse(bool refused)
{
    refusing = refused;
}

size_t creations()
{
    return created;
}

bool lastHadAttributes()
{
    return withAttributes;
}

size_t joins()
{
    return joined().count();
}

bool waitForJoins(size_t total)
{
    return joined().waitForCount(total);
}

} // namespace threadcalls

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                          void* argument)
{
    using namespace threadcalls;
    withAttributes = attributes != nullptr;
    ++created;
    return refusing ? EAGAIN : __real_pthread_create(thread, attributes, entry, argument);
}

int __wrap_pthread_join(pthread_t thread, void** result)
{
    threadcalls::joined().add(thread);
    return __real_pthread_join(thread, result);
}
