#ifndef TARN_TOOLS_CELL_GRID_H
#define TARN_TOOLS_CELL_GRID_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::tool
{

/// What a terminal shows, cell by cell. Only characters that take one or two cells get in: whatever
/// a terminal could take for a command shows as '?'.
class CellGrid
{
public:
    enum tStyle : unsigned char {
        STYLE_PLAIN,
        STYLE_DIM,
        STYLE_HEADING,
        STYLE_BAR,     ///< title and keys
        STYLE_CHANGED, ///< a moment ago
        STYLE_GOOD,
        STYLE_WARNING,
        STYLE_BAD,
        STYLES
    };

    struct Cell {
        char32_t glyph = U' '; ///< 0: the right half of the one before
        tStyle style = STYLE_PLAIN;
        bool isSelected = false;

        bool operator==(const Cell& other) const
        {
            return glyph == other.glyph && style == other.style && isSelected == other.isSelected;
        }
    };

    /// @param unicode false for a terminal that knows ASCII only
    CellGrid(std::size_t width, std::size_t height, bool unicode);

    std::size_t GetWidth() const { return mWidth; }
    std::size_t GetHeight() const { return mHeight; }
    bool IsUnicode() const { return mUnicode; }
    const Cell& At(std::size_t column, std::size_t row) const;

    /// Puts UTF-8 text, at most width cells of it; a text that is cut ends in a mark. What lies
    /// outside of the grid is left out.
    /// @return the column behind the text
    std::size_t Put(std::size_t column, std::size_t row, std::string_view text,
                    tStyle style = STYLE_PLAIN, std::size_t width = SIZE_MAX);

    /// The same, ending in front of a column.
    void PutRight(std::size_t end, std::size_t row, std::string_view text,
                  tStyle style = STYLE_PLAIN);

    void PutGlyph(std::size_t column, std::size_t row, char32_t glyph, tStyle style = STYLE_PLAIN);

    /// Gives a whole line a style.
    void FillRow(std::size_t row, tStyle style);
    void SelectRow(std::size_t row);

    /// A line as UTF-8, without the blanks at its end.
    std::string TextOf(std::size_t row) const;

private:
    Cell& Place(std::size_t column, std::size_t row) { return mCells[row * mWidth + column]; }

    std::size_t mWidth;
    std::size_t mHeight;
    bool mUnicode;
    std::vector<Cell> mCells;
};

/// Cells that a text takes.
std::size_t CellsOf(std::string_view text);

/// Appends a character as UTF-8.
void AppendUtf8(char32_t character, std::string& text);

} // namespace tarn::tool

#endif
