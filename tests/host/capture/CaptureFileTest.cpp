#include <capture/CaptureFile.h>
#include <capture/CaptureReader.h>

#include <support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <system_error>

namespace capture {

namespace {

class CaptureFileTest : public testing::Test
{
protected:
    static CaptureFrame frame(uint32_t id)
    {
        CaptureFrame made;
        made.frame.interfaceName = "can0";
        made.frame.id = id;
        made.frame.timestampUs = 1000000 + id;
        return made;
    }

    /// Files of this process end at so many bytes, like on a full disk.
    static void limitFilesTo(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, RLIM_INFINITY};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    }

    /// Frames of a file that must be readable to its end.
    uint64_t framesIn(std::string_view name) const
    {
        std::ifstream input(directory.path(name), std::ios::binary);
        const auto reader = makeCaptureReader(input);
        CaptureFrame read;
        uint64_t count = 0;
        while (reader->next(read)) {
            EXPECT_EQ(read.frame.id, count);
            ++count;
        }
        return count;
    }

    TemporaryDirectory directory;
};

} // namespace

TEST_F(CaptureFileTest, NameChoosesTheFormat)
{
    EXPECT_EQ(formatOfName("a.pcapng"), Format::PCAPNG);
    EXPECT_EQ(formatOfName("a.ntar"), Format::PCAPNG);
    EXPECT_EQ(formatOfName("a.log"), Format::CANDUMP);
    EXPECT_EQ(formatOfName("A.PCAPNG"), Format::PCAPNG);
    EXPECT_EQ(formatOfName("pcapng"), Format::CANDUMP);
    EXPECT_EQ(formatOfName("a.txt"), Format::CANDUMP);
    EXPECT_EQ(formatOfName("-"), Format::CANDUMP);
    EXPECT_EQ(formatOfName("/dev/null"), Format::CANDUMP);
}

TEST_F(CaptureFileTest, NameOfAFormatThatIsNotWrittenChoosesNone)
{
    for (const char* name : {"a.pcap", "a.asc", "a.BLF", "a.log.gz", "a.csv"}) {
        EXPECT_FALSE(formatOfName(name)) << name;
    }
}

TEST_F(CaptureFileTest, LogHasExactlyItsLines)
{
    CaptureFile sut(directory.path("a.log"), Format::CANDUMP, "test");
    CaptureFrame sent = frame(1);
    sent.direction = Direction::SENT;
    sut.write(sent);
    sut.write(frame(2));
    EXPECT_EQ(directory.read("a.log"), "");
    EXPECT_EQ(sut.framesWritten(), 0U);
    sut.finish();
    EXPECT_EQ(directory.read("a.log"), "(1.000001) can0 001#\n(1.000002) can0 002#\n");
    EXPECT_EQ(sut.framesWritten(), 2U);
}

TEST_F(CaptureFileTest, FileWithoutItsEndIsReadable)
{
    {
        CaptureFile sut(directory.path("a.pcapng"), Format::PCAPNG, "test");
        for (uint32_t id = 0; id < 100; ++id) {
            sut.write(frame(id));
        }
        sut.flush();
        sut.write(frame(100));
    }
    EXPECT_EQ(framesIn("a.pcapng"), 100U);
}

TEST_F(CaptureFileTest, MuchIsFlushedByItself)
{
    CaptureFile sut(directory.path("a.log"), Format::CANDUMP, "test");
    for (uint32_t id = 0; id < 2048; ++id) {
        sut.write(frame(id % 2048));
        sut.write(frame(id % 2048));
    }
    EXPECT_GT(sut.framesWritten(), 3000U);
}

TEST_F(CaptureFileTest, MissingDirectoryIsReportedWithTheName)
{
    try {
        CaptureFile sut(directory.path("none/a.log"), Format::CANDUMP, "test");
        FAIL() << "the file was made";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), directory.path("none/a.log") + ": No such file or directory");
    }
}

TEST_F(CaptureFileTest, OlderFileIsOverwrittenAsAWhole)
{
    const std::string path = directory.path("a.log");
    std::ofstream(path) << "something longer than what comes\n";
    CaptureFile sut(path, Format::CANDUMP, "test");
    sut.write(frame(1));
    sut.finish();
    EXPECT_EQ(directory.read("a.log"), "(1.000001) can0 001#\n");
}

TEST_F(CaptureFileTest, SecondWriterIsRefusedAndLeavesTheFileAsItIs)
{
    const std::string path = directory.path("a.log");
    CaptureFile first(path, Format::CANDUMP, "test");
    first.write(frame(1));
    first.flush();
    try {
        CaptureFile sut(path, Format::CANDUMP, "test");
        FAIL() << "two write one file";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "another program is writing " + path + "; give another file name");
    }
    EXPECT_EQ(directory.read("a.log"), "(1.000001) can0 001#\n");
}

TEST_F(CaptureFileTest, FileIsFreeOnceItsWriterHasGone)
{
    const std::string path = directory.path("a.log");
    CaptureFile(path, Format::CANDUMP, "test").finish();
    EXPECT_NO_THROW(CaptureFile(path, Format::CANDUMP, "test"));
}

TEST_F(CaptureFileTest, DeviceMayHaveTwoWriters)
{
    const CaptureFile first("/dev/null", Format::CANDUMP, "test");
    EXPECT_NO_THROW(CaptureFile("/dev/null", Format::CANDUMP, "test"));
}

TEST_F(CaptureFileTest, FullDiskLeavesWholeFramesAndTheirCount)
{
    for (const Format format : {Format::CANDUMP, Format::PCAPNG}) {
        CaptureFile sut(directory.path("a"), format, "test");
        limitFilesTo(1000);
        for (uint32_t id = 0; id < 100; ++id) {
            sut.write(frame(id));
        }
        try {
            sut.flush();
            FAIL() << "there was room";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EFBIG);
            EXPECT_EQ(error.what(), directory.path("a") + ": File too large");
        }
        limitFilesTo(RLIM_INFINITY);
        const uint64_t frames = framesIn("a");
        EXPECT_GT(frames, 10U);
        EXPECT_EQ(frames, sut.framesWritten());
    }
}

TEST_F(CaptureFileTest, AfterRoomWasMadeItGoesOnBehindTheLastWholeFrame)
{
    CaptureFile sut(directory.path("a.log"), Format::CANDUMP, "test");
    limitFilesTo(50); // two lines of 21 bytes, and a part of the third
    for (uint32_t id = 0; id < 4; ++id) {
        sut.write(frame(id));
    }
    EXPECT_THROW(sut.flush(), std::system_error);
    limitFilesTo(RLIM_INFINITY);
    EXPECT_EQ(sut.framesWritten(), 2U);
    sut.write(frame(2));
    sut.finish();
    EXPECT_EQ(directory.read("a.log"), "(1.000000) can0 000#\n(1.000001) can0 001#\n(1.000002) can0 002#\n");
}

TEST_F(CaptureFileTest, LogTellsWhatItHasNoPlaceFor)
{
    CaptureFile sut(directory.path("a.log"), Format::CANDUMP, "");
    sut.write(frame(0));
    EXPECT_TRUE(sut.losses().empty());
    CaptureFrame full = frame(1);
    full.direction = Direction::SENT;
    sut.write(full);
    full.nanoseconds = 1;
    full.droppedBefore = 7;
    sut.write(full);
    EXPECT_EQ(sut.losses(), (std::vector<std::string>{
                                "a log has no place for a direction, which 2 frames had",
                                "a log has no place for nanoseconds, which 1 frame had",
                                "a log has no place for the count of frames lost before one, which 1 frame had"}));
}

} // namespace capture
