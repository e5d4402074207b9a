#include "CellGrid.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace tarn::tool
{

namespace
{

constexpr char32_t UNFIT = U'?';

struct Range {
    char32_t first;
    char32_t last;
};

/// Control characters, marks that join or turn the text around them, surrogates and what is for
/// private use: no cell of their own, or who knows how many.
constexpr Range UNFIT_RANGES[] = {
    {0x0000, 0x001F},     {0x007F, 0x009F}, {0x00AD, 0x00AD}, {0x0300, 0x036F}, {0x0483, 0x0489},
    {0x0591, 0x05BD},     {0x0600, 0x0605}, {0x0610, 0x061C}, {0x064B, 0x065F}, {0x06D6, 0x06DD},
    {0x0900, 0x0902},     {0x093A, 0x094F}, {0x0E31, 0x0E3A}, {0x0E47, 0x0E4E}, {0x1160, 0x11FF},
    {0x1AB0, 0x1AFF},     {0x1DC0, 0x1DFF}, {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},
    {0x20D0, 0x20FF},     {0x302A, 0x302F}, {0x3099, 0x309A}, {0xD800, 0xF8FF}, {0xFE00, 0xFE0F},
    {0xFE20, 0xFE2F},     {0xFEFF, 0xFEFF}, {0xFFF0, 0xFFFB}, {0xFFFE, 0xFFFF}, {0x1F3FB, 0x1F3FF},
    {0xE0000, 0xFFFFFFFF}};

constexpr Range WIDE_RANGES[] = {
    {0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0xA4CF},  {0xA960, 0xA97C}, {0xAC00, 0xD7A3},
    {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},  {0xFFE0, 0xFFE6}, {0x1F300, 0x1F64F},
    {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD}};

template <std::size_t COUNT>
bool IsIn(char32_t character, const Range (&ranges)[COUNT])
{
    return std::any_of(std::begin(ranges), std::end(ranges), [character](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

std::size_t WidthOfGlyph(char32_t character)
{
    return IsIn(character, WIDE_RANGES) ? 2 : 1;
}

/// Reads UTF-8 one character after the other.
class Utf8Reader
{
public:
    explicit Utf8Reader(std::string_view text) : mText(text) {}

    bool IsAtEnd() const { return mText.empty(); }

    /// What is no character, or unfit for a cell, is one '?'.
    char32_t Next()
    {
        const auto first = static_cast<unsigned char>(mText.front());
        mText.remove_prefix(1);
        if (first < 0x80)
            return IsIn(first, UNFIT_RANGES) ? UNFIT : first;
        const std::size_t more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
        if (first < 0xC2 || first > 0xF4 || !Follows(more))
            return UNFIT;
        char32_t character = first & (0x3Fu >> more);
        for (std::size_t at = 0; at < more; ++at)
            character = (character << 6) | (static_cast<unsigned char>(mText[at]) & 0x3Fu);
        mText.remove_prefix(more);
        constexpr char32_t LEAST[] = {0, 0x80, 0x800, 0x10000};
        return character < LEAST[more] || IsIn(character, UNFIT_RANGES) ? UNFIT : character;
    }

private:
    bool Follows(std::size_t count) const
    {
        return mText.size() >= count &&
               std::all_of(mText.begin(), mText.begin() + static_cast<std::ptrdiff_t>(count),
                           [](char byte) { return (byte & 0xC0) == 0x80; });
    }

    std::string_view mText;
};

} // namespace

CellGrid::CellGrid(std::size_t width, std::size_t height, bool unicode)
    : mWidth(width),
      mHeight(height),
      mUnicode(unicode),
      mCells(width * height)
{
}

const CellGrid::Cell& CellGrid::At(std::size_t column, std::size_t row) const
{
    return mCells[row * mWidth + column];
}

void CellGrid::PutGlyph(std::size_t column, std::size_t row, char32_t glyph, tStyle style)
{
    if (row >= mHeight || column >= mWidth)
        return;
    const std::size_t cells = WidthOfGlyph(glyph);
    const bool fits = column + cells <= mWidth && (mUnicode || glyph < 0x80);
    Place(column, row).glyph = fits ? glyph : UNFIT;
    Place(column, row).style = style;
    if (cells == 2 && column + 1 < mWidth) {
        Place(column + 1, row).glyph = fits ? 0 : UNFIT;
        Place(column + 1, row).style = style;
    }
}

std::size_t CellGrid::Put(std::size_t column, std::size_t row, std::string_view text, tStyle style,
                          std::size_t width)
{
    const std::size_t room = column < mWidth ? std::min(width, mWidth - column) : 0;
    const std::size_t end = column + room;
    const bool isCut = CellsOf(text) > room;
    for (Utf8Reader reader(text); !reader.IsAtEnd();) {
        const char32_t glyph = reader.Next();
        const std::size_t cells = WidthOfGlyph(glyph);
        if (column + cells + (isCut ? 1 : 0) > end)
            break;
        PutGlyph(column, row, glyph, style);
        column += cells;
    }
    if (isCut && column < end)
        PutGlyph(column++, row, mUnicode ? U'\u2026' : U'~', style);
    return column;
}

void CellGrid::PutRight(std::size_t end, std::size_t row, std::string_view text, tStyle style)
{
    const std::size_t cells = tool::CellsOf(text);
    if (cells <= end)
        Put(end - cells, row, text, style);
}

void CellGrid::FillRow(std::size_t row, tStyle style)
{
    for (std::size_t column = 0; row < mHeight && column < mWidth; ++column)
        Place(column, row).style = style;
}

void CellGrid::SelectRow(std::size_t row)
{
    for (std::size_t column = 0; row < mHeight && column < mWidth; ++column)
        Place(column, row).isSelected = true;
}

std::string CellGrid::TextOf(std::size_t row) const
{
    std::string text;
    for (std::size_t column = 0; column < mWidth; ++column) {
        if (At(column, row).glyph != 0)
            AppendUtf8(At(column, row).glyph, text);
    }
    return text.erase(text.find_last_not_of(' ') + 1);
}

std::size_t CellsOf(std::string_view text)
{
    std::size_t cells = 0;
    for (Utf8Reader reader(text); !reader.IsAtEnd();)
        cells += WidthOfGlyph(reader.Next());
    return cells;
}

void AppendUtf8(char32_t character, std::string& text)
{
    const auto put = [&text](char32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80)
        return put(character);
    if (character < 0x800) {
        put(0xC0 | (character >> 6));
    } else if (character < 0x10000) {
        put(0xE0 | (character >> 12));
        put(0x80 | ((character >> 6) & 0x3F));
    } else {
        put(0xF0 | (character >> 18));
        put(0x80 | ((character >> 12) & 0x3F));
        put(0x80 | ((character >> 6) & 0x3F));
    }
    put(0x80 | (character & 0x3F));
}

} // namespace tarn::tool
