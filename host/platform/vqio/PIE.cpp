#include <vqio/PIE.h>

#include "endpoint/LoggerRequest.h"
#include "vqutil/ErrorLine.h"

#include <cerrno>
#include <string>
#include <system_error>

namespace {

wire::Board askBoard()
{
    try {
        const vqhost::Grant grant = vqhost::ask({.kind = wire::Kind::BOARD, .text = {}});
        if (const auto board = wire::decodeBoard(grant.body)) {
            return *board;
        }
        throw std::system_error(EPROTO, std::generic_category(), "virtual logger");
    } catch (const std::system_error& error) {
        // A static object that meets the board only in its destructor has no use for it.
        if (error.code().value() != ESHUTDOWN) {
            vqhost::writeErrorLine("[ERROR] PIE: the board does not answer: " + error.code().message() +
                                   "; this process takes it for a plain one");
        }
        return {};
    }
}

/// Asked once: a process sees the same board all its life.
const wire::Board& theBoard()
{
    static const wire::Board board = askBoard();
    return board;
}

} // namespace

PIE::PIE()
    : deviceCode(static_cast<deviceCode_t>(theBoard().deviceCode)), boardType(theBoard().boardType),
      canFdDevice(theBoard().canFdDevice)
{
}
