#include <support/LogLock.h>

#include <vqutil/LogUtil.h>

#include <atomic>
#include <cerrno>

#include <pthread.h>

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);

namespace loglock {

namespace {

std::atomic<size_t> requested{0};
std::atomic<int> refusal{0};
std::atomic<int> leftErrno{0};

} // namespace

size_t requests()
{
    return requested;
}

Refusal::Refusal(int errorNumber)
{
    refusal = errorNumber;
}

Refusal::~Refusal()
{
    refusal = 0;
}

void leaveErrno(int errorNumber)
{
    leftErrno = errorNumber;
}

} // namespace loglock

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex)
{
    using namespace loglock;
    if (static_cast<void*>(mutex) == &LogUtil::logMutex) {
        ++requested;
        if (const int error = refusal) {
            return error;
        }
        if (const int error = leftErrno) {
            errno = error;
        }
    }
    return __real_pthread_mutex_lock(mutex);
}
