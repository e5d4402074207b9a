#ifndef TARN_BENCH_LATENCY_H
#define TARN_BENCH_LATENCY_H

namespace bench
{

/// Prints, as a table, the microseconds from frame to handler on a threaded virtual bus.
void ReportLatencies();

} // namespace bench

#endif
