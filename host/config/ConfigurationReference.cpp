#include <config/ConfigurationReference.h>

#include <config/ConfigurationTable.h>
#include <config/JsonList.h>
#include <config/ValueText.h>

namespace config {

namespace {

template <typename Record>
void addTable(std::string& text, std::string_view header, std::span<const Key<Record>> keys)
{
    text.append(text.empty() ? "" : "\n").append("### `").append(header).append("`\n\n");
    text += "| key | values | default | meaning |\n|---|---|---|---|\n";
    const Record defaults;
    for (const Key<Record>& key : keys) {
        const Value byDefault = key.get(defaults);
        text.append("| `")
            .append(key.info.name)
            .append("` | ")
            .append(rangeText(key.info, byDefault))
            .append(" | ");
        if (key.info.isRequired) {
            text.append("required");
        } else {
            text.append("`").append(valueText(key.info, byDefault, true)).append("`");
        }
        text.append(" | ").append(key.info.meaning).append(" |\n");
    }
}

/// The name of the type that a key's values have.
struct TypeOf
{
    const KeyInfo& info;

    std::string_view operator()(bool) const { return "boolean"; }
    std::string_view operator()(uint64_t) const { return info.words.empty() ? "number" : "word"; }
    std::string_view operator()(const std::string&) const { return "text"; }
    std::string_view operator()(const Bytes&) const { return "bytes"; }
    std::string_view operator()(const std::vector<std::string>&) const { return "texts"; }
    std::string_view operator()(const std::vector<std::vector<uint8_t>>&) const { return "channel lists"; }
};

void addKey(std::string& text, const KeyInfo& info, const Value& byDefault)
{
    JsonList object(text, '{', '}');
    const auto add = [&](std::string_view name, const std::string& value) {
        object.name(name);
        text += value;
    };
    const std::string_view type = std::visit(TypeOf{info}, byDefault);
    add("key", quotedText(info.name));
    add("type", quotedText(type));
    if (type == "number") {
        add("least", std::to_string(info.least));
        add("most", std::to_string(info.most));
    } else if (type == "word") {
        object.name("words");
        JsonList words(text, '[', ']');
        for (const std::string_view word : info.words) {
            words.next();
            text += quotedText(word);
        }
    }
    add("default", info.isRequired ? "null" : valueText(info, byDefault, false));
    add("meaning", quotedText(info.meaning));
}

template <typename Record>
void addJsonTable(std::string& text, std::string_view path, bool isRepeated, std::span<const Key<Record>> keys)
{
    JsonList table(text, '{', '}');
    table.name("table");
    text += quotedText(path);
    table.name("repeated");
    text += isRepeated ? "true" : "false";
    table.name("keys");
    JsonList list(text, '[', ']');
    const Record defaults;
    for (const Key<Record>& key : keys) {
        list.next();
        addKey(text, key.info, key.get(defaults));
    }
}

} // namespace

std::string markdownReference()
{
    std::string text;
    forEachTable([&](const std::string& path, bool isRepeated, const auto& keys) {
        addTable(text, isRepeated ? "[[" + path + "]]" : "[" + path + "]", keys);
    });
    return text;
}

std::string jsonReference()
{
    std::string text;
    {
        JsonList root(text, '{', '}');
        root.name("tables");
        JsonList tables(text, '[', ']');
        forEachTable([&](std::string_view path, bool isRepeated, const auto& keys) {
            tables.next();
            addJsonTable(text, path, isRepeated, keys);
        });
    }
    return text;
}

} // namespace config
