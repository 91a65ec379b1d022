#include <capture/PcapngBlockReader.h>

#include <capture/CaptureError.h>

#include <array>

namespace capture {

namespace {

/// Blocks that are read as a whole are never longer, unless the file is damaged.
constexpr size_t BLOCK_MAX_BYTES = 1U << 20;

bool isKnown(uint32_t type)
{
    return type == pcapng::SECTION_HEADER || type == pcapng::INTERFACE_DESCRIPTION || type == pcapng::PACKET ||
           type == pcapng::SIMPLE_PACKET || type == pcapng::INTERFACE_STATISTICS || type == pcapng::ENHANCED_PACKET;
}

} // namespace

void PcapngBlockReader::refuse(const std::string& reason, bool canContinue) const
{
    throw CaptureError("byte " + std::to_string(blockOffset) + ": " + reason, canContinue);
}

void PcapngBlockReader::readBytes(uint8_t* to, size_t count)
{
    stream.read(reinterpret_cast<char*>(to), static_cast<std::streamsize>(count));
    offset += static_cast<uint64_t>(stream.gcount());
    if (static_cast<size_t>(stream.gcount()) != count) {
        refuse(stream.bad() ? "the file cannot be read" : "the file ends in the middle of a block", false);
    }
}

void PcapngBlockReader::skipBytes(size_t count)
{
    stream.ignore(static_cast<std::streamsize>(count));
    offset += static_cast<uint64_t>(stream.gcount());
    if (static_cast<size_t>(stream.gcount()) != count) {
        refuse("the file ends in the middle of a block", false);
    }
}

/// A section header tells, behind its length, the byte order by which that length is to be read.
uint32_t PcapngBlockReader::readSectionLength(uint32_t length)
{
    bytes.resize(sizeof(uint32_t));
    readBytes(bytes.data(), bytes.size());
    isSwapped = false;
    if (number<uint32_t>(bytes, 0) != pcapng::BYTE_ORDER_MAGIC) {
        isSwapped = true;
        if (number<uint32_t>(bytes, 0) != pcapng::BYTE_ORDER_MAGIC) {
            refuse("the section has no byte-order mark", false);
        }
    }
    return isSwapped ? swapped(length) : length;
}

bool PcapngBlockReader::readBlock()
{
    blockOffset = offset;
    if (stream.peek() == std::istream::traits_type::eof() && !stream.bad()) {
        return false;
    }
    std::array<uint8_t, pcapng::BLOCK_HEADER_BYTES> header;
    readBytes(header.data(), header.size());
    blockType = number<uint32_t>(header, 0);
    auto length = number<uint32_t>(header, 4);
    bytes.clear();
    if (blockType == pcapng::SECTION_HEADER) {
        length = readSectionLength(isSwapped ? swapped(length) : length);
    } else if (blockOffset == 0) {
        refuse("the file does not begin with a section header", false);
    }
    if (length < pcapng::BLOCK_FRAME_BYTES + bytes.size() || length % 4 != 0) {
        refuse("a block of " + std::to_string(length) + " bytes cannot be", false);
    }
    const size_t bodyBytes = length - pcapng::BLOCK_FRAME_BYTES;
    if (!isKnown(blockType)) {
        skipBytes(bodyBytes);
    } else if (bodyBytes > BLOCK_MAX_BYTES) {
        refuse("a block of " + std::to_string(length) + " bytes is too long", false);
    } else {
        const size_t have = bytes.size();
        bytes.resize(bodyBytes);
        readBytes(bytes.data() + have, bodyBytes - have);
    }
    std::array<uint8_t, sizeof(uint32_t)> trailer;
    readBytes(trailer.data(), trailer.size());
    if (number<uint32_t>(trailer, 0) != length) {
        refuse("the lengths before and behind a block differ", false);
    }
    return true;
}

bool PcapngBlockReader::next()
{
    while (readBlock()) {
        if (isKnown(blockType)) {
            return true;
        }
    }
    return false;
}

} // namespace capture
