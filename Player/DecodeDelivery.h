#pragma once

#include "Player/DecodeOrder.h"
#include "Player/ISample.h"

namespace Tavrin::Player {

/// The end of every decode: releases the one protection that the order holds on its compressed sample and
/// pushes `decoded` (null when there is none) to the order's queue, for the time point that the order yields.
/// Takes over `decoded`; if the push throws, it is deleted.
void DeliverDecoded(const DecodeOrder& order, ISample* decoded);

}  // namespace Tavrin::Player
