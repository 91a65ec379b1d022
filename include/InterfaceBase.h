#pragma once

#include <InterfaceBaseCb.h>

#include <cstddef>
#include <cstdint>
#include <set>

/// Base of the interfaces that send bytes or messages of type T and report to InterfaceBaseCb objects.
///
/// The application owns the interface and its callback objects. It adds and removes its own pointers in
/// `callbacks`; every event calls each of them once, in ascending pointer order, on the thread that produced the
/// event. An empty set makes every event a no-op.
///
/// Threads: neither member is locked. Change `callbacks` only while no event can arrive, for instance before
/// configure, and `debugLevel` only while no thread is inside an operation of the interface.
template <typename T>
class InterfaceBase
{
public:
    virtual ~InterfaceBase() = default;

    /// Sends bytes.
    /// @return 0 on success, a negative number on failure; the derived class says which
    virtual int send(const uint8_t* data, size_t size) = 0;

    /// Sends a message; the interface may change its fields.
    /// @return as above
    virtual int send(T& msg) = 0;

    int debugLevel = 0;                   ///< above 0: the interface writes its [DEBUG] lines
    std::set<InterfaceBaseCb*> callbacks; ///< whom to tell; not owned
};
