#include "Playout/SampleTally.h"

namespace Tavrin::Playout {

void SampleTally::NoteMade(const Picture& picture) {
    const std::scoped_lock lock(mutex_);
    if (++nbSamples_[&picture] == 1) {
        information_.bytes += picture.ByteSize();
    }
    ++information_.nbMade;
}

void SampleTally::NoteGone(const Picture& picture, bool seen) {
    const std::scoped_lock lock(mutex_);
    const auto found = nbSamples_.find(&picture);
    if (--found->second == 0) {
        information_.bytes -= picture.ByteSize();
        nbSamples_.erase(found);
    }
    ++information_.nbGone;
    information_.nbGoneUnseen += seen ? 0 : 1;
}

SampleTally::Information SampleTally::GetInformation() const {
    const std::scoped_lock lock(mutex_);
    return information_;
}

}  // namespace Tavrin::Playout
