#include "StopSignal.h"

#include <pthread.h>

StopSignal::StopSignal()
{
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void StopSignal::wait() const
{
    int signal = 0;
    sigwait(&signals, &signal);
}
