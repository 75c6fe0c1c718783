#include "Playout/TrackFigures.h"

#include <cstdint>

namespace Tavrin::Playout {

TrackInformation InformationFrom(const TrackSources& sources) {
    const auto decoded = sources.stream.Decoded().GetInformation();
    const auto compressed = sources.stream.Compressed().GetInformation();
    TrackInformation information;
    information.nbWithdrawn = sources.stream.NbWithdrawn();
    information.nbReady = static_cast<std::size_t>(decoded.nbValidSamples_);
    information.nbPending =
        static_cast<std::size_t>(decoded.nbPendingSamples_ + compressed.nbPendingSamples_);
    information.reading = sources.preloader.GetInformation(sources.id);
    information.decoding = sources.decoder.GetInformation(sources.id);
    information.memoryShare = sources.memoryShare;
    information.pictureBytes = sources.decoder.PictureBytes(sources.id);
    return information;
}

TrackCounters CountersFrom(const TrackSources& sources, const ViewCounter& views) {
    const TrackInformation track = InformationFrom(sources);
    const auto& reading = track.reading;
    const auto& decoding = track.decoding;
    const auto answers = sources.decoder.GetAnswers(sources.id);
    TrackCounters counters;
    counters.file = sources.id.StorageId().Address();
    counters.pictures = views.Pictures();
    counters.waits = views.Waits();
    counters.fetches.nbFetched = answers.samples.nbMade;
    counters.fetches.nbEvicted = answers.samples.nbGone;
    counters.fetches.nbEvictedUnseen = answers.samples.nbGoneUnseen;
    counters.fetches.nbWithdrawn = track.nbWithdrawn;
    counters.fetches.nbReady = track.nbReady;
    counters.fetches.nbProtected =
        static_cast<std::uint64_t>(sources.stream.Decoded().GetInformation().nbProtectedSamples_);
    counters.fetches.nbPending = track.nbPending;
    counters.reads = {reading.nbReads,          reading.nbReused,
                      reading.nbFailedReads,    reading.nbAbandonedReads,
                      reading.nbMissingPackets, sources.preloader.GetLatency(sources.id)};
    counters.decodes = {answers.nbFromStore, decoding.nbPacketsDecoded, decoding.nbPacketsLeftOut,
                        decoding.nbPasses,   decoding.nbAbandoned,      decoding.nbErrors,
                        answers.latency};
    counters.bytes = {reading.nbBytesRead,  reading.nbBytesHeld, answers.samples.bytes,
                      decoding.storedBytes, track.pictureBytes,  track.memoryShare};
    return counters;
}

}  // namespace Tavrin::Playout
