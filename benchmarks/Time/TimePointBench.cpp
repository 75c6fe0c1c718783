#include "Time/TimePoint.h"

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "Literal/TimeArithmetic.h"
#include "Support/Cases.h"
#include "Support/Scene.h"
#include "Support/Suites.h"
#include "Time/Ratio.h"

namespace Tavrin::Player::Bench {

namespace {

using Time::Ratio;
using Time::TimePoint;

constexpr std::int64_t kNbSamples = 1'024;

/// One rate, or as many as there are in use, of which each call has another.
struct Rates {
    std::string name_;
    std::vector<Ratio> rates_;
};

std::vector<Rates> AllRates() {
    return {{"25/1", {Ratio(25, 1)}},
            {"30000/1001", {Ratio(30'000, 1'001)}},
            {"another rate each time",
             {Ratio(25, 1), Ratio(30'000, 1'001), Ratio(50, 1), Ratio(24'000, 1'001), Ratio(25, 2),
              Ratio(60'000, 1'001), Ratio(15, 1), Ratio(15'000, 1'001)}}};
}

std::vector<TimePoint> Moments() {
    std::vector<TimePoint> moments;
    for (const std::int64_t number : Shuffled(kFirst, kNbSamples)) {
        moments.push_back(Inside(number));
    }
    return moments;
}

template <typename Kit>
constexpr bool kIsEngine = std::is_same_v<Kit, EngineKit>;

struct SampleNumber {
    template <typename Kit>
    static std::int64_t Of(const TimePoint& tp, const Ratio& rate, Kit) {
        if constexpr (kIsEngine<Kit>) {
            return tp.SampleNumber(rate);
        } else {
            return Literal::SampleNumber(tp, rate);
        }
    }
};

struct AlignWith {
    template <typename Kit>
    static TimePoint Of(const TimePoint& tp, const Ratio& rate, Kit) {
        if constexpr (kIsEngine<Kit>) {
            return tp.AlignWith(rate);
        } else {
            return Literal::AlignWith(tp, rate);
        }
    }
};

struct FromRatio {
    template <typename Kit>
    static TimePoint Of(std::int64_t number, const Ratio& rate, Kit) {
        const auto n = static_cast<std::uint64_t>(number);
        const auto d = static_cast<std::uint64_t>(rate.Denominator());
        const auto r = static_cast<std::uint64_t>(rate.Numerator());
        if constexpr (kIsEngine<Kit>) {
            return TimePoint().FromRatio(n, d, r);
        } else {
            return Literal::FromRatio(n, d, r);
        }
    }
};

template <typename Operation, typename Operand, typename Kit>
void Run(benchmark::State& state, const std::vector<Operand>& operands, const Rates& rates, Kit kit) {
    Carousel<Operand> operand(operands);
    Carousel<Ratio> rate(rates.rates_);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Operation::Of(operand.Next(), rate.Next(), kit));
    }
}

template <typename Operation, typename Operand>
void AddOperation(const std::string& name, const std::vector<Operand>& operands) {
    for (const Rates& rates : AllRates()) {
        const auto check = [=] {
            for (const Operand& operand : operands) {
                for (const Ratio& rate : rates.rates_) {
                    Require(Operation::Of(operand, rate, LiteralKit()) ==
                                Operation::Of(operand, rate, EngineKit()),
                            name + " at " + rate.ToString());
                }
            }
        };
        AddCase("TimePoint: " + name + ", " + rates.name_, Timing::Whole, check,
                [=](benchmark::State& state, auto kit) { Run<Operation>(state, operands, rates, kit); });
    }
}

}  // namespace

void AddTimePointCases() {
    AddOperation<SampleNumber>("SampleNumber", Moments());
    AddOperation<AlignWith>("AlignWith", Moments());
    AddOperation<FromRatio>("FromRatio", Shuffled(kFirst, kNbSamples));
}

}  // namespace Tavrin::Player::Bench
