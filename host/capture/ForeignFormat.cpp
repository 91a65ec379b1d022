#include <capture/ForeignFormat.h>

#include <array>

namespace capture {

namespace {

struct Mark
{
    std::string_view bytes;
    std::string_view sentence;
};

constexpr std::string_view PCAP = "this is a classic pcap file; editcap -F pcapng makes a pcapng file of it";

constexpr std::array<Mark, 9> MARKS{{
    {"\xA1\xB2\xC3\xD4", PCAP}, // stamps in microseconds
    {"\xD4\xC3\xB2\xA1", PCAP},
    {"\xA1\xB2\x3C\x4D", PCAP}, // stamps in nanoseconds
    {"\x4D\x3C\xB2\xA1", PCAP},
    {"\x1F\x8B", "this file is compressed with gzip; unpack it first: gunzip -c FILE | vlogger COMMAND -"},
    {"\xFD\x37zXZ", "this file is compressed with xz; unpack it first: unxz -c FILE | vlogger COMMAND -"},
    {"\x28\xB5\x2F\xFD", "this file is compressed with zstd; unpack it first: unzstd -c FILE | vlogger COMMAND -"},
    {"PK\x03\x04", "this is a zip archive; unpack it first: unzip -p FILE | vlogger COMMAND -"},
    {"date ", "this is a log in ASC format; asc2log of can-utils makes a candump log of it"},
}};

} // namespace

std::string foreignFormat(std::string_view beginning)
{
    for (const Mark& mark : MARKS) {
        if (beginning.starts_with(mark.bytes)) {
            return std::string(mark.sentence);
        }
    }
    return {};
}

} // namespace capture
