#include <config/StrayLetter.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace config {

namespace {

/// Line and column of the first stray letter; 0, 0 if there is none.
std::pair<uint32_t, uint32_t> placeIn(const std::string& text)
{
    const auto mistake = strayLetter(text);
    return mistake ? std::pair(mistake->line, mistake->column) : std::pair(0U, 0U);
}

constexpr std::pair<uint32_t, uint32_t> NOWHERE{0, 0};

} // namespace

TEST(StrayLetterTest, TextWithoutAnyHasNone)
{
    EXPECT_EQ(placeIn(""), NOWHERE);
    EXPECT_EQ(placeIn("[a]\nb = 'c' # d\n"), NOWHERE);
}

TEST(StrayLetterTest, FirstOneIsNamedWithLineAndColumn)
{
    EXPECT_EQ(placeIn("\u00e4"), std::pair(1U, 1U));
    EXPECT_EQ(placeIn("a = 1\nb = 2\u20ac \u20ac"), std::pair(2U, 6U));
}

TEST(StrayLetterTest, LettersBeforeItCountOneColumnEach)
{
    EXPECT_EQ(placeIn("a = \"\u20ac\u20ac\" \u00e4"), std::pair(1U, 10U));
}

TEST(StrayLetterTest, ByteOrderMarkIsNoneAndCountsForNoColumn)
{
    EXPECT_EQ(placeIn("\xEF\xBB\xBF"), NOWHERE);
    EXPECT_EQ(placeIn("\xEF\xBB\xBF\u00e4"), std::pair(1U, 1U));
    EXPECT_EQ(placeIn(" \xEF\xBB\xBF"), std::pair(1U, 2U));
}

TEST(StrayLetterTest, CommentsMayHoldThem)
{
    EXPECT_EQ(placeIn("# \u00e4"), NOWHERE);
    EXPECT_EQ(placeIn("# \"\n\u00e4"), std::pair(2U, 1U));
}

TEST(StrayLetterTest, StringsOfEveryKindMayHoldThem)
{
    const std::vector<std::string> strings{"\"\u00e4\"",
                                           "'\u00e4'",
                                           "\"\"\"\n\u00e4\"\"\"",
                                           "'''\n\u00e4'''",
                                           "\"\\\"\u00e4\"",
                                           "\"\"\"\"\u00e4\"\"\"\"\"",
                                           "\"\"\"\\\"\"\"\u00e4\"\"\"",
                                           "'\\'",
                                           "\"\"",
                                           "''"};
    for (const std::string& text : strings) {
        EXPECT_EQ(placeIn("a = " + text), NOWHERE) << text;
        EXPECT_NE(placeIn("a = " + text + "\u00e4"), NOWHERE) << text;
    }
}

TEST(StrayLetterTest, BehindAStringThatIsLeftOpenNothingIsLookedFor)
{
    EXPECT_EQ(placeIn("a = \"b\nc = \u00e4"), NOWHERE);
    EXPECT_EQ(placeIn("a = '''b\nc = \u00e4"), NOWHERE);
    EXPECT_EQ(placeIn("a = \"b\\"), NOWHERE);
}

} // namespace config
