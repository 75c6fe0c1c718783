#include "Playout/Support/TraceFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <map>
#include <set>

#include "Playout/Support/Clips.h"

namespace Tavrin::Playout::Support {

using nlohmann::json;

namespace {

/// A time of the format in nanoseconds: it holds microseconds with three decimals.
std::int64_t Nanoseconds(const json& microseconds) {
    return std::llround(microseconds.get<double>() * 1000);
}

void ExpectWhole(const json& event) {
    EXPECT_TRUE(event.at("name").is_string()) << event;
    EXPECT_TRUE(event.at("ts").is_number()) << event;
    EXPECT_GE(event.at("ts").get<double>(), 0) << event;
    EXPECT_TRUE(event.at("pid").is_number_integer()) << event;
    EXPECT_TRUE(event.at("tid").is_number_integer()) << event;
    const std::string phase = event.at("ph");
    EXPECT_TRUE(phase == "X" || phase == "i" || phase == "M") << event;
    if (phase == "X") {
        EXPECT_GE(event.at("dur").get<double>(), 0) << event;
    }
    if (phase == "i") {
        EXPECT_EQ(event.at("s"), "t") << event;
    }
}

struct Span {
    std::int64_t begin;
    std::int64_t end;
};

/// Goes through them in the order of their begins with those that are open on a stack.
void ExpectNested(std::vector<Span> spans) {
    std::sort(spans.begin(), spans.end(), [](const Span& left, const Span& right) {
        return left.begin != right.begin ? left.begin < right.begin : left.end > right.end;
    });
    std::vector<std::int64_t> open;
    for (const Span& span : spans) {
        while (!open.empty() && open.back() <= span.begin) {
            open.pop_back();
        }
        EXPECT_TRUE(open.empty() || span.end <= open.back())
            << "a span from " << span.begin << " to " << span.end << " ns overlaps one to " << open.back();
        open.push_back(span.end);
    }
}

}  // namespace

std::vector<json> ReadTrace(const std::string& file) {
    const json parsed = json::parse(Clips::ReadFile(file));
    EXPECT_TRUE(parsed.is_array());
    std::vector<json> events(parsed.begin(), parsed.end());
    std::map<std::int64_t, std::vector<Span>> spans;
    std::set<std::int64_t> threads;
    std::set<std::int64_t> named;
    for (const json& event : events) {
        ExpectWhole(event);
        const auto thread = event.at("tid").get<std::int64_t>();
        if (event.at("ph") == "X") {
            const std::int64_t begin = Nanoseconds(event.at("ts"));
            spans[thread].push_back({begin, begin + Nanoseconds(event.at("dur"))});
        }
        if (event.at("ph") != "M") {
            threads.insert(thread);
        } else if (event.at("name") == "thread_name") {
            named.insert(thread);
        }
    }
    for (const auto& [thread, ofThread] : spans) {
        ExpectNested(ofThread);
    }
    EXPECT_TRUE(std::includes(named.begin(), named.end(), threads.begin(), threads.end()))
        << "a thread has no name";
    return events;
}

std::vector<json> EventsNamed(const std::vector<json>& events, const std::string& name) {
    std::vector<json> found;
    std::copy_if(events.begin(), events.end(), std::back_inserter(found),
                 [&name](const json& event) { return event.at("name") == name; });
    return found;
}

std::vector<std::string> ThreadNames(const std::vector<json>& events) {
    std::vector<std::string> names;
    for (const json& event : EventsNamed(events, "thread_name")) {
        names.push_back(event.at("args").at("name"));
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace Tavrin::Playout::Support
