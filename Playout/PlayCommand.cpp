#include "Playout/PlayCommand.h"

namespace Tavrin::Playout {

ICommandSource::~ICommandSource() = default;

}  // namespace Tavrin::Playout
