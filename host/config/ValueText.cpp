#include <config/ValueText.h>

#include <config/HexBytes.h>

namespace config {

namespace {

constexpr std::string_view HEX_DIGITS = "0123456789ABCDEF";

template <typename Values, typename Text>
std::string joined(const Values& values, Text text)
{
    std::string list = "[";
    for (const auto& value : values) {
        list.append(list.size() == 1 ? "" : ", ").append(text(value));
    }
    return list + "]";
}

struct TextOf
{
    const KeyInfo& info;
    bool mayBeHex;

    std::string operator()(bool value) const { return value ? "true" : "false"; }
    std::string operator()(uint64_t value) const
    {
        if (!info.words.empty()) {
            return quotedText(info.words[value]);
        }
        return info.isHex && mayBeHex ? hexNumber(value) : std::to_string(value);
    }
    std::string operator()(const std::string& value) const { return quotedText(value); }
    std::string operator()(const Bytes& value) const { return quotedText(formatHexBytes(value)); }
    std::string operator()(const std::vector<std::string>& values) const { return joined(values, quotedText); }
    std::string operator()(const std::vector<std::vector<uint8_t>>& lists) const
    {
        return joined(lists, [](const std::vector<uint8_t>& channels) {
            return joined(channels, [](uint8_t channel) { return std::to_string(channel); });
        });
    }
};

struct RangeOf
{
    const KeyInfo& info;

    std::string operator()(bool) const { return "`true`, `false`"; }
    std::string operator()(uint64_t) const
    {
        if (info.words.empty()) {
            return number(info.least) + " to " + number(info.most);
        }
        std::string words;
        for (const std::string_view word : info.words) {
            words.append(words.empty() ? "`" : ", `").append(word).append("`");
        }
        return words;
    }
    std::string operator()(const std::string&) const { return "text"; }
    std::string operator()(const Bytes&) const { return "hex bytes"; }
    std::string operator()(const std::vector<std::string>&) const { return "list of texts"; }
    std::string operator()(const std::vector<std::vector<uint8_t>>&) const { return "list of lists of channels"; }

    std::string number(uint64_t value) const { return info.isHex ? hexNumber(value) : std::to_string(value); }
};

} // namespace

std::string quotedText(std::string_view text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (byte < ' ' || byte == 0x7F) {
            quoted.append("\\u00").append(1, HEX_DIGITS[byte >> 4]).append(1, HEX_DIGITS[byte & 0xF]);
        } else {
            quoted += c;
        }
    }
    return quoted + '"';
}

std::string hexNumber(uint64_t number)
{
    std::string digits;
    do {
        digits.insert(digits.begin(), HEX_DIGITS[number & 0xF]);
        number >>= 4;
    } while (number != 0);
    return "0x" + digits;
}

std::string valueText(const KeyInfo& info, const Value& value, bool mayBeHex)
{
    return std::visit(TextOf{info, mayBeHex}, value);
}

std::string rangeText(const KeyInfo& info, const Value& example)
{
    return std::visit(RangeOf{info}, example);
}

} // namespace config
