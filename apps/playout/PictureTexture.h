#pragma once

#include <SDL.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "Playout/Image.h"
#include "Playout/Mosaic.h"
#include "Playout/Picture.h"
#include "Playout/PictureConverter.h"

namespace Tavrin::Playout::Program {

/// A picture as a texture, uploaded once for as long as it stays on show.
///
/// Formats that SDL draws itself are handed over plane by plane as they were decoded; the others are converted
/// to one of them first.
///
/// *Threads:* bound to one thread, the renderer's. *Ownership:* borrows the renderer, which must outlive it.
/// *Errors:* Show throws std::runtime_error when a texture cannot be made, or as PictureConverter.
class PictureTexture final {
public:
    explicit PictureTexture(SDL_Renderer& renderer) : renderer_(renderer) {}

    /// Uploads the picture, or that field of it, unless it is on show; null shows nothing. Whether anything has
    /// changed.
    bool Show(const std::shared_ptr<const Picture>& picture, PictureField field);

    /// The renderer has lost its textures: the next Show uploads again.
    void Forget();

    /// Draws what is on show, if anything.
    void Draw(const SDL_Rect& place);

    /// Of the picture on show; zero when there is none.
    [[nodiscard]] PixelSize Size() const;

private:
    struct Destroy {
        void operator()(SDL_Texture* texture) const { SDL_DestroyTexture(texture); }
    };

    void Upload(const Picture& picture);
    void UploadConverted(const Picture& picture);
    void Make(std::uint32_t format, const PixelSize& size);

    SDL_Renderer& renderer_;
    std::unique_ptr<SDL_Texture, Destroy> texture_;
    std::uint32_t format_ = 0;
    PixelSize size_;
    SDL_YUV_CONVERSION_MODE colours_ = SDL_YUV_CONVERSION_AUTOMATIC;
    std::shared_ptr<const Picture> picture_;
    PictureField field_ = PictureField::Frame;
    PictureConverter converter_;
    std::optional<Image> image_;
};

}  // namespace Tavrin::Playout::Program
