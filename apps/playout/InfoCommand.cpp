#include <algorithm>
#include <iostream>
#include <memory>
#include <string>

#include "Playout/RecordingIndex.h"
#include "apps/playout/Commands.h"
#include "apps/playout/CommonOptions.h"
#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {

namespace {

constexpr std::int64_t kKilo = 1000;

struct InfoArguments {
    std::string file;
    int stream = RecordingIndex::kFirstVideo;
};

std::size_t LongestGroup(const RecordingIndex& index) {
    std::size_t longest = 0;
    for (std::size_t group = 0; group < index.NbGroups(); ++group) {
        longest = std::max(longest, index.Group(group).nbPictures);
    }
    return longest;
}

std::string DescribeScan(const RecordingDescription& description) {
    if (!description.interlaced) {
        return "progressive";
    }
    return description.topFieldFirst ? "interlaced, top field first" : "interlaced, bottom field first";
}

std::string DescribeGroups(const RecordingIndex& index) {
    if (index.IntraOnly()) {
        return "none: each picture is decoded alone";
    }
    return std::to_string(index.NbGroups()) + ", the longest of " +
           FormatCount(LongestGroup(index), "picture") + "; pictures are coded up to " +
           std::to_string(index.ReorderDepth()) + " before their turn";
}

std::string DescribeRate(const RecordingIndex& index) {
    if (index.NbHoles() > 0) {
        return "constant but for " + FormatCount(index.NbHoles(), "hole");
    }
    return index.ConstantRate() ? "constant" : "variable: some pictures stay longer";
}

void Print(const RecordingIndex& index) {
    const RecordingDescription& description = index.Description();
    std::cout << "file        " << index.File() << '\n'
              << "container   " << description.container << '\n'
              << "stream      " << index.Stream() << ": " << description.codec << ", "
              << (description.pixelFormat.empty() ? "pixel format unknown" : description.pixelFormat) << ", "
              << description.width << 'x' << description.height << ", " << DescribeScan(description) << '\n'
              << "rate        " << FormatRate(index.Rate()) << " per second, " << DescribeRate(index) << '\n'
              << "duration    " << FormatTime(index.Duration()) << '\n'
              << "pictures    " << index.NbPictures() << '\n'
              << "groups      " << DescribeGroups(index) << '\n'
              << "bit rate    " << description.bitsPerSecond / kKilo << " kb/s\n";
    const std::string gaps = DescribeGaps(index);
    if (!gaps.empty()) {
        std::cout << "incomplete  " << gaps << '\n';
    }
}

}  // namespace

void AddInfoCommand(CLI::App& program, int& status) {
    auto arguments = std::make_shared<InfoArguments>();
    CLI::App* command = program.add_subcommand("info", "Tell what is in a recording");
    command->add_option("FILE", arguments->file, "The recording")->required()->type_name("");
    AddStreamOption(*command, arguments->stream);
    command->footer("The file is read once; nothing is decoded.");
    command->callback([arguments, &status] {
        Print(*RecordingIndex::Build(arguments->file, arguments->stream));
        status = Success;
    });
}

}  // namespace Tavrin::Playout::Program
