#include <support/SleepCalls.h>

#include <sched.h>

extern "C" int __wrap_usleep(useconds_t time);

extern "C" int __wrap_usleep(useconds_t time)
{
    SleepCalls::instance().sleeps.add(time);
    sched_yield(); // whoever sleeps in a loop lets the others work
    return 0;
}

SleepCalls& SleepCalls::instance()
{
    static SleepCalls calls;
    return calls;
}
