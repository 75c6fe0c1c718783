#pragma once

#include <chrono>
#include <cstddef>

#include "Player/Cache.h"
#include "Player/IStream.h"
#include "Player/PreloadTimePointGenerator.h"
#include "Playout/SampleOrders.h"
#include "Playout/StreamHead.h"
#include "Time/TimePoint.h"

namespace Tavrin::Playout {

/// How far a stream looks around the play head, in samples of the rate that is fetched at the current speed.
struct StreamWindow {
    std::size_t nbDecodedAhead = 16;  ///< On either side of a play head that stands.
    std::size_t nbDecodedBehind = 8;  ///< While it moves.
    std::size_t nbCompressedAhead = 40;
    std::chrono::milliseconds retryAfter{1000};  ///< Before a picture that cannot be had is asked for again.
};

/// What a stream asks for around the play head, in what order, and what it drops.
///
///     [behind: last] [under the play head: first] [ahead: nearest first ...]
///
/// Asking and evicting need a play head that is linked.
///
/// *Threads:* bound to the stream's thread. *Blocking:* never. *Ownership:* borrows all it is given; owns the engine's
/// two planners. *Errors:* none.
class FetchPlan final {
public:
    FetchPlan(const StreamHead& head, Player::Cache& compressed, Player::Cache& decoded,
              SampleOrders& orders);

    /// The planners are set up anew for the stream's parameters.
    void Configure(const Player::Stream::StreamParameters& parameters);
    void SetWindow(const StreamWindow& window);
    void SetNbCompressedAhead(std::size_t nb);
    [[nodiscard]] const StreamWindow& Window() const { return window_; }

    /// Drops what is far from the play head.
    void Evict();
    /// Orders what is under it.
    void AskForNeeded();
    /// Orders the compressed samples ahead.
    void AskForCompressed();
    enum class Extent {
        Ahead,  ///< All that can be is decoded at every tick, since there is not the time for everything.
        AheadAndBehind  ///< Rests where enough is ready; what lies behind is ordered when all that lies ahead is.
    };
    /// Orders the decoded samples.
    void AskForDecoded(Extent extent);

    /// Whether the next `nb` samples that are to be shown after the one at the play head need not be waited for: they
    /// are decoded, cannot be had or lie beyond the recording, or nothing follows since the play head stands, or is not
    /// linked.
    [[nodiscard]] bool HasAhead(std::size_t nb);

private:
    void AskForBehind();
    void Read(const Time::TimePoint& tp);
    void Decode(const Time::TimePoint& tp);
    [[nodiscard]] std::size_t NbAhead() const { return head_.NbOfSamples(window_.nbDecodedAhead); }
    [[nodiscard]] bool IsDecodedSoon(const Time::TimePoint& tp) const;
    [[nodiscard]] bool Rests();
    [[nodiscard]] std::size_t EvictFrom(Player::Cache& cache, const Player::SampleRate& rate,
                                        std::size_t nbAhead, std::size_t nbBehind) const;

    const StreamHead& head_;
    Player::Cache& compressed_;
    Player::Cache& decoded_;
    SampleOrders& orders_;
    StreamWindow window_;
    // What the planners are told, in samples.
    std::size_t nbToRead_ = 0;
    std::size_t nbToDecode_ = 0;
    Player::PreloadTimePointGenerator compressedPlanner_;
    Player::PreloadTimePointGenerator decodedPlanner_;
    bool rests_ = false;  ///< Enough is decoded for a while.
};

}  // namespace Tavrin::Playout
