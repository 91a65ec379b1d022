#pragma once

#include <vqtrace/cantype.h>

#include <string>

namespace vqhost {

/// The type's name, or "unknown type " and its value.
std::string textOf(cantype_t type);

} // namespace vqhost
