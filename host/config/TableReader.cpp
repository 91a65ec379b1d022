#include <config/TableReader.h>

#include <config/HexBytes.h>
#include <config/ValueText.h>

namespace config {

namespace {

constexpr int64_t CHANNEL_MAX = 255;

bool takeChannels(const toml::node& node, std::vector<uint8_t>& channels)
{
    const toml::array* const numbers = node.as_array();
    return numbers != nullptr && std::ranges::all_of(*numbers, [&](const toml::node& element) {
               const int64_t number = element.is_integer() ? element.as_integer()->get() : -1;
               channels.push_back(static_cast<uint8_t>(number));
               return number >= 0 && number <= CHANNEL_MAX;
           });
}

/// Takes a node over as the type that the value has; returns what it should have been.
struct Taker
{
    const toml::node& node;
    const KeyInfo& info;

    std::string operator()(bool& value) const
    {
        if (!node.is_boolean()) {
            return "true or false";
        }
        value = node.as_boolean()->get();
        return {};
    }

    std::string operator()(uint64_t& value) const
    {
        if (!info.words.empty()) {
            return takeWord(value);
        }
        const int64_t number = node.is_integer() ? node.as_integer()->get() : -1;
        if (number < 0 || static_cast<uint64_t>(number) < info.least || static_cast<uint64_t>(number) > info.most) {
            return "a whole number from " + std::to_string(info.least) + " to " + std::to_string(info.most);
        }
        value = static_cast<uint64_t>(number);
        return {};
    }

    std::string operator()(std::string& value) const
    {
        if (!node.is_string()) {
            return "a text in quotes";
        }
        value = node.as_string()->get();
        return {};
    }

    std::string operator()(Bytes& value) const
    {
        const auto bytes = node.is_string() ? parseHexBytes(node.as_string()->get()) : std::nullopt;
        if (!bytes) {
            return "a text of hex bytes, for example \"22 F1 90\"";
        }
        value = *bytes;
        return {};
    }

    std::string operator()(std::vector<std::string>& value) const
    {
        const toml::array* const elements = node.as_array();
        std::vector<std::string> texts;
        if (elements == nullptr || !std::ranges::all_of(*elements, [&](const toml::node& element) {
                texts.push_back(element.value_or(std::string()));
                return element.is_string();
            })) {
            return "a list of texts";
        }
        value = std::move(texts);
        return {};
    }

    std::string operator()(std::vector<std::vector<uint8_t>>& value) const
    {
        const toml::array* const elements = node.as_array();
        std::vector<std::vector<uint8_t>> lists;
        if (elements == nullptr || !std::ranges::all_of(*elements, [&](const toml::node& element) {
                return takeChannels(element, lists.emplace_back());
            })) {
            return "a list of lists of channels 0 to 255, for example [[0, 1], [2, 3]]";
        }
        value = std::move(lists);
        return {};
    }

    std::string takeWord(uint64_t& value) const
    {
        const std::string word = node.value_or(std::string());
        const auto found = std::ranges::find(info.words, word);
        if (found != info.words.end()) {
            value = static_cast<uint64_t>(found - info.words.begin());
            return {};
        }
        std::string wanted = "one of ";
        for (const std::string_view known : info.words) {
            wanted.append(known == info.words.front() ? "\"" : ", \"").append(known).append("\"");
        }
        if (node.is_string()) {
            wanted.append("; the nearest is \"").append(nearestName(word, info.words)).append("\"");
        }
        return wanted;
    }
};

} // namespace

const toml::table* tableNamed(const toml::table& parent, std::string_view name, std::vector<Mistake>& mistakes)
{
    const toml::node* const node = parent.get(name);
    if (node != nullptr && !node->is_table()) {
        addMistake(mistakes, node->source().begin, quotedText(name) + " is a table: [" + std::string(name) + "]");
    }
    return node == nullptr ? nullptr : node->as_table();
}

std::vector<const toml::table*> tablesNamed(const toml::table& parent, std::string_view name, std::string_view path,
                                            std::vector<Mistake>& mistakes)
{
    std::vector<const toml::table*> tables;
    const toml::node* const node = parent.get(name);
    if (node == nullptr) {
        return tables;
    }
    const toml::array* const elements = node->as_array();
    bool isWrong = elements == nullptr;
    if (elements != nullptr) {
        for (const toml::node& element : *elements) {
            isWrong = isWrong || !element.is_table();
            if (element.is_table()) {
                tables.push_back(element.as_table());
            }
        }
    }
    if (isWrong) {
        addMistake(mistakes, node->source().begin,
                   quotedText(name) + " is a list of tables: [[" + std::string(path) + "]]");
    }
    return tables;
}

std::string takeValue(const toml::node& node, const KeyInfo& info, Value& value)
{
    return std::visit(Taker{node, info}, value);
}

} // namespace config
