#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Support/Clips.h"
#include "Playout/Support/ProgramRun.h"

// The program as people run it: what it prints, what it writes and how it ends.

namespace Tavrin::Playout {
namespace {

namespace Clips = Support::Clips;
using Support::ProgramResult;
using Support::ProgramRun;

std::vector<std::string> CommandLine(const std::vector<std::string>& arguments) {
    std::vector<std::string> line{PLAYOUT_PROGRAM};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return line;
}

ProgramResult RunPlayout(const std::vector<std::string>& arguments) {
    return ProgramRun(CommandLine(arguments)).Finish();
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> Words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// It failed as it should: one line that names the program and the trouble, and nothing but the status.
void ExpectFailure(const ProgramResult& result, int status, const std::string& trouble) {
    EXPECT_EQ(result.status, status) << result.errors;
    EXPECT_EQ(Lines(result.errors).size(), 1U) << result.errors;
    EXPECT_EQ(result.errors.rfind("playout: ", 0), 0U) << result.errors;
    EXPECT_TRUE(Contains(result.errors, trouble)) << result.errors;
}

void ExpectSuccess(const ProgramResult& result) {
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
}

/// One tick of the lines that md5 output consists of.
struct Md5Line {
    std::string tick;
    std::string time;
    std::string pictures;
    std::string md5;
};

/// Plays to an md5 file and reads that.
std::vector<Md5Line> Md5Lines(std::vector<std::string> arguments) {
    const std::string file = Clips::Scratch("pictures.md5");
    arguments.insert(arguments.begin(), {"play", "--output", "md5:" + file});
    ExpectSuccess(RunPlayout(arguments));
    std::vector<Md5Line> lines;
    for (const std::string& line : Lines(Clips::ReadFile(file))) {
        const std::vector<std::string> words = Words(line);
        EXPECT_EQ(words.size(), 4U) << line;
        lines.push_back({words.at(0), words.at(1), words.at(2), words.at(3)});
    }
    return lines;
}

std::vector<std::string> Md5s(const std::vector<Md5Line>& lines) {
    std::vector<std::string> md5s;
    std::transform(lines.begin(), lines.end(), std::back_inserter(md5s),
                   [](const Md5Line& line) { return line.md5; });
    return md5s;
}

std::vector<std::string> Pictures(const std::vector<Md5Line>& lines) {
    std::vector<std::string> pictures;
    std::transform(lines.begin(), lines.end(), std::back_inserter(pictures),
                   [](const Md5Line& line) { return line.pictures; });
    return pictures;
}

/// The MD5 of each picture of a file, by another program.
std::vector<std::string> FfmpegMd5s(const std::string& file) {
    std::vector<std::string> md5s;
    for (const std::string& line : Lines(Clips::OutputOfFfmpeg(
             "-i " + Clips::Quoted(file) + " -map 0:v:0 -fps_mode passthrough -f framemd5 -"))) {
        if (line.front() != '#') {
            md5s.push_back(Words(line).back());
        }
    }
    return md5s;
}

template <typename Element>
std::vector<Element> Reversed(std::vector<Element> elements) {
    std::reverse(elements.begin(), elements.end());
    return elements;
}

template <typename Element>
std::vector<Element> Every(std::size_t step, const std::vector<Element>& elements) {
    std::vector<Element> chosen;
    for (std::size_t i = 0; i < elements.size(); i += step) {
        chosen.push_back(elements[i]);
    }
    return chosen;
}

/// Width and height that a PNG file states.
std::pair<unsigned, unsigned> PngSize(const std::string& file) {
    const std::string bytes = Clips::ReadFile(file);
    EXPECT_EQ(bytes.substr(1, 3), "PNG");
    const auto number = [&bytes](std::size_t position) {
        unsigned value = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            value = value << 8U | static_cast<unsigned char>(bytes.at(position + i));
        }
        return value;
    };
    return {number(16), number(20)};
}

std::vector<std::string> FilesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(Program, InfoTellsWhatIsInARecording) {
    const ProgramResult result = RunPlayout({"info", Clips::Ntsc()});
    ExpectSuccess(result);
    EXPECT_TRUE(Contains(result.output, "h264, yuv420p, 160x120, progressive")) << result.output;
    EXPECT_TRUE(Contains(result.output, "30000/1001 (29.97) per second, constant")) << result.output;
    EXPECT_TRUE(Contains(result.output, "pictures    60\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "duration    00:00:02.002\n")) << result.output;
}

TEST(Program, InfoTellsOfARecordingThatIsCutOff) {
    const ProgramResult result = RunPlayout({"info", Clips::Truncated()});
    ExpectSuccess(result);
    EXPECT_TRUE(Contains(result.output, "incomplete  cut off: ")) << result.output;
}

TEST(Program, InfoTakesTheNumberOfAStream) {
    EXPECT_TRUE(Contains(RunPlayout({"info", Clips::SecondVideo(), "--stream", "0"}).output, "160x120"));
    EXPECT_TRUE(Contains(RunPlayout({"info", Clips::SecondVideo(), "--stream", "1"}).output, "320x240"));
    ExpectFailure(RunPlayout({"info", Clips::SecondVideo(), "--stream", "2"}), 1, Clips::SecondVideo());
}

TEST(Program, EveryCommandRefusesWhatIsNoRecordingInOneLine) {
    for (const std::string command : {"info", "play", "verify"}) {
        ExpectFailure(RunPlayout({command, Clips::Scratch("nowhere.mp4")}), 1, "nowhere.mp4");
        ExpectFailure(RunPlayout({command, std::filesystem::temp_directory_path().string()}), 1, "folder");
        ExpectFailure(RunPlayout({command, Clips::Empty()}), 1, Clips::Empty());
        ExpectFailure(RunPlayout({command, Clips::Text()}), 1, Clips::Text());
        ExpectFailure(RunPlayout({command, Clips::Garbage()}), 1, Clips::Garbage());
        ExpectFailure(RunPlayout({command, Clips::AudioOnly()}), 1, "no video");
        ExpectFailure(RunPlayout({command, Clips::Headless()}), 1, Clips::Headless());
    }
}

TEST(Program, WrongUsageEndsWithStatusTwoAndOneLine) {
    const std::string clip = Clips::ClosedGroups();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"dance"}, "dance"},
        {{"play"}, "FILE"},
        {{"info", clip, clip}, clip},
        {{"play", clip, "--speed", "fast"}, "--speed: 'fast' is no number"},
        {{"play", clip, "--speed", "1/0"}, "'1/0'"},
        {{"play", clip, "--speed", "100000"}, "more than 1000"},
        {{"play", clip, "--display-rate", "0"}, "above 0"},
        {{"play", clip, "--display-rate", "-25"}, "above 0"},
        {{"play", clip, "--from", "soon"}, "--from: 'soon' is no time"},
        {{"play", clip, "--from", "99"}, "the recording ends at 00:00:02.400"},
        {{"play", clip, "--from", "2", "--to", "1"}, "never comes to 00:00:01.000"},
        {{"play", clip, "--speed", "-1", "--from", "1", "--to", "2"}, "never comes to 00:00:02.000"},
        {{"play", clip, "--speed", "0", "--to", "1"}, "stands still"},
        {{"play", clip, "--output", "gif:x"}, "'gif:x'"},
        {{"play", clip, "--output", "png:"}, "'png:'"},
        {{"play", clip, "--output", "md5:" + clip}, "is being played"},
        {{"play", clip, "--record", clip}, "--record: \"" + clip + "\" is being played"},
        {{"play", clip, "--fast", "--realtime"}, "exclude one another"},
        {{"play", clip, "--window", "--no-window"}, "exclude one another"},
        {{"play", clip, "--memory", "0"}, "--memory"},
        {{"play", clip, "--count", "0"}, "--count"},
        {{"verify", clip, "--jumps", "many"}, "--jumps"},
    };
    for (const auto& [arguments, trouble] : cases) {
        ExpectFailure(RunPlayout(arguments), 2, trouble);
    }
    EXPECT_EQ(RecordingIndex::Build(clip)->NbPictures(), Clips::kNbPictures);
}

TEST(Program, WithoutACommandItShowsItsHelpAsAnError) {
    const ProgramResult result = RunPlayout({});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(Contains(result.errors, "Usage: playout"));
}

TEST(Program, HelpAndVersionAreNoErrors) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--help"}, {"info", "-h"}, {"play", "--help"}, {"verify", "--help"}}) {
        const ProgramResult result = RunPlayout(arguments);
        ExpectSuccess(result);
        EXPECT_TRUE(Contains(result.output, "Usage: playout"));
        for (const std::string& line : Lines(result.output)) {
            EXPECT_LE(line.size(), 95U) << line;
        }
    }
    ExpectSuccess(RunPlayout({"--version"}));
}

TEST(Program, ForwardItShowsThePicturesThatFfmpegDecodes) {
    for (const std::string& clip : {Clips::OpenGroups(), Clips::EditList()}) {
        EXPECT_EQ(Md5s(Md5Lines({clip})), FfmpegMd5s(clip)) << clip;
    }
}

TEST(Program, BackwardItShowsTheSamePicturesInReverse) {
    const std::string clip = Clips::Ntsc();
    EXPECT_EQ(Md5s(Md5Lines({clip, "--speed", "-1"})), Reversed(FfmpegMd5s(clip)));
    EXPECT_EQ(Md5s(Md5Lines({clip, "--speed=-1"})), Reversed(FfmpegMd5s(clip)));
}

TEST(Program, AtFourTimesTheSpeedItShowsEveryFourthPicture) {
    const std::string clip = Clips::ClosedGroups();
    EXPECT_EQ(Md5s(Md5Lines({clip, "--speed", "4"})), Every(4, FfmpegMd5s(clip)));
    EXPECT_EQ(Md5s(Md5Lines({clip, "--speed", "-4"})), Reversed(Every(4, FfmpegMd5s(clip))));
}

TEST(Program, SpeedsAreReadAsFractionsAndAsDecimals) {
    const std::string clip = Clips::Short();
    const std::vector<std::string> half = Md5s(Md5Lines({clip, "--speed", "1/2"}));
    EXPECT_EQ(half.size(), 24U);
    EXPECT_EQ(Every(2, half), FfmpegMd5s(clip));
    EXPECT_EQ(Md5s(Md5Lines({clip, "--speed", "0.5"})), half);
    EXPECT_EQ(Md5s(Md5Lines({clip, "--speed", "1", "--display-rate", "50"})), half);
}

TEST(Program, FromAndToAreTakenInSecondsOrWithMinutesAndHours) {
    const std::string clip = Clips::ClosedGroups();
    const std::vector<std::string> expected{"25", "26", "27"};
    EXPECT_EQ(Pictures(Md5Lines({clip, "--from", "1", "--to", "1.12"})), expected);
    EXPECT_EQ(Pictures(Md5Lines({clip, "--from", "0:01.000", "--to", "0:00:01.120"})), expected);
    EXPECT_EQ(Pictures(Md5Lines({clip, "--from", "1.02", "--count", "3"})), expected);
    EXPECT_EQ(Pictures(Md5Lines({clip, "--speed", "-1", "--from", "1.08", "--to", "1"})), Reversed(expected));
}

TEST(Program, SpeedZeroShowsThePictureThatStands) {
    EXPECT_EQ(Pictures(Md5Lines({Clips::ClosedGroups(), "--speed", "0", "--from", "1"})),
              std::vector<std::string>{"25"});
}

TEST(Program, SeveralFilesPlayInStep) {
    const auto lines = Md5Lines({Clips::Ntsc(), Clips::Short(), "--speed", "1"});
    ASSERT_EQ(lines.size(), 60U);
    EXPECT_EQ(lines.at(3).pictures, "3,2");
    EXPECT_EQ(lines.at(59).pictures, "59,-");
    EXPECT_EQ(lines.at(59).md5.substr(lines.at(59).md5.find(',')), ",-");
}

TEST(Program, FilesBeginAtTheirOffsets) {
    const std::string clip = Clips::Short();
    const auto lines =
        Md5Lines({clip, clip, "--offset", "1=0.2", "--wait", "1=5000", "--from", "0.12", "--count", "3"});
    EXPECT_EQ(Pictures(lines), (std::vector<std::string>{"3,-", "4,-", "5,0"}));
}

TEST(Program, TheSummaryTellsHowEachFileWasPlayed) {
    const std::string clip = Clips::Short();
    const ProgramResult result = RunPlayout(
        {"play", clip, clip, "--fast", "--offset", "1=0.4", "--wait", "1=5000", "--weight", "1=2"});
    ExpectSuccess(result);
    EXPECT_TRUE(Contains(result.output,
                         "track      begins at 00:00:00.400, waited for up to 5000 ms, weight 2\n"
                         "pictures   12 shown, 0 repeated, 0 late, 0 missing, 10 empty\n"))
        << result.output;
}

TEST(Program, ATrackThatThereIsNoneOfIsWrongUsage) {
    ExpectFailure(RunPlayout({"play", Clips::Short(), "--offset", "1=2"}), 2,
                  "--offset 1=2: there is no track 1: 1 file numbered from 0");
    ExpectFailure(RunPlayout({"play", Clips::Short(), "--offset", "0=-5"}), 2,
                  "it is over before playing begins");
    ExpectFailure(RunPlayout({"play", Clips::Short(), "--wait", "0=often"}), 2, "--wait: 'often' is none of");
}

TEST(Program, Y4mIsReadBackByFfmpegPictureByPicture) {
    const std::string clip = Clips::ClosedGroups();
    const std::string file = Clips::Scratch("out.y4m");
    ExpectSuccess(RunPlayout({"play", clip, "--output", "y4m:" + file}));
    EXPECT_EQ(FfmpegMd5s(file), FfmpegMd5s(clip));
    ExpectSuccess(RunPlayout({"play", clip, "--speed", "-1", "--output", "y4m:" + file}));
    EXPECT_EQ(FfmpegMd5s(file), Reversed(FfmpegMd5s(clip)));
}

TEST(Program, Y4mOfSeveralFilesIsAMosaic) {
    const std::string file = Clips::Scratch("mosaic.y4m");
    ExpectSuccess(
        RunPlayout({"play", Clips::Short(), Clips::Ntsc(), "--count", "2", "--output", "y4m:" + file}));
    EXPECT_EQ(Lines(Clips::ReadFile(file)).front().substr(0, 34), "YUV4MPEG2 W320 H120 F30000:1001 Ip");
    EXPECT_EQ(FfmpegMd5s(file).size(), 2U);
}

TEST(Program, PngIsOneFileForEachTick) {
    const std::string folder = Clips::Scratch("pictures");
    ExpectSuccess(RunPlayout({"play", Clips::Short(), "--speed", "4", "--output", "png:" + folder}));
    EXPECT_EQ(FilesIn(folder), (std::vector<std::string>{"00000000.png", "00000001.png", "00000002.png"}));
    EXPECT_EQ(PngSize(folder + "/00000002.png"), std::make_pair(160U, 120U));
}

TEST(Program, PngOfFourFilesIsAMosaic) {
    const std::string folder = Clips::Scratch("mosaic");
    const std::string clip = Clips::Short();
    ExpectSuccess(RunPlayout({"play", clip, clip, clip, clip, "--count", "1", "--output", "png:" + folder}));
    EXPECT_EQ(FilesIn(folder).size(), 1U);
    EXPECT_EQ(PngSize(folder + "/00000000.png"), std::make_pair(320U, 240U));
}

TEST(Program, TheSummaryTellsWhatPlayingCameTo) {
    const ProgramResult result = RunPlayout({"play", Clips::ClosedGroups(), "--speed", "-1", "--fast"});
    ExpectSuccess(result);
    EXPECT_TRUE(Contains(result.output,
                         "played     00:00:02.360 to 00:00:00.000 in 60 ticks of 25 a second at speed -1\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "pictures   60 shown, 0 repeated, 0 late, 0 missing\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "work       5 reads, 60 packets decoded in 5 runs, 0 errors\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, " MiB at most\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "speed      -")) << result.output;
    EXPECT_TRUE(std::all_of(result.output.begin(), result.output.end(), [](char c) {
        return c == '\n' || std::isprint(static_cast<unsigned char>(c)) != 0;
    }));
}

TEST(Program, WithoutOutputItPlaysInRealTime) {
    const auto begin = std::chrono::steady_clock::now();
    ExpectSuccess(RunPlayout({"play", Clips::Short()}));
    // Twelve pictures of 40 ms, the last of which need not be waited for.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(440));
}

TEST(Program, WithoutADisplayItSaysSoInOneLineAndPlays) {
    const ProgramResult result = RunPlayout({"play", Clips::Short()});
    ExpectSuccess(result);
    EXPECT_EQ(result.output.rfind("window     none: there is no display: ", 0), 0U) << result.output;
    EXPECT_TRUE(Contains(result.output, "pictures   12 shown, ")) << result.output;
}

TEST(Program, ADisplayThatCannotBeUsedIsSaidInOneLineToo) {
    ProgramRun::Options options;
    options.environment = {"DISPLAY=:99999"};
    const ProgramResult result = ProgramRun(CommandLine({"play", Clips::Short()}), options).Finish();
    ExpectSuccess(result);
    EXPECT_EQ(result.output.rfind("window     none: the display cannot be used: ", 0), 0U) << result.output;
    EXPECT_TRUE(Contains(result.output, "pictures   12 shown, ")) << result.output;
}

TEST(Program, WhereNoWindowIsWantedNothingIsSaidOfIt) {
    for (const std::string option : {"--no-window", "--fast"}) {
        const ProgramResult result = RunPlayout({"play", Clips::Short(), option});
        ExpectSuccess(result);
        EXPECT_FALSE(Contains(result.output, "window")) << result.output;
    }
}

TEST(Program, AScriptIsCarriedOutAtItsTimes) {
    const std::string script = Clips::Scratch("script.txt");
    Clips::WriteFile(script,
                     "0.12 speed -1\n0.2 jump 1.6 # picture 40\n0.28 step 2\n0.36 drag 2\n0.4 release\n"
                     "0.4 speed 1\n0.48 quit\n");
    EXPECT_EQ(Pictures(Md5Lines({Clips::ClosedGroups(), "--script", script})),
              (std::vector<std::string>{"0", "1", "2", "1", "0", "40", "39", "41", "41", "50", "51", "52"}));
}

TEST(Program, ARecordedRunCanBeRepeated) {
    const std::string script = Clips::Scratch("script.txt");
    const std::string record = Clips::Scratch("record.txt");
    // At times between the ticks, from a place and at a speed that only the options say.
    Clips::WriteFile(script, "0.13 speed 1/2\n0.37 jump 2\n0.5 step -1\n0.61 speed -4\n");
    const std::string clip = Clips::ClosedGroups();
    const auto lines =
        Md5Lines({clip, "--from", "1", "--speed", "2", "--script", script, "--record", record});
    EXPECT_EQ(Pictures(Md5Lines({clip, "--script", record})), Pictures(lines));
    EXPECT_EQ(lines.at(0).pictures, "24");
    EXPECT_EQ(Lines(Clips::ReadFile(record)).front(), "# " + clip);
}

TEST(Program, AScriptThatCannotBeMeantIsRefusedWithItsLine) {
    const std::string script = Clips::Scratch("script.txt");
    Clips::WriteFile(script, "0 speed 1\n1 dance\n");
    ExpectFailure(RunPlayout({"play", Clips::Short(), "--script", script}), 2,
                  "script.txt\" line 2: 'dance' is none of");
    ExpectFailure(RunPlayout({"play", Clips::Short(), "--script", Clips::Scratch("nowhere.txt")}), 1,
                  "nowhere.txt\": the script cannot be read");
}

TEST(Program, OnATerminalProgressIsShownInOneLine) {
    ProgramRun::Options options;
    options.errorsToTerminal = true;
    const ProgramResult result = ProgramRun(CommandLine({"play", Clips::Short()}), options).Finish();
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(Contains(result.errors, "\r")) << result.errors;
    EXPECT_TRUE(Contains(result.errors, " of 00:00:00.480  speed 1  ")) << result.errors;
    EXPECT_FALSE(Contains(result.errors, "\n")) << result.errors;
}

TEST(Program, OfACutOffRecordingItPlaysWhatIsThereAndSaysWhatIsMissing) {
    for (const std::string speed : {"1", "-1", "4"}) {
        const ProgramResult result = RunPlayout({"play", Clips::Truncated(), "--speed", speed, "--fast"});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Lines(result.errors).size(), 1U) << result.errors;
        EXPECT_TRUE(Contains(result.errors, "playout: ")) << result.errors;
        EXPECT_TRUE(Contains(result.errors, "cut off")) << result.errors;
    }
    EXPECT_TRUE(Contains(RunPlayout({"play", Clips::Truncated(), "--fast"}).output, "\nmissing    "));
}

TEST(Program, ADamagedRecordingPlaysInBothDirections) {
    for (const std::string speed : {"1", "-1"}) {
        const ProgramResult result = RunPlayout({"play", Clips::Damaged(), "--speed", speed, "--fast"});
        ExpectSuccess(result);
        EXPECT_TRUE(Contains(result.output, "60 ticks")) << result.output;
    }
}

TEST(Program, OutputThatCannotBeWrittenIsOneLine) {
    const std::string clip = Clips::ClosedGroups();
    ExpectFailure(RunPlayout({"play", clip, "--output", "y4m:/dev/full"}), 1, "/dev/full");
    ExpectFailure(RunPlayout({"play", clip, "--output", "md5:/dev/full"}), 1, "/dev/full");
    ExpectFailure(RunPlayout({"play", clip, "--output", "md5:" + Clips::Scratch("no/such/folder/x")}), 1,
                  "no/such/folder");
    ExpectFailure(RunPlayout({"play", clip, "--output", "png:" + Clips::Text()}), 1, Clips::Text());
}

TEST(Program, StandardOutputThatCannotBeWrittenIsAFailure) {
    ProgramRun::Options options;
    options.outputFile = "/dev/full";
    for (const std::string command : {"info", "play", "verify"}) {
        ExpectFailure(ProgramRun(CommandLine({command, Clips::Short()}), options).Finish(), 1,
                      "standard output cannot be written");
    }
}

TEST(Program, PicturesOnStandardOutputLeaveTheSummaryToStandardError) {
    const ProgramResult result = RunPlayout({"play", Clips::Short(), "--output", "md5:-"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Lines(result.output).size(), 12U);
    EXPECT_TRUE(Contains(result.errors, "pictures   12 shown")) << result.errors;
}

TEST(Program, APipeThatNobodyReadsAnyMoreIsOneLine) {
    ProgramRun run(CommandLine({"play", Clips::ClosedGroups(), "--output", "y4m:-"}));
    EXPECT_TRUE(run.ReadUntil("FRAME\n"));
    run.CloseOutput();
    ExpectFailure(run.Finish(), 1, "Broken pipe");
}

TEST(Program, AnInterruptEndsPlayingInOrder) {
    // A tick every ten seconds: it could not come to its end by itself.
    ProgramRun run(CommandLine({"play", Clips::ClosedGroups(), "--realtime", "--display-rate", "1/10",
                                "--speed", "1/250", "--output", "y4m:-"}));
    EXPECT_TRUE(run.ReadUntil("FRAME\n"));
    run.Signal(SIGINT);
    const ProgramResult result = run.Finish();
    EXPECT_EQ(result.status, 128 + SIGINT);
    EXPECT_TRUE(Contains(result.errors, "then interrupted")) << result.errors;
    // All of the picture was written: header, marker and 160x120 samples of luma and half as many of chroma.
    EXPECT_EQ(result.output.size(), result.output.find("FRAME\n") + 6 + 160 * 120 * 3 / 2);
}

TEST(Program, VerifyFindsNoDifferenceAndNamesTheSeed) {
    const ProgramResult result = RunPlayout({"verify", Clips::OpenGroups(), "--seed", "7", "--jumps", "5"});
    ExpectSuccess(result);
    const std::vector<std::string> lines = Lines(result.output);
    ASSERT_EQ(lines.size(), 6U) << result.output;
    EXPECT_TRUE(Contains(lines[0], "60 pictures, 5 jumps with seed 7")) << lines[0];
    EXPECT_EQ(lines[1], "straight  60 pictures decoded of 60");
    EXPECT_EQ(lines[2], "forward   60 pictures compared: 60 the same");
    EXPECT_EQ(lines[3], "backward  60 pictures compared: 60 the same");
    EXPECT_EQ(lines[4], "jumps     5 pictures compared: 5 the same");
    EXPECT_EQ(lines[5], "verified: no difference");
}

TEST(Program, VerifyPassesWhatIsDamagedOrMissingAndSaysSo) {
    const ProgramResult damaged = RunPlayout({"verify", Clips::Damaged()});
    ExpectSuccess(damaged);
    EXPECT_TRUE(Contains(damaged.output, " of them damaged\n")) << damaged.output;
    const ProgramResult truncated = RunPlayout({"verify", Clips::Truncated()});
    EXPECT_EQ(truncated.status, 0);
    EXPECT_TRUE(Contains(truncated.output, " missing as in the straight decode\n")) << truncated.output;
    EXPECT_TRUE(Contains(truncated.errors, "cut off")) << truncated.errors;
}

TEST(Program, VerifyEndsWithStatusOneAtADifference) {
    const std::string file = Clips::Scratch("changed.avi");
    Clips::OutputOfFfmpeg(
        "-f lavfi -i testsrc=size=320x240:rate=25 -frames:v 120 -c:v rawvideo -pix_fmt yuv420p " +
        Clips::Quoted(file));
    // More jumps than are ever made, in a memory that holds few of the pictures: one that was changed in the
    // meantime comes up long before.
    ProgramRun run(CommandLine({"verify", file, "--jumps", "100000000", "--seed", "1", "--memory", "12"}));
    ASSERT_TRUE(run.ReadUntil("backward  "));
    const auto index = RecordingIndex::Build(file);
    std::fstream bytes(file, std::ios::in | std::ios::out | std::ios::binary);
    for (std::size_t packet = 0; packet < index->NbPackets(); ++packet) {
        bytes.seekp(index->Packet(packet).position + 100).write("changed", 7);
    }
    bytes.close();
    const ProgramResult result = run.Finish();
    ExpectFailure(result, 1, ": its pixels have the MD5 ");
    EXPECT_TRUE(Contains(result.errors, ": jumps at ")) << result.errors;
    EXPECT_TRUE(Contains(result.output, ", 1 DIFFERENT\n")) << result.output;
}

TEST(Program, AnInterruptEndsVerifying) {
    ProgramRun run(CommandLine({"verify", Clips::Short(), "--jumps", "100000000"}));
    ASSERT_TRUE(run.ReadUntil("backward  "));
    run.Signal(SIGTERM);
    const ProgramResult result = run.Finish();
    EXPECT_EQ(result.status, 128 + SIGTERM);
    EXPECT_TRUE(Contains(result.output, "interrupted\n")) << result.output;
}

}  // namespace
}  // namespace Tavrin::Playout
