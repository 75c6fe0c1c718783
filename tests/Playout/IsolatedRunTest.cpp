#include "apps/playout/IsolatedRun.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace Tavrin::Playout::Program {
namespace {

std::string MessageOf(const std::function<std::string()>& work) {
    try {
        (void)RunIsolated(work);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(IsolatedRun, ReturnsWhatTheWorkCameTo) {
    EXPECT_EQ(RunIsolated([] { return std::string("done\n"); }), "done\n");
    EXPECT_EQ(RunIsolated([] { return std::string(); }), "");
}

TEST(IsolatedRun, ReturnsMoreThanAPipeHolds) {
    constexpr std::size_t kNbBytes = 1'000'000;
    EXPECT_EQ(RunIsolated([] { return std::string(kNbBytes, 'x'); }), std::string(kNbBytes, 'x'));
}

TEST(IsolatedRun, WorkIsDoneInAnotherProcess) {
    int touched = 0;
    const auto process = RunIsolated([&touched] {
        touched = 1;
        return std::to_string(getpid());
    });
    EXPECT_NE(process, std::to_string(getpid()));
    EXPECT_EQ(touched, 0);
}

TEST(IsolatedRun, ExceptionOfTheWorkComesThroughAsItsMessage) {
    EXPECT_EQ(MessageOf([]() -> std::string { throw std::logic_error("no such picture"); }),
              "no such picture");
}

TEST(IsolatedRun, WorkThatIsKilledSaysBySignal) {
    EXPECT_EQ(MessageOf([]() -> std::string {
                  raise(SIGKILL);
                  return "never";
              }),
              "ended by signal 9");
}

}  // namespace
}  // namespace Tavrin::Playout::Program
