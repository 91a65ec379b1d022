#include <vqtrace/cantype.h>

#include "vqtrace/MessageText.h"
#include "vqutil/TextForm.h"

namespace vqhost {

std::string textOf(cantype_t type)
{
    switch (type) {
    case CAN_STANDARD:
        return "standard";
    case CAN_EXTENDED:
        return "extended";
    case CAN_FD_STANDARD:
        return "FD standard";
    case CAN_FD_EXTENDED:
        return "FD extended";
    }
    return "unknown type " + decimal(static_cast<uint32_t>(type));
}

} // namespace vqhost

std::ostream& operator<<(std::ostream& stream, cantype_t type)
{
    return vqhost::writeText(stream, vqhost::textOf(type));
}
