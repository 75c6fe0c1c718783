#pragma once

/// Each registers the cases of the file that is named after it.
namespace Tavrin::Player::Bench {

void AddTimePointCases();
void AddCacheCases();
void AddPreloadTimePointGeneratorCases();
void AddCacheUpdateQueueCases();
void AddPreloadOrderQueueCases();
void AddDecodeOrderQueueCases();
void AddExistingCacheUpdateQueuesCases();
void AddTickCases();
void AddPreloadThreadCases();
void AddMachineLimitCases();

inline void AddAllCases() {
    AddMachineLimitCases();
    AddTimePointCases();
    AddCacheCases();
    AddPreloadTimePointGeneratorCases();
    AddCacheUpdateQueueCases();
    AddPreloadOrderQueueCases();
    AddDecodeOrderQueueCases();
    AddExistingCacheUpdateQueuesCases();
    AddTickCases();
    AddPreloadThreadCases();
}

}  // namespace Tavrin::Player::Bench
