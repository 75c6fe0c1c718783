#include <benchmark/benchmark.h>

#include <exception>
#include <iostream>

#include "Support/Suites.h"

/// Google Benchmark's options; registers every case of this directory. Ends with 1 when the literal version
/// and the engine disagree.
int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    try {
        Tavrin::Player::Bench::AddAllCases();
        benchmark::RunSpecifiedBenchmarks();
        // What the cases keep must go before the samples that it holds do, at the end of the program.
        benchmark::ClearRegisteredBenchmarks();
    } catch (const std::exception& e) {
        std::cerr << e.what() << std::endl;
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}
