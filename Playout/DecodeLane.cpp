#include "Playout/DecodeLane.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Playout/Decoder.h"
#include "Playout/PictureStore.h"

namespace Tavrin::Playout {

namespace {

/// What is known of the group in which a lane stands.
struct Standing {
    std::size_t group = 0;
    std::size_t nbMissing = 0;  ///< Tells a group read again, more completely, from the one before.
    std::size_t nextPacket = 0;
    bool ended = false;                 ///< The decoder was told that no packet follows.
    std::optional<std::size_t> latest;  ///< Picture put out in this pass.
    /// Over all passes: which pictures came out, from the group's first one on, and up to where the others
    /// are known not to.
    std::vector<bool> came;
    std::size_t decided = 0;
};

}  // namespace

class DecodeLane::Impl {
public:
    Impl(std::shared_ptr<const RecordingIndex> index, const DecodeLaneOptions& options,
         std::shared_ptr<PictureStore> store)
        : index_(std::move(index)),
          decoder_(*index_, options.nbThreads),
          store_(store != nullptr ? std::move(store) : std::make_shared<PictureStore>(options.storeBytes)) {}

    std::shared_ptr<const Picture> Decode(const PacketGroup& group, std::size_t picture);
    void Reset();
    Information GetInformation() const;

private:
    void Check(const PacketGroup& group, std::size_t picture) const;
    void Enter(const PacketGroup& group);
    void BeginPass(const PacketGroup& group);
    std::shared_ptr<const Picture> GoOnTo(const PacketGroup& group, std::size_t wanted);
    std::shared_ptr<const Picture> Accept(const PacketGroup& group, std::size_t wanted);
    void Feed(const PacketGroup& group);
    bool IsLeading(const PacketGroup& group, std::size_t packet) const;
    bool NeverComes(const PacketGroup& group, std::size_t picture) const;

    std::shared_ptr<const RecordingIndex> index_;
    Decoder decoder_;
    std::shared_ptr<PictureStore> store_;
    std::optional<Standing> standing_;
    /// The decoder's order of pictures is not that of the time stamps: a picture passed over may yet come.
    bool disordered_ = false;
    std::uint64_t nbPasses_ = 0;
};

void DecodeLane::Impl::Check(const PacketGroup& group, std::size_t picture) const {
    const auto& layout = group.Layout();
    if (group.Index() != index_ || picture < layout.firstPicture || picture >= layout.EndPicture()) {
        throw std::invalid_argument("picture " + std::to_string(picture) + " is not in group " +
                                    std::to_string(group.Number()) + " of \"" + index_->File() + "\"");
    }
}

std::shared_ptr<const Picture> DecodeLane::Impl::Decode(const PacketGroup& group, std::size_t picture) {
    Check(group, picture);
    if (auto stored = store_->Find(picture)) {
        return stored;
    }
    const bool here =
        standing_ && standing_->group == group.Number() && standing_->nbMissing == group.NbMissing();
    if (!here) {
        Enter(group);
    } else if (NeverComes(group, picture)) {
        return nullptr;
    } else if (standing_->latest && picture <= *standing_->latest) {
        BeginPass(group);
    }
    return GoOnTo(group, picture);
}

void DecodeLane::Impl::Enter(const PacketGroup& group) {
    standing_.emplace();
    standing_->group = group.Number();
    standing_->nbMissing = group.NbMissing();
    standing_->came.resize(group.Layout().nbPictures);
    BeginPass(group);
}

void DecodeLane::Impl::BeginPass(const PacketGroup& group) {
    decoder_.Flush();
    standing_->nextPacket = group.Layout().firstPacket;
    standing_->ended = false;
    standing_->latest.reset();
    ++nbPasses_;
}

bool DecodeLane::Impl::NeverComes(const PacketGroup& group, std::size_t picture) const {
    const auto place = picture - group.Layout().firstPicture;
    return place < standing_->decided && !standing_->came[place];
}

std::shared_ptr<const Picture> DecodeLane::Impl::GoOnTo(const PacketGroup& group, std::size_t wanted) {
    while (true) {
        switch (decoder_.Receive()) {
            case Decoder::Event::Picture: {
                auto picture = Accept(group, wanted);
                const bool passedOver = standing_->latest && *standing_->latest > wanted && !disordered_;
                if (picture != nullptr || passedOver) {
                    return picture;
                }
                break;
            }
            case Decoder::Event::WantsPacket:
                Feed(group);
                break;
            case Decoder::Event::End:
                standing_->latest = group.Layout().EndPicture();
                standing_->decided = group.Layout().nbPictures;
                return nullptr;
        }
    }
}

/// Files the picture that came out; returns it when it is the wanted one.
std::shared_ptr<const Picture> DecodeLane::Impl::Accept(const PacketGroup& group, std::size_t wanted) {
    const auto& layout = group.Layout();
    const auto number = decoder_.PictureNumber();
    if (number < layout.firstPicture || number >= layout.EndPicture()) {
        // Of a neighbour whose packets the run shares: there it is decoded with all that it refers to.
        return nullptr;
    }
    disordered_ = disordered_ || (standing_->latest && number < *standing_->latest);
    standing_->latest = std::max(standing_->latest.value_or(number), number);
    standing_->came[number - layout.firstPicture] = true;
    if (!disordered_) {
        standing_->decided = std::max(standing_->decided, number - layout.firstPicture);
    }
    auto picture = decoder_.TakePicture();
    store_->Add(picture, wanted);
    return number == wanted ? picture : nullptr;
}

/// Its picture belongs to the group before: it comes after the key frame but is shown before it. It is
/// decoded all the same, because the decoder counts the pictures that it has seen.
bool DecodeLane::Impl::IsLeading(const PacketGroup& group, std::size_t packet) const {
    const auto picture = index_->PictureOfPacket(packet);
    return picture && *picture < group.Layout().firstPicture;
}

void DecodeLane::Impl::Feed(const PacketGroup& group) {
    if (standing_->nextPacket == group.Layout().EndPacket()) {
        decoder_.SendEnd();
        standing_->ended = true;
        return;
    }
    const auto number = standing_->nextPacket++;
    if (const auto packet = group.Packet(number)) {
        decoder_.Send(*packet, number, !IsLeading(group, number));
    } else {
        decoder_.SkipPacket(number);
    }
}

void DecodeLane::Impl::Reset() {
    store_->Clear();
    standing_.reset();
}

DecodeLane::Information DecodeLane::Impl::GetInformation() const {
    Information information;
    information.nbPacketsDecoded = decoder_.NbPacketsDecoded();
    information.nbPasses = nbPasses_;
    information.nbErrors = decoder_.NbErrors();
    information.nbStored = store_->Size();
    information.storedBytes = store_->Bytes();
    information.maxStoredBytes = store_->MaxBytesEver();
    information.lastError = decoder_.LastError();
    return information;
}

DecodeLane::DecodeLane(std::shared_ptr<const RecordingIndex> index, const DecodeLaneOptions& options,
                       std::shared_ptr<PictureStore> store)
    : impl_(std::make_unique<Impl>(std::move(index), options, std::move(store))) {
}

DecodeLane::~DecodeLane() = default;

std::shared_ptr<const Picture> DecodeLane::Decode(const PacketGroup& group, std::size_t picture) {
    return impl_->Decode(group, picture);
}

void DecodeLane::Reset() {
    impl_->Reset();
}

DecodeLane::Information DecodeLane::GetInformation() const {
    return impl_->GetInformation();
}

}  // namespace Tavrin::Playout
