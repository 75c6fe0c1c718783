#include "Playout/SessionWorkers.h"

#include <algorithm>

#include "Playout/CrewPlan.h"

namespace Tavrin::Playout {

SessionWorkers::SessionWorkers(const Clients& clients, const std::vector<Source>& sources,
                               std::size_t nbReaders, std::size_t nbDecoders)
    : sources_(sources) {
    const std::size_t nbShared = std::max<std::size_t>(nbReaders, 1);
    for (std::size_t i = 0; i < nbShared; ++i) {
        AddReader(clients.preloader);
    }
    for (std::size_t i = 0; i < std::max<std::size_t>(nbDecoders, 1); ++i) {
        decoders_.push_back(std::make_unique<Player::DecodeThread>());
        decoders_.back()->SetDecoder(clients.decoder);
        decoders_.back()->SetExistingUncompressedCacheUpdateQueues(clients.registry);
    }
    const std::size_t nbCrews = NbDecodeCrews(decoders_.size(), sources_.size(), NbCoresHere());
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        // One reader per track: reads of one file run one after the other anyway, and a second worker that
        // waited for the first would be lost to the other tracks.
        Player::PreloadThread& reader =
            sources_[i].readsAlone ? AddReader(clients.preloader) : *readers_[i % nbShared];
        reader.SetPreloadOrderQueue(sources_[i].queues.preloadQueue_);
        for (std::size_t worker = i % nbCrews; worker < decoders_.size(); worker += nbCrews) {
            decoders_[worker]->AddDecodeOrderQueue(sources_[i].queues.decodeQueue_);
        }
    }
    for (const auto& worker : readers_) {
        worker->Start();
    }
    for (const auto& worker : decoders_) {
        worker->Start();
    }
}

SessionWorkers::~SessionWorkers() {
    for (const Source& source : sources_) {
        for (const auto& worker : readers_) {
            worker->RemovePreloadOrderQueue(source.queues.preloadQueue_);
        }
        for (const auto& worker : decoders_) {
            worker->RemoveDecodeOrderQueue(source.queues.decodeQueue_);
        }
    }
}

Player::PreloadThread& SessionWorkers::AddReader(Player::IPreloader* preloader) {
    readers_.push_back(std::make_unique<Player::PreloadThread>());
    readers_.back()->SetPreloader(preloader);
    return *readers_.back();
}

}  // namespace Tavrin::Playout
