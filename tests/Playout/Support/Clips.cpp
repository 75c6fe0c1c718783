#include "Playout/Support/Clips.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout::Support::Clips {

namespace {

namespace fs = std::filesystem;

/// Says nothing but errors, asks nothing, and gives the same bytes whenever it runs.
constexpr const char* kProgram = "ffmpeg -nostdin -v error -y -bitexact ";

void Run(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("this command failed, which the tests need: " + command);
    }
}

/// Other test processes may want the same clip at this moment: it is made beside its place and then moved
/// there, so that whoever sees it sees all of it. A changed recipe gives a new name.
std::string Cached(const std::string& name, const std::string& recipe,
                   const std::function<void(const std::string& file)>& make) {
    const auto folder = fs::path(TAVRIN_TEST_CLIPS_FOLDER) / std::to_string(std::hash<std::string>{}(recipe));
    const auto file = folder / name;
    if (!fs::exists(file)) {
        fs::create_directories(folder);
        const auto making = folder / ("making-" + std::to_string(getpid()) + "-" + name);
        make(making.string());
        fs::rename(making, file);
    }
    return file.string();
}

std::string Copied(const std::string& name, const std::string& source, const std::string& options = "") {
    return Encoded(name, "-i " + Quoted(source) + " -map 0 -c copy " + options);
}

/// Made of another clip's bytes.
std::string Derived(const std::string& name, const std::string& source,
                    const std::function<std::string(std::string)>& change) {
    return Cached(name, source + ">" + name,
                  [&](const std::string& file) { WriteFile(file, change(ReadFile(source))); });
}

std::string Pattern(const std::string& seconds, const std::string& rate = "25") {
    return "-f lavfi -i testsrc2=size=160x120:rate=" + rate + ":duration=" + seconds + " ";
}

std::string Libx264(const std::string& options) {
    return "-pix_fmt yuv420p -c:v libx264 -preset veryfast -x264-params scenecut=0:b-adapt=0:" + options;
}

std::string NumberedPattern(const std::string& before = "null", const std::string& after = "null") {
    return "-f lavfi -i testsrc2=size=240x180:rate=25:duration=2.4 -vf \"format=yuv420p," + before +
           ",$(" TAVRIN_BAR_CODE_SCRIPT ")," + after + "\" ";
}

/// A folder of this process, gone when it ends.
class ScratchFolder {
public:
    ScratchFolder() : path_(fs::temp_directory_path() / ("tavrin-playout-" + std::to_string(getpid()))) {
        fs::create_directories(path_);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const fs::path& Path() const { return path_; }

private:
    fs::path path_;
};

}  // namespace

std::string Quoted(const std::string& file) {
    std::string quoted = "'";
    for (const char c : file) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::string ReadFile(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void WriteFile(const std::string& file, const std::string& bytes) {
    std::ofstream stream(file, std::ios::binary);
    stream << bytes;
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + file);
    }
}

std::string OutputOfFfmpeg(const std::string& arguments) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(
        popen((kProgram + arguments + " 2>/dev/null").c_str(), "r"), pclose);
    if (pipe == nullptr) {
        throw std::runtime_error("the ffmpeg program cannot be run");
    }
    std::string output;
    std::array<char, 4096> buffer{};
    while (const auto nb = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) {
        output.append(buffer.data(), nb);
    }
    return output;
}

std::vector<std::string> SumsOfTheProgram(const std::string& file) {
    std::istringstream lines(OutputOfFfmpeg("-threads 1 -noautorotate -i " + Quoted(file) +
                                            " -map 0:v:0 -fps_mode passthrough -f framemd5 -"));
    std::vector<std::string> sums;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line[0] != '#') {
            sums.push_back(line.substr(line.rfind(' ') + 1));
        }
    }
    return sums;
}

std::string Encoded(const std::string& name, const std::string& arguments) {
    return Cached(name, arguments, [&](const std::string& file) {
        Run(kProgram + arguments + " -threads 1 -fflags +bitexact " + Quoted(file));
    });
}

std::string TestPattern(const std::string& filter) {
    return Pattern("2.4") + "-vf " + Quoted(filter) + " ";
}

bool HasEncoder(const std::string& encoder) {
    return OutputOfFfmpeg("-encoders").find(" " + encoder + " ") != std::string::npos;
}

std::string Scratch(const std::string& name) {
    static const ScratchFolder folder;
    return (folder.Path() / name).string();
}

std::string ClosedGroups() {
    return Encoded("closed.mp4", Pattern("2.4") + Libx264("keyint=12:bframes=3:b-pyramid=normal"));
}

std::string OpenGroups() {
    return Encoded("open.mp4", Pattern("2.4") + Libx264("keyint=12:bframes=3:b-pyramid=normal:open-gop=1"));
}

std::string SingleGroup() {
    return Encoded("single.mp4", Pattern("2.4") + Libx264("keyint=1000:bframes=3:b-pyramid=normal"));
}

std::string ShortLastGroup() {
    return Encoded("short-last.mp4",
                   Pattern("1.2") + Libx264("keyint=12:bframes=3:b-pyramid=normal:open-gop=1"));
}

std::string LongGroups() {
    return Encoded("long.mp4", Pattern("4") + Libx264("keyint=33:bframes=2"));
}

std::string Short() {
    return Encoded("short.mp4", Pattern("0.48") + Libx264("keyint=12:bframes=2"));
}

std::string IntraOnlyH264() {
    return Encoded("intra.mp4", Pattern("2.4") + Libx264("keyint=1"));
}

std::string GradualRefresh() {
    return Encoded("refresh.mp4", Pattern("2.4") + Libx264("keyint=12:bframes=0:intra-refresh=1"));
}

std::string SecondVideo() {
    return Encoded("two.mp4", Pattern("0.48") + "-f lavfi -i testsrc2=size=320x240:rate=25:duration=0.48 " +
                                  "-map 0 -map 1 -disposition:0 0 -disposition:1 default " +
                                  Libx264("keyint=12:bframes=0"));
}

std::string Ntsc() {
    return Encoded("ntsc.mp4", Pattern("2.002", "30000/1001") + Libx264("keyint=12:bframes=2"));
}

std::string VariableRate() {
    return Encoded("variable.mp4", Pattern("2.4") +
                                       "-vf \"select='not(mod(n,2))+not(mod(n,7))'\" -fps_mode vfr " +
                                       Libx264("keyint=12:bframes=2"));
}

std::string Jittery() {
    return Encoded("jittery.mp4", Pattern("2.4") +
                                      "-vf \"settb=1/1000,setpts='N*40+mod(N*7,26)'\" -fps_mode vfr "
                                      "-enc_time_base 1/1000 -video_track_timescale 1000 " +
                                      Libx264("keyint=12:bframes=2"));
}

std::string Shades() {
    const std::string luma = std::to_string(kFirstShade) + "+" + std::to_string(kShadeStep) + "*N";
    return Encoded("shades.mp4",
                   "-f lavfi -i \"color=size=160x120:rate=25:duration=2.4,format=yuv420p,geq=lum='" + luma +
                       "':cb=128:cr=128\" " + Libx264("keyint=12:bframes=2:qp=4"));
}

std::string EditList() {
    return Encoded("edit.mp4", "-ss 0.9 -i " + Quoted(OpenGroups()) + " -c copy");
}

std::string Truncated() {
    const auto front = Copied("front.mp4", ClosedGroups(), "-movflags +faststart");
    return Derived("truncated.mp4", front,
                   [](const std::string& bytes) { return bytes.substr(0, bytes.size() * 6 / 10); });
}

std::string Fragmented() {
    return Copied("fragmented.mp4", OpenGroups(), "-movflags +frag_keyframe+empty_moov");
}

std::string Damaged() {
    return Derived("damaged.mp4", ClosedGroups(), [](std::string bytes) {
        const auto index = RecordingIndex::Build(ClosedGroups());
        const auto& packet = index->Packet(index->Picture(kDamagedPicture).packet);
        return bytes.replace(static_cast<std::size_t>(packet.position), static_cast<std::size_t>(packet.size),
                             static_cast<std::size_t>(packet.size), '\0');
    });
}

std::string Numbered() {
    return Encoded("numbered.mp4", NumberedPattern() + Libx264("keyint=12:bframes=2"));
}

std::string NumberedInterlaced() {
    return Encoded("numbered-fields.mp4", NumberedPattern("fps=50,interlace=scan=tff:lowpass=off") +
                                              Libx264("keyint=12:bframes=2:tff=1") + " -flags +ilme+ildct");
}

namespace {

/// Fields are drawn with their numbers at twice the rate and then woven in pairs.
std::string NumberedByFields(const std::string& name, const std::string& scan, const std::string& first) {
    return Encoded(name,
                   "-f lavfi -i testsrc2=size=240x180:rate=50:duration=1.2 -vf \"format=yuv420p,"
                   "$(" TAVRIN_BAR_CODE_SCRIPT "),interlace=scan=" +
                       scan + ":lowpass=off\" " + Libx264("keyint=12:bframes=2:qp=8:" + first) +
                       " -flags +ilme+ildct");
}

}  // namespace

std::string NumberedFields() {
    return NumberedByFields("numbered-each-field.mp4", "tff", "tff=1");
}

std::string NumberedFieldsBottomFirst() {
    return NumberedByFields("numbered-bottom-first.mp4", "bff", "bff=1");
}

std::string NumberedDeep() {
    return Encoded("numbered-deep.mp4", NumberedPattern("null", "format=yuv420p10") +
                                            "-c:v libx265 -preset ultrafast -x265-params "
                                            "keyint=12:bframes=2:pools=none:frame-threads=1:log-level=error");
}

std::string NumberedSmall() {
    return Encoded("numbered-small.mp4",
                   NumberedPattern("null", "scale=160:120") + Libx264("keyint=12:bframes=2"));
}

std::string NumberedMotionJpeg() {
    return Encoded("numbered.mov",
                   NumberedPattern("null", "format=yuvj420p") + "-pix_fmt yuvj420p -c:v mjpeg -q:v 5");
}

std::string Matroska() {
    return Copied("open.mkv", OpenGroups());
}

std::string NtscMatroska() {
    return Copied("ntsc.mkv", Ntsc());
}

std::string VariableMatroska() {
    return Copied("variable.mkv", VariableRate());
}

std::string HoledMatroska() {
    return Encoded("holed.mkv", Pattern("4.8") +
                                    "-vf \"select='not(between(n,37,85))'\" -fps_mode passthrough " +
                                    Libx264("keyint=12:bframes=2"));
}

std::string HoledTransport() {
    return Copied("holed.ts", HoledMatroska());
}

std::string LateMatroska() {
    return Copied("late.mkv", OpenGroups(), "-output_ts_offset 10");
}

std::string Transport() {
    return Copied("open.ts", OpenGroups());
}

std::string Mpeg2Interlaced() {
    return Encoded("mpeg2.ts", Pattern("2.4") + "-c:v mpeg2video -g 12 -bf 2 -flags +ildct+ilme -top 1");
}

std::string Mpeg2Program() {
    return Copied("mpeg2.mpg", Mpeg2Interlaced());
}

std::string CutTransport() {
    // From the middle of the first group on, at the boundary of a packet of 188 bytes.
    return Derived("cut.ts", Mpeg2Interlaced(),
                   [](const std::string& bytes) { return bytes.substr(std::size_t{188} * 60); });
}

namespace {

std::string Hevc(const std::string& name, bool openGroups) {
    return Encoded(name, Pattern("2.4") +
                             "-pix_fmt yuv420p -c:v libx265 -preset ultrafast -x265-params "
                             "keyint=12:bframes=3:b-adapt=0:scenecut=0:pools=none:"
                             "frame-threads=1:log-level=error:open-gop=" +
                             (openGroups ? "1" : "0"));
}

}  // namespace

std::string HevcOpenGroups() {
    return Hevc("hevc.mp4", true);
}

std::string HevcClosedGroups() {
    return Hevc("hevc-closed.mp4", false);
}

std::string MotionJpeg() {
    return Encoded("mjpeg.mov", Pattern("2.4") + "-c:v mjpeg -q:v 5");
}

std::string ProRes() {
    return Encoded("prores.mov", Pattern("0.48") + "-c:v prores_ks");
}

std::string Vp9() {
    return Encoded("vp9.webm", Pattern("2.002", "30000/1001") +
                                   "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 12 -b:v 300k");
}

std::string BareH264() {
    return Copied("closed.h264", ClosedGroups());
}

std::string OldAvi() {
    return Copied("closed.avi", ClosedGroups());
}

std::string Empty() {
    return Cached("empty.mp4", "empty", [](const std::string& file) { WriteFile(file, ""); });
}

std::string Text() {
    return Cached("notes.txt", "text", [](const std::string& file) {
        WriteFile(file, "These are notes about a recording.\nThey are not the recording.\n");
    });
}

std::string Garbage() {
    return Cached("garbage.mp4", "garbage", [](const std::string& file) {
        std::string bytes;
        for (unsigned i = 0, value = 1; i < 20'000; ++i, value = value * 1'103'515'245U + 12'345U) {
            bytes += static_cast<char>(value >> 24U);
        }
        WriteFile(file, bytes);
    });
}

std::string AudioOnly() {
    return Encoded("tone.wav", "-f lavfi -i sine=duration=0.5");
}

std::string Headless() {
    return Derived("headless.mp4", ClosedGroups(),
                   [](const std::string& bytes) { return bytes.substr(0, bytes.size() / 2); });
}

}  // namespace Tavrin::Playout::Support::Clips
