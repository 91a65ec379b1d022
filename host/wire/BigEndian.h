#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// Big-endian integers in byte arrays, at any alignment.
namespace wire {

/// The value with its bytes in big-endian order in memory, or back. GCC 12 makes single loads and stores of this,
/// but not of a loop over bytes.
template <typename Integer>
constexpr Integer swappedToBigEndian(Integer value)
{
    static_assert(std::is_unsigned_v<Integer> && sizeof(Integer) <= 8);
    if constexpr (std::endian::native == std::endian::big || sizeof(Integer) == 1) {
        return value;
    } else if constexpr (sizeof(Integer) == 2) {
        return __builtin_bswap16(value);
    } else if constexpr (sizeof(Integer) == 4) {
        return __builtin_bswap32(value);
    } else {
        return __builtin_bswap64(value);
    }
}

template <typename Integer>
void putBigEndian(uint8_t* to, Integer value)
{
    const Integer swapped = swappedToBigEndian(value);
    std::memcpy(to, &swapped, sizeof(swapped));
}

template <typename Integer>
Integer getBigEndian(const uint8_t* from)
{
    Integer swapped;
    std::memcpy(&swapped, from, sizeof(swapped));
    return swappedToBigEndian(swapped);
}

} // namespace wire
