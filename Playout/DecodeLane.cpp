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

/// Pictures asked for one after the other, after which the lane takes it for a run. A jump to the end of a group has
/// its picture sooner from a decoder that is told of the end.
constexpr std::size_t kRun = 4;

/// What is known of the group in which a lane stands.
struct Standing {
    std::size_t group = 0;
    std::size_t nbMissing = 0;   ///< Tells a group read again, more completely, from the one before.
    std::size_t nextPacket = 0;  ///< Beyond the group where the next one's packets let out the last pictures.
    std::size_t firstToFile = 0;  ///< Picture, of the group before where the lane has gone on from there.
    std::size_t nbAnswered = 0;   ///< Pictures since the lane last began anew.
    bool overran = false;         ///< A picture of the next group came out: none of this one will.
    bool ended = false;           ///< The decoder was told that no packet follows.
    std::optional<std::size_t> latest;  ///< Picture put out in this pass.
    std::vector<std::size_t> leftOut;   ///< Packets of this pass, ascending.
    /// Over all passes: which pictures came out, from the group's first one on, and up to where the others
    /// are known not to.
    std::vector<bool> came;
    std::size_t decided = 0;

    bool WasLeftOut(std::size_t packet) const {
        return std::binary_search(leftOut.begin(), leftOut.end(), packet);
    }
};

}  // namespace

class DecodeLane::Impl {
public:
    Impl(std::shared_ptr<const RecordingIndex> index, const DecodeLaneOptions& options,
         std::shared_ptr<PictureStore> store, std::shared_ptr<FramePool> pool)
        : index_(std::move(index)),
          decoder_(*index_, options.nbThreads, Decoder::Begins::AtKeyFrames, std::move(pool)),
          store_(store != nullptr ? std::move(store) : std::make_shared<PictureStore>(options.storeBytes)) {}

    std::shared_ptr<const Picture> Decode(const PacketGroup& group, std::size_t picture,
                                          const DecodeManner& manner);
    void Reset();
    void ForgetPlace() { standing_.reset(); }
    Information GetInformation() const;

private:
    void Check(const PacketGroup& group, std::size_t picture) const;
    void Enter(const PacketGroup& group);
    void BeginPass(const PacketGroup& group);
    bool CanFollow(const PacketGroup& group) const;
    void Follow(const PacketGroup& group);
    std::shared_ptr<const Picture> GoOnTo(const PacketGroup& group, std::size_t wanted,
                                          const DecodeManner& manner);
    bool IsStale(const DecodeManner& manner);
    void NoteEnd(const PacketGroup& group);
    std::shared_ptr<const Picture> Accept(const PacketGroup& group, std::size_t wanted);
    void AcceptNeighbour(const PacketGroup& group, std::size_t number, std::size_t wanted);
    void Feed(const PacketGroup& group, std::size_t wanted, const DecodeManner& manner);
    bool FeedAhead(const PacketGroup& group, const DecodeManner& manner);
    bool MayGoOn() const;
    bool EndedEarly(const PacketGroup& group) const;
    bool MayLeaveOut(const PacketGroup& group, std::size_t packet, std::size_t wanted) const;
    void LeaveOut(const PacketGroup& group, std::size_t packet);
    bool IsLeading(const PacketGroup& group, std::size_t packet) const;
    bool NeverComes(const PacketGroup& group, std::size_t picture) const;

    std::shared_ptr<const RecordingIndex> index_;
    Decoder decoder_;
    std::shared_ptr<PictureStore> store_;
    std::optional<Standing> standing_;
    /// The decoder's order of pictures is not that of the time stamps: a picture passed over may yet come.
    bool disordered_ = false;
    /// The decoder drops at a key frame what it has not put out yet.
    bool dropsAtKeys_ = false;
    std::uint64_t nbPasses_ = 0;
    std::uint64_t nbPacketsLeftOut_ = 0;
    std::uint64_t nbAbandoned_ = 0;
    std::uint64_t nbGoneOn_ = 0;
};

void DecodeLane::Impl::Check(const PacketGroup& group, std::size_t picture) const {
    const auto& layout = group.Layout();
    if (group.Index() != index_ || picture < layout.firstPicture || picture >= layout.EndPicture()) {
        throw std::invalid_argument("picture " + std::to_string(picture) + " is not in group " +
                                    std::to_string(group.Number()) + " of \"" + index_->File() + "\"");
    }
}

std::shared_ptr<const Picture> DecodeLane::Impl::Decode(const PacketGroup& group, std::size_t picture,
                                                        const DecodeManner& manner) {
    Check(group, picture);
    if (auto stored = store_->Find(picture)) {
        return stored;
    }
    const bool here =
        standing_ && standing_->group == group.Number() && standing_->nbMissing == group.NbMissing();
    if (CanFollow(group)) {
        Follow(group);
    } else if (!here) {
        Enter(group);
    } else if (NeverComes(group, picture)) {
        return nullptr;
    } else if (EndedEarly(group) || (standing_->latest && picture <= *standing_->latest) ||
               standing_->WasLeftOut(index_->Picture(picture).packet)) {
        BeginPass(group);
    }
    if (standing_->latest && picture > *standing_->latest + kRun) {
        // A jump, even if the decoder can go on to it.
        standing_->nbAnswered = 0;
    }
    auto decoded = GoOnTo(group, picture, manner);
    if (decoded == nullptr && standing_->overran) {
        dropsAtKeys_ = true;
        // What is known of the group was found out while pictures were being dropped.
        standing_->came.assign(group.Layout().nbPictures, false);
        standing_->decided = 0;
        BeginPass(group);
        decoded = GoOnTo(group, picture, manner);
    }
    standing_->nbAnswered += decoded == nullptr ? 0 : 1;
    return decoded;
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
    standing_->firstToFile = group.Layout().firstPicture;
    standing_->nbAnswered = 0;
    standing_->overran = false;
    standing_->ended = false;
    standing_->latest.reset();
    standing_->leftOut.clear();
    ++nbPasses_;
}

bool DecodeLane::Impl::MayGoOn() const {
    return !dropsAtKeys_ && !disordered_ && decoder_.NbErrors() == 0 && standing_->nbMissing == 0 &&
           standing_->nbAnswered >= kRun;
}

/// Whether the decoder stands where the group begins, or inside its first packets.
bool DecodeLane::Impl::CanFollow(const PacketGroup& group) const {
    if (!standing_ || standing_->group + 1 != group.Number() || standing_->ended || standing_->overran) {
        return false;
    }
    const auto end = index_->Group(standing_->group).EndPacket();
    return MayGoOn() && group.NbMissing() == 0 && group.Layout().firstPacket == end &&
           standing_->nextPacket >= end;
}

void DecodeLane::Impl::Follow(const PacketGroup& group) {
    Standing next;
    next.group = group.Number();
    next.nextPacket = standing_->nextPacket;
    next.firstToFile = index_->Group(standing_->group).firstPicture;
    next.nbAnswered = standing_->nbAnswered;
    next.came.resize(group.Layout().nbPictures);
    standing_ = std::move(next);
    ++nbPasses_;
    ++nbGoneOn_;
}

bool DecodeLane::Impl::NeverComes(const PacketGroup& group, std::size_t picture) const {
    const auto place = picture - group.Layout().firstPicture;
    return place < standing_->decided && !standing_->came[place];
}

std::shared_ptr<const Picture> DecodeLane::Impl::GoOnTo(const PacketGroup& group, std::size_t wanted,
                                                        const DecodeManner& manner) {
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
                if (IsStale(manner)) {
                    return nullptr;
                }
                Feed(group, wanted, manner);
                break;
            case Decoder::Event::End:
                NoteEnd(group);
                return nullptr;
        }
    }
}

bool DecodeLane::Impl::IsStale(const DecodeManner& manner) {
    // A pass that is always given up before its first picture would never show anything.
    const bool stale = standing_->latest && manner.isStale && manner.isStale(*standing_->latest);
    nbAbandoned_ += stale ? 1 : 0;
    return stale;
}

/// Nothing more comes out of the pass; what has not come by now never will, if all was put in.
void DecodeLane::Impl::NoteEnd(const PacketGroup& group) {
    standing_->latest = group.Layout().EndPicture();
    if (standing_->nextPacket >= group.Layout().EndPacket()) {
        standing_->decided = group.Layout().nbPictures;
    }
}

/// Files the picture that came out; returns it when it is the wanted one.
std::shared_ptr<const Picture> DecodeLane::Impl::Accept(const PacketGroup& group, std::size_t wanted) {
    const auto& layout = group.Layout();
    const auto number = decoder_.PictureNumber();
    if (number < layout.firstPicture || number >= layout.EndPicture()) {
        AcceptNeighbour(group, number, wanted);
        return nullptr;
    }
    disordered_ = disordered_ || (standing_->latest && number < *standing_->latest);
    standing_->latest = std::max(standing_->latest.value_or(number), number);
    standing_->came[number - layout.firstPicture] = true;
    if (!disordered_ && !EndedEarly(group)) {
        standing_->decided = std::max(standing_->decided, number - layout.firstPicture);
    }
    auto picture = decoder_.TakePicture();
    store_->Add(picture, wanted);
    return number == wanted ? picture : nullptr;
}

/// Files the picture of the group before, from which the lane has gone on, or of the one into which it goes on.
/// Another neighbour's, whose packets the run shares, is decoded there with all that it refers to.
void DecodeLane::Impl::AcceptNeighbour(const PacketGroup& group, std::size_t number, std::size_t wanted) {
    const auto& layout = group.Layout();
    if (number >= standing_->firstToFile && number < layout.firstPicture) {
        store_->Add(decoder_.TakePicture(), wanted);
    } else if (number >= layout.EndPicture() && standing_->nextPacket > layout.EndPacket()) {
        standing_->overran = true;
        standing_->latest = layout.EndPicture();
        store_->Add(decoder_.TakePicture(), wanted);
    }
}

/// Its picture belongs to the group before: it comes after the key frame but is shown before it. It is
/// decoded all the same, because the decoder counts the pictures that it has seen.
bool DecodeLane::Impl::IsLeading(const PacketGroup& group, std::size_t packet) const {
    const auto picture = index_->PictureOfPacket(packet);
    return picture && *picture < group.Layout().firstPicture;
}

/// The decoder was made to put out a picture at once, and cannot go on from there.
bool DecodeLane::Impl::EndedEarly(const PacketGroup& group) const {
    return standing_->ended && standing_->nextPacket < group.Layout().EndPacket();
}

/// Whether the decoder need not see it on the way to the wanted picture.
bool DecodeLane::Impl::MayLeaveOut(const PacketGroup& group, std::size_t packet, std::size_t wanted) const {
    const bool hasTwoFields = packet + 1 < index_->NbPackets() && index_->Packet(packet + 1).secondField;
    const auto picture = index_->PictureOfPacket(packet);
    return index_->Packet(packet).disposable && !hasTwoFields && picture && *picture != wanted &&
           !IsLeading(group, packet) && !store_->Wants(*picture);
}

void DecodeLane::Impl::LeaveOut(const PacketGroup& group, std::size_t packet) {
    ++nbPacketsLeftOut_;
    standing_->leftOut.push_back(packet);
    const std::size_t picture = *index_->PictureOfPacket(packet);
    if (picture < group.Layout().EndPicture()) {
        // It can be had: asked for later, it gets a pass of its own.
        standing_->came[picture - group.Layout().firstPicture] = true;
    }
}

/// Whether a packet of the following group was there to be put in.
bool DecodeLane::Impl::FeedAhead(const PacketGroup& group, const DecodeManner& manner) {
    if (manner.following == nullptr || !MayGoOn()) {
        return false;
    }
    const PacketGroup& following = *manner.following;
    const auto end = group.Layout().EndPacket();
    const bool fits = following.Index() == index_ && following.Number() == group.Number() + 1 &&
                      following.NbMissing() == 0 && following.Layout().firstPacket == end;
    if (!fits || standing_->nextPacket < end || standing_->nextPacket >= following.Layout().EndPacket()) {
        return false;
    }
    const auto number = standing_->nextPacket++;
    decoder_.Send(*following.Packet(number), number, true);
    return true;
}

void DecodeLane::Impl::Feed(const PacketGroup& group, std::size_t wanted, const DecodeManner& manner) {
    if (FeedAhead(group, manner)) {
        return;
    }
    const bool isPast = manner.last && standing_->nextPacket > index_->Picture(wanted).packet;
    const bool hasFieldToCome = standing_->nextPacket < group.Layout().EndPacket() &&
                                index_->Packet(standing_->nextPacket).secondField;
    if ((isPast && !hasFieldToCome) || standing_->nextPacket >= group.Layout().EndPacket()) {
        decoder_.SendEnd();
        standing_->ended = true;
        return;
    }
    const auto number = standing_->nextPacket++;
    if (MayLeaveOut(group, number, wanted)) {
        LeaveOut(group, number);
    } else if (const auto packet = group.Packet(number)) {
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
    information.nbPacketsLeftOut = nbPacketsLeftOut_;
    information.nbAbandoned = nbAbandoned_;
    information.nbGoneOn = nbGoneOn_;
    if (standing_ && standing_->nextPacket > index_->Group(standing_->group).EndPacket()) {
        information.goesOnTo = standing_->group + 1;
    }
    information.nbErrors = decoder_.NbErrors();
    information.nbStored = store_->Size();
    information.storedBytes = store_->Bytes();
    information.maxStoredBytes = store_->MaxBytesEver();
    information.lastError = decoder_.LastError();
    return information;
}

DecodeLane::DecodeLane(std::shared_ptr<const RecordingIndex> index, const DecodeLaneOptions& options,
                       std::shared_ptr<PictureStore> store, std::shared_ptr<FramePool> pool)
    : impl_(std::make_unique<Impl>(std::move(index), options, std::move(store), std::move(pool))) {
}

DecodeLane::~DecodeLane() = default;

std::shared_ptr<const Picture> DecodeLane::Decode(const PacketGroup& group, std::size_t picture,
                                                  const DecodeManner& manner) {
    try {
        return impl_->Decode(group, picture, manner);
    } catch (...) {
        // A packet may have been lost on its way into the decoder: what follows would lack it.
        impl_->ForgetPlace();
        throw;
    }
}

void DecodeLane::Reset() {
    impl_->Reset();
}

DecodeLane::Information DecodeLane::GetInformation() const {
    return impl_->GetInformation();
}

}  // namespace Tavrin::Playout
