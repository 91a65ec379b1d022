#include <vlogger/TemporarySocket.h>

#include <logger/LockFile.h>
#include <logger/SocketPath.h>
#include <support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace {

namespace fs = std::filesystem;

/// What somebody who has run before has left. Other processes may look for it, too, as soon as it can go.
class TemporarySocketTest : public ::testing::Test
{
protected:
    TemporarySocketTest()
    {
        std::string name = "/tmp/vlogger-run-XXXXXX";
        EXPECT_NE(::mkdtemp(name.data()), nullptr);
        left = name;
    }
    ~TemporarySocketTest() override { fs::remove_all(left); }

    /// Leaves a socket on which nobody listens, as a killed process does.
    static void leaveSocketIn(const fs::path& directory)
    {
        std::optional<vlogger::SocketPath> path(std::in_place, directory / "served");
        path->takeListener().reset();
        fs::rename(directory / "served", directory / "socket");
    }

    fs::path left;
};

TEST_F(TemporarySocketTest, PlaceIsNewAndGoesAgain)
{
    fs::path place;
    {
        const tool::TemporarySocket sut;
        place = fs::path(sut.path()).parent_path();
        EXPECT_TRUE(fs::is_directory(place));
        EXPECT_TRUE(fs::is_empty(place));
    }
    EXPECT_FALSE(fs::exists(place));
}

TEST_F(TemporarySocketTest, DirectoryOfADeadOneGoes)
{
    leaveSocketIn(left);
    const tool::TemporarySocket sut;
    EXPECT_FALSE(fs::exists(left));
}

TEST_F(TemporarySocketTest, DirectoryOfALivingOneStays)
{
    const vlogger::SocketPath living(left / "socket");
    const tool::TemporarySocket sut;
    EXPECT_TRUE(fs::is_socket(left / "socket"));
}

TEST_F(TemporarySocketTest, DirectoryWhoseLockIsHeldStays)
{
    const vlogger::LockFile held(vlogger::SocketPath::lockOf(left / "socket"));
    leaveSocketIn(left);
    const tool::TemporarySocket sut;
    EXPECT_TRUE(fs::is_socket(left / "socket"));
}

TEST_F(TemporarySocketTest, DirectoryWithoutASocketMayBeStarting)
{
    const tool::TemporarySocket sut;
    EXPECT_TRUE(fs::is_directory(left));
}

TEST_F(TemporarySocketTest, FileOfAnotherKindInPlaceOfTheSocketStays)
{
    fs::create_directory(left / "socket");
    const tool::TemporarySocket sut;
    EXPECT_TRUE(fs::is_directory(left / "socket"));
}

TEST_F(TemporarySocketTest, ForeignFileKeepsTheDirectory)
{
    fs::create_directory(left / "foreign");
    leaveSocketIn(left);
    const tool::TemporarySocket sut;
    EXPECT_TRUE(fs::is_directory(left / "foreign"));
}

TEST_F(TemporarySocketTest, LinkIsNotFollowed)
{
    const TemporaryDirectory elsewhere;
    leaveSocketIn(elsewhere.path());
    fs::remove(left);
    fs::create_directory_symlink(elsewhere.path(), left);
    const tool::TemporarySocket sut;
    EXPECT_TRUE(fs::is_symlink(left));
    EXPECT_TRUE(fs::is_socket(elsewhere.path("socket")));
}

} // namespace
