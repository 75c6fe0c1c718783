#include "Player/Output.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "Player/Support/CountedSample.h"
#include "Player/Support/Moments.h"

namespace Tavrin::Player {
namespace {

using Testing::Ms;
using Testing::SampleCensus;

Output Make(ISample* sample, const Time::TimePoint& tp) {
    Output output;
    output.sample_ = sample;
    output.tp_ = tp;
    return output;
}

TEST(Output, DefaultHasNoSampleAndStandsAtTheOrigin) {
    const Output output;
    EXPECT_EQ(output.sample_, nullptr);
    EXPECT_EQ(output.tp_, Time::TimePoint());
}

TEST(Output, IsPolymorphicAndFilledFieldByField) {
    EXPECT_TRUE(std::has_virtual_destructor_v<Output>);
    EXPECT_FALSE((std::is_constructible_v<Output, ISample*, Time::TimePoint>));
}

TEST(Output, TimePointIsACopy) {
    Output output = Make(nullptr, Ms(40));
    const Time::TimePoint tp = output.GetTimePoint();
    output.tp_ = Ms(80);
    EXPECT_EQ(tp, Ms(40));
    EXPECT_EQ(output.GetTimePoint(), Ms(80));
}

TEST(Output, CopyAndAssignmentTakeThePointerAndTheTimePoint) {
    SampleCensus census;
    ISample* sample = census.Make();
    Output original = Make(sample, Ms(40));
    const Output copied(original);
    Output assigned;
    const Output& result = assigned = original;
    EXPECT_EQ(&result, &assigned);
    original = Output();
    for (const Output& output : {copied, assigned}) {
        EXPECT_EQ(output.sample_, sample);
        EXPECT_EQ(output.tp_, Ms(40));
    }
}

TEST(Output, EqualityNeedsTheSamePointerAndTimePoint) {
    SampleCensus census;
    ISample* one = census.Make(Ms(40));
    ISample* other = census.Make(Ms(40));
    EXPECT_TRUE(Make(one, Ms(40)) == Make(one, Ms(40)));
    EXPECT_FALSE(Make(one, Ms(40)) == Make(other, Ms(40)));
    EXPECT_FALSE(Make(one, Ms(40)) == Make(nullptr, Ms(40)));
    EXPECT_FALSE(Make(one, Ms(40)) == Make(one, Ms(41)));
}

TEST(Output, WithoutSamplesTheTimePointDecidesEquality) {
    EXPECT_TRUE(Make(nullptr, Ms(40)) == Make(nullptr, Ms(40)));
    EXPECT_FALSE(Make(nullptr, Ms(40)) == Make(nullptr, Ms(80)));
}

TEST(Output, DestroyingOrOverwritingOneNeverTouchesTheSample) {
    SampleCensus census;
    Testing::CountedSample* sample = census.Make();
    {
        Output overwritten = Make(sample, Ms(40));
        const Output destroyed(overwritten);
        overwritten = Output();
        EXPECT_EQ(destroyed.sample_, sample);
    }
    EXPECT_EQ(census.NbLive(), 1U);
    EXPECT_TRUE(sample->Calls().empty());
}

}  // namespace
}  // namespace Tavrin::Player
