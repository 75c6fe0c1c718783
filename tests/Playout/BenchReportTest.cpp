#include "apps/playout/BenchReport.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

namespace Tavrin::Playout::Program {
namespace {

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string JsonOf(const BenchResult& result) {
    std::ostringstream out;
    PrintJson(out, {result}, {});
    return out.str();
}

std::string RowOf(const BenchResult& result) {
    std::ostringstream out;
    PrintTableRow(out, result);
    return out.str();
}

TEST(BenchReport, FiguresComeBackExactlyFromTheirText) {
    const BenchFigures figures{{"p50Ms", 1.0 / 3}, {"wrong", 0}, {"bytes", 1.5e18}};
    EXPECT_EQ(FiguresOf(ToText(figures)), figures);
}

TEST(BenchReport, TextThatHoldsNoFiguresIsRefused) {
    EXPECT_THROW((void)FiguresOf("p50Ms\n"), std::runtime_error);
    EXPECT_THROW((void)FiguresOf("p50Ms much\n"), std::runtime_error);
}

TEST(BenchReport, JsonNamesFileCaseTracksAndFigures) {
    const auto json = JsonOf({"clip.mp4", {"play:-1", 4}, {{"standMs", 41.5}, {"wrong", 2}}, ""});
    EXPECT_TRUE(Contains(json, R"({"file": "clip.mp4", "case": "play:-1", "tracks": 4, )"
                               R"("figures": {"standMs": 41.5, "wrong": 2}})"))
        << json;
}

TEST(BenchReport, JsonEscapesWhatTextsMayHold) {
    const auto json = JsonOf({"a\"b\\c\nd", {"jump", 1}, {}, "no \"way\""});
    EXPECT_TRUE(Contains(json, R"("file": "a\"b\\c\u000ad")")) << json;
    EXPECT_TRUE(Contains(json, R"("error": "no \"way\"")")) << json;
}

TEST(BenchReport, JsonHasNoInfiniteNumbers) {
    const auto json = JsonOf({"a", {"jump", 1}, {{"p50Ms", std::numeric_limits<double>::infinity()}}, ""});
    EXPECT_TRUE(Contains(json, R"("p50Ms": null)")) << json;
}

TEST(BenchReport, RowShowsTheFiguresInTheirColumns) {
    std::ostringstream head;
    PrintTableHead(head);
    const auto row = RowOf({"a", {"play:1", 1}, {{"standMs", 41.25}, {"rightPercent", 100}}, ""});
    EXPECT_EQ(row.find("100.0") + 5, head.str().find("right %") + 7);
    EXPECT_EQ(row.size(), head.str().size());
}

TEST(BenchReport, RowOfAFailureSaysWhy) {
    EXPECT_TRUE(Contains(RowOf({"a", {"play:1", 1}, {}, "ended by signal 9"}), "ended by signal 9"));
}

}  // namespace
}  // namespace Tavrin::Playout::Program
