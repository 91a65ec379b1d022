#include <vqio/PIE.h>

#include "vqutil/TextForm.h"

std::ostream& operator<<(std::ostream& stream, PIE::deviceCode_t code)
{
    return vqhost::writeText(stream, vqhost::decimal(static_cast<uint32_t>(code)));
}
