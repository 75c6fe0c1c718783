// The cache against a literal model of its rules: a plain map, and plain walks over all of it.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Player/Cache.h"
#include "Player/Support/CountedSample.h"
#include "Player/Support/Moments.h"
#include "Player/Support/Random.h"
#include "Player/Support/RecordingLogger.h"

namespace Tavrin::Player {
namespace {

using Testing::CountedSample;
using Testing::Ns;
using Testing::Random;
using Testing::SampleCensus;
using Time::TimePoint;

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

struct Answer {
    CountedSample* sample = nullptr;
    TimePoint tp;
};

const char* NameOf(Cache::EntryType type) {
    switch (type) {
        case Cache::Not_Found:
            return "Not_Found";
        case Cache::Pending:
            return "Pending";
        case Cache::Missing:
            return "Missing";
        case Cache::Valid:
            return "Valid";
    }
    return "None";
}

/// What a cache is to do, written down step by step without a thought for speed. It deletes nothing: it keeps
/// the list of the samples that ought to be deleted.
class Model {
public:
    struct Entry {
        Cache::EntryType type = Cache::Not_Found;
        CountedSample* sample = nullptr;
    };
    using Entries = std::map<TimePoint, Entry>;

    void SetRate(const SampleRate& rate) { rate_ = rate; }
    const SampleRate& Rate() const { return rate_; }
    const Entries& All() const { return entries_; }
    const std::set<CountedSample*>& Deleted() const { return deleted_; }
    bool HasAnswers() const { return !queue_.empty(); }

    void Push(const Answer& answer) { queue_.push_back(answer); }

    bool InsertPendingEntry(const TimePoint& tp) {
        const TimePoint aligned = tp.AlignWith(rate_);
        if (aligned != tp) {
            std::ostringstream text;
            text << "Timepoint " << tp << " must be aligned to streamRate " << rate_
                 << ". It should have been " << aligned;
            throw std::runtime_error(text.str());
        }
        if (entries_.count(tp) != 0) {
            return true;
        }
        entries_[tp].type = Cache::Pending;
        return false;
    }

    Cache::EntryType GetSample(const TimePoint& tp, const SampleRate& rate, ISample** sample, bool best) {
        if (entries_.empty()) {
            return Cache::Not_Found;
        }
        const std::int64_t number = tp.SampleNumber(rate);
        Cache::EntryType result = Cache::Not_Found;
        const std::pair<const TimePoint, Entry>* closest = nullptr;
        for (const auto& item : entries_) {
            const auto& [key, entry] = item;
            if (key.SampleNumber(rate) == number) {
                if (entry.type == Cache::Pending && result == Cache::Not_Found) {
                    result = Cache::Pending;
                } else if (entry.type == Cache::Missing) {
                    result = Cache::Missing;
                } else if (entry.type == Cache::Valid) {
                    return Hand(item, sample);
                }
            } else if (best && entry.type == Cache::Valid &&
                       (closest == nullptr || (tp - key).Abs() < (tp - closest->first).Abs())) {
                closest = &item;
            }
        }
        return closest == nullptr ? result : Hand(*closest, sample);
    }

    std::set<std::int64_t> FindMultiples(const SampleRate& rate) const {
        std::set<std::int64_t> numbers;
        for (const auto& [key, entry] : entries_) {
            numbers.insert(key.SampleNumber(rate));
        }
        return numbers;
    }

    std::size_t Update() {
        std::size_t nb = 0;
        while (!queue_.empty()) {
            const Answer answer = queue_.front();
            queue_.pop_front();
            ++nb;
            const TimePoint aligned = answer.tp.AlignWith(rate_);
            const auto found = entries_.find(aligned);
            std::ostringstream text;
            if (found == entries_.end()) {
                text << "No entry for aligned order tp " << aligned;
            } else if (found->second.type != Cache::Pending) {
                text << "Entry should be Pending at " << aligned << ", it's " << NameOf(found->second.type);
            }
            if (!text.str().empty()) {
                Delete(answer.sample);
                throw std::runtime_error(text.str());
            }
            found->second.type = answer.sample == nullptr ? Cache::Missing : Cache::Valid;
            found->second.sample = answer.sample;
        }
        return nb;
    }

    std::size_t GetNumberSamples(Cache::EntryType type, const TimePoint& tp) const {
        std::size_t nb = 0;
        for (const auto& [key, entry] : entries_) {
            nb += key >= tp && entry.type == type ? 1 : 0;
        }
        return nb;
    }

    std::size_t GetNumberProtectedSamples(const TimePoint& tp) const {
        std::size_t nb = 0;
        for (const auto& [key, entry] : entries_) {
            nb += key >= tp && entry.type == Cache::Valid && entry.sample->Counter() > 0 ? 1 : 0;
        }
        return nb;
    }

    void Clear() {
        for (const auto& [key, entry] : entries_) {
            Delete(entry.sample);
        }
        entries_.clear();
        used_ = TimePoint();
    }

    std::size_t EraseBefore(const TimePoint& tp) {
        return EraseIf([&](const TimePoint& key, const Entry&) { return key < tp; });
    }

    std::size_t EraseAfter(const TimePoint& tp, Cache::EntryType type) {
        return EraseIf([&](const TimePoint& key, const Entry& entry) {
            return tp < key && (type == Cache::Not_Found || entry.type == type);
        });
    }

    /// At the end of the cache's life the waiting answers go too.
    void Destroy() {
        Clear();
        for (const Answer& answer : queue_) {
            Delete(answer.sample);
        }
        queue_.clear();
    }

private:
    Cache::EntryType Hand(const std::pair<const TimePoint, Entry>& item, ISample** sample) {
        *sample = item.second.sample;
        used_ = item.first;
        return Cache::Valid;
    }

    void Delete(CountedSample* sample) {
        if (sample != nullptr) {
            deleted_.insert(sample);
        }
    }

    template <typename InRange>
    std::size_t EraseIf(InRange inRange) {
        std::size_t nb = 0;
        for (auto item = entries_.begin(); item != entries_.end();) {
            const auto& [key, entry] = *item;
            const bool kept = entry.type == Cache::Pending ||
                              (entry.type == Cache::Valid && (entry.sample->Counter() != 0 || key == used_));
            if (!inRange(key, entry) || kept) {
                ++item;
                continue;
            }
            Delete(entry.sample);
            item = entries_.erase(item);
            ++nb;
        }
        return nb;
    }

    SampleRate rate_;
    Entries entries_;
    std::deque<Answer> queue_;
    TimePoint used_;
    std::set<CountedSample*> deleted_;
};

const std::vector<SampleRate>& StreamRates() {
    static const std::vector<SampleRate> rates{
        {25, 1}, {50, 1}, {30000, 1001}, {60000, 1001}, {24000, 1001},     {25, 2},
        {1, 1},  {1, 7},  {0, 1},        {12345, 678},  {1'000'000'000, 1}};
    return rates;
}

const std::vector<SampleRate>& RequestRates() {
    static const std::vector<SampleRate> rates{{25, 1},
                                               {50, 1},
                                               {100, 1},
                                               {30000, 1001},
                                               {15000, 1001},
                                               {60000, 1001},
                                               {25, 2},
                                               {25, 4},
                                               {15, 2},
                                               {1, 1},
                                               {1, 7},
                                               {1, 1000},
                                               {7, 3},
                                               {12345, 678},
                                               {0, 1},
                                               {1, kHighest},
                                               {1'000'000'000, 1},
                                               {2'000'000'000, 1},
                                               {3, 10},
                                               {kHighest, 1},
                                               {kHighest, 2}};
    return rates;
}

/// How often each interesting thing happened: a model test that never meets a tie proves nothing about ties.
struct Coverage {
    std::map<std::string, std::size_t> counts;

    void Saw(const std::string& what) { ++counts[what]; }
};

/// One random sequence of operations, run on a cache and on the model side by side.
class Sequence {
public:
    Sequence(std::uint64_t seed, Coverage& coverage) : random_(seed), coverage_(coverage) {
        SetRate(random_.Among(StreamRates()));
        base_ = random_.Chance(70) ? 0 : random_.Between(-1000, 1000) * 1'000'000'000;
    }

    void Run(int nbSteps) {
        for (int step = 0; step < nbSteps; ++step) {
            SCOPED_TRACE(::testing::Message() << "step " << step);
            Step();
            CompareAll();
            if (::testing::Test::HasFailure()) {
                return;
            }
        }
        Finish();
    }

private:
    void Step() {
        const std::int64_t choice = random_.Between(1, 100);
        if (choice <= 28) {
            Insert();
        } else if (choice <= 50) {
            Answers();
        } else if (choice <= 75) {
            LookUp();
        } else if (choice <= 83) {
            Protect();
        } else if (choice <= 88) {
            EraseBefore();
        } else if (choice <= 94) {
            EraseAfter();
        } else if (choice <= 97) {
            Count();
        } else if (choice <= 99) {
            SetRate(random_.Among(StreamRates()));
        } else {
            coverage_.Saw("clear");
            cache_->Clear();
            model_.Clear();
        }
    }

    void SetRate(const SampleRate& rate) {
        coverage_.Saw(model_.All().empty() ? "rate set" : "rate changed under entries");
        cache_->SetStreamSampleRate(rate);
        model_.SetRate(rate);
    }

    /// A time point near the others, often one that means something.
    TimePoint AnyTimePoint() {
        const std::int64_t choice = random_.Between(1, 100);
        if (choice <= 4) {
            return Ns(random_.Chance(50) ? kLowest : kHighest);
        }
        if (choice <= 8) {
            return Ns(random_.Chance(50) ? kLowest + random_.Between(0, 3'000'000'000)
                                         : kHighest - random_.Between(0, 3'000'000'000));
        }
        if (choice <= 45 && !model_.All().empty()) {
            return AnyKey() + Ns(random_.Among(std::vector<std::int64_t>{-1, 0, 0, 1}));
        }
        if (choice <= 65 && model_.All().size() > 1) {
            // Halfway between two entries, where distances tie.
            const std::int64_t a = AnyKey().ToNanoseconds() / 2;
            const std::int64_t b = AnyKey().ToNanoseconds() / 2;
            return Ns(a + b);
        }
        return Ns(base_ + random_.Between(-2'000'000'000, 3'000'000'000));
    }

    TimePoint AnyKey() {
        auto item = model_.All().begin();
        std::advance(item, random_.Between(0, static_cast<std::int64_t>(model_.All().size()) - 1));
        return item->first;
    }

    /// A time point on the grid of the stream's rate, close enough to others for samples to be shared.
    TimePoint AnyAligned() {
        if (random_.Chance(5)) {
            return AnyTimePoint().AlignWith(model_.Rate());
        }
        const TimePoint start = Ns(base_).AlignWith(model_.Rate());
        return TimePoint::StartOfSample(start.SampleNumber(model_.Rate()) + random_.Between(-15, 25),
                                        model_.Rate());
    }

    template <typename Action>
    static std::pair<std::int64_t, std::string> Outcome(Action action) {
        try {
            return {static_cast<std::int64_t>(action()), ""};
        } catch (const std::runtime_error& error) {
            return {-1, error.what()};
        }
    }

    void Insert() {
        for (std::int64_t nb = random_.Between(1, 4); nb > 0; --nb) {
            const TimePoint tp = random_.Chance(90) ? AnyAligned() : AnyTimePoint();
            const auto expected = Outcome([&] { return model_.InsertPendingEntry(tp); });
            EXPECT_EQ(Outcome([&] { return cache_->InsertPendingEntry(tp); }), expected) << tp;
            coverage_.Saw(expected.first < 0 ? "misaligned insert"
                                             : (expected.first == 0 ? "new entry" : "entry was there"));
        }
    }

    void Push(const Answer& answer) {
        Output output;
        output.sample_ = answer.sample;
        output.tp_ = answer.tp;
        cache_->GetQueue()->Push(output);
        model_.Push(answer);
    }

    /// Mostly for pending entries, at any place inside their samples; sometimes for anything.
    void Answers() {
        for (const auto& [key, entry] : model_.All()) {
            if (entry.type == Cache::Pending && random_.Chance(40)) {
                const TimePoint inside = key + Ns(random_.Chance(70) ? 0 : random_.Between(0, 30'000'000));
                Push({random_.Chance(75) ? census_.Make(key) : nullptr, inside});
            }
        }
        if (random_.Chance(25)) {
            Push({random_.Chance(70) ? census_.Make() : nullptr, AnyTimePoint()});
        }
        // A rejected answer leaves those behind it in the queue, for one of the next updates.
        const auto expected = Outcome([&] { return model_.Update(); });
        EXPECT_EQ(Outcome([&] { return cache_->Update(); }), expected);
        coverage_.Saw(expected.first >= 0 ? "update"
                                          : (expected.second[0] == 'N' ? "unknown answer" : "second answer"));
        coverage_.Saw(model_.HasAnswers() ? "answers left in the queue" : "queue drained");
    }

    void LookUp() {
        for (std::int64_t nb = random_.Between(1, 5); nb > 0; --nb) {
            const TimePoint tp = AnyTimePoint();
            const SampleRate& rate = random_.Among(RequestRates());
            const bool best = random_.Chance(60);
            ISample* const untouched = census_.Make();
            ISample* expectedSample = untouched;
            ISample* sample = untouched;
            const Cache::EntryType expected = model_.GetSample(tp, rate, &expectedSample, best);
            EXPECT_EQ(NameOf(cache_->GetSample(tp, rate, &sample, best)), std::string(NameOf(expected)))
                << tp << " at " << rate << (best ? ", best match" : "");
            EXPECT_EQ(sample, expectedSample) << tp << " at " << rate << (best ? ", best match" : "");
            const ISample* unused = untouched;
            delete unused;
            unfiled_.insert(static_cast<CountedSample*>(untouched));
            coverage_.Saw(std::string(best ? "best match " : "exact ") + NameOf(expected));
            NoteTies(tp, rate, best);
        }
    }

    /// Notes whether the nearest valid entry was one of two at the same distance.
    void NoteTies(const TimePoint& tp, const SampleRate& rate, bool best) {
        std::map<TimePoint, int> byDistance;
        for (const auto& [key, entry] : model_.All()) {
            if (best && entry.type == Cache::Valid) {
                if (key.SampleNumber(rate) == tp.SampleNumber(rate)) {
                    return;
                }
                ++byDistance[(tp - key).Abs()];
            }
        }
        if (!byDistance.empty() && byDistance.begin()->second > 1) {
            const bool saturated = byDistance.begin()->first == TimePoint::GetHighestTimePoint();
            coverage_.Saw(saturated ? "tie of saturated distances" : "tie");
        }
    }

    void Protect() {
        if (model_.All().empty()) {
            return;
        }
        const auto found = model_.All().find(AnyKey());
        if (found->second.type != Cache::Valid) {
            return;
        }
        if (random_.Chance(50)) {
            found->second.sample->Protect(random_.Chance(85) ? 1 : -1);
        } else {
            found->second.sample->Unprotect(random_.Between(1, 2));
        }
    }

    void EraseBefore() {
        const TimePoint tp = AnyTimePoint();
        const std::size_t expected = model_.EraseBefore(tp);
        EXPECT_EQ(cache_->EraseBefore(tp), expected) << tp;
        coverage_.Saw(expected == 0 ? "nothing erased before" : "erased before");
    }

    void EraseAfter() {
        const TimePoint tp = AnyTimePoint();
        const auto type = static_cast<Cache::EntryType>(random_.Between(0, 3));
        const std::size_t expected = model_.EraseAfter(tp, type);
        EXPECT_EQ(cache_->EraseAfter(tp, type), expected) << tp << " " << NameOf(type);
        coverage_.Saw(std::string(expected == 0 ? "nothing erased after " : "erased after ") + NameOf(type));
    }

    void Count() {
        const TimePoint tp = AnyTimePoint();
        for (const auto type : {Cache::Not_Found, Cache::Pending, Cache::Missing, Cache::Valid}) {
            EXPECT_EQ(cache_->GetNumberSamples(type, tp), model_.GetNumberSamples(type, tp)) << tp;
        }
        EXPECT_EQ(cache_->GetNumberProtectedSamples(tp), model_.GetNumberProtectedSamples(tp)) << tp;
        for (const SampleRate& rate : RequestRates()) {
            EXPECT_EQ(cache_->FindMultiples(rate), model_.FindMultiples(rate)) << rate;
        }
    }

    /// Everything that shows the whole state.
    void CompareAll() {
        const SampleRate nanoseconds(1'000'000'000, 1);
        EXPECT_EQ(cache_->FindMultiples(nanoseconds), model_.FindMultiples(nanoseconds));
        const TimePoint lowest = Ns(kLowest);
        const Cache::Information information = cache_->GetInformation();
        const auto count = [&](Cache::EntryType type) {
            return static_cast<std::int64_t>(model_.GetNumberSamples(type, lowest));
        };
        EXPECT_EQ(information.nbValidSamples_, count(Cache::Valid));
        EXPECT_EQ(information.nbPendingSamples_, count(Cache::Pending));
        EXPECT_EQ(information.nbMissingSamples_, count(Cache::Missing));
        EXPECT_EQ(information.nbProtectedSamples_,
                  static_cast<std::int64_t>(model_.GetNumberProtectedSamples(lowest)));
        EXPECT_EQ(information.cacheSize_, static_cast<std::int64_t>(model_.All().size()));
        EXPECT_EQ(cache_->GetFirstEntry(), model_.All().empty() ? TimePoint() : model_.All().begin()->first);
        EXPECT_EQ(cache_->GetLastEntry(), model_.All().empty() ? TimePoint() : model_.All().rbegin()->first);
        CompareSamples();
    }

    void CompareSamples() {
        for (CountedSample* sample : model_.Deleted()) {
            EXPECT_TRUE(sample->Deleted()) << "a sample leaks";
        }
        EXPECT_EQ(census_.NbMade() - census_.NbLive(), model_.Deleted().size() + unfiled_.size())
            << "a sample was deleted that is still owned";
        EXPECT_EQ(census_.NbAbused(), 0U);
    }

    /// The types of all entries one by one, which no counting shows, and then the end of the cache.
    void Finish() {
        for (const auto& [key, entry] : model_.All()) {
            for (const auto type : {Cache::Pending, Cache::Missing, Cache::Valid}) {
                EXPECT_EQ(cache_->GetNumberSamples(type, key), model_.GetNumberSamples(type, key)) << key;
            }
        }
        model_.Destroy();
        cache_.reset();
        EXPECT_EQ(census_.NbLive(), 0U);
        CompareSamples();
    }

    Random random_;
    Coverage& coverage_;
    SampleCensus census_;
    std::set<CountedSample*> unfiled_;
    std::unique_ptr<Cache> cache_ = std::make_unique<Cache>();
    Model model_;
    std::int64_t base_ = 0;
};

TEST(CacheModel, RandomSequencesGiveWhatTheLiteralWalksGive) {
    constexpr int kNbSequences = 400;
    constexpr int kNbSteps = 80;
    const Testing::ScopedSilence silence("Cache");
    const std::uint64_t seed = Testing::TestSeed();
    Coverage coverage;
    for (int i = 0; i < kNbSequences && !HasFailure(); ++i) {
        const std::uint64_t own = seed + static_cast<std::uint64_t>(i);
        SCOPED_TRACE(::testing::Message() << "TAVRIN_TEST_SEED=" << own << " begins with this sequence");
        Sequence(own, coverage).Run(kNbSteps);
    }
    for (const char* situation : {"tie",
                                  "tie of saturated distances",
                                  "exact Valid",
                                  "exact Missing",
                                  "exact Pending",
                                  "exact Not_Found",
                                  "best match Valid",
                                  "best match Missing",
                                  "best match Pending",
                                  "erased before",
                                  "erased after Not_Found",
                                  "erased after Valid",
                                  "erased after Missing",
                                  "nothing erased after Pending",
                                  "unknown answer",
                                  "second answer",
                                  "answers left in the queue",
                                  "misaligned insert",
                                  "entry was there",
                                  "rate changed under entries",
                                  "clear"}) {
        EXPECT_GT(coverage.counts[situation], 20U) << situation << " hardly ever happened";
    }
    EXPECT_EQ(coverage.counts["erased after Pending"], 0U);
}

}  // namespace
}  // namespace Tavrin::Player
