#pragma once

#include <algorithm>

#include <sys/select.h>

/// The descriptors that one wait of the receive thread watches.
///
/// Threads: one at a time.
class WatchSet
{
public:
    WatchSet() { FD_ZERO(&members); }

    /// Adds a descriptor below FD_SETSIZE. A closed one, -1, is left out: FD_SET would write beside the set.
    void add(int fd)
    {
        if (fd >= 0) {
            FD_SET(fd, &members);
        }
        highest = std::max(highest, fd);
    }

    /// What to pass to pselect(), which changes it.
    fd_set copy() const { return members; }

    /// One more than the highest descriptor; 0 if there is none.
    int end() const { return highest + 1; }

private:
    fd_set members;
    int highest = -1;
};
