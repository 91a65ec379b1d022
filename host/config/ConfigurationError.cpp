#include <config/ConfigurationError.h>

namespace config {

namespace {

std::string linesOf(const std::string& name, const std::vector<Mistake>& mistakes)
{
    std::string lines;
    for (const Mistake& mistake : mistakes) {
        if (!lines.empty()) {
            lines += '\n';
        }
        lines += name;
        if (mistake.line != 0) {
            lines += ':' + std::to_string(mistake.line) + ':' + std::to_string(mistake.column);
        }
        lines += ": " + mistake.text;
    }
    return lines;
}

} // namespace

ConfigurationError::ConfigurationError(const std::string& name, std::vector<Mistake> found)
    : std::runtime_error(linesOf(name, found)), all(std::move(found))
{
}

} // namespace config
