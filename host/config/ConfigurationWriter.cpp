#include <config/ConfigurationWriter.h>

#include <config/ConfigurationTable.h>
#include <config/JsonList.h>
#include <config/ValueText.h>

namespace config {

namespace {

class TomlWriter
{
public:
    template <typename Record>
    void table(const std::string& header, std::span<const Key<Record>> keys, const Record& record)
    {
        text.append(text.empty() ? "" : "\n").append(header).append("\n");
        for (const Key<Record>& key : keys) {
            text.append(key.info.name)
                .append(" = ")
                .append(valueText(key.info, key.get(record), true))
                .append("\n");
        }
    }

    /// A table of a list that is empty, as a comment: its defaults are to be seen, too.
    template <typename Record>
    void example(const std::string& header, std::span<const Key<Record>> keys)
    {
        text.append("\n# ").append(header).append("\n");
        const Record defaults;
        for (const Key<Record>& key : keys) {
            text.append("# ").append(key.info.name).append(" = ");
            text.append(valueText(key.info, key.get(defaults), true));
            text.append(key.info.isRequired ? "  # required\n" : "\n");
        }
    }

    std::string text;
};

template <typename Record>
void addKeys(JsonList& object, std::string& text, std::span<const Key<Record>> keys, const Record& record)
{
    for (const Key<Record>& key : keys) {
        object.name(key.info.name);
        text += valueText(key.info, key.get(record), false);
    }
}

template <typename Record, typename Then>
void addArray(JsonList& parent, std::string& text, std::string_view name, std::span<const Key<Record>> keys,
              const std::vector<Record>& records, Then then)
{
    parent.name(name);
    JsonList array(text, '[', ']');
    for (const Record& record : records) {
        array.next();
        JsonList object(text, '{', '}');
        addKeys(object, text, keys, record);
        then(object, record);
    }
}

template <typename Record>
void addObject(JsonList& parent, std::string& text, std::string_view name, std::span<const Key<Record>> keys,
               const Record& record)
{
    parent.name(name);
    JsonList object(text, '{', '}');
    addKeys(object, text, keys, record);
}

} // namespace

std::string writeConfiguration(const Configuration& configuration)
{
    TomlWriter out;
    out.table("[board]", boardKeys(), configuration.board);
    out.table("[wiring]", wiringKeys(), configuration.wiring);
    out.table("[queues]", queueKeys(), configuration.queues);
    out.table("[addresses]", addressKeys(), configuration.addresses);
    for (const Node& node : configuration.nodes) {
        out.table("[[node]]", nodeKeys(), node);
        for (const Answer& answer : node.answers) {
            out.table("[[node.answer]]", answerKeys(), answer);
        }
        for (const CyclicFrame& frame : node.cyclic) {
            out.table("[[node.cyclic]]", cyclicKeys(), frame);
        }
    }
    if (configuration.nodes.empty()) {
        out.example("[[node]]", nodeKeys());
        out.example("[[node.answer]]", answerKeys());
        out.example("[[node.cyclic]]", cyclicKeys());
    }
    if (configuration.peers.empty()) {
        out.example("[[peer]]", peerKeys());
    }
    for (const Peer& peer : configuration.peers) {
        out.table("[[peer]]", peerKeys(), peer);
    }
    out.table("[faults]", faultKeys(), configuration.faults);
    if (configuration.faults.events.empty()) {
        out.example("[[faults.event]]", faultEventKeys());
    }
    for (const FaultEvent& event : configuration.faults.events) {
        out.table("[[faults.event]]", faultEventKeys(), event);
    }
    return out.text;
}

std::string writeConfigurationJson(const Configuration& configuration)
{
    const auto nothing = [](JsonList&, const auto&) {};
    std::string text;
    {
        JsonList root(text, '{', '}');
        addObject(root, text, BOARD, boardKeys(), configuration.board);
        addObject(root, text, WIRING, wiringKeys(), configuration.wiring);
        addObject(root, text, QUEUES, queueKeys(), configuration.queues);
        addObject(root, text, ADDRESSES, addressKeys(), configuration.addresses);
        addArray(root, text, NODE, nodeKeys(), configuration.nodes, [&](JsonList& object, const Node& node) {
            addArray(object, text, ANSWER, answerKeys(), node.answers, nothing);
            addArray(object, text, CYCLIC, cyclicKeys(), node.cyclic, nothing);
        });
        addArray(root, text, PEER, peerKeys(), configuration.peers, nothing);
        root.name(FAULTS);
        JsonList faults(text, '{', '}');
        addKeys(faults, text, faultKeys(), configuration.faults);
        addArray(faults, text, EVENT, faultEventKeys(), configuration.faults.events, nothing);
    }
    return text;
}

} // namespace config
