#include "CellGrid.h"

#include "Sparkline.h"

#include <gtest/gtest.h>

#include <limits>

namespace
{

using tarn::tool::CellGrid;
using tarn::tool::CellsOf;
using tarn::tool::DrawSparkline;

std::string Shown(std::string_view text, std::size_t width = 40, bool unicode = true)
{
    CellGrid grid(width, 1, unicode);
    grid.Put(0, 0, text);
    return grid.TextOf(0);
}

TEST(CellGrid, ShowsLettersOfAllLanguages)
{
    EXPECT_EQ(Shown("Pumpe für Öl"), "Pumpe für Öl");
    EXPECT_EQ(Shown("\u6C34\u6CF5 9"), "\u6C34\u6CF5 9");
    EXPECT_EQ(CellsOf("\u6C34\u6CF5 9"), 6u);
    EXPECT_EQ(CellsOf("Öl"), 2u);
}

TEST(CellGrid, LetsNoCommandOfATerminalIn)
{
    EXPECT_EQ(Shown("a\x1b[2Jb\a\tc\n"), "a?[2Jb??c?");
    EXPECT_EQ(Shown("\x7f"), "?");
    // CSI as one character, as UTF-8 and alone.
    EXPECT_EQ(Shown("\xc2\x9b"
                    "2J"),
              "?2J");
    EXPECT_EQ(Shown("\x9b"
                    "2J"),
              "?2J");
    // Right-to-left override, zero width space, combining mark, private use.
    EXPECT_EQ(Shown("a\u202Eb\u200Bc\u0301d\uE000"), "a?b?c?d?");
}

TEST(CellGrid, ShowsBrokenUtf8AsQuestionMarks)
{
    EXPECT_EQ(Shown("\xc3"), "?");
    EXPECT_EQ(Shown("\xc0\xaf"), "??");
    EXPECT_EQ(Shown("\xe0\x80\xaf"), "?");
    EXPECT_EQ(Shown("\xed\xa0\x80"), "?");
    EXPECT_EQ(Shown("\xf4\x90\x80\x80"), "?");
    EXPECT_EQ(Shown("\xf5z\xff"), "?z?");
}

TEST(CellGrid, KeepsToAsciiWhereTheTerminalDoes)
{
    EXPECT_EQ(Shown("Öl 5", 40, false), "?l 5");
    EXPECT_EQ(Shown("\u6C34 5", 40, false), "?? 5");
    EXPECT_EQ(Shown("abcdef", 4, false), "abc~");
}

TEST(CellGrid, CutsTextWithAMark)
{
    EXPECT_EQ(Shown("abcd", 4), "abcd");
    EXPECT_EQ(Shown("abcde", 4), "abc\u2026");
    // The second half of a wide letter would have no room.
    EXPECT_EQ(Shown("a\u6C34\u6C34", 4), "a\u6C34\u2026");
    EXPECT_EQ(Shown("\u6C34\u6C34", 3), "\u6C34\u2026");
    EXPECT_EQ(Shown("\u6C34", 1), "\u2026");
}

TEST(CellGrid, LeavesOutWhatLiesOutside)
{
    CellGrid grid(3, 2, true);
    grid.Put(5, 0, "abc");
    grid.Put(0, 7, "abc");
    grid.PutGlyph(3, 1, U'x');
    grid.PutRight(2, 1, "abc");
    grid.FillRow(9, CellGrid::STYLE_BAD);
    grid.SelectRow(9);
    EXPECT_EQ(grid.TextOf(0) + '|' + grid.TextOf(1), "|");
    CellGrid nothing(0, 0, true);
    EXPECT_EQ(nothing.Put(0, 0, "abc"), 0u);
}

TEST(Sparkline, RisesFromTheLowestToTheLargest)
{
    EXPECT_EQ(DrawSparkline({0, 1, 2, 3, 4, 5, 6, 7}, 0, 8, true), U"▁▂▃▄▅▆▇█");
    EXPECT_EQ(DrawSparkline({0, 1, 2, 3, 4, 5, 6, 7}, 0, 8, false), U"_.-~=+*#");
    EXPECT_EQ(DrawSparkline({-7, 7}, -7, 8, false), U"_#");
}

TEST(Sparkline, IsFlatForANumberThatStays)
{
    EXPECT_EQ(DrawSparkline({5, 5, 5}, 5, 8, true), U"▁▁▁");
    EXPECT_EQ(DrawSparkline({5, 5, 5}, 0, 8, true), U"███");
}

TEST(Sparkline, TakesMeansWhereThereIsLessRoom)
{
    EXPECT_EQ(DrawSparkline({0, 0, 7, 7}, 0, 2, false), U"_#");
    EXPECT_EQ(DrawSparkline({0, 6, 7, 7}, 0, 2, false), U"~#");
}

TEST(Sparkline, LeavesGapsForWhatIsNoNumber)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(DrawSparkline({nan, 0, infinity, 7}, 0, 8, false), U" _ #");
    EXPECT_EQ(DrawSparkline({nan, nan}, 0, 8, false), U"  ");
    EXPECT_EQ(DrawSparkline({}, 0, 8, false), U"");
    const double most = std::numeric_limits<double>::max();
    EXPECT_EQ(DrawSparkline({-most, most}, -most, 8, false), U"_#");
}

} // namespace
