#include "MonitorModel.h"

namespace tarn::tool
{

MonitorModel::MonitorModel(const MessageFilter& filter, const Installation* names,
                           std::size_t mostRows)
    : mFilter(&filter),
      mNames(names),
      mMostRows(mostRows)
{
}

void MonitorModel::Take(CandumpLine& line, Duration now)
{
    mTraffic.Take(line.frame, now);
    const tLineFate fate = FateOf(line);
    if (fate != LINE_SHOWN)
        return mAccount.Add(fate);
    const TarnMessage message(line.frame);
    if (!message)
        return mAccount.Add(LINE_TOO_SHORT);
    TakeMessage(line.frame, message, now);
}

void MonitorModel::TakeMessage(const CanMessage& frame, const TarnMessage& message, Duration now)
{
    ReadFields(message, frame, mFields);
    if (!mFilter->Passes(mFields))
        return mAccount.Add(LINE_FILTERED);
    MonitorRow* const row = RowFor(mFields);
    if (row == nullptr) {
        ++mWithoutRow;
        return;
    }
    row->Take(frame, mFields, now);
    mAccount.Add(LINE_SHOWN);
}

MonitorRow* MonitorModel::RowFor(const MessageFields& fields)
{
    const MonitorRowKey key = KeyOf(fields);
    const auto found = mRows.find(key);
    if (found != mRows.end())
        return &found->second;
    if (mRows.size() == mMostRows)
        return nullptr;
    return &mRows.emplace(key, MonitorRow(fields, mNames)).first->second;
}

std::string MonitorModel::Summary() const
{
    std::string text = std::to_string(CountInRows()) + " messages in rows";
    if (mWithoutRow > 0)
        text += ", " + std::to_string(mWithoutRow) + " without a row (" +
                std::to_string(mMostRows) + " is the most)";
    if (mAccount[LINE_FILTERED] > 0)
        text += ", " + std::to_string(mAccount[LINE_FILTERED]) + " filtered out";
    return text + ", " + mAccount.NotTarn();
}

} // namespace tarn::tool
