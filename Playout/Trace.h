#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>

#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// A number that a trace's event carries. The name is a literal.
struct TraceArgument {
    const char* name;
    std::int64_t value;
};

/// A record of what happened when, and on which thread, in a file that the usual viewers open: an array of
/// events in the Chrome trace event format. For finding out why a run went as it did.
///
/// Events go into a buffer of fixed size, from which a thread of its own writes them to the file. When the disk
/// does not keep up and the buffer is full, events are lost rather than anybody held up; their number stands in
/// the file, as an event "lost", and in NbLost. Names and categories are literals, or at least outlive the
/// trace: only pointers to them are kept.
///
/// *Threads:* thread-safe. Events that come after Close are ignored. *Blocking:* never beyond the short
/// internal lock; the constructor, Close and the destructor on the disk. *Ownership:* owns the file and the
/// thread. *Errors:* the constructor and Close throw std::runtime_error in one line that names the file and the
/// reason. The destructor closes, and keeps quiet about what fails.
class TAVRIN_PLAYOUT_EXPORT Trace final {
public:
    using Clock = std::chrono::steady_clock;
    using Arguments = std::initializer_list<TraceArgument>;

    /// More of an event are left out.
    static constexpr std::size_t kMostArguments = 4;

    /// Events that wait to be written when nobody says otherwise: some seconds of a hundred busy tracks.
    static constexpr std::size_t kBufferedEvents = 16'384;

    /// Makes the file, or empties it.
    explicit Trace(const std::string& file, std::size_t nbBuffered = kBufferedEvents);
    ~Trace();
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    /// The calling thread goes by that name from now on; of several with the same name, the later ones get a
    /// number. Only a thread's first name counts.
    void NameThread(const char* name);

    /// Something that happened just now.
    void Mark(const char* category, const char* name, Arguments arguments = {});

    /// Something that the calling thread did from \p begin to \p end. Spans of one thread may lie in one another
    /// but must not overlap otherwise; TraceSpan sees to that.
    void Span(const char* category, const char* name, Clock::time_point begin, Clock::time_point end,
              Arguments arguments = {});

    /// Writes what is left, ends the array and closes the file. A second call does nothing.
    void Close();

    /// Events lost so far.
    [[nodiscard]] std::uint64_t NbLost() const;

private:
    friend class TraceSpan;
    using FixedArguments = std::array<TraceArgument, kMostArguments>;
    class Impl;

    void Span(const char* category, const char* name, Clock::time_point begin, Clock::time_point end,
              const FixedArguments& arguments);

    std::unique_ptr<Impl> impl_;
};

/// Records a scope as a span. Without a trace it costs the check for null.
///
/// *Threads:* bound to one thread. *Ownership:* borrows the trace.
class TAVRIN_PLAYOUT_EXPORT TraceSpan final {
public:
    TraceSpan(Trace* trace, const char* category, const char* name, Trace::Arguments arguments = {}) {
        if (trace != nullptr) {
            Begin(*trace, category, name, arguments);
        }
    }
    ~TraceSpan() {
        if (trace_ != nullptr) {
            End();
        }
    }
    TraceSpan(const TraceSpan&) = delete;
    TraceSpan& operator=(const TraceSpan&) = delete;

    /// What is known only once the scope has run.
    void Add(const TraceArgument& argument) {
        if (trace_ != nullptr && nbArguments_ < Trace::kMostArguments) {
            arguments_[nbArguments_++] = argument;
        }
    }

private:
    void Begin(Trace& trace, const char* category, const char* name, Trace::Arguments arguments);
    void End();

    Trace* trace_ = nullptr;
    const char* category_ = nullptr;
    const char* name_ = nullptr;
    Trace::Clock::time_point begin_;
    Trace::FixedArguments arguments_;  ///< Left as it is without a trace.
    std::size_t nbArguments_ = 0;
};

}  // namespace Tavrin::Playout
