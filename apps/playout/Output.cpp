#include "apps/playout/Output.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "Playout/Md5Writer.h"
#include "Playout/PngWriter.h"
#include "Playout/Y4mWriter.h"
#include "apps/playout/Arguments.h"

namespace Tavrin::Playout::Program {

namespace {

constexpr const char* kStandardOutput = "/dev/stdout";

/// A mosaic larger than this would be scaled down by whoever looks at it.
constexpr PixelSize kLargestMosaic{3840, 2160};

struct Prefix {
    const char* text;
    Output::Kind kind;
};
constexpr std::array<Prefix, 3> kPrefixes{
    {{"png:", Output::Kind::Png}, {"y4m:", Output::Kind::Y4m}, {"md5:", Output::Kind::Md5}}};

PixelSize SizeFor(const Session& session) {
    std::vector<PixelSize> sizes;
    for (std::size_t track = 0; track < session.NbTracks(); ++track) {
        const RecordingDescription& description = session.Recording(track).Description();
        sizes.push_back({description.width, description.height});
    }
    return Mosaic::SizeFor(sizes, kLargestMosaic);
}

}  // namespace

bool Output::IsStandardOutput() const {
    return IsWritten() && (path == "-" || path == kStandardOutput);
}

Output ParseOutput(const std::string& text) {
    if (text == "none") {
        return {};
    }
    for (const Prefix& prefix : kPrefixes) {
        const std::string start = prefix.text;
        if (text.starts_with(start) && text.size() > start.size()) {
            return {prefix.kind, text.substr(start.size())};
        }
    }
    throw UsageError("'" + text + "' is none of none, png:DIR, y4m:FILE and md5:FILE");
}

void RefuseRecordings(const std::string& option, const std::string& path, const Session& session) {
    std::vector<std::string> recordings;
    for (std::size_t track = 0; track < session.NbTracks(); ++track) {
        recordings.push_back(session.Recording(track).File());
    }
    RefuseRecordings(option, path, recordings);
}

void RefuseRecordings(const std::string& option, const std::string& path,
                      const std::vector<std::string>& recordings) {
    const bool isPlayed = std::any_of(recordings.begin(), recordings.end(), [&path](const auto& recording) {
        std::error_code ignored;
        return std::filesystem::equivalent(path, recording, ignored);
    });
    if (isPlayed) {
        throw UsageError(option + ": \"" + path + "\" is being played; writing there would destroy it");
    }
}

std::unique_ptr<IPictureSink> OpenOutput(const Output& output, const Session& session) {
    RefuseRecordings("--output", output.path, session);
    const std::string path = output.path == "-" ? kStandardOutput : output.path;
    switch (output.kind) {
        case Output::Kind::Png:
            return std::make_unique<PngWriter>(output.path, SizeFor(session), session.NbTracks());
        case Output::Kind::Y4m:
            return std::make_unique<Y4mWriter>(path, SizeFor(session), session.DisplayRate(),
                                               session.NbTracks());
        case Output::Kind::Md5:
            return std::make_unique<Md5Writer>(path);
        case Output::Kind::None:
            break;
    }
    return nullptr;
}

}  // namespace Tavrin::Playout::Program
