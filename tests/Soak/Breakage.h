#pragma once

#include <array>
#include <string>
#include <string_view>

namespace Tavrin::Soak {

/// What a run breaks on purpose, to show that its checks see it.
enum class Breakage {
    None,
    AnsweredTwice,   ///< Storage gives a second answer to some orders.
    NeverAnswered,   ///< Storage forgets some orders.
    SampleLeaked,    ///< Storage makes a sample that nobody gets.
    ProtectionKept,  ///< A decoder protects a compressed sample and does not release it.
    ReleasedTwice,   ///< A decoder releases a compressed sample, which the worker does.
    PictureKept,     ///< A client keeps a picture beyond its session without saying so.
    ThreadLeft,      ///< A phase ends with a thread more than it began with.
    DescriptorLeft,  ///< The same with a file.
    MemoryLeaked     ///< Each phase takes memory that it does not give back.
};

struct NamedBreakage {
    std::string_view name_;
    Breakage breakage_;
};

/// As they are called on the command line.
inline constexpr std::array<NamedBreakage, 9> kBreakages{{{"answered-twice", Breakage::AnsweredTwice},
                                                          {"never-answered", Breakage::NeverAnswered},
                                                          {"sample-leaked", Breakage::SampleLeaked},
                                                          {"protection-kept", Breakage::ProtectionKept},
                                                          {"released-twice", Breakage::ReleasedTwice},
                                                          {"picture-kept", Breakage::PictureKept},
                                                          {"thread-left", Breakage::ThreadLeft},
                                                          {"descriptor-left", Breakage::DescriptorLeft},
                                                          {"memory-leaked", Breakage::MemoryLeaked}}};

}  // namespace Tavrin::Soak
