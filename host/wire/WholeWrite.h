#pragma once

#include <ostream>
#include <string_view>

namespace wire {

/// Writes a finished text at once and flushes it.
///
/// A full disk costs the text for which there is no room, not every later one: a stream that fails here is usable
/// again. A state that the application has set stays as it is.
inline void writeWhole(std::ostream& stream, std::string_view text)
{
    const bool wasGood = stream.good();
    stream.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
    if (wasGood && !stream.good()) {
        stream.clear();
    }
}

} // namespace wire
