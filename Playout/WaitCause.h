#pragma once

namespace Tavrin::Playout {

/// What a track waits for when the picture at the play head is not ready.
enum class WaitCause {
    None,     ///< It does not wait: the picture is there, cannot be had, or there is none.
    Storage,  ///< The compressed picture has not been read yet.
    Decoder   ///< It has been read and is not decoded yet.
};

}  // namespace Tavrin::Playout
