#include "Soak/Run.h"

#include <exception>
#include <iostream>
#include <sstream>

#include "Soak/EnginePhase.h"
#include "Soak/Failure.h"
#include "Soak/ProcessState.h"

namespace Tavrin::Soak {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

/// For what a joined thread leaves: it is in the system's list for a moment longer.
constexpr std::chrono::seconds kThreadBound{10};

constexpr std::chrono::seconds kProgressPeriod{60};

const char* NameOf(Halves halves) {
    return halves == Halves::Both ? "both" : halves == Halves::Engine ? "engine" : "playout";
}

std::string InHexadecimal(std::uint64_t number) {
    std::ostringstream text;
    text << std::hex << number;
    return text.str();
}

}  // namespace

Run::Run(const RunOptions& options)
    : options_(options),
      recordings_(options.halves_ == Halves::Engine ? Recordings() : SmallRecordings()),
      digest_(options.seed_),
      begin_(Clock::now()),
      nextProgress_(begin_ + kProgressPeriod),
      nbThreads_(NbThreadsOnceWarm()),
      nbDescriptors_(NbDescriptors()) {
}

Run::~Run() {
    leave_.Open();
    Player::Testing::JoinAll(leftThreads_);
}

std::chrono::milliseconds Run::Elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin_);
}

bool Run::IsOver(std::uint64_t nbPhases) const {
    return options_.nbPhases_ ? nbPhases >= *options_.nbPhases_ : Elapsed() >= options_.span_;
}

bool Run::IsEngine(std::uint64_t number) const {
    return options_.halves_ == Halves::Engine || (options_.halves_ == Halves::Both && number % 2 == 0);
}

/// Not only so many phases but also a tenth of the time: the longer a run, the rarer is what it may meet.
bool Run::IsWarm() const {
    const bool isLater = options_.nbPhases_.has_value() || Elapsed() >= options_.span_ / 10;
    return totals_.nbPhases_ > options_.nbWarmUp_ && isLater;
}

bool Run::Execute() {
    for (std::uint64_t number = options_.first_; !IsOver(number - options_.first_); ++number) {
        try {
            // Before it begins: a crash or a report of a sanitizer ends the process without another word.
            std::cout << "soak: phase " << number << (IsEngine(number) ? " (engine)" : " (playout)")
                      << " with " << ResidentWatch::InMebibytes(ResidentBytes()) << " resident" << std::endl;
            Phase(number);
        } catch (const std::exception& e) {
            TellFailure(number, e.what());
            return false;
        }
        TellProgress();
    }
    TellSummary();
    return true;
}

void Run::Phase(std::uint64_t number) {
    Choices choices(Mixed(options_.seed_, number));
    PhaseMeans means{choices, totals_, options_.breakage_};
    if (options_.breakage_ != Breakage::None) {
        // What is broken is waited for in vain.
        means.bound_ = 4s;
    }
    if (IsEngine(number)) {
        EnginePhase(means).Run();
    } else {
        PlayoutPhase(means, recordings_).Run();
    }
    digest_ = Mixed(digest_, choices.Digest());
    ++totals_.nbPhases_;
    LeaveSomething();
    CheckProcess();
    NoteResident();
}

void Run::LeaveSomething() {
    if (options_.breakage_ == Breakage::ThreadLeft) {
        leftThreads_.emplace_back([this] { static_cast<void>(leave_.Wait()); });
    } else if (options_.breakage_ == Breakage::DescriptorLeft) {
        leftFiles_.emplace_back("/dev/null");
    } else if (options_.breakage_ == Breakage::MemoryLeaked) {
        leftMemory_.emplace_back(std::size_t{4} << 20U, 'x');
    }
}

void Run::CheckProcess() const {
    const auto end = Clock::now() + (options_.breakage_ == Breakage::None ? kThreadBound : 1s);
    while (NbThreads() != nbThreads_ && Clock::now() < end) {
        std::this_thread::sleep_for(1ms);
    }
    RequireEqual(NbThreads(), nbThreads_, "threads after a phase");
    RequireEqual(NbDescriptors(), nbDescriptors_, "open files after a phase");
}

void Run::NoteResident() {
    const std::uint64_t bytes = ResidentBytes();
    if (!IsWarm() || !ResidentMemoryTells()) {
        resident_.NoteWarmUp(bytes);
    } else {
        resident_.Note(bytes);
    }
}

void Run::TellProgress() {
    if (Clock::now() < nextProgress_) {
        return;
    }
    nextProgress_ += kProgressPeriod;
    std::cout << "soak: " << Elapsed() / 1min << " min, " << totals_.nbPhases_ << " phases, "
              << totals_.nbTicks_ << " ticks, " << ResidentText() << std::endl;
}

void Run::TellFailure(std::uint64_t number, const std::string& what) const {
    std::cout << std::flush;
    std::cerr << "soak: FAILED with seed " << options_.seed_ << " in phase " << number << " ("
              << (IsEngine(number) ? "engine" : "playout") << "): " << what
              << "\nsoak: the same choices again: "
              << "soak --seed " << options_.seed_ << " --half " << NameOf(options_.halves_) << " --first "
              << number << " --phases 1" << std::endl;
}

std::string Run::ResidentText() const {
    if (!ResidentMemoryTells()) {
        return "resident memory " + ResidentWatch::InMebibytes(resident_.Begin()) +
               " at the most, not judged in this build";
    }
    if (!resident_.HasJudged()) {
        return "resident memory " + ResidentWatch::InMebibytes(resident_.Begin()) + ", still warming up";
    }
    return "resident memory " + ResidentWatch::InMebibytes(resident_.Begin()) + " after the warm-up and " +
           ResidentWatch::InMebibytes(resident_.End()) + " at the end";
}

void Run::TellSummary() const {
    const Totals& all = totals_;
    std::cout << "soak: everything held: seed " << options_.seed_ << ", " << all.nbPhases_ << " phases in "
              << Elapsed() / 1s << " s, " << all.nbTicks_ << " ticks; engine: " << all.nbRequests_
              << " requests, " << all.nbAnswers_ << " answers, " << all.nbGivenUp_ << " given up with "
              << "their streams, " << all.nbStreams_ << " streams, " << all.nbSamples_
              << " samples; playout: " << all.nbSessions_ << " sessions, " << all.nbReads_ << " groups read, "
              << all.nbFailedReads_ << " reads failed, " << all.nbPictures_ << " pictures decoded, "
              << all.nbWithdrawn_ << " orders withdrawn; " << ResidentText() << "; choices "
              << InHexadecimal(digest_) << std::endl;
}

}  // namespace Tavrin::Soak
