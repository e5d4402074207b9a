#include "RequestReport.h"

#include "MessageNames.h"
#include "Words.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tarn::tool
{

namespace
{

constexpr std::size_t TARGET_WIDTH = 8;
constexpr std::size_t REGISTER_WIDTH = 10;
constexpr std::size_t STATUS_WIDTH = 27;
constexpr std::size_t TYPE_WIDTH = 5;
constexpr std::size_t TIME_WIDTH = 8;
constexpr std::string_view GAP = "  ";

MessageFields FieldsOf(const TarnMessage& message)
{
    MessageFields fields;
    ReadFields(message, message.RawMessage(), fields);
    return fields;
}

/// The device says that it did not do what it was asked for.
bool IsRefusal(const TarnMessage& response)
{
    return response.GetRStatus() >= TarnMessage::STATUS_RESOURCE_NOT_EXISTING;
}

/// "9", "g9", "9.3".
std::string TargetOf(const TarnMessage& request)
{
    const MessageFields fields = FieldsOf(request);
    std::string text = fields.addressing == TarnMessage::ADDRESSING_GROUP ? "g" : "";
    text += std::to_string(fields.target);
    if (fields.addressingMode == TarnMessage::ADDRESSING_MODE_EXTENDED)
        text += '.' + std::to_string(fields.module);
    return text;
}

class ValueReport : public iRequestReport
{
public:
    ValueReport(bool quiet, const Installation* names) : mQuiet(quiet), mNames(names) {}

    void Take(const RequestResult& result, OutputBuffer& out) override
    {
        if (!result.answered)
            return;
        const MessageFields fields = FieldsOf(result.response);
        PutData(fields, NamesOf(mNames, fields), out);
        out.Put('\n');
        if (!mQuiet && fields.status != TarnMessage::STATUS_OPERATING)
            Remark(result, fields.status);
    }

private:
    static void Remark(const RequestResult& result, unsigned int status)
    {
        std::fprintf(stderr, "tarn request: %s: %s with status %s\n",
                     DescribeTarget(result.request).c_str(),
                     IsRefusal(result.response) ? "refused" : "answered",
                     std::string(STATUS_WORDS[status]).c_str());
    }

    bool mQuiet;
    const Installation* mNames;
};

class TableReport : public iRequestReport
{
public:
    explicit TableReport(const Installation* names) : mNames(names)
    {
        if (names == nullptr)
            return;
        for (const InstalledDevice& device : names->devices) {
            mTargetWidth = std::max(mTargetWidth, TARGET_WIDTH + 1 + WidthOf(device.name));
            for (const InstalledRegister& entry : device.registers)
                mRegisterWidth = std::max(mRegisterWidth, REGISTER_WIDTH + 1 + WidthOf(entry.name));
        }
    }

    void Begin(OutputBuffer& out) override
    {
        out.PutLeft("target", mTargetWidth + GAP.size());
        out.PutLeft("register", mRegisterWidth + GAP.size());
        out.PutLeft("status", STATUS_WIDTH + GAP.size());
        out.PutLeft("type", TYPE_WIDTH + GAP.size());
        out.PutLeft("time", TIME_WIDTH + GAP.size());
        out.Put("values\n");
    }

    void Take(const RequestResult& result, OutputBuffer& out) override
    {
        const MessageNames names = NamesOf(mNames, FieldsOf(result.request));
        PutNamed(TargetOf(result.request), TARGET_WIDTH, names.target, mTargetWidth, out);
        PutNamed(RegisterOf(result.request), REGISTER_WIDTH, names.reg, mRegisterWidth, out);
        if (result.answered)
            PutAnswer(result, out);
        else
            out.Put("no answer");
        out.Put('\n');
    }

private:
    /// " 17 (0x11)"
    static std::string RegisterOf(const TarnMessage& request)
    {
        std::array<char, 20> text = {};
        std::snprintf(text.data(), text.size(), "%3u (0x%02X)", request.GetRegister(),
                      request.GetRegister());
        return text.data();
    }

    /// A number and, in what the column has room for beyond, a name.
    static void PutNamed(const std::string& number, std::size_t numberWidth, std::string_view name,
                         std::size_t width, OutputBuffer& out)
    {
        out.PutLeft(number, numberWidth);
        if (width > numberWidth) {
            out.Put(' ');
            out.Put(name);
            out.Fill(' ', width - std::min(width, numberWidth + 1 + WidthOf(name)));
        }
        out.Put(GAP);
    }

    void PutAnswer(const RequestResult& result, OutputBuffer& out) const
    {
        const MessageFields fields = FieldsOf(result.response);
        out.PutLeft(STATUS_WORDS[fields.status], STATUS_WIDTH + GAP.size());
        out.PutLeft(DATA_TYPE_WORDS[fields.dataType], TYPE_WIDTH + GAP.size());
        out.PutLeft(DescribeDuration(result.latency), TIME_WIDTH + GAP.size());
        PutData(fields, NamesOf(mNames, fields), out);
    }

    const Installation* mNames;
    std::size_t mTargetWidth = TARGET_WIDTH;
    std::size_t mRegisterWidth = REGISTER_WIDTH;
};

class MessageReport : public iRequestReport
{
public:
    MessageReport(std::unique_ptr<iMessagePrinter> printer, const std::string& bus)
        : mPrinter(std::move(printer))
    {
        mLine.kind = CandumpLine::KIND_FRAME;
        mLine.timeForm = CandumpLine::TIME_ABSOLUTE;
        mLine.timeDecimals = 6;
        bus.copy(mLine.interfaceName, CandumpLine::INTERFACE_SIZE - 1);
    }

    void Begin(OutputBuffer& out) override { mPrinter->Begin(out); }

    void Take(const RequestResult& result, OutputBuffer& out) override
    {
        if (!result.answered)
            return;
        mLine.frame = result.response.RawMessage();
        mLine.frame.SetTimeStamp(result.time);
        const MessageFields fields = FieldsOf(result.response);
        mPrinter->Print({mLine, result.response, fields, result.latency}, out);
    }

private:
    std::unique_ptr<iMessagePrinter> mPrinter;
    CandumpLine mLine;
};

} // namespace

std::unique_ptr<iRequestReport> MakeValueReport(bool quiet, const Installation* names)
{
    return std::make_unique<ValueReport>(quiet, names);
}

std::unique_ptr<iRequestReport> MakeTableReport(const Installation* names)
{
    return std::make_unique<TableReport>(names);
}

std::unique_ptr<iRequestReport> MakeMessageReport(std::unique_ptr<iMessagePrinter> printer,
                                                  const std::string& bus)
{
    return std::make_unique<MessageReport>(std::move(printer), bus);
}

void RequestCount::Add(const RequestResult& result)
{
    if (!result.answered) {
        ++mLost;
        return;
    }
    mLatencies.Add(result.latency);
    if (IsRefusal(result.response))
        ++mRefused;
}

std::string RequestCount::Summary() const
{
    std::string text = std::to_string(mLatencies.GetCount() + mLost) + " requests, " +
                       std::to_string(mLost) + " lost";
    if (mRefused > 0)
        text += ", " + std::to_string(mRefused) + " refused";
    text += '\n';
    if (mLatencies.GetCount() == 0)
        return text;
    text += "minimum " + DescribeDuration(mLatencies.GetMinimum()) + ", median " +
            DescribeDuration(mLatencies.GetPercentile(50)) + ", 99 % " +
            DescribeDuration(mLatencies.GetPercentile(99)) + ", maximum " +
            DescribeDuration(mLatencies.GetMaximum()) + '\n';
    return text + mLatencies.DrawHistogram();
}

std::string DescribeTarget(const TarnMessage& request)
{
    return "device " + TargetOf(request) + " register " + std::to_string(request.GetRegister());
}

} // namespace tarn::tool
