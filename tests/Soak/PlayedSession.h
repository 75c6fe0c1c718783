#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Playout/RecordingIndex.h"
#include "Playout/Session.h"
#include "Playout/Support/FailingStorage.h"
#include "Soak/Phase.h"
#include "Soak/UnsteadyStorage.h"

namespace Tavrin::Soak {

using Recordings = std::vector<std::shared_ptr<const Playout::RecordingIndex>>;

/// A session on real recordings that is operated at random, and judged: what it shows, what it holds and, once it
/// is closed, what is left of it.
///
/// *Threads:* bound to one thread. *Ownership:* borrows the means. *Errors:* Failure when something does not hold.
class PlayedSession {
public:
    PlayedSession(const PhaseMeans& means, const Recordings& recordings);
    PlayedSession(const PlayedSession&) = delete;
    PlayedSession& operator=(const PlayedSession&) = delete;
    ~PlayedSession() = default;

    /// One thing that an operator or an output does.
    void Step();

    /// Storage comes back; once everything is answered, what the session holds must be what it says.
    void Quieten();

    /// The session is closed, at once, and no picture but those that the client keeps may be left.
    void Close();

private:
    using Picture = Playout::Picture;

    [[nodiscard]] Playout::SessionTrack AnyTrack(const Recordings& recordings);
    [[nodiscard]] Playout::SessionOptions AnyOptions();
    void ChooseStorage();
    void RestoreStorage();
    void Operate(std::int64_t kind);
    void Play();
    void StepByPicture();
    void ChangeMemory();
    void Look();
    [[nodiscard]] Time::TimePoint AnyTime();
    void Judge(const Playout::TickReport& report);
    void JudgeTrack(const Playout::TickReport& report, std::size_t track) const;
    void CheckHeld() const;
    void Count();
    [[nodiscard]] std::size_t NbPending() const;

    Choices& choices_;
    Totals& totals_;
    const Breakage breakage_;
    const std::chrono::milliseconds bound_;
    /// Pictures that were on show, whether or not they are still there.
    std::vector<std::weak_ptr<const Picture>> shown_;
    /// Kept by this client.
    std::vector<std::shared_ptr<const Picture>> kept_;
    std::unique_ptr<Playout::Session> session_;
    std::optional<UnsteadyStorage> unsteady_;
    std::optional<Playout::Support::FailingStorage> away_;
};

}  // namespace Tavrin::Soak
