#include "Playout/Md5Writer.h"

#include "Playout/FieldPicture.h"
#include "Playout/OutputFile.h"

namespace Tavrin::Playout {

Md5Writer::Md5Writer(const std::string& file) : output_(std::make_unique<OutputFile>(file)) {
}

Md5Writer::~Md5Writer() = default;

const std::string& Md5Writer::Md5Of(std::size_t track, const std::shared_ptr<const Picture>& picture,
                                    PictureField field) {
    auto& summed = summed_[track];
    if (summed.picture != picture || summed.field != field) {
        summed = {picture, field, FieldPicture(picture, field)->Md5()};
    }
    return summed.md5;
}

namespace {

std::string NumberOf(const Picture& picture, PictureField field) {
    const char* const part = field == PictureField::Frame ? "" : field == PictureField::Top ? "t" : "b";
    return std::to_string(picture.Number()) + part;
}

}  // namespace

void Md5Writer::Write(const ShownTick& tick) {
    summed_.resize(tick.pictures.size());
    std::string numbers;
    std::string sums;
    for (std::size_t track = 0; track < tick.pictures.size(); ++track) {
        const auto& picture = tick.pictures[track];
        const auto* separator = track == 0 ? "" : ",";
        const PictureField field = tick.FieldOf(track);
        numbers += separator + (picture == nullptr ? "-" : NumberOf(*picture, field));
        sums += separator + (picture == nullptr ? "-" : Md5Of(track, picture, field));
    }
    output_->Write(std::to_string(tick.tick) + " " + tick.time.ToString() + " " + numbers + " " + sums +
                   "\n");
}

void Md5Writer::Finish() {
    output_->Finish();
}

}  // namespace Tavrin::Playout
