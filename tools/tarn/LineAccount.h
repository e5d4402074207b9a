#ifndef TARN_TOOLS_LINE_ACCOUNT_H
#define TARN_TOOLS_LINE_ACCOUNT_H

#include <plexa_can/CandumpLine.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::tool
{

/// What became of a line.
enum tLineFate {
    LINE_SHOWN,
    LINE_FILTERED, ///< a message that the filters hold back
    LINE_COMMENT,
    LINE_STANDARD_FRAME,
    LINE_REMOTE_REQUEST,
    LINE_ERROR_FRAME,
    LINE_FD_FRAME,
    LINE_TOO_SHORT, ///< an extended frame without the bytes that every message has
    LINE_MALFORMED,
    LINE_FATES
};

/// The kind of frame that is no message, or LINE_SHOWN.
tLineFate FateOf(const CandumpLine& line);

/// Where a line stands.
struct LinePlace {
    const std::string& file;
    std::uint64_t number;
    std::string text;
};

/// Counts lines by what became of them and shows the first few that are no message.
class LineAccount
{
public:
    /// @param verb begins every message
    /// @param quiet counts only
    LineAccount(std::string verb, bool quiet) : mVerb(std::move(verb)), mQuiet(quiet) {}

    void Add(tLineFate fate) { ++mCounts[fate]; }

    /// Counts a line that is no message.
    void AddRefused(tLineFate fate, const LinePlace& place);
    void AddMalformed(const char* reason, std::size_t column, const LinePlace& place);

    std::uint64_t operator[](tLineFate fate) const { return mCounts[fate]; }

    /// "1 not Tarn (1 remote request)"
    std::string NotTarn() const;

    /// "tarn decode: 4 frames read: 3 decoded, 1 not Tarn (1 remote request); 1 line malformed"
    std::string Summary() const;

private:
    std::uint64_t CountNotTarn() const;
    void Show(tLineFate fate, std::string_view reason, const LinePlace& place) const;

    std::string mVerb;
    bool mQuiet;
    std::array<std::uint64_t, LINE_FATES> mCounts = {};
};

} // namespace tarn::tool

#endif
