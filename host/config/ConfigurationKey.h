#pragma once

#include <config/Configuration.h>

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace config {

/// What a key of a file may hold. An enumeration is the number of its word.
using Value =
    std::variant<bool, uint64_t, std::string, Bytes, std::vector<std::string>, std::vector<std::vector<uint8_t>>>;

/// What is known about a key, whatever record it belongs to.
struct KeyInfo
{
    std::string_view name;
    std::string_view meaning;
    std::span<const std::string_view> words = {}; ///< of an enumeration, in its order
    uint64_t least = 0;                           ///< of a number
    uint64_t most = 0;                            ///< of a number; 0: all that the field can hold
    bool isHex = false;                           ///< a number that is shown in hexadecimal
    bool isRequired = false;
};

/// One key of a table of the file, and the field of the record that it sets.
template <typename Record>
struct Key
{
    KeyInfo info;
    Value (*get)(const Record&);
    void (*set)(Record&, const Value&); ///< takes a value of the type that `get` returns
};

template <auto MEMBER>
struct FieldAccess;

template <typename Record, typename Field, Field Record::*MEMBER>
struct FieldAccess<MEMBER>
{
    static constexpr bool IS_NUMBER =
        (std::is_integral_v<Field> && !std::is_same_v<Field, bool>) || std::is_enum_v<Field>;
    using Held = std::conditional_t<IS_NUMBER, uint64_t, Field>;

    static Key<Record> keyOf(KeyInfo info)
    {
        if constexpr (std::is_integral_v<Field>) {
            info.most = info.most != 0 ? info.most : std::numeric_limits<Field>::max();
        }
        return {.info = info,
                .get = [](const Record& record) { return Value(static_cast<Held>(record.*MEMBER)); },
                .set = [](Record& record,
                          const Value& value) { record.*MEMBER = static_cast<Field>(std::get<Held>(value)); }};
    }
};

/// The key of a field: `keyFor<&Node::channel>({.name = "channel", …})`.
template <auto MEMBER>
auto keyFor(const KeyInfo& info)
{
    return FieldAccess<MEMBER>::keyOf(info);
}

} // namespace config
