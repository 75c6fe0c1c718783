#include "apps/playout/CommonOptions.h"

#include <iostream>

namespace Tavrin::Playout::Program {

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr std::size_t kMostMebibytes = std::size_t{1} << 20;
constexpr int kMostStreams = 65535;

}  // namespace

CLI::Option* AddStreamOption(CLI::App& command, int& stream) {
    return command
        .add_option("--stream", stream,
                    "Number of the video stream in the file\n"
                    "(default: the first one)")
        ->type_name("N")
        ->check(Between(0, kMostStreams));
}

CLI::Option* AddMemoryOption(CLI::App& command, std::size_t& bytes) {
    const auto assign = [&bytes](const std::size_t& mebibytes) { bytes = mebibytes * kMebibyte; };
    return command
        .add_option_function<std::size_t>("--memory", assign,
                                          "Memory in MiB, of all files together (default: what\n"
                                          "two groups of decoded pictures of each take)")
        ->type_name("MIB")
        ->check(Between(std::size_t{1}, kMostMebibytes));
}

std::shared_ptr<const RecordingIndex> OpenRecording(const std::string& file, int stream) {
    auto index = RecordingIndex::Build(file, stream);
    const std::string gaps = DescribeGaps(*index);
    if (!gaps.empty()) {
        std::cerr << "playout: \"" << file << "\": " << gaps << "; what is there is used\n";
    }
    return index;
}

std::string DescribeGaps(const RecordingIndex& index) {
    if (index.NbMissingPackets() > 0) {
        return "cut off: " + std::to_string(index.NbMissingPackets()) + " of " +
               std::to_string(index.NbPackets() + index.NbMissingPackets()) +
               " packets lie beyond the end of the file";
    }
    return index.ReadError().empty() ? "" : "read only in part: " + index.ReadError();
}

}  // namespace Tavrin::Playout::Program
