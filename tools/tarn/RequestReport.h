#ifndef TARN_TOOLS_REQUEST_REPORT_H
#define TARN_TOOLS_REQUEST_REPORT_H

#include "Installation.h"
#include "LatencyStatistics.h"
#include "OutputBuffer.h"
#include "Requester.h"
#include "iMessagePrinter.h"

#include <memory>
#include <string>

namespace tarn::tool
{

/// Shows what became of requests.
class iRequestReport
{
public:
    virtual ~iRequestReport() = default;

    virtual void Begin(OutputBuffer&) {}
    virtual void Take(const RequestResult& result, OutputBuffer& out) = 0;
    virtual void End(OutputBuffer&) {}
};

/// The reports below may be given names, which must outlive them; null for none.

/// The values alone, for scripts, with their names and units where these are known; a status other
/// than OPERATING on standard error.
std::unique_ptr<iRequestReport> MakeValueReport(bool quiet, const Installation* names);

/// A line a request.
std::unique_ptr<iRequestReport> MakeTableReport(const Installation* names);

/// The answers as messages, in one of the forms of 'tarn decode'.
std::unique_ptr<iRequestReport> MakeMessageReport(std::unique_ptr<iMessagePrinter> printer,
                                                  const std::string& bus);

/// What is counted of all requests.
class RequestCount
{
public:
    void Add(const RequestResult& result);

    bool WasLost() const { return mLost > 0; }
    bool WasRefused() const { return mRefused > 0; }

    /// "100 requests, 1 lost; minimum 1.2 ms, ..." and a histogram.
    std::string Summary() const;

private:
    LatencyStatistics mLatencies;
    std::uint64_t mLost = 0;
    std::uint64_t mRefused = 0;
};

/// "device 9 register 17", "device 9.3 register 17".
std::string DescribeTarget(const TarnMessage& request);

} // namespace tarn::tool

#endif
