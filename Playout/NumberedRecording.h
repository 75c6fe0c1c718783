#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"
#include "Playout/RecordingIndex.h"

namespace Tavrin::Playout {

/// A recording whose pictures can be told apart when they are shown: by the bar code in their pixels, or, in a
/// recording that has none, by the number that the player gave them.
///
/// *Threads:* immutable. *Blocking:* the constructor decodes the first picture. *Ownership:* shares the index.
/// *Errors:* the constructor throws std::runtime_error when the file cannot be opened or no picture of it can
/// be decoded.
class TAVRIN_PLAYOUT_EXPORT NumberedRecording final {
public:
    explicit NumberedRecording(std::shared_ptr<const RecordingIndex> index);

    [[nodiscard]] const std::shared_ptr<const RecordingIndex>& Index() const { return index_; }
    [[nodiscard]] bool HasBarCode() const { return firstCode_.has_value(); }
    [[nodiscard]] std::size_t PictureBytes() const { return pictureBytes_; }  ///< Of the first one, decoded.

    /// The number that a picture of this recording shows: what its pixels say where there is a bar code, which
    /// begins anew after kNbBarCodes pictures. Nothing when the bar code cannot be read.
    [[nodiscard]] std::optional<std::uint64_t> NumberOf(const Picture& shown) const;

    /// How many pictures a number that was read is ahead of the one that is expected, the nearer way round.
    [[nodiscard]] std::int64_t Distance(std::uint64_t number, std::size_t expected) const;

    /// Whether that picture of the recording is on show.
    [[nodiscard]] bool Shows(const Picture& shown, std::size_t expected) const;

private:
    std::shared_ptr<const RecordingIndex> index_;
    std::optional<std::uint32_t> firstCode_;
    std::size_t pictureBytes_ = 0;
};

}  // namespace Tavrin::Playout
