#include "vqutil/ErrorLine.h"

#include <cstdio>
#include <string>

namespace vqhost {

void writeErrorLine(std::string_view text)
{
    std::string line(text);
    line += '\n';
    // Not the C++ stream: in static constructors it may not be there yet.
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace vqhost
