#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Player/Support/Waiting.h"
#include "Soak/Breakage.h"
#include "Soak/PlayoutPhase.h"
#include "Soak/ResidentWatch.h"
#include "Soak/Totals.h"

namespace Tavrin::Soak {

/// What phases a run has.
enum class Halves { Both, Engine, Playout };

struct RunOptions {
    std::chrono::milliseconds span_{0};
    std::uint64_t seed_ = 0;
    Halves halves_ = Halves::Both;
    std::uint64_t first_ = 0;                ///< The number of the first phase.
    std::optional<std::uint64_t> nbPhases_;  ///< However long they take.
    std::uint64_t nbWarmUp_ = 8;             ///< Phases at least, before memory is judged.
    Breakage breakage_ = Breakage::None;
};

/// A sequence of phases, each with a seed of its own that follows from the run's, and what must hold after each:
/// everything that a phase has begun is over and given back.
///
/// *Threads:* bound to one thread, and the process must have no other but those of the phases.
class Run {
public:
    explicit Run(const RunOptions& options);
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run();

    /// Whether everything held; what did not is said on standard error, with the seed and the phase, and how to
    /// have it again.
    bool Execute();

private:
    void Phase(std::uint64_t number);
    [[nodiscard]] bool IsOver(std::uint64_t nbPhases) const;
    [[nodiscard]] bool IsEngine(std::uint64_t number) const;
    [[nodiscard]] bool IsWarm() const;
    [[nodiscard]] std::chrono::milliseconds Elapsed() const;
    void LeaveSomething();
    void CheckProcess() const;
    void NoteResident();
    void TellProgress();
    void TellFailure(std::uint64_t number, const std::string& what) const;
    void TellSummary() const;
    [[nodiscard]] std::string ResidentText() const;

    const RunOptions options_;
    const Recordings recordings_;
    Totals totals_;
    ResidentWatch resident_;
    std::uint64_t digest_ = 0;
    const std::chrono::steady_clock::time_point begin_;
    std::chrono::steady_clock::time_point nextProgress_;
    std::size_t nbThreads_;
    std::size_t nbDescriptors_;

    // What is broken on purpose.
    Player::Testing::Gate leave_;
    std::vector<std::thread> leftThreads_;
    std::vector<std::ifstream> leftFiles_;
    std::vector<std::vector<char>> leftMemory_;
};

}  // namespace Tavrin::Soak
