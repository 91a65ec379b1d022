#pragma once

#include <future>
#include <thread>

/// A thread that does nothing, so that the process has more than one while this object lives.
class SecondThread
{
public:
    SecondThread() : thread([this] { end.get_future().wait(); }) {}
    ~SecondThread()
    {
        end.set_value();
        thread.join();
    }
    SecondThread(const SecondThread&) = delete;
    SecondThread& operator=(const SecondThread&) = delete;

private:
    std::promise<void> end;
    std::thread thread;
};
