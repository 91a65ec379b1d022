#pragma once

#include <support/SecondThread.h>

#include <cstdlib>
#include <iostream>
#include <streambuf>

/// What the benchmarks' processes have in common.
namespace bench {

/// Lines of the library, or of another stream that is named, go nowhere while this lives.
class Silence
{
public:
    explicit Silence(std::ostream& silenced = std::cout) : stream(silenced), before(stream.rdbuf(&nowhere)) {}
    ~Silence() { stream.rdbuf(before); }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    class Nowhere : public std::streambuf
    {
        int_type overflow(int_type character) override { return traits_type::not_eof(character); }
        std::streamsize xsputn(const char* /*text*/, std::streamsize size) override { return size; }
    };

    Nowhere nowhere;
    std::ostream& stream;
    std::streambuf* const before;
};

/// Locks and reference counts cost less in a process that never had a second thread, and no real application is like
/// that.
using ::SecondThread;

/// The board comes from a logger inside the process, whatever runs on this machine.
inline void useOwnLogger()
{
    setenv("VLOGGER", "embedded", 1);
}

} // namespace bench
