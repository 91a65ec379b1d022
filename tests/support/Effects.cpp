#include <support/Effects.h>

#include <algorithm>
#include <mutex>

#include <unistd.h>

namespace effects {

namespace {

std::mutex mutex;
bool shown = false;
std::vector<std::string> noted;

} // namespace

void show()
{
    const std::lock_guard lock(mutex);
    shown = true;
}

void note(const std::string& effect)
{
    const std::lock_guard lock(mutex);
    noted.push_back(effect);
    if (shown) {
        // Past the stream's buffer: the library flushes each of its lines, so the order is the true one.
        const std::string line = "{" + effect + "}\n";
        if (::write(STDOUT_FILENO, line.data(), line.size()) < 0) {
            noted.push_back("standard output is gone");
        }
    }
}

std::vector<std::string> all()
{
    const std::lock_guard lock(mutex);
    return noted;
}

size_t count(const std::string& start)
{
    const std::lock_guard lock(mutex);
    return static_cast<size_t>(std::count_if(noted.begin(), noted.end(), [&](const std::string& effect) {
        return effect.compare(0, start.size(), start) == 0;
    }));
}

} // namespace effects
