#include "Playout/ProcessUsage.h"

#include <ctime>
#include <fstream>
#include <string>

namespace Tavrin::Playout {

namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr std::uint64_t kKibibyte = 1024;

/// The value of a line such as "VmHWM:  123 kB" in a file of the process; 0 where there is none.
std::uint64_t ValueOf(const std::string& file, const std::string& name) {
    std::ifstream in("/proc/self/" + file);
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) {
            return std::stoull(line.substr(name.size() + 1));
        }
    }
    return 0;
}

double CpuNow() {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / kNanosecondsPerSecond;
}

std::uint64_t ReadNow() {
    return ValueOf("io", "rchar");
}

}  // namespace

ProcessUsage::ProcessUsage()
    : begin_(std::chrono::steady_clock::now()),
      cpuAtBegin_(CpuNow()),
      readAtBegin_(ReadNow()),
      residentAtBegin_(ValueOf("status", "VmRSS") * kKibibyte) {
    // The number that makes Linux begin the peak of resident memory anew.
    std::ofstream("/proc/self/clear_refs") << 5;
}

double ProcessUsage::WallSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
}

double ProcessUsage::CpuSeconds() const {
    return CpuNow() - cpuAtBegin_;
}

std::uint64_t ProcessUsage::BytesRead() const {
    return ReadNow() - readAtBegin_;
}

std::uint64_t ProcessUsage::PeakResident() const {
    return ValueOf("status", "VmHWM") * kKibibyte;
}

}  // namespace Tavrin::Playout
