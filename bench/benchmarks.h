// The groups of measurements.
#ifndef QELI2C_BENCH_BENCHMARKS_H
#define QELI2C_BENCH_BENCHMARKS_H

namespace bench
{

// `scale` is 1 for a measurement, and small for a run that only shows that all of it works.
void add_transfer_benchmarks(double scale);
void add_contention_benchmarks(double scale);
void add_start_benchmarks(double scale);
void add_lookup_benchmarks(double scale); // late: the registry keeps what they look up
// The last: what a process that has had a thread pays stays.
void add_benchmarks_beside_thread(double scale);

} // namespace bench

#endif
