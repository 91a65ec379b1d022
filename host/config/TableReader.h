#pragma once

#include <config/ConfigurationError.h>
#include <config/ConfigurationKey.h>
#include <config/NearestName.h>
#include <config/Toml.h>

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Reads single tables of a parsed file by the keys of the configuration table. Used by ConfigurationReader alone.
namespace config {

inline void addMistake(std::vector<Mistake>& mistakes, const toml::source_position& position, std::string text)
{
    mistakes.push_back({.line = position.line, .column = position.column, .text = std::move(text)});
}

/// The table under `name`; null if there is none. Anything else under that name is a mistake.
const toml::table* tableNamed(const toml::table& parent, std::string_view name, std::vector<Mistake>& mistakes);

/// The tables of the array of tables under `name`. Anything else under that name is a mistake.
std::vector<const toml::table*> tablesNamed(const toml::table& parent, std::string_view name, std::string_view path,
                                            std::vector<Mistake>& mistakes);

/// Takes a value over.
/// @param value  holds a value of the wanted type; set on success
/// @return empty, or what the value should have been
std::string takeValue(const toml::node& node, const KeyInfo& info, Value& value);

/// Complains about every key that is neither in `keys` nor in `subtables`.
template <typename Record>
void refuseUnknown(const toml::table& table, std::string_view path, std::span<const Key<Record>> keys,
                   std::span<const std::string_view> subtables, std::vector<Mistake>& mistakes)
{
    std::vector<std::string_view> known(subtables.begin(), subtables.end());
    for (const Key<Record>& key : keys) {
        known.push_back(key.info.name);
    }
    for (const auto& [key, node] : table) {
        if (std::ranges::find(known, key.str()) == known.end()) {
            const std::string place = path.empty() ? "" : " in [" + std::string(path) + "]";
            addMistake(mistakes, key.source().begin,
                       "unknown key \"" + std::string(key.str()) + "\"" + place + "; the nearest known name is \"" +
                           std::string(nearestName(key.str(), known)) + "\"");
        }
    }
}

/// Reads the keys of one table into a record and complains about the unknown, the wrong and the missing.
template <typename Record>
void readKeys(const toml::table& table, std::string_view path, std::span<const Key<Record>> keys,
              std::span<const std::string_view> subtables, Record& record, std::vector<Mistake>& mistakes)
{
    refuseUnknown(table, path, keys, subtables, mistakes);
    for (const Key<Record>& key : keys) {
        const auto entry = table.find(key.info.name);
        const std::string quoted = '"' + std::string(key.info.name) + '"';
        if (entry == table.end()) {
            if (key.info.isRequired) {
                addMistake(mistakes, table.source().begin, "[" + std::string(path) + "] lacks " + quoted);
            }
            continue;
        }
        Value value = key.get(record);
        if (const std::string wanted = takeValue(entry->second, key.info, value); wanted.empty()) {
            key.set(record, value);
        } else {
            std::string complaint = quoted;
            complaint.append(" is ").append(wanted);
            addMistake(mistakes, entry->second.source().begin, std::move(complaint));
        }
    }
}

} // namespace config
