#pragma once

#include <vqutil/Export.h>
#include <vqutil/Mutex.h>

/// What all writers of diagnostic lines in one process share.
class VQ_API LogUtil
{
public:
    /// Held while one line is written to standard output, so that lines of several threads do not mix.
    /// Constant-initialised: usable in constructors and destructors of static objects. It is the innermost
    /// lock of every order: nothing else is locked while it is held.
    static Mutex logMutex;
};
