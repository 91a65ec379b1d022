#pragma once

#include <cstddef>
#include <cstring>

/// Index of a virtual operation in its class's table, the two destructor slots included, as the Itanium C++ ABI
/// encodes it in a pointer to member.
template <typename Class, typename Result, typename... Arguments>
size_t slotOf(Result (Class::*operation)(Arguments...))
{
    struct
    {
        ptrdiff_t pointer;
        ptrdiff_t adjustment;
    } parts{};
    static_assert(sizeof(parts) == sizeof(operation));
    std::memcpy(&parts, &operation, sizeof(parts));
#if defined(__aarch64__) || defined(__arm__)
    return static_cast<size_t>(parts.pointer) / sizeof(void*);
#else
    return static_cast<size_t>(parts.pointer - 1) / sizeof(void*);
#endif
}
