// For a program that wraps select(): a wait for something to read has no time limit.
#include <sys/select.h>

extern "C" int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit);
extern "C" int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit);

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit)
{
    return __real_select(count, readable, writable, exceptional, readable != nullptr ? nullptr : limit);
}
