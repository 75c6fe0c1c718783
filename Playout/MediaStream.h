#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Player/Cache.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/IStream.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/SampleRate.h"
#include "Playout/CellState.h"
#include "Playout/DecodedSample.h"
#include "Playout/FetchPlan.h"
#include "Playout/FieldOrder.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"
#include "Playout/SampleOrders.h"
#include "Playout/StreamHead.h"
#include "Playout/Trace.h"
#include "Playout/WaitCause.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// A recording as a track of the engine: a cache of compressed and one of decoded samples, a planner for
/// each, and the queues of the orders for what they lack.
///
/// At each tick its owner calls `Intake`, lets the player move, asks `GetCurrentSample`, and calls `Plan`:
///
///     compressed planner -> preload queue -> (worker) -> compressed cache
///     decoded planner, compressed cache -> decode queue -> (worker) -> decoded cache -> GetCurrentSample
///
/// At speeds at which the display cannot show every picture, only the samples of a coarser rate are fetched,
/// and the one that the play head falls in is shown.
///
/// Shown by fields, an interlaced recording has decoded samples at twice its rate, each ordered as one field of the
/// compressed sample that holds both.
///
/// *Threads:* bound to one thread, the one that drives the player. *Blocking:* never.
/// *Ownership:* owns its caches and queues, which it registers on construction and removes on destruction; by
/// then no worker may serve its order queues any more. Borrows the registry and the player it is linked to.
/// *Errors:* none of its own. A sample that cannot be had becomes missing, and is asked for again later.
class TAVRIN_PLAYOUT_EXPORT MediaStream final : public Player::Stream {
public:
    MediaStream(std::shared_ptr<const RecordingIndex> index, const Player::TrackId& track,
                const Player::SampleRate& displayRate, const StreamWindow& window,
                Player::ExistingCacheUpdateQueues& registry, FieldOutput fields = FieldOutput::Frames);
    ~MediaStream() override;

    [[nodiscard]] Time::TimePoint Begin() override;
    void SetBegin(const Time::TimePoint& tp) override;
    [[nodiscard]] Time::TimePoint End() override;
    void SetEnd(const Time::TimePoint& tp) override;
    [[nodiscard]] bool Exists(const Time::TimePoint& tp) override;
    [[nodiscard]] Time::TimePoint Next(const Time::TimePoint& tp) override;
    [[nodiscard]] Time::TimePoint Previous(const Time::TimePoint& tp) override;

    /// `Empty` outside of the recording and where the picture cannot be had. `Same` is told by the picture:
    /// one that stays on display for several samples is the same.
    [[nodiscard]] Player::SampleStatus GetCurrentSample(Player::ISample** sample) override;

    /// Replaces the parameters but for the queues, which are the stream's own.
    void SetStreamParameters(const StreamParameters& parameters) override;
    [[nodiscard]] const StreamParameters& GetStreamParameters() override;
    void LinkPlayer(Player::IPlayer* player) override;
    void UnlinkPlayer() override;
    [[nodiscard]] bool IsLinked() override;
    [[nodiscard]] bool IsReady() override;
    [[nodiscard]] Player::CacheUpdateQueue* GetCacheUpdateQueue() override;
    [[nodiscard]] Player::CacheUpdateQueue* GetUncompressedCacheUpdateQueue() override;
    void SetCompressedPreloadNumber(std::size_t nb) override;
    [[nodiscard]] std::int32_t DebugPreloadQueueSize() override;

    /// Records orders and evictions there from now on; null: nowhere. Borrowed.
    void SetTrace(Trace* trace) { orders_.SetTrace(trace); }

    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    /// By which pictures that cannot be had are asked for again: the steady clock unless another is set.
    void SetClock(Clock clock);

    /// From the next `Plan` on.
    void SetWindow(const StreamWindow& window);

    /// Files what the workers have delivered.
    void Intake();

    /// Drops what is far from the play head and orders what is near it, nearest first.
    void Plan();

    /// Takes the orders that no worker has begun out of the queues and answers them, so that none of their
    /// entries stays pending, and forgets what could not be had: for a jump or a change of direction, after
    /// which `Plan` orders what matters then.
    void Withdraw();

    /// Forgets what could not be had, so that `Plan` asks for it again at once.
    void TryMissingAgain();

    /// Takes out and answers only the orders for what the play head has left behind: for a track that the
    /// others do not wait for, whose workers would otherwise be busy with what nobody sees any more.
    void WithdrawPassed();

    /// Whether the picture at the play head is one that cannot be had (rather than none being there).
    [[nodiscard]] bool CurrentIsMissing();

    /// Pictures that stand in for those asked for are shown too, as long as that is allowed; else they are
    /// dropped where they are found, and asked for anew.
    void AllowStandIns(bool allowed);

    /// While the play head is dragged, only the picture under it is decoded: what is around it now is not when it
    /// has come.
    void SetDragged(bool dragged) { dragged_ = dragged; }
    [[nodiscard]] bool IsDragged() const { return dragged_; }

    /// What belongs at the play head is there: the picture itself, neither missing nor stood in for, or nothing belongs
    /// there.
    [[nodiscard]] bool HasExact();

    /// Whether a decoded sample shows another picture than the one that is on display at its time point.
    [[nodiscard]] bool IsStandIn(const DecodedSample& sample) const;

    /// Whether the next `nb` samples that are to be shown after the one at the play head need not be waited for: they
    /// are decoded, cannot be had or lie beyond the recording, or nothing follows since the play head stands.
    [[nodiscard]] bool HasAhead(std::size_t nb);

    /// What the picture at the play head waits for; None whenever `IsReady`.
    [[nodiscard]] Playout::WaitCause WaitCause();

    /// The samples that it is shown in.
    [[nodiscard]] const FieldOrder& Fields() const { return head_.Fields(); }

    /// The rate that is fetched at the player's speed: that of the samples shown, halved until the display can show
    /// it.
    [[nodiscard]] Player::SampleRate FetchRate() const;

    /// What is known of the track's pictures, for people to look at; see CellStatesOf.
    [[nodiscard]] std::vector<CellState> CellStates(const CellRange& range);

    /// Answers of workers filed so far.
    [[nodiscard]] std::uint64_t NbAnswers() const { return orders_.NbAnswers(); }
    [[nodiscard]] std::uint64_t NbWithdrawn() const { return orders_.NbWithdrawn(); }
    [[nodiscard]] const Player::Cache& Compressed() const { return compressed_; }
    [[nodiscard]] const Player::Cache& Decoded() const { return decoded_; }

private:
    [[nodiscard]] Player::Cache::EntryType Find(Player::ISample** sample);
    void RetryMissing();
    void ForgetMissing();
    void ForgetAll(const Time::TimePoint& shown);
    [[nodiscard]] bool HasSettled();
    [[nodiscard]] bool OthersMayWait() const;

    std::shared_ptr<const RecordingIndex> index_;
    Player::ExistingCacheUpdateQueues& registry_;
    StreamParameters parameters_;

    Player::Cache compressed_;
    Player::Cache decoded_;
    StreamHead head_;
    SampleOrders orders_;
    FetchPlan plan_;

    std::optional<std::pair<std::size_t, PictureField>> shownPicture_;
    bool standInsAllowed_ = false;
    bool dragged_ = false;
    bool isBlocked_ = false;  ///< Under the play head is what may no longer stand in, and cannot go yet.
    bool hasJumped_ = false;  ///< And the picture there has not come yet.
    Clock clock_ = &std::chrono::steady_clock::now;
    std::chrono::milliseconds retryDelay_;
    std::chrono::steady_clock::time_point nextRetry_;
};

}  // namespace Tavrin::Playout
