#include "TimeLimit.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tool {

double TimeLimit::passedShare() const
{
    return exists() ? std::clamp(passedSeconds() / seconds, 0.0, 1.0) : 0;
}

int TimeLimit::remainingMs(int atMost) const
{
    if (!exists()) {
        return atMost;
    }
    const double most = atMost < 0 ? std::numeric_limits<int>::max() : atMost;
    return static_cast<int>(std::clamp(std::ceil((seconds - passedSeconds()) * 1000), 0.0, most));
}

} // namespace tool
