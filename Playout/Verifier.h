#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SessionOptions.h"
#include "Playout/VerifyReport.h"

namespace Tavrin::Playout {

/// How a recording is verified.
struct VerifierOptions {
    std::uint64_t seed = 1;    ///< Of the random jumps: the same seed jumps to the same pictures everywhere.
    std::size_t nbJumps = 50;  ///< 0: no jumps.
    SessionOptions session;  ///< Its display rate is not used: it is the recording's own, by whole pictures.
    std::chrono::milliseconds stallTimeout{30'000};  ///< As in PlaybackOptions.
};

/// Compares every picture that a session shows of a recording with a straight decode of it.
///
/// One session plays the recording forward at speed 1, backward at speed -1, and jumps to random pictures.
/// Each picture on show must be the one that the index says is on display at the play head, each must be
/// shown, and its pixels must have the MD5 that the straight decode has for it. Damage is no excuse for a
/// wrong picture, but for other pixels: only a picture that the straight decode itself marks as damaged, or
/// does not put out, may differ or be missing, since a decoder fills what is lost from whatever it has
/// decoded before. Those are counted apart.
///
/// *Threads:* externally synchronised; the stop flag may be set from any thread or a signal handler.
/// *Blocking:* Run for as long as decoding the recording four times takes. *Ownership:* shares the index.
/// *Errors:* Run throws std::runtime_error when the file cannot be opened or playing stalls, and lets through
/// what the callback throws. A difference is reported, not thrown.
class TAVRIN_PLAYOUT_EXPORT Verifier final {
public:
    /// Called after each picture with what there is so far, and how many pictures of how many are done: of
    /// the straight decode as long as no pass has begun, then of the latest pass.
    using Progress = std::function<void(const VerifyReport& report, std::uint64_t nbDone, std::uint64_t nb)>;

    explicit Verifier(std::shared_ptr<const RecordingIndex> index, const VerifierOptions& options = {});
    ~Verifier();
    Verifier(const Verifier&) = delete;
    Verifier& operator=(const Verifier&) = delete;

    /// Ends at the first difference, or early once `*stop` is true.
    VerifyReport Run(const Progress& progress = {}, const std::atomic<bool>* stop = nullptr);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace Tavrin::Playout
