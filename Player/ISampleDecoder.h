#pragma once

#include "Player/DecodeOrder.h"
#include "Player/ISample.h"
#include "Player/PlayerExport.h"

namespace Tavrin::Player {

/// Turns compressed samples into decoded ones. Clients implement it.
///
/// The implementer guarantees:
/// 1. `Decode` may be called from several worker threads at once;
/// 2. a failure is reported by returning null or by throwing `std::runtime_error`; any other exception ends
///    the process, as it does on every thread;
/// 3. the compressed sample is only read: not deleted, and its protection not released (the worker does that
///    when `Decode` is done);
/// 4. nothing of the compressed sample is used after `Decode` has returned.
///
/// The implementer may assume:
/// 1. the compressed sample is protected, and so alive, during the call;
/// 2. the returned sample is delivered or deleted exactly once, through `ISample`.
///
/// What comes of a decoder that
/// - takes long, or hangs: its worker is held, and so are the `Stop` of that worker and the removal of the
///   order's queue from the registry; other workers go on;
/// - returns null or throws `std::runtime_error`: the entry becomes `Cache::Missing`;
/// - throws anything else: the process ends, as a decoder that cannot say what went wrong may have left
///   anything behind;
/// - delivers by itself as well, or returns when the cache has dropped the entry: `Cache::Update` deletes the
///   later sample and throws `std::runtime_error`;
/// - is to decode for a queue that is gone: it is not called when there is a registry, and the compressed
///   sample keeps the order's protection.
class TAVRIN_PLAYER_EXPORT ISampleDecoder {
public:
    ISampleDecoder() = default;
    ISampleDecoder(const ISampleDecoder&) = delete;
    ISampleDecoder& operator=(const ISampleDecoder&) = delete;
    virtual ~ISampleDecoder() = default;

    /// Decodes `order.toDecode_` as the order's fields say; a new sample that the caller owns, or null when
    /// it cannot be decoded.
    virtual ISample* Decode(const DecodeOrder& order) = 0;
};

}  // namespace Tavrin::Player
