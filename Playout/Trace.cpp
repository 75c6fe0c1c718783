#include "Playout/Trace.h"

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "Playout/OutputFile.h"

namespace Tavrin::Playout {

using std::chrono::nanoseconds;

namespace {

/// How old what stands in the file may be while little happens.
constexpr std::chrono::milliseconds kLongestDelay{200};

constexpr std::int64_t kNanosecondsPerMicrosecond = 1000;
constexpr std::size_t kNbDecimals = 3;

/// The phases of the format that are used here.
enum class Phase : char { Complete = 'X', Instant = 'i', Metadata = 'M' };

int ThreadNumber() {
    static thread_local const int number = ::gettid();
    return number;
}

/// Microseconds, which is what viewers read, with every nanosecond.
std::string Microseconds(nanoseconds time) {
    const std::string decimals = std::to_string(time.count() % kNanosecondsPerMicrosecond);
    return std::to_string(time.count() / kNanosecondsPerMicrosecond) + '.' +
           std::string(kNbDecimals - decimals.size(), '0') + decimals;
}

std::string Quoted(const std::string& text) {
    using nlohmann::json;
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

class Trace::Impl {
public:
    Impl(const std::string& file, std::size_t nbBuffered)
        : file_(file), nbBuffered_(std::max<std::size_t>(nbBuffered, 1)) {
        waiting_.reserve(nbBuffered_);
        writing_.reserve(nbBuffered_);
        file_.Write(
            "[\n"
            R"({"name":"process_name","ph":"M","ts":0,"pid":)" +
            std::to_string(process_) + R"(,"tid":)" + std::to_string(ThreadNumber()) +
            R"(,"args":{"name":"playout"}})");
        writer_ = std::thread([this] { WriteUntilClosed(); });
    }

    ~Impl() { StopWriter(); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void NameThread(const char* name) {
        const std::scoped_lock lock(mutex_);
        if (!isClosing_ && named_.insert(ThreadNumber()).second) {
            // However full the buffer is: there are few threads, and a nameless one is a riddle.
            waiting_.push_back(NameEvent(name, ++nbNamed_[name]));
        }
    }

    void Mark(const char* category, const char* name, const FixedArguments& arguments) {
        Event event = Now(Phase::Instant, category, name);
        event.arguments = arguments;
        Record(event);
    }

    void Span(const char* category, const char* name, Clock::time_point begin, Clock::time_point end,
              const FixedArguments& arguments) {
        Event event = Now(Phase::Complete, category, name);
        event.begin = std::max(begin - begin_, Clock::duration::zero());
        event.duration = std::max(end - begin_ - event.begin, Clock::duration::zero());
        event.arguments = arguments;
        Record(event);
    }

    void Close() {
        if (!StopWriter()) {
            return;
        }
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        file_.Write("\n]\n");
        file_.Finish();
    }

    std::uint64_t NbLost() const {
        const std::scoped_lock lock(mutex_);
        return nbLost_;
    }

private:
    /// All that is kept of one: a record of fixed size.
    struct Event {
        Phase phase;
        int thread;
        const char* category;
        const char* name;
        nanoseconds begin;
        nanoseconds duration;
        std::int64_t number;  ///< Of a thread among those of its name.
        FixedArguments arguments;
    };

    Event Now(Phase phase, const char* category, const char* name) const {
        return {phase, ThreadNumber(), category, name, Clock::now() - begin_, nanoseconds(0), 0, {}};
    }

    Event NameEvent(const char* name, std::int64_t number) const {
        Event event = Now(Phase::Metadata, "", name);
        event.number = number;
        return event;
    }

    void Record(const Event& event) {
        const std::scoped_lock lock(mutex_);
        if (isClosing_) {
            return;
        }
        if (waiting_.size() >= nbBuffered_) {
            ++nbLost_;
            return;
        }
        waiting_.push_back(event);
        if (waiting_.size() > nbBuffered_ / 2 && !std::exchange(isWoken_, true)) {
            changed_.notify_one();
        }
    }

    void WriteUntilClosed() {
        writing_.push_back(NameEvent("trace", 1));
        WriteBatch(0);
        bool isLast = false;
        while (!isLast) {
            std::uint64_t nbLost = 0;
            {
                std::unique_lock lock(mutex_);
                changed_.wait_for(lock, kLongestDelay,
                                  [this] { return isClosing_ || waiting_.size() > nbBuffered_ / 2; });
                isLast = isClosing_;
                isWoken_ = false;
                writing_.swap(waiting_);
                nbLost = nbLost_ - std::exchange(nbLostWritten_, nbLost_);
            }
            WriteBatch(nbLost);
        }
    }

    /// What fails is kept for Close; what comes after it cannot be written either.
    void WriteBatch(std::uint64_t nbLost) {
        try {
            for (std::size_t i = 0; i < writing_.size() && !failure_; ++i) {
                file_.Write(Describe(writing_[i]));
            }
            if (nbLost > 0 && !failure_) {
                Event lost = Now(Phase::Instant, "trace", "lost");
                lost.arguments = {{{"events", static_cast<std::int64_t>(nbLost)}}};
                file_.Write(Describe(lost));
            }
        } catch (...) {
            failure_ = std::current_exception();
        }
        writing_.clear();
    }

    std::string Describe(const Event& event) const {
        std::string text =
            ",\n"
            R"({"name":)";
        text += event.phase == Phase::Metadata ? R"("thread_name")" : Quoted(event.name);
        text += R"(,"ph":")";
        text += static_cast<char>(event.phase);
        text += R"(","ts":)" + Microseconds(event.begin) + R"(,"pid":)" + std::to_string(process_) +
                R"(,"tid":)" + std::to_string(event.thread);
        if (event.phase == Phase::Complete) {
            text += R"(,"dur":)" + Microseconds(event.duration);
        }
        if (event.phase == Phase::Instant) {
            text += R"(,"s":"t")";
        }
        if (event.phase != Phase::Metadata) {
            text += R"(,"cat":)" + Quoted(event.category);
        }
        return text + R"(,"args":{)" + DescribeArguments(event) + "}}";
    }

    static std::string DescribeArguments(const Event& event) {
        if (event.phase == Phase::Metadata) {
            const std::string number = event.number > 1 ? ' ' + std::to_string(event.number) : "";
            return R"("name":)" + Quoted(event.name + number);
        }
        std::string text;
        for (const TraceArgument& argument : event.arguments) {
            if (argument.name != nullptr) {
                text += text.empty() ? "" : ",";
                text += Quoted(argument.name) + ':' + std::to_string(argument.value);
            }
        }
        return text;
    }

    /// Whether it was still running.
    bool StopWriter() {
        {
            const std::scoped_lock lock(mutex_);
            if (std::exchange(isClosing_, true)) {
                return false;
            }
        }
        changed_.notify_one();
        writer_.join();
        return true;
    }

    const Clock::time_point begin_ = Clock::now();
    const int process_ = ::getpid();
    OutputFile file_;  ///< Of the writer's while that runs, then of Close.
    const std::size_t nbBuffered_;

    mutable std::mutex mutex_;  ///< Guards what follows, but for what says otherwise.
    std::condition_variable changed_;
    std::vector<Event> waiting_;
    std::set<int> named_;
    std::map<std::string, std::int64_t> nbNamed_;
    std::uint64_t nbLost_ = 0;
    std::uint64_t nbLostWritten_ = 0;
    bool isWoken_ = false;  ///< The writer, and it has not looked since.
    bool isClosing_ = false;

    std::vector<Event> writing_;  ///< Of the writer's.
    std::exception_ptr failure_;  ///< Of the writer's while that runs, then of Close.
    std::thread writer_;
};

namespace {

template <std::size_t Nb>
std::size_t Copy(Trace::Arguments arguments, std::array<TraceArgument, Nb>& fixed) {
    const std::size_t nbCopied = std::min(arguments.size(), Nb);
    std::copy_n(arguments.begin(), nbCopied, fixed.begin());
    return nbCopied;
}

}  // namespace

Trace::Trace(const std::string& file, std::size_t nbBuffered)
    : impl_(std::make_unique<Impl>(file, nbBuffered)) {
}

Trace::~Trace() {
    try {
        Close();
    } catch (const std::exception&) {
        // Who wants to know calls Close.
        return;
    }
}

void Trace::NameThread(const char* name) {
    impl_->NameThread(name);
}

void Trace::Mark(const char* category, const char* name, Arguments arguments) {
    FixedArguments fixed{};
    Copy(arguments, fixed);
    impl_->Mark(category, name, fixed);
}

void Trace::Span(const char* category, const char* name, Clock::time_point begin, Clock::time_point end,
                 Arguments arguments) {
    FixedArguments fixed{};
    Copy(arguments, fixed);
    impl_->Span(category, name, begin, end, fixed);
}

void Trace::Span(const char* category, const char* name, Clock::time_point begin, Clock::time_point end,
                 const FixedArguments& arguments) {
    impl_->Span(category, name, begin, end, arguments);
}

void Trace::Close() {
    impl_->Close();
}

std::uint64_t Trace::NbLost() const {
    return impl_->NbLost();
}

void TraceSpan::Begin(Trace& trace, const char* category, const char* name, Trace::Arguments arguments) {
    trace_ = &trace;
    category_ = category;
    name_ = name;
    arguments_.fill({});
    nbArguments_ = Copy(arguments, arguments_);
    begin_ = Trace::Clock::now();
}

void TraceSpan::End() {
    trace_->Span(category_, name_, begin_, Trace::Clock::now(), arguments_);
}

}  // namespace Tavrin::Playout
