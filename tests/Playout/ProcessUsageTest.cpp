#include "Playout/ProcessUsage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "Playout/Support/Clips.h"

namespace Tavrin::Playout {
namespace {

TEST(ProcessUsage, CountsTheBytesThatAreRead) {
    constexpr std::size_t kNbBytes = 300'000;
    const auto file = std::filesystem::temp_directory_path() / ("tavrin-usage-" + std::to_string(getpid()));
    Support::Clips::WriteFile(file.string(), std::string(kNbBytes, 'x'));
    const ProcessUsage usage;
    const std::size_t nbRead = Support::Clips::ReadFile(file.string()).size();
    const std::uint64_t counted = usage.BytesRead();
    std::filesystem::remove(file);
    EXPECT_EQ(nbRead, kNbBytes);
    EXPECT_GE(counted, kNbBytes);
    EXPECT_LT(counted, 2 * kNbBytes);
}

TEST(ProcessUsage, CountsProcessorTimeNoLongerThanWallTimeOfOneThread) {
    const ProcessUsage usage;
    while (usage.CpuSeconds() < 0.02) {
    }
    EXPECT_LE(usage.CpuSeconds(), usage.WallSeconds() * 1.5 + 0.01);
}

TEST(ProcessUsage, PeakOfMemoryTakesInWhatIsHeldForAMoment) {
    constexpr std::size_t kNbBytes = std::size_t{64} << 20U;
    const ProcessUsage usage;
    {
        const std::vector<char> held(kNbBytes, 'x');
        EXPECT_EQ(held[kNbBytes / 2], 'x');
    }
    EXPECT_GE(usage.PeakResident(), usage.ResidentAtBegin() + kNbBytes / 2);
}

}  // namespace
}  // namespace Tavrin::Playout
