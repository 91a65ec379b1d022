#include <support/FakeDevices.h>

#include <support/Effects.h>

#include <cerrno>
#include <cstdarg>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __real_close(int fd);
extern "C" int __wrap_open(const char* path, int flags, ...);
extern "C" int __wrap_close(int fd);

namespace fakedevices {

namespace {

constexpr int FRESH = 1 << 20;

std::mutex mutex;
std::map<std::string, int> answers; ///< descriptor, FRESH, or a negative error number
std::set<int> given;                ///< descriptors whose close() is ours
std::function<void()> openHook;
std::function<void()> closeHook;

std::string nameOf(int flags)
{
    const int mode = flags & O_ACCMODE;
    std::string name = mode == O_RDONLY ? "O_RDONLY" : mode == O_WRONLY ? "O_WRONLY" : "O_RDWR";
    int rest = flags & ~O_ACCMODE;
    if ((rest & O_SYNC) == O_SYNC) {
        name += "|O_SYNC";
        rest &= ~O_SYNC;
    }
    return rest == 0 ? name : name + "|" + std::to_string(rest);
}

} // namespace

void provide(const std::string& path, int fd)
{
    const std::lock_guard lock(mutex);
    answers[path] = fd;
}

void provideAs(const std::string& path, int fd, int number)
{
    ::dup2(fd, number);
    __real_close(fd);
    provide(path, number);
}

void provideNull(const std::string& path, int number)
{
    provideAs(path, __real_open("/dev/null", O_RDWR), number);
}

void provideFresh(const std::string& path)
{
    const std::lock_guard lock(mutex);
    answers[path] = FRESH;
}

void refuse(const std::string& path, int errorNumber)
{
    const std::lock_guard lock(mutex);
    answers[path] = -errorNumber;
}

void whenOpened(std::function<void()> hook)
{
    openHook = std::move(hook);
}

void whenClosed(std::function<void()> hook)
{
    closeHook = std::move(hook);
}

} // namespace fakedevices

int __wrap_open(const char* path, int flags, ...)
{
    using namespace fakedevices;
    if (std::string(path).rfind("/dev/vqlog-", 0) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        const unsigned mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, unsigned) : 0;
        va_end(arguments);
        return __real_open(path, flags, mode);
    }
    effects::note("open " + std::string(path) + " " + nameOf(flags));
    if (openHook) {
        openHook();
    }
    const std::lock_guard lock(mutex);
    const auto found = answers.find(path);
    int answer = found == answers.end() ? -ENOENT : found->second;
    if (answer < 0) {
        errno = -answer;
        return -1;
    }
    if (answer == FRESH) {
        answer = __real_open("/dev/null", flags);
    }
    given.insert(answer);
    return answer;
}

int __wrap_close(int fd)
{
    using namespace fakedevices;
    const bool isOurs = [fd] {
        const std::lock_guard lock(mutex);
        return fd == -1 || given.erase(fd) != 0;
    }();
    if (isOurs) {
        effects::note("close " + std::to_string(fd));
        if (closeHook) {
            closeHook();
        }
    }
    return __real_close(fd);
}
