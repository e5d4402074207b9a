#include "dispatch/HandlerFamilies.h"
#include "support/DispatchFakes.h"
#include "support/LogCapture.h"
#include "support/OwnProcess.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>

#include <gtest/gtest.h>

#include <string>

// Subscribing never stores a null handler, so these tests put it into the lists themselves.

namespace
{

using namespace tarn;
using namespace tarn::test;

template <typename Dispatcher>
void PutNullInFront(Dispatcher& dispatcher)
{
    HandlerFamilies::Source::Lists(dispatcher)[5].push_front(nullptr);
    HandlerFamilies::Target::Lists(dispatcher)[9].push_front(nullptr);
    HandlerFamilies::Chcp::Lists(dispatcher)->push_front(nullptr);
    HandlerFamilies::All::Lists(dispatcher)->push_front(nullptr);
}

/// Dispatches a DATA and a CHCP frame to lists that begin and end with null; the lines of it, and
/// the calls of dispatching again, when the null entries must be gone.
template <typename Dispatcher>
std::string DispatchOverNull(Dispatcher& dispatcher, LogCapture& capture)
{
    std::string calls;
    RecordingHandler source("S", calls);
    RecordingHandler target("T", calls);
    RecordingHandler chcp("C", calls);
    RecordingHandler all("A", calls);
    dispatcher.SubscribeSource(5, &source);
    dispatcher.SubscribeTarget(9, &target);
    dispatcher.SubscribeChcp(&chcp);
    dispatcher.SubscribeAll(&all);
    HandlerFamilies::Source::Lists(dispatcher)[5].push_back(nullptr);
    PutNullInFront(dispatcher);
    CanMessage data = DataFrame(5, 9);
    CanMessage configuration = ChcpFrame(0x1234585);
    capture.Take();
    dispatcher.DispatchResponse(data);
    PutNullInFront(dispatcher);
    dispatcher.DispatchResponse(configuration);
    const std::string lines = capture.Take();
    EXPECT_EQ(HandlerFamilies::Chcp::Lists(dispatcher)->size(), 1u);
    return lines + calls;
}

/// What a log line says behind its operation.
std::string WithoutPrefixes(const std::string& lines)
{
    std::string text;
    std::size_t start = 0;
    for (std::size_t end = 0; (end = lines.find('\n', start)) != std::string::npos; start = end + 1)
        text +=
            lines.substr(lines.find("() - ", start) + 5, end + 1 - lines.find("() - ", start) - 5);
    return text + lines.substr(start);
}

TEST(NullEntries, AreDroppedByTheDispatcherWithALineForEach)
{
    const std::string text = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Poco::Message::PRIO_TRACE);
        const auto dispatcher =
            TarnAsyncDispatcher::Create(std::tr1::shared_ptr<iCanAsyncDispatcher>());
        return DispatchOverNull(*dispatcher, *capture);
    });
    // The second CHCP entry is the one that the first round, a DATA frame, did not come by.
    EXPECT_EQ(WithoutPrefixes(text), "ENTER\n"
                                     "Can-Msg : 0F000485#50\n"
                                     "Removing invalid Handler for SourceAddr=5\n"
                                     "Dispatching Response for SourceAddr=5\n"
                                     "Removing invalid Handler for SourceAddr=5\n"
                                     "Removing invalid Handler for TargetAddr=9\n"
                                     "Dispatching Response for TargetAddr=9\n"
                                     "Removing invalid Handler for Tarn-Message5\n"
                                     "Dispatching Response for Tarn-Message\n"
                                     "EXIT\n"
                                     "ENTER\n"
                                     "Removing invalid Handler for Chcp-Message5\n"
                                     "Removing invalid Handler for Chcp-Message5\n"
                                     "Dispatching Response for Chcp-Message\n"
                                     "Removing invalid Handler for Tarn-Message5\n"
                                     "Dispatching Response for Tarn-Message\n"
                                     "EXIT\n"
                                     "STACA");
}

TEST(NullEntries, AreDroppedByTheMockSilently)
{
    const std::string text = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Poco::Message::PRIO_TRACE);
        return DispatchOverNull(*TarnAsyncDispatcherMock::Create(), *capture);
    });
    EXPECT_EQ(WithoutPrefixes(text), "ENTER\n"
                                     "Can-Msg : 0F000485#50\n"
                                     "Dispatching Response for SourceAddr=5\n"
                                     "Dispatching Response for TargetAddr=9\n"
                                     "EXIT\n"
                                     "ENTER\n"
                                     "Dispatching Response for Chcp-Message\n"
                                     "EXIT\n"
                                     "STC");
}

} // namespace
