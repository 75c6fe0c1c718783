#pragma once

#include <cstddef>
#include <map>
#include <memory>

#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// Decoded pictures by number, bounded in bytes; one picture is always held, however large.
///
/// What is dropped when the bound is reached serves playing backward, where the next pictures wanted are
/// those before the wanted one: first the pictures after it, the farthest one first, then the earliest one.
/// Playing forward nothing after the wanted picture has been decoded yet.
///
/// *Threads:* externally synchronised.
class TAVRIN_PLAYOUT_EXPORT PictureStore {
public:
    explicit PictureStore(std::size_t maxBytes) : maxBytes_(maxBytes) {}

    /// Null when it is not held.
    [[nodiscard]] std::shared_ptr<const Picture> Find(std::size_t number) const;

    /// Holds \p picture, on the way to the picture numbered \p wanted.
    void Add(std::shared_ptr<const Picture> picture, std::size_t wanted);
    void Clear();

    [[nodiscard]] std::size_t Size() const { return pictures_.size(); }
    [[nodiscard]] std::size_t Bytes() const { return bytes_; }
    [[nodiscard]] std::size_t MaxBytesEver() const { return maxBytesEver_; }

private:
    using Pictures = std::map<std::size_t, std::shared_ptr<const Picture>>;
    void Drop(Pictures::const_iterator which);

    std::size_t maxBytes_;
    Pictures pictures_;
    std::size_t bytes_ = 0;
    std::size_t maxBytesEver_ = 0;
};

}  // namespace Tavrin::Playout
