// What playing costs without an engine: a plain program on FFmpeg's libraries alone, which the figures of
// `playout bench` are held against. One file, one thread that demuxes and decodes, pictures thrown away.
//
//   straight-player FILE [--threads 0,1,2] [--cases straight,in-time,seek] [--jumps 50] [--seed 1]
//                        [--memory MIB]
//
// straight   decodes from the start to the end: the ceiling of pictures per second.
// in-time    the same, each picture not before its time: what decoding costs when it rests in between. Only when named.
// backward   the groups of pictures from the last to the first, each decoded once and handed out in reverse:
//            the floor of playing backward. Left out when a group's pictures take more than --memory.
// seek       goes to the key frame before a random picture and decodes up to it: the floor of a jump.
// seek-skip  the same, passing over the pictures on the way that no other is predicted from.
//
// Threads 0 is what FFmpeg chooses. Prints JSON. The random pictures are those of `playout bench` with the
// same seed.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kMilli = 1e3;
constexpr double kNano = 1e9;
constexpr std::int64_t kKibibyte = 1024;
constexpr std::size_t kMebibyte = std::size_t{1} << 20U;

struct Deleter {
    void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using FormatPointer = std::unique_ptr<AVFormatContext, Deleter>;
using CodecPointer = std::unique_ptr<AVCodecContext, Deleter>;
using PacketPointer = std::unique_ptr<AVPacket, Deleter>;
using FramePointer = std::unique_ptr<AVFrame, Deleter>;

int Check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string(what) + " fails with " + std::to_string(result));
    }
    return result;
}

/// A value of a file of /proc, such as "VmHWM:  123 kB"; 0 where there is no such file.
std::int64_t ProcessValue(const std::string& file, const std::string& name) {
    std::ifstream in("/proc/self/" + file);
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) {
            return std::stoll(line.substr(name.size() + 1));
        }
    }
    return 0;
}

double CpuSeconds() {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / kNano;
}

/// What the process uses from now on.
class Usage {
public:
    Usage() {
        // The peak of memory begins anew; where the kernel refuses, it stays that of the whole run.
        std::ofstream("/proc/self/clear_refs") << 5;
    }
    [[nodiscard]] double Seconds() const {
        return std::chrono::duration<double>(Clock::now() - begin_).count();
    }
    [[nodiscard]] double Cpu() const { return CpuSeconds() - cpu_; }
    [[nodiscard]] std::int64_t BytesRead() const { return ProcessValue("io", "rchar") - read_; }
    [[nodiscard]] static std::int64_t PeakBytes() { return ProcessValue("status", "VmHWM") * kKibibyte; }

private:
    Clock::time_point begin_ = Clock::now();
    double cpu_ = CpuSeconds();
    std::int64_t read_ = ProcessValue("io", "rchar");
};

/// A file and a decoder for its first video.
class Player {
public:
    Player(const std::string& file, int nbThreads) {
        AVFormatContext* format = nullptr;
        Check(avformat_open_input(&format, file.c_str(), nullptr, nullptr), "opening the file");
        format_.reset(format);
        Check(avformat_find_stream_info(format, nullptr), "finding the streams");
        const AVCodec* codec = nullptr;
        stream_ =
            Check(av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0), "finding the video");
        codec_.reset(avcodec_alloc_context3(codec));
        Check(avcodec_parameters_to_context(codec_.get(), format->streams[stream_]->codecpar), "setting up");
        codec_->thread_count = nbThreads;
        Check(avcodec_open2(codec_.get(), codec, nullptr), "opening the decoder");
    }

    /// The next packet of the video; false at the end.
    bool Read() {
        do {
            av_packet_unref(packet_.get());
            if (av_read_frame(format_.get(), packet_.get()) < 0) {
                return false;
            }
        } while (packet_->stream_index != stream_);
        return true;
    }

    /// To the key frame at or before the time stamp; the decoder begins anew.
    void Seek(std::int64_t timeStamp) {
        Check(av_seek_frame(format_.get(), stream_, timeStamp, AVSEEK_FLAG_BACKWARD), "seeking");
        avcodec_flush_buffers(codec_.get());
    }

    void Skip(AVDiscard which) { codec_->skip_frame = which; }

    /// Null instead of a packet lets out what the decoder still holds.
    void Send(const AVPacket* packet) { avcodec_send_packet(codec_.get(), packet); }

    /// Whether there is a picture.
    bool Receive() { return avcodec_receive_frame(codec_.get(), frame_.get()) >= 0; }

    [[nodiscard]] const AVPacket& Packet() const { return *packet_; }
    [[nodiscard]] const AVFrame& Frame() const { return *frame_; }
    [[nodiscard]] int NbThreads() const { return codec_->thread_count; }
    [[nodiscard]] double PicturesPerSecond() const {
        return av_q2d(format_->streams[stream_]->avg_frame_rate);
    }

private:
    FormatPointer format_;
    CodecPointer codec_;
    PacketPointer packet_{av_packet_alloc()};
    FramePointer frame_{av_frame_alloc()};
    int stream_ = -1;
};

/// The pictures and where groups of them begin, by time stamp.
struct Index {
    std::vector<std::int64_t> pictures;  ///< In the order of display.
    std::vector<std::int64_t> keys;
    std::int64_t nbBytes = 0;  ///< Of all packets.
};

Index MakeIndex(const std::string& file) {
    Player player(file, 1);
    Index index;
    while (player.Read()) {
        const AVPacket& packet = player.Packet();
        index.nbBytes += packet.size;
        index.pictures.push_back(packet.pts);
        if ((packet.flags & AV_PKT_FLAG_KEY) != 0) {
            index.keys.push_back(packet.pts);
        }
    }
    std::sort(index.pictures.begin(), index.pictures.end());
    std::sort(index.keys.begin(), index.keys.end());
    if (index.pictures.empty() || index.keys.empty()) {
        throw std::runtime_error("there are no pictures in the file");
    }
    return index;
}

using Figures = std::vector<std::pair<std::string, std::string>>;

std::string Number(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

/// `opening` began before the file was opened, so that every byte of it counts.
void AddUsage(Figures& figures, const Usage& usage, const Usage& opening, std::size_t nbPictures) {
    const auto nb = static_cast<double>(std::max<std::size_t>(nbPictures, 1));
    figures.emplace_back("pictures", std::to_string(nbPictures));
    figures.emplace_back("picturesPerSecond", Number(static_cast<double>(nbPictures) / usage.Seconds()));
    figures.emplace_back("cpuMsPerPicture", Number(usage.Cpu() * kMilli / nb));
    figures.emplace_back("peakMiB", Number(static_cast<double>(Usage::PeakBytes()) / kMebibyte));
    figures.emplace_back("bytesReadPerPicture", Number(static_cast<double>(opening.BytesRead()) / nb));
}

template <class OnPicture>
std::size_t DecodeToEnd(Player& player, const OnPicture& onPicture) {
    std::size_t nbPictures = 0;
    bool more = true;
    while (more) {
        more = player.Read();
        player.Send(more ? &player.Packet() : nullptr);
        while (player.Receive()) {
            onPicture(nbPictures++);
        }
    }
    return nbPictures;
}

Figures PlayStraight(const std::string& file, int nbThreads, bool inTime) {
    const Usage opening;
    Player player(file, nbThreads);
    const Usage usage;
    const Clock::time_point begin = Clock::now();
    const double rate = player.PicturesPerSecond();
    if (inTime && !(rate > 0)) {
        throw std::runtime_error("the file does not say how many pictures a second it has");
    }
    const std::size_t nbPictures = DecodeToEnd(player, [&](std::size_t picture) {
        if (inTime) {
            const std::chrono::duration<double> due(static_cast<double>(picture) / rate);
            std::this_thread::sleep_until(begin + std::chrono::duration_cast<Clock::duration>(due));
        }
    });
    Figures figures;
    AddUsage(figures, usage, opening, nbPictures);
    return figures;
}

/// The pictures of the group that begins at `key`, in the order of display.
std::vector<FramePointer> DecodeGroup(Player& player, std::int64_t key, std::int64_t nextKey,
                                      std::size_t mostBytes) {
    std::vector<FramePointer> group;
    std::size_t nbBytes = 0;
    bool more = true;
    player.Seek(key);
    while (more) {
        more = player.Read() &&
               ((player.Packet().flags & AV_PKT_FLAG_KEY) == 0 || player.Packet().pts < nextKey);
        player.Send(more ? &player.Packet() : nullptr);
        while (player.Receive()) {
            group.emplace_back(av_frame_clone(&player.Frame()));
            for (const AVBufferRef* buffer : player.Frame().buf) {
                nbBytes += buffer == nullptr ? 0 : buffer->size;
            }
            if (nbBytes > mostBytes) {
                throw std::runtime_error("a group of pictures takes more memory than allowed");
            }
        }
    }
    return group;
}

Figures PlayBackward(const std::string& file, int nbThreads, const Index& index, std::size_t mostBytes) {
    const Usage opening;
    Player player(file, nbThreads);
    const Usage usage;
    std::size_t nbPictures = 0;
    std::int64_t nextKey = INT64_MAX;
    const std::vector<std::int64_t> backward(index.keys.rbegin(), index.keys.rend());
    for (const std::int64_t key : backward) {
        auto group = DecodeGroup(player, key, nextKey, mostBytes);
        for (; !group.empty(); group.pop_back()) {
            ++nbPictures;
        }
        nextKey = key;
    }
    Figures figures;
    AddUsage(figures, usage, opening, nbPictures);
    return figures;
}

/// Decodes from the key frame before it up to the picture of that time stamp; how many came out on the way.
std::size_t JumpTo(Player& player, std::int64_t timeStamp, bool skips) {
    std::size_t nbPictures = 0;
    bool more = true;
    player.Seek(timeStamp);
    while (more) {
        more = player.Read();
        const bool isWanted = more && player.Packet().pts == timeStamp;
        player.Skip(skips && !isWanted ? AVDISCARD_NONREF : AVDISCARD_DEFAULT);
        player.Send(more ? &player.Packet() : nullptr);
        while (player.Receive()) {
            ++nbPictures;
            if (player.Frame().pts == timeStamp) {
                return nbPictures;
            }
        }
    }
    throw std::runtime_error("the picture at " + std::to_string(timeStamp) + " does not come out");
}

double Percentile(std::vector<double> values, double percent) {
    std::sort(values.begin(), values.end());
    const auto rank = static_cast<std::size_t>(std::ceil(percent / 100 * static_cast<double>(values.size())));
    return values.at(std::max<std::size_t>(rank, 1) - 1);
}

struct Jumps {
    std::size_t nb = 50;
    std::uint64_t seed = 1;
};

Figures PlayJumps(const std::string& file, int nbThreads, const Index& index, const Jumps& jumps,
                  bool skips) {
    const Usage opening;
    Player player(file, nbThreads);
    std::mt19937_64 random(jumps.seed);
    std::vector<double> times;
    const Usage usage;
    for (std::size_t jump = 0; jump < jumps.nb; ++jump) {
        const std::int64_t picture = index.pictures[random() % index.pictures.size()];
        const auto begin = Clock::now();
        JumpTo(player, picture, skips);
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    }
    Figures figures{{"p50Ms", Number(Percentile(times, 50))},
                    {"p95Ms", Number(Percentile(times, 95))},
                    {"maxMs", Number(Percentile(times, 100))}};
    AddUsage(figures, usage, opening, jumps.nb);
    return figures;
}

struct Arguments {
    std::string file;
    std::vector<int> threads{0, 1, 2};
    std::vector<std::string> cases{"straight", "backward", "seek", "seek-skip"};
    Jumps jumps;
    std::size_t memory = std::size_t{1536} * kMebibyte;
};

std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, ',');) {
        parts.push_back(part);
    }
    return parts;
}

void SetOption(Arguments& arguments, const std::string& name, const std::string& value) {
    if (name == "--threads") {
        arguments.threads.clear();
        for (const std::string& part : Split(value)) {
            arguments.threads.push_back(std::stoi(part));
        }
    } else if (name == "--cases") {
        arguments.cases = Split(value);
    } else if (name == "--jumps") {
        arguments.jumps.nb = std::max<std::size_t>(std::stoul(value), 1);
    } else if (name == "--seed") {
        arguments.jumps.seed = std::stoull(value);
    } else if (name == "--memory") {
        arguments.memory = std::stoul(value) * kMebibyte;
    } else {
        throw std::runtime_error("there is no option " + name);
    }
}

Arguments ParseArguments(const std::vector<std::string>& words) {
    Arguments arguments;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i].compare(0, 2, "--") != 0) {
            arguments.file = words[i];
        } else {
            SetOption(arguments, words[i], i + 1 < words.size() ? words[i + 1] : "");
            ++i;
        }
    }
    if (arguments.file.empty()) {
        throw std::runtime_error("no file is named");
    }
    return arguments;
}

Figures Measure(const Arguments& arguments, const std::string& name, int nbThreads, const Index& index) {
    if (name == "straight" || name == "in-time") {
        return PlayStraight(arguments.file, nbThreads, name == "in-time");
    }
    if (name == "backward") {
        return PlayBackward(arguments.file, nbThreads, index, arguments.memory);
    }
    if (name == "seek" || name == "seek-skip") {
        return PlayJumps(arguments.file, nbThreads, index, arguments.jumps, name == "seek-skip");
    }
    throw std::runtime_error("there is no case " + name);
}

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return quoted + "\"";
}

void Print(const std::string& name, int nbThreads, const Figures& figures, bool isFirst) {
    std::cout << (isFirst ? "" : ",") << "\n    {\"case\": " << Quoted(name)
              << ", \"threads\": " << nbThreads;
    for (const auto& [key, value] : figures) {
        std::cout << ", " << Quoted(key) << ": " << value;
    }
    std::cout << "}";
}

void Run(const Arguments& arguments) {
    const Index index = MakeIndex(arguments.file);
    std::cout << "{\n  \"file\": " << Quoted(arguments.file) << ",\n  \"pictures\": " << index.pictures.size()
              << ",\n  \"groups\": " << index.keys.size() << ",\n  \"packetBytes\": " << index.nbBytes
              << ",\n  \"cases\": [";
    bool isFirst = true;
    for (const std::string& name : arguments.cases) {
        for (const int nbThreads : arguments.threads) {
            Figures figures;
            try {
                figures = Measure(arguments, name, nbThreads, index);
            } catch (const std::exception& error) {
                figures = {{"error", Quoted(error.what())}};
            }
            Print(name, nbThreads, figures, isFirst);
            isFirst = false;
        }
    }
    std::cout << "\n  ]\n}\n";
}

}  // namespace

int main(int argc, char** argv) {
    try {
        av_log_set_level(AV_LOG_ERROR);
        Run(ParseArguments(std::vector<std::string>(argv + 1, argv + argc)));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "straight-player: " << error.what() << '\n';
        return 1;
    }
}
