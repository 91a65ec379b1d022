#pragma once

/// What a BusInterfaceBase tells its application. The application implements it and adds a pointer to the
/// interface's `callbacks` set; the interface never owns it.
///
/// Threads: calls come from the thread that received the message, the process-bus thread. Return quickly; copy what
/// you keep. The callback may send through the interface.
template <typename T>
class BusInterfaceBaseCb
{
public:
    virtual ~BusInterfaceBaseCb() = default;

    /// Reserved for the state of an interface; the library does not call it.
    virtual void onInterfaceState(int status) { static_cast<void>(status); }

    /// A message arrived.
    /// @param msg  the message; valid during the call only
    virtual void onMessage(const T* msg) = 0;
};
