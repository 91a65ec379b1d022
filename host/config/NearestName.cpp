#include <config/NearestName.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <numeric>
#include <vector>

namespace config {

namespace {

/// Letters that have to be inserted, left out or replaced.
size_t editDistance(std::string_view from, std::string_view to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

/// Longer words are no slips of the finger; what counts is where they begin.
constexpr size_t WORD_MAX_BYTES = 64;
/// From so many letters on, a word that a name begins with is taken for its abbreviation.
constexpr size_t PREFIX_MIN_BYTES = 3;

} // namespace

std::string_view nearestName(std::string_view word, std::span<const std::string_view> names)
{
    if (word.size() >= PREFIX_MIN_BYTES) {
        for (const std::string_view name : names) {
            if (name.starts_with(word)) {
                return name;
            }
        }
    }
    std::string_view nearest;
    size_t least = std::numeric_limits<size_t>::max();
    for (const std::string_view name : names) {
        const size_t distance = editDistance(word.substr(0, WORD_MAX_BYTES), name);
        if (distance < least) {
            least = distance;
            nearest = name;
        }
    }
    return nearest;
}

} // namespace config
