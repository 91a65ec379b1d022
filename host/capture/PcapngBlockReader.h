#pragma once

#include <capture/PcapngFormat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <istream>
#include <span>
#include <string>
#include <vector>

namespace capture {

/// Cuts a pcapng file into blocks and reads the numbers in them by the byte order of their section.
class PcapngBlockReader
{
public:
    explicit PcapngBlockReader(std::istream& input) : stream(input) {}

    /// Goes on to the next block of a known type; all others are skipped.
    /// @return false at the end of the file
    /// @throws CaptureError that allows no continuing if the file is damaged or ends within a block
    bool next();

    uint32_t type() const { return blockType; }

    /// What stands between the two lengths of the block.
    std::span<const uint8_t> body() const { return bytes; }

    /// The number at `at`. All of it lies within `from`.
    template <typename Integer>
    Integer number(std::span<const uint8_t> from, size_t at) const
    {
        Integer value;
        std::memcpy(&value, from.subspan(at, sizeof(value)).data(), sizeof(value));
        return isSwapped ? swapped(value) : value;
    }

    /// Calls `take(number, value)` for each option of a list; one that does not fit ends the list.
    template <typename Take>
    void forEachOption(std::span<const uint8_t> options, Take take) const
    {
        while (options.size() >= pcapng::OPTION_HEADER_BYTES) {
            const auto option = number<uint16_t>(options, 0);
            const auto length = number<uint16_t>(options, 2);
            options = options.subspan(pcapng::OPTION_HEADER_BYTES);
            if (option == pcapng::OPTION_END || length > options.size()) {
                return;
            }
            take(option, options.first(length));
            options = options.subspan(std::min(pcapng::padded(length), options.size()));
        }
    }

    /// Throws a CaptureError that names the place of this block.
    [[noreturn]] void refuse(const std::string& reason, bool canContinue) const;

private:
    template <typename Integer>
    static Integer swapped(Integer value)
    {
        auto* const first = reinterpret_cast<uint8_t*>(&value);
        std::reverse(first, first + sizeof(value));
        return value;
    }

    bool readBlock();
    uint32_t readSectionLength(uint32_t length);
    void readBytes(uint8_t* to, size_t count);
    void skipBytes(size_t count);

    std::istream& stream;
    uint64_t offset = 0; ///< bytes read
    uint64_t blockOffset = 0;
    bool isSwapped = false; ///< the section is in the other byte order than this machine's
    uint32_t blockType = 0;
    std::vector<uint8_t> bytes;
};

} // namespace capture
