#include "Playout/DecodedSample.h"

#include <map>
#include <utility>

namespace Tavrin::Playout {

namespace {

constexpr const char* kPlanePrefix = "plane";

const char* NameOf(PictureField field) {
    switch (field) {
        case PictureField::Top:
            return "top";
        case PictureField::Bottom:
            return "bottom";
        case PictureField::Frame:
            break;
    }
    return "frame";
}

std::map<std::string, std::string> Describe(const Picture& picture, PictureField field) {
    std::map<std::string, std::string> properties{
        {"picture", std::to_string(picture.Number())}, {"width", std::to_string(picture.Width())},
        {"height", std::to_string(picture.Height())},  {"format", picture.PixelFormat()},
        {"damaged", picture.Damaged() ? "1" : "0"},    {"field", NameOf(field)}};
    for (std::size_t plane = 0; plane < picture.NbPlanes(); ++plane) {
        properties["stride" + std::to_string(plane)] = std::to_string(picture.Plane(plane).stride);
    }
    return properties;
}

}  // namespace

DecodedSample::DecodedSample(std::shared_ptr<const Picture> picture, const Time::TimePoint& tp,
                             const Time::TimePoint& duration, PictureField field,
                             std::shared_ptr<SampleTally> tally)
    : MediaSample(tp, duration, Describe(*picture, field)),
      picture_(std::move(picture)),
      field_(field),
      tally_(std::move(tally)) {
    if (tally_ != nullptr) {
        tally_->NoteMade(*picture_);
    }
}

DecodedSample::~DecodedSample() {
    if (tally_ != nullptr) {
        tally_->NoteGone(*picture_, isSeen_);
    }
}

std::set<std::string> DecodedSample::GetDataKeys() const {
    std::set<std::string> keys;
    for (std::size_t plane = 0; plane < picture_->NbPlanes(); ++plane) {
        keys.insert(kPlanePrefix + std::to_string(plane));
    }
    return keys;
}

const std::uint8_t* DecodedSample::GetData(const std::string& key, std::uint64_t& size) const {
    for (std::size_t plane = 0; plane < picture_->NbPlanes(); ++plane) {
        if (key == kPlanePrefix + std::to_string(plane)) {
            const auto view = picture_->Plane(plane);
            size = view.Size();
            return view.data;
        }
    }
    size = 0;
    return nullptr;
}

}  // namespace Tavrin::Playout
