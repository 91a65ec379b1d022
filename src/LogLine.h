#pragma once

#include <vqutil/LogUtil.h>

#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

/// The one way to write a diagnostic line of the common form:
/// level tag, origin (a class name), "::", function, "() ", text.
namespace logline {

enum class Level
{
    DEBUG,
    INFO,
    WARNING,
    ERROR,
};

/// True once the process may run more than one thread. The log lock is only taken then.
inline bool processRunsThreads()
{
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded == 0;
#else
    return true;
#endif
}

constexpr std::string_view tagOf(Level level)
{
    switch (level) {
    case Level::DEBUG:
        return "[DEBUG] ";
    case Level::INFO:
        return "[INFO] ";
    case Level::WARNING:
        return "[WARNING] ";
    case Level::ERROR:
        break;
    }
    return "[ERROR] ";
}

/// Writes a finished text, line end included, at once and flushes it.
inline void writeOut(std::ostream& stream, const std::string& line)
{
    const bool wasGood = stream.good();
    stream.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
    if (wasGood && !stream.good()) {
        // A full disk costs the lines for which there is no room, not every later one. A state that the
        // application has set stays as it is.
        stream.clear();
    }
}

/// Writes a finished text to standard output under the log lock, which is left alone while there is nobody to keep
/// out.
/// @throws std::system_error if the log lock cannot be taken
inline void writeLocked(const std::string& line)
{
    if (processRunsThreads()) {
        const MutexLock lock(LogUtil::logMutex);
        writeOut(std::cout, line);
        return;
    }
    writeOut(std::cout, line);
}

/// Writes one line to standard output. The line is built before the lock is taken; `parts` are whatever
/// operator<< prints, manipulators such as std::hex included, which last to the end of the line. Numbers look the
/// same whatever locale the application has set.
///
/// @throws std::system_error if the log lock cannot be taken
template <typename... Parts>
void write(Level level, std::string_view origin, std::string_view function, const Parts&... parts)
{
    std::ostringstream line;
    line.imbue(std::locale::classic());
    line << tagOf(level) << origin << "::" << function << "() ";
    ((line << parts), ...);
    line << '\n';
    writeLocked(line.str());
}

} // namespace logline
