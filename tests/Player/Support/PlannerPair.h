#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

#include "Player/IPlayer.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Player/Support/CachePair.h"
#include "Player/Support/Moments.h"
#include "Player/Support/PlannerModel.h"
#include "Player/Support/Printed.h"

namespace Tavrin::Player::Testing {

/// A generator and its model, which do everything side by side; whatever they answer is compared at once.
///
/// *Threads:* bound to one thread.
class PlannerPair {
public:
    const PlannerModel& Model() const { return model_; }
    CachePair* Source() const { return source_; }

    void SetRates(const SampleRate& stream, const SampleRate& display) {
        generator_.SetSampleRate(stream);
        generator_.SetDisplayRate(display);
        model_.SetSampleRate(stream);
        model_.SetDisplayRate(display);
    }

    void SetNumberPreloads(std::int64_t nb) {
        generator_.SetNumberPreloads(static_cast<std::uint64_t>(nb));
        model_.SetNumberPreloads(nb);
    }

    void SetCache(CachePair* source) {
        source_ = source;
        generator_.SetCache(source == nullptr ? nullptr : &source->Engine());
        model_.SetCache(source == nullptr ? nullptr : &source->Model());
    }

    /// False when there is no plan because a rate does not fit 64 bits: both are to throw then, and nothing is to be
    /// asked of either before an update that does not.
    [[nodiscard]] bool Update(const IPlayer& player) {
        const bool fits = !Overflows([&] { model_.Update(player.GetCurrentTimePoint(), player.GetSpeed()); });
        EXPECT_EQ(!Overflows([&] { generator_.Update(&player); }), fits);
        return fits;
    }

    std::optional<Time::TimePoint> Get() {
        const Time::TimePoint untouched = Ms(-1);
        Time::TimePoint tp = untouched;
        const std::optional<Time::TimePoint> expected = model_.Get();
        EXPECT_EQ(generator_.Get(tp), expected.has_value());
        EXPECT_EQ(tp, expected.value_or(untouched));
        return expected;
    }

    /// Until nothing more is proposed, or `nbAtMost` proposals.
    std::vector<Time::TimePoint> GetAll(std::size_t nbAtMost = 5000) {
        std::vector<Time::TimePoint> proposed;
        while (proposed.size() < nbAtMost && !::testing::Test::HasFailure()) {
            const std::optional<Time::TimePoint> tp = Get();
            if (!tp) {
                EXPECT_FALSE(Get()) << "proposes again after it has ended";
                break;
            }
            proposed.push_back(*tp);
        }
        return proposed;
    }

    void CompareState() const {
        EXPECT_EQ(Printed([this] { generator_.OutputInternalState(); }), model_.StateText());
    }

private:
    template <typename Action>
    static bool Overflows(Action action) {
        try {
            action();
            return false;
        } catch (const std::overflow_error&) {
            return true;
        }
    }

    PreloadTimePointGenerator generator_;
    PlannerModel model_;
    CachePair* source_ = nullptr;
};

}  // namespace Tavrin::Player::Testing
