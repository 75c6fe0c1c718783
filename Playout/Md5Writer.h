#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Playout/IPictureSink.h"
#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

class OutputFile;

/// Writes one line of text for each tick: its number, the play head in seconds, the numbers of the pictures
/// on show and the MD5 of their pixels as decoded, several tracks separated by commas, a dash where a track
/// shows nothing. A field's number is followed by t or b, and its pixels are those of FieldPicture:
///
///     12 0.480000000 12,14 8e26bbd7e10e0f9fe7ad2d0f5b9e6a5d,3d4e4f2b6b3c1f0ad5b0c9e1a7f8d6c2
///     13 0.520000000 13t,- 0a1c4c1b6f5f0c3f8f1e7d2b9a6c5e4d,-
///
/// *Threads:* externally synchronised. *Blocking:* on the disk. *Errors:* the constructor throws
/// std::runtime_error when the file cannot be made; Write and Finish as IPictureSink says.
class TAVRIN_PLAYOUT_EXPORT Md5Writer final : public IPictureSink {
public:
    explicit Md5Writer(const std::string& file);
    ~Md5Writer() override;

    void Write(const ShownTick& tick) override;
    void Finish() override;

private:
    /// A picture that stays on show is summed once.
    struct Summed {
        std::shared_ptr<const Picture> picture;
        PictureField field = PictureField::Frame;
        std::string md5;
    };
    [[nodiscard]] const std::string& Md5Of(std::size_t track, const std::shared_ptr<const Picture>& picture,
                                           PictureField field);

    std::unique_ptr<OutputFile> output_;
    std::vector<Summed> summed_;
};

}  // namespace Tavrin::Playout
