#include <iostream>

#include "Player/Cache.h"
#include "Player/FakePreloader.h"
#include "Player/Player.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/PreloadThread.h"

int main() {
    using namespace Tavrin::Player;
    const SampleRate rate(25, 1);
    Player player;             // the play head
    Cache cache;               // the samples of one track, by time point
    PreloadOrderQueue orders;  // what is to be fetched
    FakePreloader storage;     // your own reader of recordings stands here
    PreloadThread worker;      // fetches on a thread of its own
    cache.SetStreamSampleRate(rate);
    worker.SetPreloader(&storage);
    worker.SetPreloadOrderQueue(&orders);
    worker.Start();
    for (int shown = 0; shown < 25;) {  // each turn is one tick of your output
        const auto now = player.GetCurrentTimePoint();
        ISample* sample = nullptr;
        cache.Update();
        if (cache.GetSample(now, rate, &sample, false) == Cache::Valid) {
            std::cout << "shown: " << sample->GetTimePoint() << '\n';
            player.Update(sample->GetDuration());
            ++shown;
        } else if (!cache.InsertPendingEntry(now)) {
            orders.Push(PreloadOrder(now, rate, cache.GetQueue(), TrackId()));
        }
    }
}
