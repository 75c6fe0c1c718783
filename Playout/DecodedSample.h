#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "Playout/MediaSample.h"
#include "Playout/Picture.h"
#include "Playout/PlayoutExport.h"
#include "Playout/SampleTally.h"

namespace Tavrin::Playout {

/// Which part of a picture a decoded sample stands for.
enum class PictureField { Frame, Top, Bottom };

/// A decoded picture at one sample of a track.
///
/// A sample made for one field of interlaced material holds the whole picture, with the field's own time
/// point and duration; the property "field" tells which lines to show.
///
/// Properties, all text: "picture" (number in presentation order), "width", "height", "format" (such as
/// yuv420p), "damaged" ("1" or "0"), "field" ("frame", "top" or "bottom"), and for each plane n "stride<n>",
/// the bytes from one row to the next. Data: "plane0", "plane1" ... the bytes of each plane, from the first
/// visible one to the last.
///
/// *Threads:* immutable but for the protection counter, which is thread-safe, and the mark that it was shown,
/// which belongs to whoever owns the sample at the time. *Ownership:* shares the picture and the tally; the
/// planes' bytes live as long as the sample.
class TAVRIN_PLAYOUT_EXPORT DecodedSample final : public MediaSample {
public:
    /// \p picture must not be null. The sample counts itself in \p tally, if there is one.
    DecodedSample(std::shared_ptr<const Picture> picture, const Time::TimePoint& tp,
                  const Time::TimePoint& duration, PictureField field = PictureField::Frame,
                  std::shared_ptr<SampleTally> tally = nullptr);
    ~DecodedSample() override;

    /// It is on show: not fetched in vain.
    void MarkSeen() { isSeen_ = true; }

    [[nodiscard]] const std::shared_ptr<const Picture>& Content() const { return picture_; }
    [[nodiscard]] std::size_t PictureNumber() const { return picture_->Number(); }
    [[nodiscard]] PictureField Field() const { return field_; }

    [[nodiscard]] std::set<std::string> GetDataKeys() const override;
    /// An unknown key gives null and size 0.
    [[nodiscard]] const std::uint8_t* GetData(const std::string& key, std::uint64_t& size) const override;

private:
    std::shared_ptr<const Picture> picture_;
    PictureField field_;
    std::shared_ptr<SampleTally> tally_;
    bool isSeen_ = false;
};

}  // namespace Tavrin::Playout
