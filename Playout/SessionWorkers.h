#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Player/DecodeThread.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/IPreloader.h"
#include "Player/ISampleDecoder.h"
#include "Player/IStream.h"
#include "Player/PreloadThread.h"

namespace Tavrin::Playout {

/// The threads that read and decode for a session's tracks.
///
/// *Threads:* bound to one thread. *Blocking:* the destructor waits until what the workers have begun is done.
/// *Ownership:* owns the threads, borrows all else, which must outlive it.
class SessionWorkers final {
public:
    struct Clients {
        Player::IPreloader* preloader = nullptr;
        Player::ISampleDecoder* decoder = nullptr;
        Player::ExistingCacheUpdateQueues* registry = nullptr;
    };

    /// Where the orders of a track come from.
    struct Source {
        Player::Stream::StreamParameters queues;
        bool readsAlone =
            false;  ///< It has a reader of its own: were its storage silent, no other would wait.
    };

    /// Starts `nbReaders` threads that share the reading of the tracks which do not read alone, a thread for each of
    /// the others, and `nbDecoders` that decode; of both one at least.
    SessionWorkers(const Clients& clients, const std::vector<Source>& sources, std::size_t nbReaders,
                   std::size_t nbDecoders);
    ~SessionWorkers();
    SessionWorkers(const SessionWorkers&) = delete;
    SessionWorkers& operator=(const SessionWorkers&) = delete;

private:
    Player::PreloadThread& AddReader(Player::IPreloader* preloader);

    std::vector<Source> sources_;
    std::vector<std::unique_ptr<Player::PreloadThread>> readers_;
    std::vector<std::unique_ptr<Player::DecodeThread>> decoders_;
};

}  // namespace Tavrin::Playout
