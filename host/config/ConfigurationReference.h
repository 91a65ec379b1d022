#pragma once

#include <string>

/// What every key of a configuration file means and takes.
namespace config {

/// In Markdown: a heading and a table per table of the file.
std::string markdownReference();

/// As one JSON object. `tables` has one object per table of the file: `table` (its path), `repeated`, and `keys` with
/// `key`, `type` (number, boolean, text, word, bytes, texts, channel lists), `least` and `most` of a number, `words` of
/// a word, `default`, null if the key is required, and `meaning`.
std::string jsonReference();

} // namespace config
