#pragma once

#include "Literal/Cache.h"
#include "Literal/ExistingCacheUpdateQueues.h"
#include "Literal/PreloadTimePointGenerator.h"
#include "Literal/Queues.h"
#include "Player/Cache.h"
#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeOrder.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/PreloadOrder.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadTimePointGenerator.h"

/// The two sets of classes that a benchmark runs with: the same code drives both.
namespace Tavrin::Player::Bench {

struct EngineKit {
    using Cache = Player::Cache;
    using CacheUpdateQueue = Player::CacheUpdateQueue;
    using DecodeOrder = Player::DecodeOrder;
    using DecodeOrderQueue = Player::DecodeOrderQueue;
    using ExistingCacheUpdateQueues = Player::ExistingCacheUpdateQueues;
    using PreloadOrder = Player::PreloadOrder;
    using PreloadOrderQueue = Player::PreloadOrderQueue;
    using PreloadTimePointGenerator = Player::PreloadTimePointGenerator;
};

struct LiteralKit {
    using Cache = Literal::Cache;
    using CacheUpdateQueue = Literal::CacheUpdateQueue;
    using DecodeOrder = Literal::DecodeOrder;
    using DecodeOrderQueue = Literal::DecodeOrderQueue;
    using ExistingCacheUpdateQueues = Literal::ExistingCacheUpdateQueues;
    using PreloadOrder = Literal::PreloadOrder;
    using PreloadOrderQueue = Literal::PreloadOrderQueue;
    using PreloadTimePointGenerator = Literal::PreloadTimePointGenerator;
};

}  // namespace Tavrin::Player::Bench
