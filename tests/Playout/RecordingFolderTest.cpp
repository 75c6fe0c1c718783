// Recordings that somebody else made, in a folder that TAVRIN_TEST_RECORDINGS names: the variable of the
// environment, else that of CMake's cache. Without a folder there is nothing to test.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "Playout/Playback.h"
#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Verifier.h"

namespace Tavrin::Playout {
namespace {

using Time::Ratio;

std::vector<std::string> Files() {
    const char* const named = std::getenv("TAVRIN_TEST_RECORDINGS");
    const std::filesystem::path folder(named != nullptr ? named : TAVRIN_TEST_RECORDINGS);
    const std::set<std::string> endings{".mp4", ".mov", ".webm", ".mkv", ".mxf", ".ts", ".mpg", ".avi"};
    std::vector<std::string> files;
    if (!folder.empty()) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (endings.contains(entry.path().extension().string())) {
                files.push_back(entry.path().string());
            }
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string NameOf(const std::string& file) {
    std::string name = std::filesystem::path(file).filename().string();
    std::replace_if(
        name.begin(), name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; },
        '_');
    return name;
}

/// The picture on display there, or the one that is fetched for it where not every picture can be shown.
bool BelongsThere(const Session& session, const ShownTick& shown) {
    const RecordingIndex& index = session.Recording(0);
    const auto needed =
        Player::SampleRate::TimeSamplingRate(index.Rate(), session.Speed(), session.DisplayRate());
    const auto fetched = Player::SampleRate::StreamPreloadRate(index.Rate(), needed);
    const std::size_t number = shown.pictures.front()->Number();
    return number == index.PictureAtTime(shown.time) ||
           number == index.PictureAtTime(shown.time.AlignWith(fetched));
}

class RecordingInFolder : public testing::TestWithParam<std::string> {};

TEST_P(RecordingInFolder, Verifies) {
    VerifierOptions options;
    options.seed = 20'240'229;
    options.nbJumps = 20;
    const VerifyReport report = Verifier(RecordingIndex::Build(GetParam()), options).Run();
    EXPECT_FALSE(report.difference) << report.difference->pass << ", picture " << report.difference->picture
                                    << ": " << report.difference->what;
    EXPECT_GT(report.nbDecoded, 0U);
}

TEST_P(RecordingInFolder, PlaysAtEverySpeedWhatIsThereOfIt) {
    const auto index = RecordingIndex::Build(GetParam());
    Session session({index});
    for (const auto& speed : {Ratio(1, 2), Ratio(-2, 1), Ratio(4, 1), Ratio(-16, 1), Ratio()}) {
        PlaybackOptions options;
        options.speed = speed;
        const PlayReport report =
            Playback(session, options).Run([&](const ShownTick& shown, const TickReport& tick) {
                const TrackView& view = tick.tracks.front();
                const auto& picture = shown.pictures.front();
                EXPECT_TRUE(picture != nullptr || view.missing) << "at " << shown.time;
                EXPECT_TRUE(view.missing || view.standIn || BelongsThere(session, shown))
                    << "at " << shown.time;
                return !testing::Test::HasFailure();
            });
        EXPECT_GT(report.tracks.front().nbNew, 0U) << "at " << speed;
    }
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RecordingInFolder);
INSTANTIATE_TEST_SUITE_P(Each, RecordingInFolder, testing::ValuesIn(Files()),
                         [](const auto& file) { return NameOf(file.param); });

}  // namespace
}  // namespace Tavrin::Playout
