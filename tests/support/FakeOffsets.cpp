#include <support/FakeOffsets.h>

#include <support/Effects.h>

#include <kdrw/TimeTickOffsetReader.h>

#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>

namespace fakeoffsets {

namespace {

std::mutex mutex;
std::map<std::string, std::optional<uint64_t>> offsets;
std::map<std::string, std::string> failures;

} // namespace

void set(const std::string& deviceName, uint64_t offset)
{
    const std::lock_guard lock(mutex);
    offsets[deviceName] = offset;
}

void loseSynchronisation(const std::string& deviceName)
{
    const std::lock_guard lock(mutex);
    offsets[deviceName] = std::nullopt;
}

void fail(const std::string& deviceName, const std::string& text)
{
    const std::lock_guard lock(mutex);
    failures[deviceName] = text;
}

} // namespace fakeoffsets

uint64_t TimeTickOffsetReader::getDeviceOffset(const std::string& deviceName) const
{
    using namespace fakeoffsets;
    effects::note("offset " + deviceName);
    const std::lock_guard lock(mutex);
    if (const auto failure = failures.find(deviceName); failure != failures.end()) {
        throw std::runtime_error(failure->second);
    }
    const auto found = offsets.find(deviceName);
    if (found == offsets.end()) {
        return 0;
    }
    if (!found->second) {
        throw VQException("no offset of " + deviceName);
    }
    return *found->second;
}
