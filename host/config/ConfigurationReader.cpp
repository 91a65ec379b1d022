#include <config/ConfigurationReader.h>

#include <config/ConfigurationCheck.h>
#include <config/ConfigurationTable.h>
#include <config/TableReader.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

namespace config {

namespace {

class Reader
{
public:
    explicit Reader(const toml::table& parsed) : root(parsed) {}

    Configuration read()
    {
        static constexpr std::array TOP{BOARD, WIRING, QUEUES, ADDRESSES, NODE, PEER, FAULTS};
        refuseUnknown(root, "", std::span<const Key<Configuration>>(), TOP, mistakes);
        readTable(BOARD, boardKeys(), configuration.board);
        if (const toml::table* const table = readTable(WIRING, wiringKeys(), configuration.wiring)) {
            addWrong(*table, check(configuration.wiring, configuration.board));
        }
        readTable(QUEUES, queueKeys(), configuration.queues);
        if (const toml::table* const table = readTable(ADDRESSES, addressKeys(), configuration.addresses)) {
            addWrong(*table, check(configuration.addresses));
        }
        readNodes();
        readTables(root, PEER, std::string(PEER), peerKeys(), {}, configuration.peers,
                   [&](const toml::table& table, Peer& peer) {
                       addWrong(table, check(peer, allButLast(configuration.peers)));
                   });
        readFaults();
        return std::move(configuration);
    }

    std::vector<Mistake> takeMistakes()
    {
        std::ranges::stable_sort(mistakes, [](const Mistake& a, const Mistake& b) {
            return std::pair(a.line, a.column) < std::pair(b.line, b.column);
        });
        return std::move(mistakes);
    }

private:
    /// @return the table; null if the file has none of that name
    template <typename Record>
    const toml::table* readTable(std::string_view name, std::span<const Key<Record>> keys, Record& record)
    {
        const toml::table* const table = tableNamed(root, name, mistakes);
        if (table != nullptr) {
            readKeys(*table, name, keys, {}, record, mistakes);
        }
        return table;
    }

    /// What stands before the record that is being read.
    template <typename Record>
    static std::span<const Record> allButLast(const std::vector<Record>& records)
    {
        return std::span(records).first(records.size() - 1);
    }

    /// Reads the tables of an array of tables; `then` goes on with each.
    template <typename Record, typename Then>
    void readTables(const toml::table& parent, std::string_view name, const std::string& path,
                    std::span<const Key<Record>> keys, std::span<const std::string_view> subtables,
                    std::vector<Record>& records, Then then)
    {
        for (const toml::table* const table : tablesNamed(parent, name, path, mistakes)) {
            Record& record = records.emplace_back();
            readKeys(*table, path, keys, subtables, record, mistakes);
            then(*table, record);
        }
    }

    void readNodes()
    {
        static constexpr std::array SUBTABLES{ANSWER, CYCLIC};
        readTables(root, NODE, std::string(NODE), nodeKeys(), SUBTABLES, configuration.nodes,
                   [&](const toml::table& table, Node& node) {
                       addWrong(table, check(node, configuration.board, allButLast(configuration.nodes)));
                       readTables(table, ANSWER, "node.answer", answerKeys(), {}, node.answers,
                                  [&](const toml::table& part, Answer& answer) {
                                      addWrong(part, check(answer, node, allButLast(node.answers)));
                                  });
                       readTables(
                           table, CYCLIC, "node.cyclic", cyclicKeys(), {}, node.cyclic,
                           [&](const toml::table& part, CyclicFrame& frame) { addWrong(part, check(frame)); });
                   });
    }

    void readFaults()
    {
        static constexpr std::array SUBTABLES{EVENT};
        const toml::table* const table = tableNamed(root, FAULTS, mistakes);
        if (table == nullptr) {
            return;
        }
        readKeys(*table, FAULTS, faultKeys(), SUBTABLES, configuration.faults, mistakes);
        readTables(
            *table, EVENT, "faults.event", faultEventKeys(), {}, configuration.faults.events,
            [&](const toml::table& part, FaultEvent& event) { addWrong(part, check(event, configuration)); });
    }

    /// A field that is not in the file is complained about at its table. One complaint per place is enough: fields
    /// that are required or of another type were reported before.
    void addWrong(const toml::table& table, const std::vector<WrongField>& wrongFields)
    {
        for (const WrongField& wrong : wrongFields) {
            const auto entry = table.find(wrong.key);
            const toml::source_position position =
                (entry == table.end() ? table.source() : entry->second.source()).begin;
            if (std::ranges::none_of(mistakes, [&](const Mistake& known) {
                    return known.line == position.line && known.column == position.column;
                })) {
                addMistake(mistakes, position, wrong.text);
            }
        }
    }

    const toml::table& root;
    Configuration configuration;
    std::vector<Mistake> mistakes;
};

} // namespace

Configuration readConfiguration(std::string_view text, const std::string& name)
{
    toml::table parsed;
    try {
        parsed = toml::parse(text);
    } catch (const toml::parse_error& error) {
        const toml::source_position position = error.source().begin;
        throw ConfigurationError(
            name, {{.line = position.line, .column = position.column, .text = std::string(error.description())}});
    }
    Reader reader(parsed);
    Configuration configuration = reader.read();
    if (std::vector<Mistake> mistakes = reader.takeMistakes(); !mistakes.empty()) {
        throw ConfigurationError(name, std::move(mistakes));
    }
    return configuration;
}

Configuration readConfigurationFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    std::string text;
    try {
        text.assign(std::istreambuf_iterator<char>(file), {});
    } catch (const std::ios_base::failure& error) {
        // A directory, for one, can be opened and not read; what the stream throws does not name it.
        throw std::system_error(error.code(), path);
    }
    return readConfiguration(text, path);
}

} // namespace config
