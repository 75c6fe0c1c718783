#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Playout/SessionTrack.h"

// Its header is large, and few who use what is declared here need it.
namespace CLI {
class App;
}

namespace Tavrin::Playout::Program {

/// What is asked of single ones of several recordings: --offset, --wait and --weight, each as TRACK=VALUE and as
/// often as needed. Tracks are the files in their order on the command line, numbered from 0.
///
/// *Errors:* what cannot be meant is refused with the option, the value and the rule: in the form while the
/// command line is parsed, and by Apply for a track that there is none of or that is named twice.
class TrackOptions final {
public:
    /// Adds the options to a command; this object must outlive the parsing.
    void AddTo(CLI::App& command);

    /// The tracks that play these recordings as asked. Throws UsageError.
    [[nodiscard]] std::vector<SessionTrack> Apply(
        std::vector<std::shared_ptr<const RecordingIndex>> recordings) const;

    /// Notes one setting as if it were on the command line. Throws UsageError.
    void AddOffset(const std::string& text);
    void AddWait(const std::string& text);
    void AddWeight(const std::string& text);

private:
    struct Setting {
        std::string option;
        std::string text;
        std::size_t track = 0;
        std::function<void(SessionTrack&)> change;
    };

    void CheckTracks(std::size_t nbTracks) const;

    std::vector<Setting> settings_;
};

/// What differs from a required track that begins at the origin, for people; empty when nothing does.
[[nodiscard]] std::string DescribeSettings(const SessionTrack& track);

}  // namespace Tavrin::Playout::Program
