#include "MonitorFixture.h"
#include "MonitorKeys.h"

#include <gmock/gmock.h>

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::HasSubstr;
using testing::Not;
using tool::CellGrid;
using tool::MonitorKey;
using tool::MonitorView;

class MonitorScreenTest : public MonitorFixture
{
protected:
    MonitorScreenTest() { bus.name = "socketcan:can0"; }

    /// Four rows within the first second, and one of them again in the seconds that follow.
    void TakeSome()
    {
        Take("(1609779922.1) 0F840281#20", milliseconds(100));
        Take("(1609779922.2) 0F040085#B50459", milliseconds(200));
        Take("(1609779922.3) 0F044089#003000C070", milliseconds(300));
        Take("(1609779922.4) 1ABCDEF0#78563412050220", milliseconds(400));
        for (unsigned int at = 1; at <= 8; ++at)
            Take("(1609779930) 0F040085#" + std::string(1, static_cast<char>('0' + at)) + "00059",
                 milliseconds(200 + 1000 * at));
    }

    void Press(MonitorKey::tCode code) { PressKey({code, 0}); }
    void Type(const std::u32string& text)
    {
        for (const char32_t character : text)
            PressKey({MonitorKey::CHARACTER, character});
    }
    tool::tMonitorAction PressKey(const MonitorKey& key)
    {
        return tool::PressKey(key, {model, bus, seconds(10)}, view);
    }

    std::string Line(std::size_t line, tool::Duration now = seconds(10))
    {
        const std::string screen = Screen(now);
        std::size_t begin = 0;
        for (; line > 0; --line)
            begin = screen.find('\n', begin) + 1;
        return screen.substr(begin, screen.find('\n', begin) - begin);
    }

    /// The cell at a place, for its style.
    CellGrid::Cell CellAt(std::size_t column, std::size_t row, tool::Duration now)
    {
        return tool::RenderMonitor({model, bus, now}, view).At(column, row);
    }
};

TEST_F(MonitorScreenTest, ShowsTheRowsOn80By24)
{
    TakeSome();
    EXPECT_EQ(Screen(seconds(10)),
              R"(tarn monitor socketcan:can0  4 rows  0.8/s  load 0.1%  by source
from -> to register  kind  status    values               rate/s  age minute
1 -> 5     16 (0x10) R req POWERUP                           0.0 9.9s         █
5 -> 1     16 (0x10) R rsp OPERATING 128                     1.0 1.8s         ▃▁
9 -> 1     17 (0x11) R rsp OPERATIN… 1.5 -2                  0.0 9.7s         █
ABCDEF0              CHCP  POWERUP   device 12345678  id…    0.0 9.6s         █

















q quit  s sort  r reverse  / filter  p pause  Enter open  Tab bus  h help
)");
}

TEST_F(MonitorScreenTest, LeavesOutWhatHasNoRoom)
{
    TakeSome();
    view.width = 40;
    view.height = 8;
    view.unicode = false;
    EXPECT_EQ(Screen(seconds(10)), R"(tarn monitor socket~  4 rows  0.8/s  lo~
from -> to register  values
1 -> 5     16 (0x10)
5 -> 1     16 (0x10) 128
9 -> 1     17 (0x11) 1.5 -2
ABCDEF0              device 12345678  i~

q quit  s sort  r reverse  / filter  p ~
)");
}

TEST_F(MonitorScreenTest, ShowsMoreWhereThereIsMoreRoom)
{
    TakeSome();
    view.width = 160;
    EXPECT_EQ(Line(4), "9 -> 1     17 (0x11) R rsp OPERATING WITH FAILURE 1.5 -2" +
                           std::string(35, ' ') + "1    0.0 9.7s" + std::string(48, ' ') + "█");
}

TEST_F(MonitorScreenTest, StandsEverySize)
{
    TakeSome();
    for (const auto page : {MonitorView::PAGE_ROWS, MonitorView::PAGE_ROW, MonitorView::PAGE_BUS,
                            MonitorView::PAGE_HELP}) {
        view.page = page;
        Press(MonitorKey::HOME);
        for (std::size_t width = 1; width <= 300; width = width < 90 ? width + 1 : width + 70) {
            for (const std::size_t height : {1u, 2u, 3u, 4u, 5u, 24u, 100u}) {
                view.width = width;
                view.height = height;
                view.scroll = 1000;
                const std::string screen = Screen(seconds(10));
                EXPECT_EQ(std::count(screen.begin(), screen.end(), '\n'), long(height));
            }
        }
    }
    view.width = 1;
    view.height = 1;
    view.unicode = false;
    EXPECT_EQ(Screen(seconds(10)), "~\n");
}

TEST_F(MonitorScreenTest, SaysThatNothingCame)
{
    EXPECT_EQ(Line(0), "tarn monitor socketcan:can0  0 rows  0.0/s  load 0.0%  by source");
    EXPECT_EQ(Line(2), "no message yet");
    Take("0F840281#20", seconds(0));
    view.filter = "nothing like that";
    EXPECT_EQ(Line(0), "tarn monitor socketcan:can0  0 of 1 row  0.0/s  load 0.0%  by source");
    EXPECT_EQ(Line(2), "no row has the filter's text");
}

TEST_F(MonitorScreenTest, TellsWhatWasLost)
{
    model = tool::MonitorModel(filter, nullptr, 1);
    Take("0F840281#20", seconds(0));
    Take("0F840381#20", seconds(0));
    bus.overflows = 3;
    bus.counters.droppedByKernel = 4;
    view.width = 120;
    EXPECT_EQ(Line(0), "tarn monitor socketcan:can0  3 LOST  4 DROPPED BY THE KERNEL  1 WITHOUT A "
                       "ROW  1 row  0.0/s  load 0.0%  by source");
    EXPECT_EQ(CellAt(29, 0, seconds(10)).style, CellGrid::STYLE_BAD);
}

TEST_F(MonitorScreenTest, MarksWhatChangedForASecond)
{
    Take("0F044089#003000C050", seconds(0)); // 1.5 -2, OPERATING
    Take("0F044089#003000B050", seconds(5)); // 1.5 -2.5
    const std::string line = Line(2, seconds(5));
    const std::size_t first = line.find("1.5");
    const std::size_t second = line.find("-2.5");
    const std::size_t status = line.find("OPERATING");
    EXPECT_EQ(CellAt(first, 2, seconds(5)).style, CellGrid::STYLE_PLAIN);
    EXPECT_EQ(CellAt(second, 2, seconds(5)).style, CellGrid::STYLE_CHANGED);
    EXPECT_EQ(CellAt(status, 2, seconds(5)).style, CellGrid::STYLE_GOOD);
    EXPECT_EQ(CellAt(status, 2, milliseconds(999)).style, CellGrid::STYLE_CHANGED);
    EXPECT_EQ(CellAt(second, 2, seconds(6)).style, CellGrid::STYLE_PLAIN);
    EXPECT_EQ(CellAt(second, 2, seconds(66)).style, CellGrid::STYLE_DIM);
}

TEST_F(MonitorScreenTest, SortsAndReverses)
{
    TakeSome();
    Take("0F840281#20", milliseconds(9900));
    Type(U"s");
    EXPECT_THAT(Line(0), HasSubstr("by rate"));
    EXPECT_THAT(Line(2), HasSubstr("5 -> 1 ")); // 1.0 a second
    Type(U"s");
    EXPECT_THAT(Line(0), HasSubstr("by age"));
    EXPECT_THAT(Line(2), HasSubstr("1 -> 5 ")); // 0.1 s old
    Type(U"s");
    EXPECT_THAT(Line(0), HasSubstr("by count"));
    EXPECT_THAT(Line(1), HasSubstr("count"));
    EXPECT_THAT(Line(2), HasSubstr("5 -> 1 ")); // 9 of them
    Type(U"r");
    EXPECT_THAT(Line(0), HasSubstr("by count, reversed"));
    EXPECT_THAT(Line(5), HasSubstr("5 -> 1 "));
    Type(U"s");
    EXPECT_THAT(Line(0), HasSubstr("by source, reversed"));
    EXPECT_THAT(Line(2), HasSubstr("ABCDEF0 "));
}

TEST_F(MonitorScreenTest, FiltersByAllThatARowShows)
{
    TakeSome();
    Type(U"/failrq"); // would reverse and quit, were they no text
    EXPECT_THAT(Line(0), HasSubstr("0 of 4 rows"));
    EXPECT_THAT(Line(23), HasSubstr("filter: failrq_"));
    Press(MonitorKey::BACKSPACE);
    Press(MonitorKey::BACKSPACE);
    Type(U"ure");
    EXPECT_THAT(Line(0), HasSubstr("1 of 4 rows"));
    EXPECT_THAT(Line(2), HasSubstr("9 -> 1 "));
    Press(MonitorKey::ENTER);
    EXPECT_THAT(Line(23), HasSubstr("filter: failure  Esc drops it  q quit"));
    Press(MonitorKey::ESCAPE);
    EXPECT_THAT(Line(0), HasSubstr("  4 rows"));
    Type(U"f0x11");
    EXPECT_THAT(Line(0), HasSubstr("1 of 4 rows"));
    Press(MonitorKey::ESCAPE);
    Type(U"/1205");
    EXPECT_THAT(Line(0), HasSubstr("0 of 4 rows"));
    Press(MonitorKey::ESCAPE);
    Type(U"/12345678");
    EXPECT_THAT(Line(2), HasSubstr("ABCDEF0 "));
}

TEST_F(MonitorScreenTest, TheSelectionStaysWithItsRow)
{
    for (unsigned int at = 0; at < 50; ++at) {
        const std::string digits = std::to_string(10 + at);
        Take("1ABCD0" + digits + "#78563412050220", seconds(0));
    }
    EXPECT_FALSE(CellAt(0, 2, seconds(1)).isSelected);
    Press(MonitorKey::DOWN);
    EXPECT_TRUE(CellAt(0, 2, seconds(1)).isSelected);
    Press(MonitorKey::END);
    EXPECT_THAT(Line(22), HasSubstr("ABCD059"));
    EXPECT_TRUE(CellAt(0, 22, seconds(1)).isSelected);
    Press(MonitorKey::UP);
    EXPECT_TRUE(CellAt(0, 21, seconds(1)).isSelected);
    Type(U"r");
    EXPECT_TRUE(CellAt(0, 2, seconds(1)).isSelected);
    EXPECT_THAT(Line(2), HasSubstr("ABCD058"));
    Press(MonitorKey::PAGE_DOWN); // 21 rows
    EXPECT_THAT(Line(22), HasSubstr("ABCD037"));
    EXPECT_TRUE(CellAt(0, 22, seconds(1)).isSelected);
    view.height = 10;
    EXPECT_THAT(Line(8), HasSubstr("ABCD037"));
    Press(MonitorKey::HOME);
    EXPECT_THAT(Line(2), HasSubstr("ABCD059"));
    model.Clear();
    EXPECT_EQ(Line(2), "no message yet");
    Press(MonitorKey::DOWN);
    Press(MonitorKey::ENTER);
    EXPECT_EQ(Line(2), "no message yet");
}

TEST_F(MonitorScreenTest, OpensARow)
{
    TakeSome();
    Press(MonitorKey::DOWN);
    Press(MonitorKey::DOWN);
    Press(MonitorKey::ENTER);
    EXPECT_EQ(Screen(seconds(10)),
              R"(tarn monitor socketcan:can0  4 rows  0.8/s  load 0.1%  by source
5 -> 1  16 (0x10)                      changes, the last one first
Type:            DATA                  17:05:30.000000  OPERATING  U16 128
Priority:        DATA                  17:05:30.000000  OPERATING  U16 112
Addressing:      DEVICE                17:05:30.000000  OPERATING  U16 96
AccessType:      READ                  17:05:30.000000  OPERATING  U16 80
Direction:       RESPONSE              17:05:30.000000  OPERATING  U16 64
AddressingMode:  STANDARD              17:05:30.000000  OPERATING  U16 48
Register:        16                    17:05:30.000000  OPERATING  U16 32
TargetAddr:      01                    17:05:30.000000  OPERATING  U16 16
SourceAddr:      05                    17:05:22.200000  OPERATING  U16 1205
Module:          00
Status:          OPERATING
DataType:        U16
Data(1) :  0x0080 -
Raw-Header : f040085
Raw-Data(2) :  - 0x80() - 0x00()
128
9 messages, 1.0/s, 1.8s ago
value                          ▅▁▁▂▂



q quit  p pause  Esc back  Tab bus  h help
)");
    view.width = 50;
    view.height = 12;
    Press(MonitorKey::END);
    EXPECT_THAT(Line(10), HasSubstr("17:05:22.200000  OPERATING  U16 1205"));
    Press(MonitorKey::PAGE_UP);
    EXPECT_THAT(Line(10), HasSubstr("changes, the last one first"));
    model.Clear();
    EXPECT_EQ(Line(1), "this row is gone");
    Press(MonitorKey::ESCAPE);
    EXPECT_EQ(view.page, MonitorView::PAGE_ROWS);
}

TEST_F(MonitorScreenTest, ShowsTheBus)
{
    TakeSome();
    Take("(1609779930) 20000204#0008000000008001", seconds(9));
    bus.state = "error-passive";
    bus.isBitRateAssumed = true;
    bus.overflows = 3;
    bus.counters.received = 13;
    Press(MonitorKey::TAB);
    EXPECT_EQ(Screen(seconds(10)),
              R"(tarn monitor socketcan:can0  3 LOST  4 rows  1.0/s  load 0.1%  1 error frame  b…
bus             socketcan:can0
state           error-passive
bit rate        125 kbit/s, assumed: see --bitrate
load            0.1%, without stuff bits
peak            0.3%, 4 frames, in the busiest second of the last minute
last minute                                                       █▃▃▃▃▃▃▃▃
frames          13, 1.0 a second
messages        12 messages in rows, 1 not Tarn (1 error frame)
rows            4
ledger          13 received, 0 dropped by the kernel
lost            3 came faster than they could be counted
error counters  transmit 128, receive 1
error frames    1
  17:05:30.000000  controller: transmit error warning; counters: transmit 128,
    receive 1







q quit  p pause  Tab or Esc rows  h help
)");
    Press(MonitorKey::TAB);
    EXPECT_THAT(Line(1), HasSubstr("from -> to"));
}

TEST_F(MonitorScreenTest, TheLoadGoesByTheBitRate)
{
    for (unsigned int at = 0; at < 50; ++at)
        Take("0F840281#20", milliseconds(at)); // 75 bits each
    bus.bitRate = 10000;
    EXPECT_THAT(Line(0, seconds(1)), HasSubstr("  load 37.5%  "));
}

TEST_F(MonitorScreenTest, KeysAskForWhatTheViewCannotDo)
{
    EXPECT_EQ(PressKey({MonitorKey::CHARACTER, U'q'}), tool::ACTION_QUIT);
    EXPECT_EQ(PressKey({MonitorKey::CHARACTER, U'c'}), tool::ACTION_CLEAR);
    EXPECT_EQ(PressKey({MonitorKey::REDRAW, 0}), tool::ACTION_REDRAW);
    EXPECT_EQ(PressKey({MonitorKey::CHARACTER, U' '}), tool::ACTION_PAUSE);
    EXPECT_THAT(Line(0), HasSubstr("PAUSED"));
    EXPECT_EQ(PressKey({MonitorKey::CHARACTER, U'p'}), tool::ACTION_PAUSE);
    EXPECT_THAT(Line(0), Not(HasSubstr("PAUSED")));
    Type(U"?");
    EXPECT_EQ(Line(1), "keys");
}

TEST_F(MonitorScreenTest, HasNamesAndUnits)
{
    const tool::Installation plant =
        tool::ReadInstallation(PROJECT_DIRECTORY "/examples/installations/pump-station.json");
    model = tool::MonitorModel(filter, &plant);
    Take("0F040085#B50459", seconds(0));
    Take("0FC40281#2003", seconds(0));
    Take("0F440085#6558005803", seconds(0)); // more values than the register has
    Take("0D840081#20", seconds(0));
    Take("100ABCDE#78563412050220", seconds(0));
    view.width = 120;
    EXPECT_THAT(Line(2), testing::StartsWith("controller -> pump.drive    temperature R req "));
    EXPECT_THAT(Line(3), HasSubstr("controller -> all actuators"));
    EXPECT_THAT(Line(4), HasSubstr("pump -> controller"));
    EXPECT_THAT(Line(4), HasSubstr("actual=120.5 rpm"));
    EXPECT_THAT(Line(5), testing::StartsWith("pump.drive -> controller    temperature R rsp "));
    EXPECT_THAT(Line(5), HasSubstr(" 101 88 0 "));
    EXPECT_THAT(Line(6), HasSubstr("00ABCDE pump"));
}

TEST_F(MonitorScreenTest, NoTextReachesTheTerminalAsACommand)
{
    // C1 control characters and bidirectional marks are letters to whoever knows ASCII only.
    const tool::Installation plant = tool::ParseInstallation(
        "hostile.json", "{\"devices\": [{\"name\": \"a\xC2\x9B"
                        "2Jb\", \"address\": 5, \"registers\": [{\"name\": \"x\xE2\x80\xAEy\", "
                        "\"register\": 16, \"type\": \"U16\", \"values\": [{\"name\": "
                        "\"v\xC2\x90z\", \"unit\": \"\xC2\x9Dk\"}]}]}]}");
    model = tool::MonitorModel(filter, &plant);
    bus.name = "log:\x1b]0;title\x07";
    Take("0F040085#B50459", seconds(0));
    EXPECT_THAT(Line(0), testing::StartsWith("tarn monitor log:?]0;title?  1 row"));
    EXPECT_THAT(Line(2), testing::StartsWith("a?2Jb -> 1 x?y "));
    EXPECT_THAT(Line(2), HasSubstr("v?z=1205 ?k"));
    Press(MonitorKey::ENTER);
    const std::string screen = Screen(seconds(1));
    EXPECT_THAT(screen, Not(testing::ContainsRegex("[\x01-\x09\x0B-\x1F\x7F]")));
    EXPECT_THAT(screen, Not(HasSubstr("\xC2\x9B")));
}

} // namespace
