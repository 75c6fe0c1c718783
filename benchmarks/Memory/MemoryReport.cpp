#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "Memory/AllocatedBytes.h"
#include "Support/Grouped.h"
#include "Support/Kits.h"
#include "Support/Scene.h"

/// Prints, as JSON, the bytes that a track and each entry of its window take in either version. The samples
/// are left out: they are the client's.
namespace Tavrin::Player::Bench {

namespace {

constexpr std::int64_t kSizes[] = {100, 1'000, 10'000};
constexpr std::int64_t kLargest = 10'000;
constexpr std::int64_t kSmallest = 100;

/// What the engine keeps for one track; its size counts, for it is allocated here as a whole.
template <typename Kit>
struct Track {
    typename Kit::Cache cache_;
    typename Kit::PreloadTimePointGenerator generator_;
    typename Kit::PreloadOrderQueue orders_;
};

/// A track whose memory is counted from before it was made.
template <typename Kit>
class CountedTrack {
public:
    CountedTrack() : before_(AllocatedBytes()), track_(std::make_unique<Track<Kit>>()) {
        track_->cache_.SetStreamSampleRate(StreamRate());
        track_->generator_.SetSampleRate(StreamRate());
        track_->generator_.SetDisplayRate(StreamRate());
        track_->generator_.SetCache(&track_->cache_);
    }

    std::int64_t Bytes() const { return AllocatedBytes() - before_; }

    /// Plays so long, with a window of that many entries, that all of them have been replaced.
    void Play(std::int64_t nbEntries) {
        for (std::int64_t i = 0; i < 2 * nbEntries; ++i, ++next_) {
            TakeIn(track_->cache_, AnswerFor(next_));
            track_->cache_.EraseBefore(StartOf(next_ - nbEntries + 1));
        }
        Plan(nbEntries);
    }

    /// Keeps the newest entries only.
    void ShrinkTo(std::int64_t nbEntries) {
        track_->cache_.EraseBefore(StartOf(next_ - nbEntries));
        Plan(nbEntries);
    }

    void Clear() {
        track_->cache_.Clear();
        Plan(0);
    }

private:
    void Plan(std::int64_t nbEntries) {
        BenchPlayer player;
        player.GoTo(Inside(next_ - nbEntries));
        track_->generator_.SetNumberPreloads(static_cast<std::uint64_t>(nbEntries));
        track_->generator_.Update(&player);
        Time::TimePoint tp;
        while (track_->generator_.Get(tp)) {
        }
    }

    std::int64_t before_;
    std::int64_t next_ = kFirst;
    std::unique_ptr<Track<Kit>> track_;
};

template <typename Kit>
double BytesOfTrack() {
    return static_cast<double>(CountedTrack<Kit>().Bytes());
}

template <typename Kit>
double BytesPerEntry(std::int64_t nbEntries) {
    CountedTrack<Kit> track;
    const std::int64_t empty = track.Bytes();
    track.Play(nbEntries);
    return static_cast<double>(track.Bytes() - empty) / static_cast<double>(nbEntries);
}

template <typename Kit>
double BytesAfterShrinking() {
    CountedTrack<Kit> track;
    track.Play(kLargest);
    track.ShrinkTo(kSmallest);
    return static_cast<double>(track.Bytes());
}

template <typename Kit>
double BytesAfterClear() {
    CountedTrack<Kit> track;
    track.Play(kLargest);
    track.Clear();
    return static_cast<double>(track.Bytes());
}

/// One line of the report; every one but the last ends in a comma.
void Print(const std::string& name, double literal, double engine, const char* end = ",") {
    std::cout << R"(  {"case": "Memory: )" << name << R"(", "literal": )" << literal << R"(, "engine": )"
              << engine << "}" << end << "\n";
}

void PrintAll() {
    // What is made once for the whole program is no track's.
    CacheSamples();
    BytesOfTrack<LiteralKit>();
    BytesOfTrack<EngineKit>();
    std::cout << "[\n";
    Print("a track without entries", BytesOfTrack<LiteralKit>(), BytesOfTrack<EngineKit>());
    for (const std::int64_t nb : kSizes) {
        Print("an entry of a window of " + Grouped(nb), BytesPerEntry<LiteralKit>(nb),
              BytesPerEntry<EngineKit>(nb));
    }
    Print("a track whose window shrank from 10,000 to 100", BytesAfterShrinking<LiteralKit>(),
          BytesAfterShrinking<EngineKit>());
    Print("a track that was cleared at a window of 10,000", BytesAfterClear<LiteralKit>(),
          BytesAfterClear<EngineKit>(), "");
    std::cout << "]" << std::endl;
}

}  // namespace

}  // namespace Tavrin::Player::Bench

int main() {
    try {
        Tavrin::Player::Bench::PrintAll();
    } catch (const std::exception& e) {
        std::cerr << e.what() << std::endl;
        return 1;
    }
    return 0;
}
