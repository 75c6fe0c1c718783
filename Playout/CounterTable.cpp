#include "Playout/CounterTable.h"

#include <array>
#include <chrono>

namespace Tavrin::Playout {

namespace {

using Kind = CounterMetric::Kind;
using Unit = CounterMetric::Unit;

constexpr CounterMetric kPictures{"tavrin_pictures", Kind::Total, Unit::Count,
                                  "Output ticks by what they showed."};
constexpr CounterMetric kFetched{"tavrin_fetched_pictures", Kind::Total, Unit::Count,
                                 "Pictures decoded and delivered."};
constexpr CounterMetric kEvicted{"tavrin_evicted_pictures", Kind::Total, Unit::Count,
                                 "Delivered pictures that are no longer held."};
constexpr CounterMetric kEvictedUnseen{"tavrin_evicted_unseen_pictures", Kind::Total, Unit::Count,
                                       "Delivered pictures that went without having been shown."};
constexpr CounterMetric kWithdrawn{"tavrin_withdrawn_orders", Kind::Total, Unit::Count,
                                   "Orders taken back because they no longer mattered."};
constexpr CounterMetric kReady{"tavrin_ready_pictures", Kind::Level, Unit::Count,
                               "Decoded pictures held ready."};
constexpr CounterMetric kProtected{"tavrin_protected_pictures", Kind::Level, Unit::Count,
                                   "Decoded pictures held ready and in use."};
constexpr CounterMetric kPending{"tavrin_pending_orders", Kind::Level, Unit::Count,
                                 "Orders whose answer is still out."};
constexpr CounterMetric kWaiting{"tavrin_waiting_seconds", Kind::Total, Unit::Seconds,
                                 "Time without the picture under the play head, by what it waited for."};
constexpr CounterMetric kReads{"tavrin_reads", Kind::Total, Unit::Count,
                               "Groups of pictures read from storage."};
constexpr CounterMetric kReused{"tavrin_reused_reads", Kind::Total, Unit::Count,
                                "Orders served by a group that had been read before."};
constexpr CounterMetric kFailedReads{"tavrin_failed_reads", Kind::Total, Unit::Count,
                                     "Reads that ended in an error."};
constexpr CounterMetric kAbandonedReads{"tavrin_abandoned_reads", Kind::Total, Unit::Count,
                                        "Reads given up because of a jump."};
constexpr CounterMetric kMissingPackets{"tavrin_missing_packets", Kind::Total, Unit::Count,
                                        "Packets that reads found not to be in the file."};
constexpr CounterMetric kReadLatency{"tavrin_read_latency_seconds", Kind::Total, Unit::Seconds,
                                     "Time that each read of a group took."};
constexpr CounterMetric kFromStore{"tavrin_stored_decodes", Kind::Total, Unit::Count,
                                   "Decode orders whose picture had been decoded on the way to another."};
constexpr CounterMetric kPackets{"tavrin_decoded_packets", Kind::Total, Unit::Count,
                                 "Packets given to the decoders."};
constexpr CounterMetric kPacketsLeftOut{"tavrin_left_out_packets", Kind::Total, Unit::Count,
                                        "Packets passed over, as nobody needed their pictures."};
constexpr CounterMetric kPasses{"tavrin_decode_passes", Kind::Total, Unit::Count,
                                "Times that a group was begun at its key frame."};
constexpr CounterMetric kAbandonedDecodes{"tavrin_abandoned_decodes", Kind::Total, Unit::Count,
                                          "Decodes given up because of a jump."};
constexpr CounterMetric kDecodeErrors{"tavrin_decode_errors", Kind::Total, Unit::Count,
                                      "Errors that the decoders reported."};
constexpr CounterMetric kDecodeLatency{"tavrin_decode_latency_seconds", Kind::Total, Unit::Seconds,
                                       "Time that each decode order that a decoder was needed for took."};
constexpr CounterMetric kBytesRead{"tavrin_read_bytes", Kind::Total, Unit::Bytes,
                                   "Bytes taken from storage."};
constexpr CounterMetric kBytesHeld{"tavrin_held_bytes", Kind::Level, Unit::Bytes,
                                   "Bytes in memory, by what they are."};

constexpr CounterMetric kBudget{"tavrin_budget_bytes", Kind::Level, Unit::Bytes,
                                "Bytes that the track may take."};

constexpr std::uint64_t ToInteger(std::uint64_t value) {
    return value;
}

std::uint64_t ToInteger(std::chrono::nanoseconds value) {
    return static_cast<std::uint64_t>(value.count());
}

/// What a field is, in a group of TrackCounters.
template <auto Group, auto Member>
constexpr CounterField Field(const char* groupName, const char* name, const CounterMetric& metric,
                             const char* label = "", const char* labelValue = "") {
    return {groupName,
            name,
            &metric,
            label,
            labelValue,
            [](const TrackCounters& track) { return ToInteger((track.*Group).*Member); },
            [](TrackCounters& sum, const TrackCounters& track) {
                (sum.*Group).*Member += (track.*Group).*Member;
            }};
}

template <auto Group, auto Member>
constexpr LatencyField Latency(const char* groupName, const CounterMetric& metric) {
    return {groupName, &metric,
            [](const TrackCounters& track) -> const LatencyHistogram& { return (track.*Group).*Member; },
            [](TrackCounters& sum, const TrackCounters& track) {
                ((sum.*Group).*Member).Add((track.*Group).*Member);
            }};
}

constexpr auto kPicturesOf = &TrackCounters::pictures;
constexpr auto kFetchesOf = &TrackCounters::fetches;
constexpr auto kWaitsOf = &TrackCounters::waits;
constexpr auto kReadsOf = &TrackCounters::reads;
constexpr auto kDecodesOf = &TrackCounters::decodes;
constexpr auto kBytesOf = &TrackCounters::bytes;

using P = PictureCounters;
using F = FetchCounters;
using W = WaitCounters;
using R = ReadCounters;
using D = DecodeCounters;
using B = ByteCounters;

constexpr std::array kFields{
    Field<kPicturesOf, &P::nbExact>("pictures", "exact", kPictures, "shown", "exact"),
    Field<kPicturesOf, &P::nbLate>("pictures", "late", kPictures, "shown", "late"),
    Field<kPicturesOf, &P::nbRepeated>("pictures", "repeated", kPictures, "shown", "repeated"),
    Field<kPicturesOf, &P::nbStoodIn>("pictures", "stoodIn", kPictures, "shown", "stood_in"),
    Field<kPicturesOf, &P::nbMissing>("pictures", "missing", kPictures, "shown", "missing"),
    Field<kPicturesOf, &P::nbEmpty>("pictures", "empty", kPictures, "shown", "empty"),
    Field<kFetchesOf, &F::nbFetched>("fetches", "fetched", kFetched),
    Field<kFetchesOf, &F::nbEvicted>("fetches", "evicted", kEvicted),
    Field<kFetchesOf, &F::nbEvictedUnseen>("fetches", "evictedUnseen", kEvictedUnseen),
    Field<kFetchesOf, &F::nbWithdrawn>("fetches", "withdrawn", kWithdrawn),
    Field<kFetchesOf, &F::nbReady>("fetches", "ready", kReady),
    Field<kFetchesOf, &F::nbProtected>("fetches", "protected", kProtected),
    Field<kFetchesOf, &F::nbPending>("fetches", "pending", kPending),
    Field<kWaitsOf, &W::storage>("waits", "storageSeconds", kWaiting, "cause", "storage"),
    Field<kWaitsOf, &W::decoder>("waits", "decoderSeconds", kWaiting, "cause", "decoder"),
    Field<kReadsOf, &R::nbReads>("reads", "groups", kReads),
    Field<kReadsOf, &R::nbReused>("reads", "reused", kReused),
    Field<kReadsOf, &R::nbFailed>("reads", "failed", kFailedReads),
    Field<kReadsOf, &R::nbAbandoned>("reads", "abandoned", kAbandonedReads),
    Field<kReadsOf, &R::nbMissingPackets>("reads", "missingPackets", kMissingPackets),
    Field<kDecodesOf, &D::nbFromStore>("decodes", "fromStore", kFromStore),
    Field<kDecodesOf, &D::nbPackets>("decodes", "packets", kPackets),
    Field<kDecodesOf, &D::nbPacketsLeftOut>("decodes", "packetsLeftOut", kPacketsLeftOut),
    Field<kDecodesOf, &D::nbPasses>("decodes", "passes", kPasses),
    Field<kDecodesOf, &D::nbAbandoned>("decodes", "abandoned", kAbandonedDecodes),
    Field<kDecodesOf, &D::nbErrors>("decodes", "errors", kDecodeErrors),
    Field<kBytesOf, &B::read>("bytes", "read", kBytesRead),
    Field<kBytesOf, &B::compressed>("bytes", "compressed", kBytesHeld, "kind", "compressed"),
    Field<kBytesOf, &B::decoded>("bytes", "decoded", kBytesHeld, "kind", "decoded"),
    Field<kBytesOf, &B::store>("bytes", "store", kBytesHeld, "kind", "store"),
    Field<kBytesOf, &B::pictures>("bytes", "pictures", kBytesHeld, "kind", "pictures"),
    Field<kBytesOf, &B::budget>("bytes", "budget", kBudget),
};

constexpr std::array kLatencies{
    Latency<kReadsOf, &R::latency>("reads", kReadLatency),
    Latency<kDecodesOf, &D::latency>("decodes", kDecodeLatency),
};

}  // namespace

std::span<const CounterField> CounterFields() {
    return kFields;
}

std::span<const LatencyField> LatencyFields() {
    return kLatencies;
}

}  // namespace Tavrin::Playout
