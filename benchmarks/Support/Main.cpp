#include <benchmark/benchmark.h>

#include <condition_variable>
#include <exception>
#include <iostream>
#include <mutex>
#include <stop_token>
#include <thread>

#include "Support/Suites.h"

namespace {

/// Sleeps until it is asked to stop.
void Sleep(const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any stopped;
    std::unique_lock<std::mutex> lock(mutex);
    stopped.wait(lock, stop, [] { return false; });
}

}  // namespace

/// Google Benchmark's options; registers every case of this directory. Ends with 1 when the literal version
/// and the engine disagree.
int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    // A program with one thread gets its locks cheaper from the C library, and no server is one.
    const std::jthread second(Sleep);
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
