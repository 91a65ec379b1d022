#include <vqutil/Thread.h>

#include <cerrno>

namespace {

/// Stands in the handle's place while pthread_create runs, so that two callers of start() cannot both create.
constexpr pthread_t BEING_CREATED = static_cast<pthread_t>(-2);

} // namespace

Thread::~Thread() = default;

void* Thread::startWrapper(void* thread)
{
    static_cast<Thread*>(thread)->threadCode();
    return nullptr;
}

int Thread::start()
{
    pthread_t expected = NO_THREAD;
    if (!threadHandle.compare_exchange_strong(expected, BEING_CREATED)) {
        return EBUSY;
    }
    pthread_t created{};
    const int result = pthread_create(&created, nullptr, startWrapper, this);
    threadHandle = result == 0 ? created : NO_THREAD;
    return result;
}

int Thread::join()
{
    pthread_t handle = threadHandle;
    do {
        if (handle == NO_THREAD || handle == BEING_CREATED || pthread_equal(handle, pthread_self()) != 0) {
            return -1;
        }
    } while (!threadHandle.compare_exchange_weak(handle, NO_THREAD));
    return pthread_join(handle, nullptr) == 0 ? 0 : -1;
}
