#include "Playout/Verifier.h"

#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "Playout/Playback.h"
#include "Playout/Session.h"
#include "Playout/StraightDecoder.h"

namespace Tavrin::Playout {

using Player::SampleStatus;
using Time::Ratio;
using Time::TimePoint;

class Verifier::Impl {
public:
    Impl(std::shared_ptr<const RecordingIndex> index, const VerifierOptions& options)
        : index_(std::move(index)), options_(options) {
        options_.session.displayRate = index_->Rate();
        options_.session.fields = FieldOutput::Frames;
    }

    VerifyReport Run(const Progress& progress, const std::atomic<bool>* stop) {
        progress_ = progress;
        stop_ = stop;
        report_ = VerifyReport();
        references_.assign(index_->NbPictures(), std::nullopt);
        DecodeStraight();
        Session session({index_}, options_.session);
        PlayThrough(session, "forward", Ratio(1, 1));
        PlayThrough(session, "backward", Ratio(-1, 1));
        Jump(session);
        report_.stopped = IsStopped();
        return report_;
    }

private:
    /// What a straight decode puts out for a picture.
    struct Reference {
        std::string md5;
        bool damaged = false;
    };

    [[nodiscard]] bool IsStopped() const { return stop_ != nullptr && stop_->load(); }
    [[nodiscard]] bool MustEnd() const { return IsStopped() || report_.difference.has_value(); }

    void Announce(std::uint64_t nbDone, std::uint64_t nb) const {
        if (progress_) {
            progress_(report_, nbDone, nb);
        }
    }

    void DecodeStraight() {
        report_.nbPictures = index_->NbPictures();
        // One thread: what a decoder makes up for lost data must not depend on how its threads run.
        StraightDecoder(index_, 1).Run([this](const std::shared_ptr<const Picture>& picture) {
            references_.at(picture->Number()) = Reference{picture->Md5(), picture->Damaged()};
            report_.nbDamaged += picture->Damaged() ? 1 : 0;
            Announce(++report_.nbDecoded, report_.nbPictures);
            return !IsStopped();
        });
    }

    VerifyPass& BeginPass(const std::string& name) {
        report_.passes.emplace_back().name = name;
        return report_.passes.back();
    }

    void PlayThrough(Session& session, const std::string& name, const Ratio& speed) {
        if (MustEnd()) {
            return;
        }
        VerifyPass& pass = BeginPass(name);
        const auto nbSamples = static_cast<std::uint64_t>(index_->NbSamples());
        PlaybackOptions options;
        options.speed = speed;
        options.stallTimeout = options_.stallTimeout;
        std::uint64_t nbDone = 0;
        Playback(session, options)
            .Run(
                [&](const ShownTick& shown, const TickReport& tick) {
                    // Which sample it is is counted here, not asked of the play head, which may be wrong.
                    const std::uint64_t sample = speed.Positive() ? nbDone : nbSamples - 1 - nbDone;
                    Compare(pass, static_cast<std::int64_t>(sample), shown, tick);
                    Announce(++nbDone, nbSamples);
                    return !MustEnd();
                },
                stop_);
        if (!MustEnd() && nbDone != nbSamples) {
            Differ(pass, session.CurrentTime(), 0,
                   "playing ended after " + std::to_string(nbDone) + " of " + std::to_string(nbSamples) +
                       " samples");
        }
    }

    void Jump(Session& session) {
        if (options_.nbJumps == 0 || MustEnd()) {
            return;
        }
        VerifyPass& pass = BeginPass("jumps");
        std::mt19937_64 random(options_.seed);
        for (std::size_t jump = 0; jump < options_.nbJumps && !MustEnd(); ++jump) {
            const auto sample =
                static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(index_->NbSamples()));
            PlaybackOptions options;
            options.speed = Ratio();
            options.from = index_->SampleStart(sample);
            options.stallTimeout = options_.stallTimeout;
            Playback(session, options)
                .Run(
                    [&](const ShownTick& shown, const TickReport& tick) {
                        Compare(pass, sample, shown, tick);
                        return true;
                    },
                    stop_);
            Announce(jump + 1, options_.nbJumps);
        }
    }

    void Compare(VerifyPass& pass, std::int64_t sample, const ShownTick& shown, const TickReport& tick) {
        const std::size_t picture = index_->PictureAtOrAfter(index_->SampleStart(sample));
        if (!index_->PictureAt(sample)) {
            CompareHole(pass, picture, shown);
            return;
        }
        const std::optional<Reference>& reference = references_[picture];
        if (shown.time.SampleNumber(index_->Rate()) != sample) {
            Differ(pass, shown.time, picture,
                   "the play head stands in sample " +
                       std::to_string(shown.time.SampleNumber(index_->Rate())) + " instead of " +
                       std::to_string(sample));
        } else if (tick.tracks.front().status == SampleStatus::Empty) {
            CompareMissing(pass, shown.time, picture, reference);
        } else {
            ComparePicture(pass, shown.time, picture, reference, *shown.pictures.front());
        }
    }

    /// Before that picture there is none.
    void CompareHole(VerifyPass& pass, std::size_t next, const ShownTick& shown) {
        if (shown.pictures.front() != nullptr) {
            Differ(pass, shown.time, next,
                   "picture " + std::to_string(shown.pictures.front()->Number()) +
                       " is on show in the hole before it");
        }
    }

    void CompareMissing(VerifyPass& pass, const TimePoint& time, std::size_t picture,
                        const std::optional<Reference>& reference) {
        if (!reference) {
            ++pass.nbMissing;
        } else if (reference->damaged) {
            ++pass.nbConcealed;
        } else {
            Differ(pass, time, picture, "it is missing");
        }
    }

    void ComparePicture(VerifyPass& pass, const TimePoint& time, std::size_t picture,
                        const std::optional<Reference>& reference, const Picture& shown) {
        if (shown.Number() != picture) {
            Differ(pass, time, picture, "picture " + std::to_string(shown.Number()) + " is on show instead");
            return;
        }
        const std::string md5 = shown.Md5();
        if (reference && reference->md5 == md5) {
            ++pass.nbSame;
        } else if (reference ? reference->damaged : shown.Damaged()) {
            ++pass.nbConcealed;
        } else if (reference) {
            Differ(pass, time, picture, "its pixels have the MD5 " + md5 + " instead of " + reference->md5);
        } else {
            Differ(pass, time, picture, "it is on show, whole, but a straight decode does not put it out");
        }
    }

    void Differ(VerifyPass& pass, const TimePoint& time, std::size_t picture, const std::string& what) {
        ++pass.nbDifferent;
        if (!report_.difference) {
            report_.difference = VerifyDifference{pass.name, time, picture, what};
        }
    }

    std::shared_ptr<const RecordingIndex> index_;
    VerifierOptions options_;
    Progress progress_;
    const std::atomic<bool>* stop_ = nullptr;
    std::vector<std::optional<Reference>> references_;
    VerifyReport report_;
};

Verifier::Verifier(std::shared_ptr<const RecordingIndex> index, const VerifierOptions& options)
    : impl_(std::make_unique<Impl>(std::move(index), options)) {
}

Verifier::~Verifier() = default;

VerifyReport Verifier::Run(const Progress& progress, const std::atomic<bool>* stop) {
    return impl_->Run(progress, stop);
}

}  // namespace Tavrin::Playout
