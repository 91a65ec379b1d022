#pragma once

#include <BusInterfacesExport.h>

#include <cstddef>
#include <cstdint>

/// What an InterfaceBase tells its application. The application implements it and adds a pointer to the
/// interface's `callbacks` set; the interface never owns it.
///
/// Threads: each operation runs on the thread that produced the event. For a CanInterface that is the receive
/// thread of the process, with a lock of the library held. For an EthernetInterface onDataReceived runs on its
/// receive thread, onInterfaceState also on the threads of the application that configure, connect, disconnect, send
/// or destroy it, before their call returns. Return quickly; copy what you keep.
class BUSINTERFACES_API InterfaceBaseCb
{
public:
    virtual ~InterfaceBaseCb() = default;

    /// Data arrived.
    ///
    /// @param data  first byte; valid during the call only. A CanInterface passes the whole frame record, an
    ///              EthernetInterface the received bytes
    /// @param size  number of bytes
    virtual void onDataReceived(const uint8_t* data, size_t size) = 0;

    /// The interface's state changed.
    ///
    /// @param status  0 undefined, 1 online, 2 offline, 3 data loss on send, 4 error, 5 a new bus-load figure;
    ///                3 and 5 come from an EthernetInterface only
    virtual void onInterfaceState(int status) = 0;
};
