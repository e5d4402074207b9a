#include "MonitorPages.h"

#include "Ledger.h"
#include "MonitorText.h"
#include "Sparkline.h"

#include <array>
#include <cstdio>
#include <limits>

namespace tarn::tool
{

namespace
{

using Minute = LastMinute<BusTraffic::Second>;

/// Whole seconds of the last minute.
constexpr std::int64_t WHOLE_SECONDS = Minute::SECONDS - 1;

constexpr std::size_t LABEL_WIDTH = 16;

PageLine Labelled(const std::string& label, const std::string& text,
                  CellGrid::tStyle style = CellGrid::STYLE_PLAIN)
{
    return {label + std::string(LABEL_WIDTH - label.size(), ' ') + text, style};
}

std::string Percent(double bits, unsigned int bitRate)
{
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "%.1f%%", 100 * bits / bitRate);
    return text.data();
}

const MonitorRow* SelectedRow(const MonitorPicture& picture, const MonitorView& view)
{
    if (!view.selected)
        return nullptr;
    const auto found = picture.model.GetRows().find(*view.selected);
    return found == picture.model.GetRows().end() ? nullptr : &found->second;
}

std::string BitRateText(const MonitorBus& bus)
{
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "%g kbit/s", bus.bitRate / 1000.0);
    return text.data() + std::string(bus.isBitRateAssumed ? ", assumed: see --bitrate" : "");
}

std::string PeakText(const MonitorPicture& picture)
{
    const BusTraffic::Second peak = picture.model.GetTraffic().GetPeak(picture.now);
    return Percent(peak.bits, picture.bus.bitRate) + ", " + std::to_string(peak.frames) +
           " frames, in the busiest second of the last minute";
}

std::u32string LoadLine(const MonitorPicture& picture, const MonitorView& view)
{
    std::vector<double> loads;
    const std::int64_t running = Minute::NumberOf(picture.now);
    for (std::int64_t ago = WHOLE_SECONDS; ago > 0; --ago) {
        const std::uint32_t bits = picture.model.GetTraffic().GetMinute().At(running - ago).bits;
        loads.push_back(bits == 0 ? std::numeric_limits<double>::quiet_NaN() : bits);
    }
    const std::size_t room = view.width > LABEL_WIDTH ? view.width - LABEL_WIDTH : 0;
    return DrawSparkline(loads, 0, room, view.unicode);
}

void AddTraffic(const MonitorPicture& picture, const MonitorView& view,
                std::vector<PageLine>& lines)
{
    const BusTraffic& traffic = picture.model.GetTraffic();
    const auto rates = traffic.GetRates(picture.now);
    lines.push_back(Labelled("bit rate", BitRateText(picture.bus)));
    lines.push_back(Labelled("load", (rates ? Percent(rates->bits, picture.bus.bitRate) : "-") +
                                         ", without stuff bits"));
    lines.push_back(Labelled("peak", PeakText(picture)));
    lines.push_back({std::string("last minute") + std::string(LABEL_WIDTH - 11, ' '),
                     CellGrid::STYLE_PLAIN, LoadLine(picture, view)});
    lines.push_back(Labelled("frames", std::to_string(traffic.CountFrames()) + ", " +
                                           (rates ? RateText(rates->frames) : "-") + " a second"));
}

void AddLosses(const MonitorPicture& picture, std::vector<PageLine>& lines)
{
    if (picture.bus.overflows > 0)
        lines.push_back(Labelled("lost",
                                 std::to_string(picture.bus.overflows) +
                                     " came faster than they could be counted",
                                 CellGrid::STYLE_BAD));
    if (picture.model.CountWithoutRow() > 0)
        lines.push_back(
            Labelled("without a row",
                     std::to_string(picture.model.CountWithoutRow()) + ": more rows than are kept",
                     CellGrid::STYLE_BAD));
}

void AddErrors(const MonitorPicture& picture, std::vector<PageLine>& lines)
{
    const BusTraffic& traffic = picture.model.GetTraffic();
    const auto& counters = traffic.GetErrorCounters();
    lines.push_back(
        Labelled("error counters", counters ? "transmit " + std::to_string(counters->transmit) +
                                                  ", receive " + std::to_string(counters->receive)
                                            : std::string("no error frame has told them")));
    lines.push_back(Labelled("error frames", std::to_string(traffic.CountErrors())));
    for (const CanMessage& frame : traffic.GetErrors())
        lines.push_back({"  " + ErrorText(frame), CellGrid::STYLE_BAD});
}

/// The last blank up to which a text has room; its size when all has, or when there is none.
std::size_t EndOfLine(const std::string& text, std::size_t width)
{
    if (CellsOf(text) <= width)
        return text.size();
    const std::size_t begin = text.find_first_not_of(' ');
    std::size_t end = text.size();
    for (std::size_t blank = text.find(' ', begin);
         blank != std::string::npos && CellsOf(std::string_view(text).substr(0, blank)) <= width;
         blank = text.find(' ', blank + 1))
        end = blank;
    return end;
}

} // namespace

std::string LoadText(const MonitorPicture& picture)
{
    const auto rates = picture.model.GetTraffic().GetRates(picture.now);
    return rates ? "load " + Percent(rates->bits, picture.bus.bitRate) : "";
}

std::vector<PageLine> RowPage(const MonitorPicture& picture, const MonitorView& view)
{
    const MonitorRow* const row = SelectedRow(picture, view);
    if (row == nullptr)
        return {{"this row is gone", CellGrid::STYLE_DIM}};
    std::vector<PageLine> lines;
    lines.push_back({row->GetAddresses() + "  " + row->GetRegister(), CellGrid::STYLE_HEADING});
    for (const std::string& line : LongForm(row->GetFrame()))
        lines.push_back({line});
    for (const std::string& part : DataParts(row->GetFields(), picture.model.GetNames()))
        lines.push_back({part, CellGrid::STYLE_HEADING});
    lines.push_back({std::to_string(row->GetCount()) + " messages, " +
                     RateText(row->GetRate(picture.now)) + "/s, " +
                     AgeText(row->GetAge(picture.now)) + " ago"});
    lines.push_back({row->HasNumber() ? "value " : "rate  ", CellGrid::STYLE_PLAIN,
                     SparklineOf(*row, picture.now, 30, view.unicode)});
    return lines;
}

std::vector<PageLine> HistoryPage(const MonitorPicture& picture, const MonitorView& view)
{
    std::vector<PageLine> lines = {{"changes, the last one first", CellGrid::STYLE_HEADING}};
    const MonitorRow* const row = SelectedRow(picture, view);
    if (row == nullptr)
        return lines;
    for (const CanMessage& frame : row->GetChanges())
        lines.push_back({ChangeText(frame, picture.model.GetNames())});
    return lines;
}

std::vector<PageLine> BusPage(const MonitorPicture& picture, const MonitorView& view)
{
    const MonitorBus& bus = picture.bus;
    std::vector<PageLine> lines;
    lines.push_back(Labelled("bus", bus.name));
    lines.push_back(
        Labelled("state", bus.state.empty() ? "not told by a bus of this kind" : bus.state));
    AddTraffic(picture, view, lines);
    lines.push_back(Labelled("messages", picture.model.Summary()));
    lines.push_back(Labelled("rows", std::to_string(picture.model.GetRows().size())));
    lines.push_back(Labelled("ledger", DescribeLedger(bus.counters)));
    AddLosses(picture, lines);
    AddErrors(picture, lines);
    return lines;
}

std::vector<PageLine> HelpPage()
{
    return {
        {"keys", CellGrid::STYLE_HEADING},
        {"q            ends the monitor"},
        {"up, down, PgUp, PgDn, Home, End"},
        {"             choose a row, and scroll the other pages"},
        {"Enter        the row's message in long form and its last changes; Esc goes back"},
        {"Tab          the bus: state, load, error counters, ledger"},
        {"s, r         sort by source, rate, age or count; reverse that"},
        {"/ or f       filter: only rows that have the text; Enter keeps it, Esc drops it"},
        {"p or space   pause: the view stands still, all goes on being counted"},
        {"c            clear: drops all rows"},
        {"^L           draw the screen anew"},
        {""},
        {"columns", CellGrid::STYLE_HEADING},
        {"kind         R READ, W WRITE; req request, rsp response; CHCP"},
        {"rate/s       messages a second, over five seconds"},
        {"age          since the last message"},
        {"minute       the last: the value where a message has one number, else how many came;"},
        {"             scaled to its smallest and largest, blank where nothing came"},
        {"What changed within the last second is marked; rows without a message for a minute"},
        {"are dim."}};
}

std::vector<PageLine> Wrapped(const std::vector<PageLine>& lines, std::size_t width)
{
    constexpr const char* INDENT = "    ";
    std::vector<PageLine> wrapped;
    for (PageLine line : lines) {
        for (std::size_t end = EndOfLine(line.text, width); end < line.text.size();
             end = EndOfLine(line.text, width)) {
            wrapped.push_back({line.text.substr(0, end), line.style});
            line.text = INDENT + line.text.substr(end + 1);
        }
        wrapped.push_back(line);
    }
    return wrapped;
}

} // namespace tarn::tool
