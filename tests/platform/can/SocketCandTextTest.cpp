#include "support/CanFakes.h"
#include "support/CaseName.h"

#include <plexa_can/SocketCandText.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace
{

using namespace tarn;
using testing::ElementsAre;

const char* KindWord(SocketCandElement::tKind kind)
{
    constexpr const char* WORDS[] = {"hi",   "ok",    "open",  "rawmode", "echo",
                                     "send", "frame", "error", "unknown", "malformed"};
    return WORDS[kind];
}

/// "frame 0F800001#20 at 23424242000", "open can0", "malformed: reason"
std::string Described(const SocketCandElement& element)
{
    std::string text = KindWord(element.kind);
    if (element.kind == SocketCandElement::KIND_SEND ||
        element.kind == SocketCandElement::KIND_FRAME)
        text += ' ' + element.frame.ToString();
    if (element.kind == SocketCandElement::KIND_FRAME)
        text += " at " + std::to_string(element.frame.GetTimeStamp());
    if (element.text[0] != '\0')
        text += std::string(" ") + element.text.data();
    if (element.reason[0] != '\0')
        text += std::string(": ") + element.reason;
    return text;
}

std::string Parsed(const std::string& text)
{
    SocketCandElement element;
    const bool understood = ParseSocketCandElement(text.data(), text.size(), element);
    EXPECT_EQ(understood, element.kind != SocketCandElement::KIND_MALFORMED) << text;
    return Described(element);
}

struct ElementCase {
    const char* name;
    std::string text;
    std::string result;
};

void PrintTo(const ElementCase& row, std::ostream* out)
{
    *out << row.text.substr(0, 80);
}

class Element : public testing::TestWithParam<ElementCase>
{
};

TEST_P(Element, IsRead)
{
    EXPECT_EQ(Parsed(GetParam().text), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    SocketCandText, Element,
    testing::Values(
        ElementCase{"Hi", "< hi >", "hi"}, ElementCase{"Ok", "< ok >", "ok"},
        ElementCase{"Tight", "<ok>", "ok"}, ElementCase{"Loose", "<\t ok\r\n >", "ok"},
        ElementCase{"Raw", "< rawmode >", "rawmode"}, ElementCase{"Echo", "< echo >", "echo"},
        ElementCase{"Open", "< open can0 >", "open can0"},
        ElementCase{"OpenAnything", "<open my-bus.1/x >", "open my-bus.1/x"},
        ElementCase{"Send", "< send 123 0 >", "send 123#"},
        ElementCase{"SendTwoBlanks", "< send 123 0  >", "send 123#"},
        ElementCase{"SendShortBytes", "< send 1AAAAAAA 2 1 F1 >", "send 1AAAAAAA#01F1"},
        ElementCase{"SendEight", "< send 7ff 8 0 1 2 3 4 5 6 FF >", "send 7FF#00010203040506FF"},
        ElementCase{"SendShortIdentifier", "< send 1 0 >", "send 001#"},
        ElementCase{"SendAbove7ff", "< send 800 0 >", "send 00000800#"},
        ElementCase{"SendFourDigits", "< send 0123 1 9 >", "send 00000123#09"},
        ElementCase{"SendSevenDigits", "< send F800001 1 20 >", "send 0F800001#20"},
        ElementCase{"SendErrorFrame", "< send 20000004 1 20 >", "send 20000004#20"},
        ElementCase{"SendRemote", "< sendrtr 123 2 >", "send 123#R"},
        ElementCase{"SendRemoteExtended", "< sendrtr 00000123 0 >", "send 00000123#R"},
        ElementCase{"Frame", "< frame 123 23.424242 11223344 >",
                    "frame 123#11223344 at 23424242000"},
        ElementCase{"FrameWithBlanks", "< frame 123 23.424242 11 22 33 44 >",
                    "frame 123#11223344 at 23424242000"},
        ElementCase{"FrameWithout", "< frame 0F800001 1609779922.655421  >",
                    "frame 0F800001# at 1609779922655421000"},
        ElementCase{"FrameOfNanoseconds", "< frame 1 0.000000001 >", "frame 001# at 1"},
        ElementCase{"FrameOfTenths", "< frame 1 1.5 >", "frame 001# at 1500000000"},
        ElementCase{"Remote", "< rtr 123 23.424242 4 >", "frame 123#R at 23424242000"},
        ElementCase{"ErrorFrame", "< error 004 23.424242 >", "frame 20000004# at 23424242000"},
        ElementCase{"ErrorFrameWithMark", "< error 20000040 23.424242 >",
                    "frame 20000040# at 23424242000"},
        ElementCase{"ErrorFrameWithData", "< error 004 1.000000 0020000000008807 >",
                    "frame 20000004#0020000000008807 at 1000000000"},
        ElementCase{"Complaint", "< error unknown command >", "error unknown command"},
        ElementCase{"ComplaintThatBeginsAsANumber", "< error bad 1.x >", "error bad 1.x"},
        ElementCase{"ComplaintOfNothing", "< error >", "error"},
        ElementCase{"Unknown", "< fdframe 123 0 1.0 11 >", "unknown fdframe"},
        ElementCase{"UpperCase", "< HI >", "unknown HI"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    SocketCandRefused, Element,
    testing::Values(
        ElementCase{"Nothing", "", "malformed: not between '<' and '>'"},
        ElementCase{"OneBracket", "<", "malformed: not between '<' and '>'"},
        ElementCase{"NoBrackets", "hi", "malformed: not between '<' and '>'"},
        ElementCase{"Empty", "<>", "malformed: no command between the brackets"},
        ElementCase{"Blank", "<  >", "malformed: no command between the brackets"},
        ElementCase{"TooLong", '<' + std::string(255, 'x') + '>',
                    "malformed: longer than 256 characters"},
        ElementCase{"Zero", std::string("< h\0 >", 6),
                    "malformed: a character that is not printable, or a bracket"},
        ElementCase{"Foreign", "< h\xC3\xBC >",
                    "malformed: a character that is not printable, or a bracket"},
        ElementCase{"Nested", "< send < echo >",
                    "malformed: a character that is not printable, or a bracket"},
        ElementCase{"More", "< echo echo >", "malformed: the command takes nothing more"},
        ElementCase{"OpenNothing", "< open >",
                    "malformed: a bus has a name of 1 to 64 printable characters"},
        ElementCase{"OpenLongName", "< open " + std::string(65, 'b') + " >",
                    "malformed: a bus has a name of 1 to 64 printable characters"},
        ElementCase{"OpenTwo", "< open a b >", "malformed: more than the name of one bus"},
        ElementCase{"SendNothing", "< send >",
                    "malformed: the identifier is no number of 1 to 8 hexadecimal digits"},
        ElementCase{"SendNoNumber", "< send 12G 0 >",
                    "malformed: the identifier is no number of 1 to 8 hexadecimal digits"},
        ElementCase{"SendNineDigits", "< send 000000123 0 >",
                    "malformed: the identifier is no number of 1 to 8 hexadecimal digits"},
        ElementCase{"SendHighIdentifier", "< send 40000000 0 >",
                    "malformed: the identifier is above 1FFFFFFF"},
        ElementCase{"SendNoLength", "< send 123 >",
                    "malformed: the length is no number from 0 to 8"},
        ElementCase{"SendNine", "< send 123 9 1 2 3 4 5 6 7 8 9 >",
                    "malformed: the length is no number from 0 to 8"},
        ElementCase{"SendNegative", "< send 123 -1 >",
                    "malformed: the length is no number from 0 to 8"},
        ElementCase{"SendFewer", "< send 123 2 1 >",
                    "malformed: not as many bytes of 1 or 2 hexadecimal digits as the length says"},
        ElementCase{"SendLongByte", "< send 123 1 123 >",
                    "malformed: not as many bytes of 1 or 2 hexadecimal digits as the length says"},
        ElementCase{"SendMore", "< send 123 1 1 2 >", "malformed: more bytes than the length says"},
        ElementCase{"SendRemoteError", "< sendrtr 20000004 0 >",
                    "malformed: an error frame is no remote request"},
        ElementCase{"RemoteError", "< rtr 20000004 1.0 0 >",
                    "malformed: an error frame is no remote request"},
        ElementCase{"RemoteWithBytes", "< rtr 123 1.0 1 FF >",
                    "malformed: a remote request has no bytes"},
        ElementCase{"FrameNoTime", "< frame 123 >", "malformed: the time is not SECONDS.FRACTION"},
        ElementCase{"FrameOddTime", "< frame 123 1,5 >",
                    "malformed: the time is not SECONDS.FRACTION"},
        ElementCase{"FrameLongTime", "< frame 123 12345678901.0 >",
                    "malformed: the time is not SECONDS.FRACTION"},
        ElementCase{"FrameTenDecimals", "< frame 123 1.0123456789 >",
                    "malformed: the time is not SECONDS.FRACTION"},
        ElementCase{"FrameHalfByte", "< frame 123 1.0 112 >",
                    "malformed: a byte has not two hexadecimal digits"},
        ElementCase{"FrameNoByte", "< frame 123 1.0 GG >",
                    "malformed: a byte has not two hexadecimal digits"},
        ElementCase{"FrameNine", "< frame 123 1.0 112233445566778899 >",
                    "malformed: more than 8 bytes"}),
    support::CaseName());

/// What a stream holds, when it comes in pieces of so many characters.
std::vector<std::string> Streamed(const std::string& text, std::size_t piece)
{
    SocketCandReader reader;
    SocketCandElement element;
    std::vector<std::string> found;
    for (std::size_t from = 0; from < text.size(); from += piece) {
        const std::string part = text.substr(from, piece);
        const char* at = part.data();
        while (reader.Next(at, part.data() + part.size(), element))
            found.push_back(Described(element));
    }
    return found;
}

TEST(SocketCandStream, MayBeCutAndJoinedAnywhere)
{
    const std::string text = "< hi >< ok >\n<send 1 1 FF>  < frame 0F800001 1.0  >< e";
    for (std::size_t piece = 1; piece <= text.size(); ++piece) {
        EXPECT_THAT(Streamed(text, piece),
                    ElementsAre("hi", "ok", "send 001#FF", "frame 0F800001# at 1000000000"))
            << "pieces of " << piece;
    }
}

TEST(SocketCandStream, TellsOfWhatStandsInNoBracketsOnce)
{
    EXPECT_THAT(Streamed("GET / HTTP/1.1\r\n\r\n< echo >> >x< hi >", 5),
                ElementsAre("malformed: characters that stand in no brackets", "echo",
                            "malformed: characters that stand in no brackets", "hi"));
}

TEST(SocketCandStream, PassesOverAnEndlessElement)
{
    const std::string text = "< open " + std::string(100000, 'x') + "< hi >< ok >";
    EXPECT_THAT(Streamed(text, 4096), ElementsAre("malformed: longer than 256 characters", "ok"));
    EXPECT_THAT(Streamed('<' + std::string(254, ' ') + ">< ok >", 100),
                ElementsAre("malformed: no command between the brackets", "ok"));
    EXPECT_THAT(Streamed('<' + std::string(255, ' ') + ">< ok >", 100),
                ElementsAre("malformed: longer than 256 characters", "ok"));
}

TEST(SocketCandStream, ForgetsABegunElement)
{
    SocketCandReader reader;
    SocketCandElement element;
    const std::string begun = "< se";
    const std::string next = "< hi >";
    const char* at = begun.data();
    EXPECT_FALSE(reader.Next(at, at + begun.size(), element));
    reader.Reset();
    at = next.data();
    ASSERT_TRUE(reader.Next(at, at + next.size(), element));
    EXPECT_EQ(Described(element), "hi");
}

CanMessage Frame(unsigned int header, unsigned int flags, const std::vector<unsigned char>& data)
{
    CanMessage frame;
    frame.SetHeader(header);
    frame.GetFlags() = flags;
    frame.SetData(data);
    frame.SetTimeStamp(1609779922000042999ull);
    return frame;
}

std::string AsFrame(const CanMessage& frame)
{
    std::string text;
    AppendSocketCandFrame(frame, text);
    return text;
}

std::string AsSend(const CanMessage& frame)
{
    std::string text;
    AppendSocketCandSend(frame, text);
    return text;
}

TEST(SocketCandText, WritesFramesOfTheBus)
{
    EXPECT_EQ(AsFrame(Frame(0x0F800001, 1, {0x20, 0xFF})),
              "< frame 0F800001 1609779922.000042 20FF >");
    EXPECT_EQ(AsFrame(Frame(0x123, 1, {})), "< frame 00000123 1609779922.000042  >");
    EXPECT_EQ(AsFrame(Frame(0x1, 0, {1, 2, 3, 4, 5, 6, 7, 8})),
              "< frame 001 1609779922.000042 0102030405060708 >");
    EXPECT_EQ(AsFrame(Frame(0xFFFFFFFF, 1, {})), "< frame 1FFFFFFF 1609779922.000042  >");
    EXPECT_EQ(AsFrame(Frame(0xFFFFFFFF, 0, {})), "< frame 7FF 1609779922.000042  >");
    EXPECT_EQ(AsFrame(Frame(0x123, 3, {})), "< rtr 00000123 1609779922.000042 0 >");
    EXPECT_EQ(AsFrame(Frame(0x123, 2, {})), "< rtr 123 1609779922.000042 0 >");
    EXPECT_EQ(AsFrame(Frame(0x4, 4, {})), "< error 004 1609779922.000042 >");
    EXPECT_EQ(AsFrame(Frame(0x1004, 4, {0, 0x20})), "< error 00001004 1609779922.000042 0020 >");
}

TEST(SocketCandText, WritesFramesForTheBus)
{
    EXPECT_EQ(AsSend(Frame(0x0F800001, 1, {0x20, 0x01})), "< send 0F800001 2 20 01 >");
    EXPECT_EQ(AsSend(Frame(0x123, 1, {})), "< send 00000123 0 >");
    EXPECT_EQ(AsSend(Frame(0x123, 0, {0})), "< send 123 1 00 >");
    EXPECT_EQ(AsSend(Frame(0x123, 2, {})), "< sendrtr 123 0 >");
    EXPECT_EQ(AsSend(Frame(0x123, 3, {})), "< sendrtr 00000123 0 >");
    EXPECT_EQ(AsSend(Frame(0x4, 4, {1})), "< send 20000004 1 01 >");
}

TEST(SocketCandText, WritesComplaintsThatStayOneElement)
{
    std::string text;
    AppendSocketCandError("no <bus>\n\"x\"", text);
    EXPECT_EQ(text, "< error no ?bus??\"x\" >");
    text.clear();
    AppendSocketCandError(std::string(1000, 'y'), text);
    EXPECT_EQ(Parsed(text), "error " + std::string(240, 'y'));
}

TEST(SocketCandText, KnowsWhatCanBeTheNameOfABus)
{
    EXPECT_TRUE(IsSocketCandBusName("can0"));
    EXPECT_TRUE(IsSocketCandBusName(std::string(64, 'b')));
    EXPECT_FALSE(IsSocketCandBusName(""));
    EXPECT_FALSE(IsSocketCandBusName(std::string(65, 'b')));
    EXPECT_FALSE(IsSocketCandBusName("a b"));
    EXPECT_FALSE(IsSocketCandBusName("a>b"));
    EXPECT_FALSE(IsSocketCandBusName("Pr\xC3\xBC"
                                     "f"));
}

} // namespace
