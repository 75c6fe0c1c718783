// Sequences of operations on the queues of orders and outputs, beside plain deques, and on the registry of live
// queues, beside a plain set.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "Fuzz/Support/Choices.h"
#include "Fuzz/Support/Require.h"
#include "Player/CacheUpdateQueue.h"
#include "Player/DecodeOrderQueue.h"
#include "Player/ExistingCacheUpdateQueues.h"
#include "Player/PreloadOrderQueue.h"
#include "Player/Support/Moments.h"
#include "Player/Support/SampleLedger.h"

namespace Tavrin::Fuzz {
namespace {

using Player::CacheUpdateQueue;
using Player::DecodeOrder;
using Player::DecodeOrderQueue;
using Player::ExistingCacheUpdateQueues;
using Player::ISample;
using Player::Output;
using Player::PreloadOrder;
using Player::PreloadOrderQueue;
using Player::Testing::LedgerSample;
using Player::Testing::Ms;
using Player::Testing::SampleEvent;
using Player::Testing::SampleLedger;

constexpr int kMostSteps = 500;

/// Several segments of a queue: what happens where one ends happens in every sequence.
constexpr std::int64_t kMostAtOnce = 100;

/// Beyond 16 the registry finds a queue in another way.
constexpr std::size_t kNbQueues = 20;

bool IsSame(const PreloadOrder& left, const PreloadOrder& right) {
    return left == right && left.s_ == right.s_ && left.priority_ == right.priority_;
}

bool IsSame(const DecodeOrder& left, const DecodeOrder& right) {
    return left.toDecode_ == right.toDecode_ && left.orderTp_ == right.orderTp_ &&
           left.queue_ == right.queue_ && left.decodeTopField_ == right.decodeTopField_ &&
           left.isInterlace_ == right.isInterlace_ && left.fieldSampleRate_ == right.fieldSampleRate_ &&
           left.width_ == right.width_ && left.height_ == right.height_;
}

PreloadOrder MakeOrder(std::int64_t number, const PreloadOrder& /*kind*/) {
    // The address is longer than what a text holds in itself, so that it has memory of its own.
    PreloadOrder order(Ms(number), {25, 1}, nullptr, {{"storage-with-a-long-name.example", number}, number});
    order.SetPriority(static_cast<int>(number % 7));
    return order;
}

DecodeOrder MakeOrder(std::int64_t number, const DecodeOrder& /*kind*/) {
    DecodeOrder order;
    order.orderTp_ = Ms(number);
    order.isInterlace_ = number % 2 == 0;
    order.decodeTopField_ = number % 3 == 0;
    order.fieldSampleRate_ = {50, 1};
    order.width_ = static_cast<std::int32_t>(number % 4096);
    order.height_ = static_cast<std::int32_t>(number % 2160);
    return order;
}

/// A queue of orders and its model.
template <typename Queue, typename Order>
class OrderQueuePair {
public:
    void Step(Choices& choices) {
        const std::int64_t choice = choices.Between(0, 4);
        if (choice == 0) {
            Push(choices.Between(1, kMostAtOnce));
        } else if (choice == 1) {
            Push(1);
        } else if (choice == 2) {
            Pop(choices.Between(1, kMostAtOnce));
        } else if (choice == 3) {
            Pop(1);
        } else {
            queue_.Clear();
            model_.clear();
        }
        Require(queue_.GetSize() == model_.size(), "a queue knows how many orders wait in it");
    }

private:
    void Push(std::int64_t nb) {
        for (; nb > 0; --nb) {
            const Order order = MakeOrder(nbPushed_++, Order());
            queue_.Push(order);
            model_.push_back(order);
        }
    }

    void Pop(std::int64_t nb) {
        for (; nb > 0; --nb) {
            const Order untouched = MakeOrder(-1, Order());
            const Order expected = model_.empty() ? untouched : model_.front();
            Order order = untouched;
            Require(queue_.Pop(order) == !model_.empty(), "a queue gives an order while one waits in it");
            Require(IsSame(order, expected), "a queue gives the oldest order, and without one leaves it be");
            if (!model_.empty()) {
                model_.pop_front();
            }
        }
    }

    Queue queue_;
    std::deque<Order> model_;
    std::int64_t nbPushed_ = 0;
};

/// What a client's decoder may do with an order.
enum class Way { DeliversSample, DeliversNothing, Refuses, Breaks, AsksRegistry };

class ChosenDecoder final : public Player::ISampleDecoder {
public:
    ChosenDecoder(Way way, ISample* decoded, ExistingCacheUpdateQueues& registry)
        : way_(way), decoded_(decoded), registry_(registry) {}

    ISample* Decode(const DecodeOrder& order) override {
        ++nbCalls_;
        if (way_ == Way::Refuses) {
            throw std::runtime_error("cannot be decoded");
        }
        if (way_ == Way::Breaks) {
            throw std::invalid_argument("what no decoder may throw");
        }
        if (way_ == Way::AsksRegistry) {
            AskRegistry(*order.queue_);
        }
        return decoded_;
    }

    int NbCalls() const { return nbCalls_; }

private:
    void AskRegistry(CacheUpdateQueue& queue) {
        Require(registry_.Exists(&queue), "the queue that is decoded for is registered");
        try {
            registry_.RemoveExistingQueue(&queue);
        } catch (const std::logic_error&) {
            return;
        }
        Require(false, "a decoder cannot change the registry that waits for it");
    }

    Way way_;
    ISample* decoded_;
    ExistingCacheUpdateQueues& registry_;
    int nbCalls_ = 0;
};

/// Queues of outputs, a registry of them, and the models of both. Every sample belongs to whoever holds its output.
class OutputQueues {
public:
    OutputQueues() {
        for (auto& queue : queues_) {
            queue.emplace();
        }
    }

    void Step(Choices& choices) {
        // One more than there are stands for the null queue.
        const std::size_t place = choices.Place(kNbQueues + 1);
        const bool isNull = place == kNbQueues;
        CacheUpdateQueue* const queue = isNull ? nullptr : &*queues_[place];
        const std::int64_t choice = choices.Between(0, 6);
        if (choice == 0) {
            registry_.InsertExistingQueue(queue);
            registered_.insert(queue);
        } else if (choice == 1) {
            registry_.RemoveExistingQueue(queue);
            registered_.erase(queue);
        } else if (choice == 2) {
            PushIfExists(place, queue, choices);
        } else if (choice == 3) {
            Decode(place, queue, static_cast<Way>(choices.Between(0, 4)));
        } else if (!isNull && choice == 4) {
            Push(place, choices.Between(1, kMostAtOnce), choices.Either());
        } else if (!isNull && choice == 5) {
            Pop(place, choices.Between(1, kMostAtOnce));
        } else if (!isNull) {
            Replace(place);
        }
        Require(registry_.Exists(queue) == registered_.contains(queue),
                "the registry knows what is registered");
    }

    void Finish() {
        for (std::size_t place = 0; place < kNbQueues; ++place) {
            Replace(place);
        }
        for (LedgerSample* compressed : compressed_) {
            delete static_cast<ISample*>(compressed);
        }
        Require(ledger_.NbLive() == 0, "no sample leaks");
        Require(ledger_.NbAbused() == 0, "no sample is deleted twice or used after that");
    }

private:
    Output MakeOutput(bool withSample) {
        Output output;
        output.sample_ = withSample ? ledger_.Make() : nullptr;
        output.tp_ = Ms(nbMade_++);
        return output;
    }

    void Push(std::size_t place, std::int64_t nb, bool withSamples) {
        for (; nb > 0; --nb) {
            const Output output = MakeOutput(withSamples);
            queues_[place]->Push(output);
            models_[place].push_back(output);
        }
    }

    void PushIfExists(std::size_t place, CacheUpdateQueue* queue, Choices& choices) {
        const Output output = MakeOutput(choices.Either());
        const bool isExpected = queue != nullptr && registered_.contains(queue);
        Require(registry_.PushIfExists(queue, output) == isExpected, "what is registered gets its output");
        if (isExpected) {
            models_[place].push_back(output);
        } else {
            delete output.sample_;
        }
    }

    void Pop(std::size_t place, std::int64_t nb) {
        auto& model = models_[place];
        for (; nb > 0; --nb) {
            Output output;
            output.tp_ = Ms(-1);
            const Output expected = model.empty() ? output : model.front();
            Require(queues_[place]->Pop(output) == !model.empty(),
                    "a queue gives an output while one waits in it");
            Require(output == expected, "a queue gives the oldest output, and without one leaves it be");
            if (!model.empty()) {
                model.pop_front();
                delete output.sample_;
            }
        }
    }

    void Decode(std::size_t place, CacheUpdateQueue* queue, Way way) {
        LedgerSample* const compressed = ledger_.Make();
        compressed_.push_back(compressed);
        compressed->Protect(2);
        LedgerSample* const decoded =
            way == Way::DeliversSample || way == Way::AsksRegistry ? ledger_.Make() : nullptr;
        DecodeOrder order;
        order.toDecode_ = compressed;
        order.orderTp_ = Ms(nbMade_++);
        order.queue_ = queue;
        ChosenDecoder decoder(way, decoded, registry_);
        const bool isExpected = queue != nullptr && registered_.contains(queue);
        const bool isDelivered = RunDecoder(queue, decoder, order, isExpected && way == Way::Breaks);
        Require(decoder.NbCalls() == (isExpected ? 1 : 0), "what is registered is decoded for, once");
        Require(isDelivered == (isExpected && way != Way::Breaks), "what is registered gets its sample");
        Require(compressed->Counter() == (isDelivered ? 1 : 2), "one protection is released by a delivery");
        if (isDelivered) {
            models_[place].push_back({});
            models_[place].back().sample_ = decoded;
            models_[place].back().tp_ = order.orderTp_;
        } else {
            delete static_cast<ISample*>(decoded);
        }
    }

    bool RunDecoder(CacheUpdateQueue* queue, ChosenDecoder& decoder, const DecodeOrder& order, bool breaks) {
        try {
            const bool isDelivered = registry_.DecodeIfExists(queue, &decoder, order);
            Require(!breaks, "what no decoder may throw comes out of the registry");
            return isDelivered;
        } catch (const std::invalid_argument&) {
            Require(breaks, "nothing but the decoder's own exception comes out of the registry");
            return false;
        }
    }

    /// Ends a queue, as its owner must: off the registry first. Another begins at the same address.
    void Replace(std::size_t place) {
        registry_.RemoveExistingQueue(&*queues_[place]);
        registered_.erase(&*queues_[place]);
        ledger_.Take();
        queues_[place].reset();
        std::vector<const ISample*> expected;
        for (const Output& output : models_[place]) {
            if (output.sample_ != nullptr) {
                expected.push_back(output.sample_);
            }
        }
        std::vector<const ISample*> deleted;
        for (const SampleEvent& event : ledger_.Take()) {
            Require(event.what_ == SampleEvent::Deleted, "a queue that ends does nothing but delete samples");
            deleted.push_back(event.sample_);
        }
        std::sort(expected.begin(), expected.end());
        std::sort(deleted.begin(), deleted.end());
        Require(deleted == expected, "a queue that ends deletes the samples that wait in it, and no other");
        models_[place].clear();
        queues_[place].emplace();
    }

    SampleLedger ledger_;
    std::array<std::optional<CacheUpdateQueue>, kNbQueues> queues_;
    std::array<std::deque<Output>, kNbQueues> models_;
    ExistingCacheUpdateQueues registry_;
    std::set<const CacheUpdateQueue*> registered_;
    std::vector<LedgerSample*> compressed_;
    std::int64_t nbMade_ = 0;
};

void Run(Choices& choices) {
    OrderQueuePair<PreloadOrderQueue, PreloadOrder> preloads;
    OrderQueuePair<DecodeOrderQueue, DecodeOrder> decodes;
    OutputQueues outputs;
    for (int step = 0; step < kMostSteps && !choices.IsEmpty(); ++step) {
        const std::int64_t choice = choices.Between(0, 3);
        if (choice == 0) {
            preloads.Step(choices);
        } else if (choice == 1) {
            decodes.Step(choices);
        } else {
            outputs.Step(choices);
        }
    }
    outputs.Finish();
}

}  // namespace
}  // namespace Tavrin::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Tavrin::Fuzz::Choices choices(data, size);
    Tavrin::Fuzz::Run(choices);
    return 0;
}
