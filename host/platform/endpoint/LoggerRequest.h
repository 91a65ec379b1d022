#pragma once

#include <wire/FileDescriptor.h>
#include <wire/Protocol.h>

#include <cstdint>
#include <vector>

namespace vqhost {

/// What the virtual logger granted.
struct Grant
{
    wire::FileDescriptor connection; ///< on which the request was made
    wire::FileDescriptor passed;     ///< that came with the reply
    std::vector<uint8_t> body;
};

/// Asks the process's virtual logger (Endpoint) and waits for its reply, at most ANSWER_LIMIT.
///
/// @throws std::system_error with the error number of a refusal, also if the virtual logger closes right behind it;
///         ETIMEDOUT if no reply comes; EPROTO if the reply is none that this version understands; ECONNRESET if the
///         virtual logger closes instead; what Endpoint::connect() throws
///
/// Threads: any.
Grant ask(const wire::Request& request);

} // namespace vqhost
