#include <gtest/gtest.h>
#include <support/ChildProcess.h>

// Shared libraries only: in a program with the static archive, open() cannot be anybody else's.

TEST(OpenCheckTest, ProgramThatNeedsThePlatformItselfOpensDevicesAndReadsNoWarning)
{
    const ChildResult result = ChildProcess({OPEN_CHECK_DIRECT}).run();

    EXPECT_EQ(result.out, "opened\n");
    EXPECT_EQ(result.err, "");
}

TEST(OpenCheckTest, ProgramThatNeedsOnlyTheLibraryIsToldTheRemedy)
{
    const ChildResult result = ChildProcess({OPEN_CHECK_INDIRECT}).run();

    EXPECT_EQ(result.out, "No such file or directory\n");
    EXPECT_EQ(result.err,
              "[WARNING] host platform: open() of this program does not come here, so it cannot open the "
              "logger's devices; link the program itself with vqhost, ahead of the C library "
              "(-Wl,--push-state,--no-as-needed -lvqhost -Wl,--pop-state)\n");
    EXPECT_EQ(result.exitCode, 0);
}

TEST(OpenCheckTest, PreloadedPlatformIsAsGoodAsANeededOne)
{
    const ChildResult result =
        ChildProcess({OPEN_CHECK_INDIRECT})
            .with("LD_PRELOAD", VQHOST_LIBRARY)
            .with("ASAN_OPTIONS", "verify_asan_link_order=0") // it would insist on being first
            .run();

    EXPECT_EQ(result.out, "opened\n");
    EXPECT_EQ(result.err, "");
}
