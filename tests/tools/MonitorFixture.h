#ifndef TESTS_TOOLS_MONITOR_FIXTURE_H
#define TESTS_TOOLS_MONITOR_FIXTURE_H

#include "MonitorModel.h"
#include "MonitorScreen.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace tarn::test
{

using std::chrono::milliseconds;
using std::chrono::seconds;

/// A monitor without bus and terminal.
class MonitorFixture : public testing::Test
{
protected:
    /// Takes a frame in the form of candump.
    void Take(const std::string& text, tool::Duration now)
    {
        CandumpLine line;
        ASSERT_TRUE(ParseCandumpLine(text.data(), text.size(), line)) << text;
        model.Take(line, now);
    }

    /// The row at a place; there is one.
    const tool::MonitorRow& Row(std::size_t at = 0) const
    {
        auto row = model.GetRows().begin();
        std::advance(row, static_cast<std::ptrdiff_t>(at));
        return row->second;
    }

    /// The whole screen as text.
    std::string Screen(tool::Duration now)
    {
        const tool::CellGrid grid = tool::RenderMonitor({model, bus, now}, view);
        std::string text;
        for (std::size_t row = 0; row < grid.GetHeight(); ++row)
            text += grid.TextOf(row) + '\n';
        return text;
    }

    tool::MessageFilter filter;
    tool::MonitorModel model{filter, nullptr};
    tool::MonitorBus bus;
    tool::MonitorView view;
};

} // namespace tarn::test

#endif
