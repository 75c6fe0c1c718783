#include "apps/playout/CommandScript.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Playout/Support/Clips.h"
#include "apps/playout/Arguments.h"
#include "apps/playout/CommandFeed.h"

namespace Tavrin::Playout::Program {
namespace {

using Time::Ratio;
using Time::TimePoint;
using Commands = std::vector<TimedCommand>;

namespace Clips = Support::Clips;

TimePoint Ms(std::int64_t ms) {
    return TimePoint().FromMilliseconds(ms);
}

Commands Parse(const std::string& text) {
    std::istringstream in(text);
    return ParseScript(in, "script.txt");
}

std::string Refusal(const std::string& text) {
    try {
        static_cast<void>(Parse(text));
    } catch (const UsageError& error) {
        return error.what();
    }
    return "not refused";
}

/// One of each, at awkward times.
Commands OneOfEach() {
    return {{Ms(0), SetSpeed{Ratio(-30000, 1001)}},
            {TimePoint().FromNanoseconds(1), JumpTo{Ms(62'250)}},
            {Ms(40), StepBy{-12}},
            {Ms(40), DragTo{TimePoint().FromNanoseconds(33'366'667)}},
            {Ms(1'000), Release{}},
            {Ms(3'600'000), Quit{}}};
}

TEST(CommandScript, HoldsACommandInEachLine) {
    EXPECT_EQ(
        Parse("0 speed 1\n0.5 speed -1/2\n1 jump 1:02.25\n1.5 step -3\n2 drag 12.5\n2.04 release\n3 quit"),
        (Commands{{Ms(0), SetSpeed{Ratio(1, 1)}},
                  {Ms(500), SetSpeed{Ratio(-1, 2)}},
                  {Ms(1'000), JumpTo{Ms(62'250)}},
                  {Ms(1'500), StepBy{-3}},
                  {Ms(2'000), DragTo{Ms(12'500)}},
                  {Ms(2'040), Release{}},
                  {Ms(3'000), Quit{}}}));
}

TEST(CommandScript, MayHaveRemarksEmptyLinesAndSpaces) {
    EXPECT_EQ(Parse("# all\n\n \t1.5\tstep  2 # two\r\n#0 quit\n"), (Commands{{Ms(1'500), StepBy{2}}}));
    EXPECT_TRUE(Parse("").empty());
}

TEST(CommandScript, WhatIsWrittenIsReadBackExactly) {
    std::string text;
    for (const TimedCommand& command : OneOfEach()) {
        text += FormatCommand(command) + "\n";
    }
    EXPECT_EQ(Parse(text), OneOfEach());
}

TEST(CommandScript, IsWrittenAsPeopleWouldWriteIt) {
    EXPECT_EQ(FormatCommand({Ms(1'500), StepBy{-3}}), "1.500000000 step -3");
    EXPECT_EQ(FormatCommand({Ms(0), SetSpeed{Ratio(1, 2)}}), "0.000000000 speed 1/2");
    EXPECT_EQ(FormatCommand({Ms(0), Quit{}}), "0.000000000 quit");
}

TEST(CommandScript, ErrorsNameTheScriptTheLineAndTheRule) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"soon quit", "line 1: 'soon' is no time such as"},
        {"-1 quit", "line 1: '-1' is no time such as"},
        {"# first\n\n0 dance 1", "line 3: 'dance' is none of speed, jump, step, drag, release and quit"},
        {"0", "line 1: a command is to follow the time"},
        {"2 quit\n1.999 quit", "line 2: '1.999' is before the line above it: times must not decrease"},
        {"0 speed", "line 1: speed takes a speed and nothing else"},
        {"0 jump 1 2", "line 1: jump takes a time and nothing else"},
        {"0 speed fast", "line 1: 'fast' is no number such as"},
        {"0 speed 1001", "line 1: '1001' is more than 1000"},
        {"0 drag here", "line 1: 'here' is no time such as"},
        {"0 step 1.5", "line 1: '1.5' is no number of pictures such as 1 or -1"},
        {"0 step 99999999999", "line 1: '99999999999' is no number of pictures"},
        {"0 quit now", "line 1: 'now' is too much: quit takes nothing"},
    };
    for (const auto& [text, trouble] : cases) {
        EXPECT_EQ(Refusal(text).rfind("\"script.txt\" " + trouble, 0), 0U) << Refusal(text);
    }
}

TEST(CommandScript, AFileThatCannotBeReadIsNamed) {
    for (const std::string& file : {Clips::Scratch("nowhere.txt"), std::string("/")}) {
        try {
            static_cast<void>(ReadScript(file));
            ADD_FAILURE() << file;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()), "\"" + file + "\": the script cannot be read");
        }
    }
}

using PlayCommands = std::vector<PlayCommand>;

TEST(CommandFeed, HandsOutTheCommandsThatAreDue) {
    CommandFeed feed({{Ms(0), StepBy{1}}, {Ms(50), StepBy{2}}, {Ms(80), StepBy{3}}}, false, nullptr);
    EXPECT_EQ(feed.Take(Ms(0)), PlayCommands{StepBy{1}});
    EXPECT_EQ(feed.Take(Ms(40)), PlayCommands{});
    EXPECT_EQ(feed.Take(Ms(80)), (PlayCommands{StepBy{2}, StepBy{3}}));
}

TEST(CommandFeed, IsOpenWhileTheScriptHasCommands) {
    CommandFeed feed({{Ms(40), StepBy{1}}}, false, nullptr);
    EXPECT_TRUE(feed.IsOpen());
    EXPECT_EQ(feed.Take(Ms(40)).size(), 1U);
    EXPECT_FALSE(feed.IsOpen());
}

TEST(CommandFeed, IsOpenForAsLongAsThereIsAnOperator) {
    const CommandFeed feed({}, true, nullptr);
    EXPECT_TRUE(feed.IsOpen());
}

TEST(CommandFeed, HandsOutWhatTheOperatorAsksForOnce) {
    CommandFeed feed({}, true, nullptr);
    feed.Add(StepBy{1});
    feed.Add(StepBy{1});
    EXPECT_EQ(feed.Take(Ms(40)), (PlayCommands{StepBy{1}, StepBy{1}}));
    EXPECT_EQ(feed.Take(Ms(80)), PlayCommands{});
}

TEST(CommandFeed, OfPositionsThatFollowEachOtherTheLastOneIsPassedOn) {
    CommandFeed feed({}, true, nullptr);
    for (const PlayCommand& command :
         PlayCommands{DragTo{Ms(1)}, DragTo{Ms(2)}, Release{}, DragTo{Ms(3)}, DragTo{Ms(4)}}) {
        feed.Add(command);
    }
    EXPECT_EQ(feed.Take(Ms(40)), (PlayCommands{DragTo{Ms(2)}, Release{}, DragTo{Ms(4)}}));
}

TEST(CommandFeed, RecordsWhatItHandsOutAtTheTimeOfTheTick) {
    const std::string file = Clips::Scratch("record.txt");
    CommandRecorder recorder(file);
    recorder.Remark("two\nlines");
    CommandFeed feed({{Ms(30), StepBy{1}}}, true, &recorder);
    feed.Add(SetSpeed{Ratio(2, 1)});
    static_cast<void>(feed.Take(Ms(40)));
    feed.NoteEnd();
    EXPECT_EQ(Clips::ReadFile(file).substr(0, 12), "# two lines\n");
    EXPECT_EQ(ReadScript(file),
              (Commands{{Ms(40), StepBy{1}}, {Ms(40), SetSpeed{Ratio(2, 1)}}, {Ms(40), Quit{}}}));
}

TEST(CommandFeed, ARecordThatCannotBeWrittenIsNamed) {
    EXPECT_THROW(CommandRecorder(Clips::Scratch("no/such/folder")), std::runtime_error);
    CommandRecorder full("/dev/full");
    try {
        full.Note({});
        ADD_FAILURE() << "it was written to a full disk";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), "\"/dev/full\": the record of commands cannot be written");
    }
}

}  // namespace
}  // namespace Tavrin::Playout::Program
