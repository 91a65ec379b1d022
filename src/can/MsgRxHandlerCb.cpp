#include <MsgRxHandlerCb.h>

#include <ostream>

std::ostream& operator<<(std::ostream& stream, MsgRxHandlerCb::handlerState_t state)
{
    switch (state) {
    case MsgRxHandlerCb::UNDEFINED:
        return stream << "UNDEFINED";
    case MsgRxHandlerCb::ONLINE:
        return stream << "ONLINE";
    case MsgRxHandlerCb::OFFLINE:
        return stream << "OFFLINE";
    case MsgRxHandlerCb::ERROR:
        return stream << "ERROR";
    }
    return stream << "invalid handler state";
}
