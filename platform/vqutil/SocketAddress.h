#pragma once

#include <vqutil/Export.h>

#include <netinet/in.h>

#include <iosfwd>

/// Writes an IPv4 socket address as dotted address, ":" and decimal port (for example 10.0.0.1:5000); one
/// of another family as "family " and its number. The stream's format flags have no effect and stay.
VQ_API std::ostream& operator<<(std::ostream& stream, const sockaddr_in& address);
