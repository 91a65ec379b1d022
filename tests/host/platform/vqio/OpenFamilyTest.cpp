#include "endpoint/Endpoint.h"

#include <logger/VirtualLogger.h>
#include <wire/FileDescriptor.h>

#include <gtest/gtest.h>
#include <support/TemporaryDirectory.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <ostream>
#include <span>
#include <string>

extern "C" {
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);
}

namespace {

constexpr char MAIN[] = "/dev/vqlog-fpgab";

/// One function of the family, called in the same way as the others.
struct Opener
{
    const char* name;
    int (*call)(const char* path, int flags);
    int (*create)(const char* path, int flags, mode_t mode); ///< null: takes no mode
};

void PrintTo(const Opener& opener, std::ostream* stream)
{
    *stream << opener.name;
}

const Opener OPENERS[] = {
    {"open", [](const char* path, int flags) { return open(path, flags); },
     [](const char* path, int flags, mode_t mode) { return open(path, flags, mode); }},
    {"open64", [](const char* path, int flags) { return open64(path, flags); },
     [](const char* path, int flags, mode_t mode) { return open64(path, flags, mode); }},
    {"openat", [](const char* path, int flags) { return openat(AT_FDCWD, path, flags); },
     [](const char* path, int flags, mode_t mode) { return openat(AT_FDCWD, path, flags, mode); }},
    {"openat64", [](const char* path, int flags) { return openat64(AT_FDCWD, path, flags); },
     [](const char* path, int flags, mode_t mode) { return openat64(AT_FDCWD, path, flags, mode); }},
    {"__open_2", __open_2, nullptr},
    {"__open64_2", __open64_2, nullptr},
    {"__openat_2", [](const char* path, int flags) { return __openat_2(AT_FDCWD, path, flags); }, nullptr},
    {"__openat64_2", [](const char* path, int flags) { return __openat64_2(AT_FDCWD, path, flags); }, nullptr},
};

class OpenFamilyTest : public testing::TestWithParam<Opener>
{
protected:
    static wire::FileDescriptor opened(const char* path, int flags)
    {
        return wire::FileDescriptor(GetParam().call(path, flags));
    }

    /// errno of a call that must fail.
    static int failure(const char* path, int flags)
    {
        errno = 0;
        const wire::FileDescriptor fd = opened(path, flags);
        EXPECT_FALSE(fd) << path;
        return errno;
    }

    static int socketTypeOf(int fd)
    {
        int type = 0;
        socklen_t size = sizeof(type);
        return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 ? type : -1;
    }

    TemporaryDirectory directory;
};

/// Those that take a mode.
class CreatingOpenTest : public OpenFamilyTest
{
};

std::string nameOf(const testing::TestParamInfo<Opener>& opener)
{
    std::string name = opener.param.name;
    std::erase(name, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(All, OpenFamilyTest, testing::ValuesIn(OPENERS), nameOf);
INSTANTIATE_TEST_SUITE_P(All, CreatingOpenTest, testing::ValuesIn(std::span(OPENERS).first(4)), nameOf);

vlogger::VirtualLogger& logger()
{
    return *vqhost::Endpoint::instance().embedded();
}

size_t openDescriptors()
{
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()));
}

} // namespace

TEST_P(OpenFamilyTest, WriteOnlyDeviceIsAPacketConnection)
{
    const wire::FileDescriptor sut = opened(MAIN, O_WRONLY);

    EXPECT_EQ(socketTypeOf(sut.get()), SOCK_SEQPACKET);
    EXPECT_EQ(logger().statistics().writers, 1U);
}

TEST_P(OpenFamilyTest, ReadOnlyDeviceIsAStream)
{
    const wire::FileDescriptor sut = opened(MAIN, O_RDONLY);

    EXPECT_EQ(socketTypeOf(sut.get()), SOCK_STREAM);
    EXPECT_EQ(logger().statistics().readers, 1U);
}

TEST_P(OpenFamilyTest, SynchronousWritingIsAccepted)
{
    EXPECT_TRUE(opened(MAIN, O_WRONLY | O_SYNC));
}

TEST_P(OpenFamilyTest, DeviceForReadingAndWritingIsRefused)
{
    EXPECT_EQ(failure(MAIN, O_RDWR), EACCES);
    EXPECT_EQ(failure(MAIN, O_ACCMODE), EACCES);
}

TEST_P(OpenFamilyTest, DevicesThatThePlainBoardDoesNotHaveAreMissing)
{
    for (const char* path : {"/dev/vqlog-fpgac", "/dev/vqlog-fpgam", "/dev/vqlog-fpgame"}) {
        EXPECT_EQ(failure(path, O_WRONLY), ENOENT) << path;
        EXPECT_EQ(failure(path, O_RDONLY), ENOENT) << path;
    }
}

TEST_P(OpenFamilyTest, DeviceThatWentMissingIsMissing)
{
    logger().setDeviceMissing(MAIN, true);

    EXPECT_EQ(failure(MAIN, O_WRONLY), ENOENT);
    EXPECT_EQ(failure(MAIN, O_RDONLY), ENOENT);
}

TEST_P(OpenFamilyTest, CloseOnExecFollowsTheFlag)
{
    for (const int access : {O_WRONLY, O_RDONLY}) {
        EXPECT_EQ(fcntl(opened(MAIN, access).get(), F_GETFD), 0);
        EXPECT_EQ(fcntl(opened(MAIN, access | O_CLOEXEC).get(), F_GETFD), FD_CLOEXEC);
    }
}

TEST_P(OpenFamilyTest, NonBlockingFollowsTheFlag)
{
    for (const int access : {O_WRONLY, O_RDONLY}) {
        EXPECT_EQ(fcntl(opened(MAIN, access).get(), F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(fcntl(opened(MAIN, access | O_NONBLOCK).get(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    }
}

TEST_P(OpenFamilyTest, ErrnoStaysWhenADeviceOpens)
{
    errno = 4321;

    EXPECT_TRUE(opened(MAIN, O_WRONLY));

    EXPECT_EQ(errno, 4321);
}

TEST_P(OpenFamilyTest, ErrnoStaysWhenAFileOpens)
{
    errno = 4321;

    EXPECT_TRUE(opened("/dev/null", O_RDONLY));

    EXPECT_EQ(errno, 4321);
}

TEST_P(OpenFamilyTest, NamesThatAreOnlySimilarGoToTheSystem)
{
    for (const char* path : {"/dev/vqlog-fpga", "/dev/vqlog-fpgabb", "/dev/vqlog-fpgad", "/dev/vqlog-fpgame2",
                             "//dev/vqlog-fpgab", "vqlog-fpgab", ""}) {
        EXPECT_EQ(failure(path, O_RDONLY), ENOENT) << path;
    }
}

TEST_P(OpenFamilyTest, FilesAreReadAndWrittenAsEver)
{
    const std::string path = directory.path("file");
    ASSERT_TRUE(wire::FileDescriptor(creat(path.c_str(), 0600)));

    EXPECT_EQ(write(opened(path.c_str(), O_WRONLY).get(), "text", 4), 4);
    char text[5] = {};
    EXPECT_EQ(read(opened(path.c_str(), O_RDONLY).get(), text, 4), 4);

    EXPECT_STREQ(text, "text");
}

TEST_P(OpenFamilyTest, MissingFileIsTheSystemsError)
{
    EXPECT_EQ(failure(directory.path("missing").c_str(), O_RDONLY), ENOENT);
    EXPECT_EQ(failure(directory.path().c_str(), O_WRONLY), EISDIR);
}

TEST_P(CreatingOpenTest, ModeOfANewFileArrives)
{
    umask(0);
    const std::string path = directory.path("file");

    const wire::FileDescriptor sut(GetParam().create(path.c_str(), O_CREAT | O_WRONLY | O_EXCL, 0751));

    struct stat status
    {
    };
    ASSERT_EQ(fstat(sut.get(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0751U);
}

TEST_P(CreatingOpenTest, ModeOfANamelessFileArrives)
{
    umask(0);

    const wire::FileDescriptor sut(GetParam().create(directory.path().c_str(), O_TMPFILE | O_WRONLY, 0640));

    if (!sut && errno == EOPNOTSUPP) {
        GTEST_SKIP() << "the file system has no nameless files";
    }
    struct stat status
    {
    };
    ASSERT_EQ(fstat(sut.get(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST(OpenNullTest, NullPathIsTheSystemsError)
{
    // Through pointers: the declarations promise that the path is not null.
    int (*const volatile byPath[])(const char*, int, ...) = {open, open64};
    for (const auto call : byPath) {
        EXPECT_EQ(call(nullptr, O_RDONLY), -1);
        EXPECT_EQ(errno, EFAULT);
    }
    int (*const volatile byDirectory[])(int, const char*, int, ...) = {openat, openat64};
    for (const auto call : byDirectory) {
        EXPECT_EQ(call(AT_FDCWD, nullptr, O_RDONLY), -1);
        EXPECT_EQ(errno, EFAULT);
    }
    EXPECT_EQ(__open_2(nullptr, O_RDONLY), -1);
    EXPECT_EQ(__open64_2(nullptr, O_RDONLY), -1);
    EXPECT_EQ(__openat_2(AT_FDCWD, nullptr, O_RDONLY), -1);
    EXPECT_EQ(__openat64_2(AT_FDCWD, nullptr, O_RDONLY), -1);
}

TEST(OpenAtTest, RelativePathStartsAtTheDirectory)
{
    const TemporaryDirectory directory;
    ASSERT_TRUE(wire::FileDescriptor(creat(directory.path("file").c_str(), 0600)));
    const wire::FileDescriptor start(open(directory.path().c_str(), O_RDONLY | O_DIRECTORY));

    EXPECT_TRUE(wire::FileDescriptor(openat(start.get(), "file", O_RDONLY)));
    EXPECT_TRUE(wire::FileDescriptor(openat64(start.get(), "file", O_RDONLY)));
    EXPECT_TRUE(wire::FileDescriptor(__openat_2(start.get(), "file", O_RDONLY)));
    EXPECT_TRUE(wire::FileDescriptor(__openat64_2(start.get(), "file", O_RDONLY)));
}

TEST(OpenAtTest, DeviceDoesNotNeedTheDirectory)
{
    EXPECT_TRUE(wire::FileDescriptor(openat(-1, MAIN, O_RDONLY)));
    EXPECT_TRUE(wire::FileDescriptor(__openat64_2(-1, MAIN, O_RDONLY)));
}

TEST(OpenFamilyExtensionTest, EveryDeviceOfABoardOpens)
{
    const TemporaryDirectory directory;
    vlogger::Options options;
    options.board = vlogger::board::WITH_EXTENSION;
    options.socketPath = directory.path("socket");
    const vlogger::VirtualLogger extended(options);
    setenv("VLOGGER", options.socketPath.c_str(), 1);

    for (const char* path : {MAIN, "/dev/vqlog-fpgac"}) {
        EXPECT_TRUE(wire::FileDescriptor(open(path, O_WRONLY))) << path;
        EXPECT_TRUE(wire::FileDescriptor(open(path, O_RDONLY))) << path;
    }
}

TEST(OpenFamilyCombinedTest, CombinedBoardHasItsDeviceAndTheMainPathForWritingOnly)
{
    const TemporaryDirectory directory;
    vlogger::Options options;
    options.board = vlogger::board::COMBINED_16_FD;
    options.socketPath = directory.path("socket");
    const vlogger::VirtualLogger combined(options);
    setenv("VLOGGER", options.socketPath.c_str(), 1);

    EXPECT_TRUE(wire::FileDescriptor(open("/dev/vqlog-fpgame", O_RDONLY)));
    EXPECT_TRUE(wire::FileDescriptor(open(MAIN, O_WRONLY)));
    EXPECT_FALSE(wire::FileDescriptor(open(MAIN, O_RDONLY)));
    EXPECT_FALSE(wire::FileDescriptor(open("/dev/vqlog-fpgam", O_RDONLY)));
}

TEST(OpenFamilyResourcesTest, RefusedAndClosedDevicesLeaveNoDescriptorBehind)
{
    logger();
    const size_t before = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        wire::FileDescriptor(open(MAIN, O_WRONLY));
        wire::FileDescriptor(open(MAIN, O_RDONLY));
        wire::FileDescriptor(open("/dev/vqlog-fpgac", O_WRONLY));
    }
    // The virtual logger closes its ends when it sees ours gone, which it has before it answers this.
    while (logger().statistics().readers + logger().statistics().writers > 0) {
    }

    EXPECT_EQ(openDescriptors(), before);
}

namespace {

void* openDeviceForEver(void*)
{
    while (true) {
        const int fd = open(MAIN, O_WRONLY);
        close(fd);
    }
}

void* openFifo(void* path)
{
    open(static_cast<const char*>(path), O_RDONLY);
    return nullptr;
}

/// Cancels a thread; true if it ended of that.
bool endsWhenCancelled(pthread_t thread)
{
    void* result = nullptr;
    pthread_cancel(thread);
    pthread_join(thread, &result);
    return result == PTHREAD_CANCELED;
}

} // namespace

TEST(OpenFamilyCancellationTest, OpeningADeviceIsACancellationPoint)
{
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, openDeviceForEver, nullptr), 0);

    EXPECT_TRUE(endsWhenCancelled(thread));
    EXPECT_TRUE(wire::FileDescriptor(open(MAIN, O_WRONLY))); // no lock was left behind
}

TEST(OpenFamilyCancellationTest, ThreadThatWaitsInOpenCanBeCancelled)
{
    const TemporaryDirectory directory;
    std::string path = directory.path("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, openFifo, path.data()), 0);

    EXPECT_TRUE(endsWhenCancelled(thread));
}
