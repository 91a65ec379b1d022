#pragma once

#include <support/Recorder.h>

#include <unistd.h>

/// Owns usleep() of a program that lists SleepCalls.cpp among its sources and wraps it: every call is kept and
/// returns at once.
class SleepCalls
{
public:
    static SleepCalls& instance();

    Recorder<useconds_t> sleeps; ///< microseconds
};
