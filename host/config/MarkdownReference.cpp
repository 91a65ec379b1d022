#include <config/ConfigurationTable.h>
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

} // namespace

std::string markdownReference()
{
    std::string text;
    addTable(text, "[board]", boardKeys());
    addTable(text, "[wiring]", wiringKeys());
    addTable(text, "[queues]", queueKeys());
    addTable(text, "[addresses]", addressKeys());
    addTable(text, "[[node]]", nodeKeys());
    addTable(text, "[[node.answer]]", answerKeys());
    addTable(text, "[[node.cyclic]]", cyclicKeys());
    addTable(text, "[[peer]]", peerKeys());
    addTable(text, "[faults]", faultKeys());
    addTable(text, "[[faults.event]]", faultEventKeys());
    return text;
}

} // namespace config
