#include <config/ErrorName.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace config {

namespace {

constexpr std::array<std::string_view, 12> NAMES{"EIO",    "EAGAIN", "EBUSY", "ECOMM",    "EINVAL", "ENOBUFS",
                                                 "ENODEV", "ENOMEM", "ENXIO", "ENETDOWN", "ENOSPC", "ETIMEDOUT"};
constexpr std::array<int, NAMES.size()> NUMBERS{EIO,    EAGAIN, EBUSY, ECOMM,    EINVAL, ENOBUFS,
                                                ENODEV, ENOMEM, ENXIO, ENETDOWN, ENOSPC, ETIMEDOUT};

} // namespace

std::span<const std::string_view> errorNames()
{
    return NAMES;
}

std::optional<int> errorNumberOf(std::string_view name)
{
    for (size_t i = 0; i < NAMES.size(); ++i) {
        if (NAMES[i] == name) {
            return NUMBERS[i];
        }
    }
    return std::nullopt;
}

} // namespace config
