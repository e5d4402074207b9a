#include "LineAccount.h"

#include <algorithm>
#include <cstdio>

namespace tarn::tool
{

namespace
{

/// Of every kind so many are shown.
constexpr std::uint64_t SHOWN_OF_A_KIND = 3;
constexpr std::size_t EXCERPT_SIZE = 60;

struct NotTarnKind {
    tLineFate fate;
    const char* one;
    const char* several;
    const char* reason;
};

constexpr NotTarnKind NOT_TARN[] = {
    {LINE_STANDARD_FRAME, "11-bit frame", "11-bit frames",
     "identifier of 11 bits; a Tarn frame has 29"},
    {LINE_REMOTE_REQUEST, "remote request", "remote requests", "remote request; it has no data"},
    {LINE_ERROR_FRAME, "error frame", "error frames", "error frame; it tells of the bus"},
    {LINE_FD_FRAME, "CAN FD frame", "CAN FD frames", "CAN FD frame; Tarn is classical CAN"},
    {LINE_TOO_SHORT, "too short", "too short", "too few data bytes for a Tarn frame"}};

/// The beginning of a line, fit for a terminal.
std::string Excerpt(std::string_view text)
{
    std::string excerpt(text.substr(0, EXCERPT_SIZE));
    for (char& character : excerpt) {
        if (character < ' ' || character > '~')
            character = character == '\t' ? ' ' : '?';
    }
    return text.size() > EXCERPT_SIZE ? excerpt + "..." : excerpt;
}

std::string Count(std::uint64_t count, const char* one, const char* several)
{
    return std::to_string(count) + ' ' + (count == 1 ? one : several);
}

} // namespace

tLineFate FateOf(const CandumpLine& line)
{
    if (line.kind == CandumpLine::KIND_FD_FRAME)
        return LINE_FD_FRAME;
    if (line.frame.HasError())
        return LINE_ERROR_FRAME;
    if ((line.frame.GetFlags() & CanMessage::FLAG_REMOTE) != 0)
        return LINE_REMOTE_REQUEST;
    if ((line.frame.GetFlags() & CanMessage::FLAG_EXTENDED) == 0)
        return LINE_STANDARD_FRAME;
    return LINE_SHOWN;
}

void LineAccount::AddRefused(tLineFate fate, const LinePlace& place)
{
    const auto* const kind =
        std::find_if(std::begin(NOT_TARN), std::end(NOT_TARN),
                     [fate](const NotTarnKind& known) { return known.fate == fate; });
    Add(fate);
    Show(fate, std::string("not Tarn: ") + kind->reason, place);
}

void LineAccount::AddMalformed(const char* reason, std::size_t column, const LinePlace& place)
{
    Add(LINE_MALFORMED);
    Show(LINE_MALFORMED, "malformed, column " + std::to_string(column) + ": " + reason, place);
}

void LineAccount::Show(tLineFate fate, std::string_view reason, const LinePlace& place) const
{
    if (mQuiet || mCounts[fate] > SHOWN_OF_A_KIND)
        return;
    std::string text = mVerb + ": " + place.file + ':' + std::to_string(place.number) + ": ";
    text.append(reason).append(": ").append(Excerpt(place.text)).append("\n");
    if (mCounts[fate] == SHOWN_OF_A_KIND)
        text += mVerb + ": more of this kind are only counted\n";
    std::fputs(text.c_str(), stderr);
}

std::uint64_t LineAccount::CountNotTarn() const
{
    std::uint64_t count = 0;
    for (const NotTarnKind& kind : NOT_TARN)
        count += mCounts[kind.fate];
    return count;
}

std::string LineAccount::NotTarn() const
{
    std::string kinds;
    for (const NotTarnKind& kind : NOT_TARN) {
        const std::uint64_t count = mCounts[kind.fate];
        if (count > 0)
            kinds += (kinds.empty() ? " (" : ", ") + Count(count, kind.one, kind.several);
    }
    return std::to_string(CountNotTarn()) + " not Tarn" + kinds + (kinds.empty() ? "" : ")");
}

std::string LineAccount::Summary() const
{
    const std::uint64_t decoded = mCounts[LINE_SHOWN] + mCounts[LINE_FILTERED];
    std::string text = mVerb + ": " + Count(decoded + CountNotTarn(), "frame", "frames") +
                       " read: " + std::to_string(decoded) + " decoded";
    if (mCounts[LINE_FILTERED] > 0)
        text += " (" + std::to_string(mCounts[LINE_FILTERED]) + " filtered out)";
    text += ", " + NotTarn() + "; " + Count(mCounts[LINE_MALFORMED], "line", "lines") +
            " malformed, " + Count(mCounts[LINE_COMMENT], "comment", "comments");
    return text;
}

} // namespace tarn::tool
