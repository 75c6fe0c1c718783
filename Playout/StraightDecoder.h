#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// Decodes a recording from its start to its end, without seeking and without groups: what any other way of
/// playing it has to show.
///
/// *Threads:* externally synchronised. *Blocking:* on the file, and for as long as decoding takes.
/// *Errors:* Run throws std::runtime_error when the file cannot be opened or no decoder can be. Errors in the
/// recording are counted; what follows them is decoded as far as it can be.
class TAVRIN_PLAYOUT_EXPORT StraightDecoder final {
public:
    /// Given each picture in the order in which the decoder puts them out; false ends the run.
    using Callback = std::function<bool(const std::shared_ptr<const Picture>& picture)>;

    struct Result {
        std::size_t nbPictures = 0;  ///< Handed to the callback.
        std::uint64_t nbErrors = 0;  ///< That the decoder reported.
        std::string lastError;       ///< Of the decoder or of the file.
    };

    explicit StraightDecoder(std::shared_ptr<const RecordingIndex> index, int nbThreads = 1);

    Result Run(const Callback& callback);

private:
    std::shared_ptr<const RecordingIndex> index_;
    int nbThreads_;
};

}  // namespace Tavrin::Playout
