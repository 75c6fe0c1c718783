// Puts the outside client's own sample through the installed contract suite.
#include <memory>

#include "contracts/ISampleContract.h"
#include "picture.h"

namespace Tavrin::Player::Contracts {

struct PictureAdaptor : SampleAdaptor {
    std::unique_ptr<ISample> Make() {
        return std::make_unique<Picture>(Time::TimePoint(), Time::TimePoint().FromMilliseconds(40));
    }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Picture, ISampleContract, testing::Types<PictureAdaptor>, );

}  // namespace Tavrin::Player::Contracts
