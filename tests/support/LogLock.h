#pragma once

#include <cstddef>

/// Watches the lock of the log lines. Link the source with WRAP pthread_mutex_lock; other locks go to the system.
namespace loglock {

/// How often the lock was asked for so far.
size_t requests();

/// While it lives, the system refuses the lock with an error number.
class Refusal
{
public:
    explicit Refusal(int errorNumber);
    ~Refusal();
    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;
};

/// Lets the lock leave `errorNumber` in errno from now on, as any system call may.
void leaveErrno(int errorNumber);

} // namespace loglock
