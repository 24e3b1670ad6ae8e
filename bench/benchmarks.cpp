// What the library costs, beside other ways to the same end:
//
//     qeli2c-bench [--smoke] [options of Google Benchmark]
//
// --smoke does everything once or twice, which measures nothing.
#include "benchmarks.h"
#include "ways.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>

int main(int argc, char **argv)
{
    double scale = 1;
    if (argc > 1 && strcmp(argv[1], "--smoke") == 0) {
        scale = 0;
        argv[1] = argv[0];
        argv++;
        argc--;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    if (!bench::prepare_ways()) {
        std::perror("qeli2c-bench");
        return 1;
    }
    bench::add_transfer_benchmarks(scale);
    bench::add_contention_benchmarks(scale);
    bench::add_start_benchmarks(scale);
    bench::add_lookup_benchmarks(scale);
    bench::add_benchmarks_beside_thread(scale);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
