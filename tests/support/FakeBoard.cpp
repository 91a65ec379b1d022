#include <support/FakeBoard.h>

#include <vqio/PIE.h>

#include <mutex>

namespace fakeboard {

namespace {

std::mutex mutex;
Answers current;

Answers now()
{
    const std::lock_guard lock(mutex);
    return current;
}

} // namespace

void answer(Answers answers)
{
    const std::lock_guard lock(mutex);
    current = answers;
}

} // namespace fakeboard

PIE::PIE()
{
    const fakeboard::Answers answers = fakeboard::now();
    deviceCode = static_cast<deviceCode_t>(answers.deviceCode);
    boardType = answers.boardType;
    canFdDevice = answers.canFdDevice;
}
