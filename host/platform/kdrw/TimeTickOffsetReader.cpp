#include <kdrw/TimeTickOffsetReader.h>

#include "endpoint/LoggerRequest.h"

#include <cerrno>
#include <system_error>

namespace {

std::string reasonOf(const std::system_error& error)
{
    switch (error.code().value()) {
    case ENODATA:
        return "its clock is not synchronised";
    case ENOENT:
        return "there is no such device";
    default:
        return error.code().message();
    }
}

} // namespace

uint64_t TimeTickOffsetReader::getDeviceOffset(const std::string& deviceName) const
{
    const std::string failure = "no time offset of " + deviceName + ": ";
    try {
        const vqhost::Grant grant = vqhost::ask({.kind = wire::Kind::OFFSET, .text = deviceName});
        if (const auto offsetUs = wire::decodeOffset(grant.body)) {
            return *offsetUs;
        }
    } catch (const std::system_error& error) {
        throw VQException(failure + reasonOf(error));
    }
    throw VQException(failure + std::generic_category().message(EPROTO));
}
