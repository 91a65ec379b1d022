#include <config/ConfigurationReader.h>
#include <config/ConfigurationWriter.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

/// A configuration that is accepted must be accepted again as it is shown, and then look the same.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
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
