#include "Playout/StampCompletion.h"

#include <algorithm>
#include <cstddef>
#include <tuple>

namespace Tavrin::Playout {

namespace {

using Packets = std::vector<CodedPacket>;

bool LacksStamp(const CodedPacket& packet) {
    return packet.pts == CodedPacket::kNone;
}

bool Complete(const Packets& packets) {
    return std::none_of(packets.begin(), packets.end(), LacksStamp);
}

void CopyToSecondFields(Packets& packets) {
    for (std::size_t i = 1; i < packets.size(); ++i) {
        if (packets[i].secondField && LacksStamp(packets[i])) {
            packets[i].pts = packets[i - 1].pts;
        }
    }
}

std::vector<std::size_t> FirstFields(const Packets& packets) {
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (!packets[i].secondField) {
            numbers.push_back(i);
        }
    }
    return numbers;
}

std::int64_t DurationOf(const Packets& packets, std::size_t picture) {
    auto duration = packets[picture].duration;
    for (auto field = picture + 1; field < packets.size() && packets[field].secondField; ++field) {
        duration += packets[field].duration;
    }
    return duration;
}

/// Ascending times for so many pictures: those of their decoding, or equal steps.
std::vector<std::int64_t> Times(const Packets& packets, const std::vector<std::size_t>& pictures) {
    std::vector<std::int64_t> times;
    times.reserve(pictures.size());
    for (const auto number : pictures) {
        times.push_back(packets[number].dts);
    }
    std::sort(times.begin(), times.end());
    if (times.front() == CodedPacket::kNone) {
        const auto step = std::max<std::int64_t>(DurationOf(packets, pictures.front()), 1);
        for (std::size_t i = 0; i < times.size(); ++i) {
            times[i] = step * static_cast<std::int64_t>(i);
        }
    }
    return times;
}

void OrderAsCoded(Packets& packets, const std::vector<CodedOrder>& orders) {
    auto shown = FirstFields(packets);
    const auto times = Times(packets, shown);
    std::stable_sort(shown.begin(), shown.end(), [&](std::size_t left, std::size_t right) {
        return std::tie(orders[left].sequence, orders[left].number) <
               std::tie(orders[right].sequence, orders[right].number);
    });
    for (std::size_t i = 0; i < shown.size(); ++i) {
        packets[shown[i]].pts = times[i];
    }
    for (auto& packet : packets) {
        packet.pts = packet.secondField ? CodedPacket::kNone : packet.pts;
    }
    CopyToSecondFields(packets);
}

void ShowAtNextReference(Packets& packets) {
    // From the end on, so that the next picture of that kind is known: one that is not shown at once.
    auto next = packets.back().dts;
    if (next != CodedPacket::kNone) {
        next += std::max<std::int64_t>(packets.back().duration, 1);
    }
    std::for_each(packets.rbegin(), packets.rend(), [&](CodedPacket& packet) {
        const bool reference = LacksStamp(packet) || packet.pts != packet.dts;
        if (LacksStamp(packet)) {
            packet.pts = next;
        }
        if (reference && packet.dts != CodedPacket::kNone) {
            next = packet.dts;
        }
    });
}

}  // namespace

bool CompleteStamps(std::vector<CodedPacket>& packets, const std::vector<CodedOrder>& orders, bool reorders) {
    CopyToSecondFields(packets);
    if (Complete(packets)) {
        return true;
    }
    if (orders.size() == packets.size()) {
        OrderAsCoded(packets, orders);
    } else if (reorders) {
        ShowAtNextReference(packets);
    } else {
        for (auto& packet : packets) {
            packet.pts = LacksStamp(packet) ? packet.dts : packet.pts;
        }
    }
    return Complete(packets);
}

}  // namespace Tavrin::Playout
