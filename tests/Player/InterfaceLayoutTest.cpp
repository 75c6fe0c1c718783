// What clients compile into their own programs: which place each virtual function has, where the members of plain values
// lie, and how large they are. A client that was built before a change must find everything where it was; whoever
// has to change one of these numbers has to change the libraries' soname as well.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

#include "Logging/ILogger.h"
#include "Player/Cache.h"
#include "Player/DecodeOrder.h"
#include "Player/IPlayer.h"
#include "Player/IPreloadThread.h"
#include "Player/IPreloadTimePointGenerator.h"
#include "Player/IPreloader.h"
#include "Player/ISample.h"
#include "Player/ISampleDecoder.h"
#include "Player/IStream.h"
#include "Player/Output.h"
#include "Player/PreloadOrder.h"
#include "Player/SampleRate.h"
#include "Player/StorageId.h"
#include "Player/TrackId.h"
#include "Time/Ratio.h"
#include "Time/TimePoint.h"

namespace Tavrin::Player {
namespace {

#if defined(__x86_64__) && defined(__gnu_linux__)

/// Two places come first: the destructor that destroys, and the one that deletes as well.
constexpr std::ptrdiff_t kDestructors = 2;

/// The place of a virtual function in the table of its class. A pointer to a virtual member function is, on this
/// platform, the function's distance from the table's beginning, plus one.
template <typename Function>
std::ptrdiff_t PlaceOf(Function function) {
    static_assert(std::is_member_function_pointer_v<Function>);
    std::ptrdiff_t pointer = 0;
    std::memcpy(&pointer, &function, sizeof(pointer));
    EXPECT_EQ(pointer % 2, 1) << "the function is not virtual";
    return (pointer - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)) - kDestructors;
}

TEST(InterfaceLayout, OfLoggers) {
    using qor::kp::logging::ILogger;
    EXPECT_EQ(PlaceOf(&ILogger::Log), 0);
    EXPECT_EQ(PlaceOf(&ILogger::SetLevel), 1);
    EXPECT_EQ(PlaceOf(&ILogger::GetLevel), 2);
    EXPECT_EQ(sizeof(ILogger), 8U);
}

TEST(InterfaceLayout, OfThePlayer) {
    EXPECT_EQ(PlaceOf(&IPlayer::GetCurrentTimePoint), 0);
    EXPECT_EQ(PlaceOf(&IPlayer::SetSpeed), 1);
    EXPECT_EQ(PlaceOf(&IPlayer::GetSpeed), 2);
    EXPECT_EQ(PlaceOf(&IPlayer::GoTo), 3);
    EXPECT_EQ(PlaceOf(&IPlayer::Update), 4);
    EXPECT_EQ(PlaceOf(&IPlayer::AttachStream), 5);
    EXPECT_EQ(PlaceOf(&IPlayer::DetachStream), 6);
}

TEST(InterfaceLayout, OfStreams) {
    EXPECT_EQ(PlaceOf(&Stream::Begin), 0);
    EXPECT_EQ(PlaceOf(&Stream::SetBegin), 1);
    EXPECT_EQ(PlaceOf(&Stream::End), 2);
    EXPECT_EQ(PlaceOf(&Stream::SetEnd), 3);
    EXPECT_EQ(PlaceOf(&Stream::Exists), 4);
    EXPECT_EQ(PlaceOf(&Stream::Next), 5);
    EXPECT_EQ(PlaceOf(&Stream::Previous), 6);
    EXPECT_EQ(PlaceOf(&Stream::GetCurrentSample), 7);
    EXPECT_EQ(PlaceOf(&Stream::SetStreamParameters), 8);
    EXPECT_EQ(PlaceOf(&Stream::GetStreamParameters), 9);
    EXPECT_EQ(PlaceOf(&Stream::LinkPlayer), 10);
    EXPECT_EQ(PlaceOf(&Stream::UnlinkPlayer), 11);
    EXPECT_EQ(PlaceOf(&Stream::IsLinked), 12);
    EXPECT_EQ(PlaceOf(&Stream::IsReady), 13);
    EXPECT_EQ(PlaceOf(&Stream::GetCacheUpdateQueue), 14);
    EXPECT_EQ(PlaceOf(&Stream::GetUncompressedCacheUpdateQueue), 15);
    EXPECT_EQ(PlaceOf(&Stream::SetCompressedPreloadNumber), 16);
    EXPECT_EQ(PlaceOf(&Stream::DebugPreloadQueueSize), 17);
}

TEST(InterfaceLayout, OfPreloaders) {
    EXPECT_EQ(PlaceOf(&IPreloader::Preload), 0);
    EXPECT_EQ(PlaceOf(&IPreloader::SetExistingCacheUpdateQueues), 1);
    EXPECT_EQ(sizeof(IPreloader), 8U);
    EXPECT_EQ(sizeof(IPreloader::PreloadResult), 4U);
}

TEST(InterfaceLayout, OfDecoders) {
    EXPECT_EQ(PlaceOf(&ISampleDecoder::Decode), 0);
    EXPECT_EQ(sizeof(ISampleDecoder), 8U);
}

TEST(InterfaceLayout, OfSamples) {
    EXPECT_EQ(PlaceOf(&ISample::GetTimePoint), 0);
    EXPECT_EQ(PlaceOf(&ISample::GetDuration), 1);
    EXPECT_EQ(PlaceOf(&ISample::GetPropertyKeys), 2);
    EXPECT_EQ(PlaceOf(&ISample::GetDataKeys), 3);
    EXPECT_EQ(PlaceOf(&ISample::GetProperty), 4);
    EXPECT_EQ(PlaceOf(&ISample::GetData), 5);
    EXPECT_EQ(PlaceOf(&ISample::Protect), 6);
    EXPECT_EQ(PlaceOf(&ISample::Unprotect), 7);
    EXPECT_EQ(PlaceOf(&ISample::GetProtectionCounter), 8);
}

TEST(InterfaceLayout, OfPreloadThreads) {
    EXPECT_EQ(PlaceOf(&IPreloadThread::SetPreloadOrderQueue), 0);
    EXPECT_EQ(PlaceOf(&IPreloadThread::RemovePreloadOrderQueue), 1);
    EXPECT_EQ(PlaceOf(&IPreloadThread::Start), 2);
    EXPECT_EQ(PlaceOf(&IPreloadThread::Stop), 3);
    EXPECT_EQ(PlaceOf(&IPreloadThread::Dequeue), 4);
    EXPECT_EQ(PlaceOf(&IPreloadThread::SetPreloader), 5);
    EXPECT_EQ(PlaceOf(&IPreloadThread::RemovePreloader), 6);
    EXPECT_EQ(PlaceOf(&IPreloadThread::GetInformation), 7);
}

TEST(InterfaceLayout, OfPlanners) {
    EXPECT_EQ(PlaceOf(&IPreloadTimePointGenerator::Get), 0);
    EXPECT_EQ(PlaceOf(&IPreloadTimePointGenerator::Update), 1);
    EXPECT_EQ(PlaceOf(&IPreloadTimePointGenerator::SetSampleRate), 2);
    EXPECT_EQ(PlaceOf(&IPreloadTimePointGenerator::SetDisplayRate), 3);
    EXPECT_EQ(PlaceOf(&IPreloadTimePointGenerator::SetCache), 4);
    EXPECT_EQ(PlaceOf(&IPreloadTimePointGenerator::SetNumberPreloads), 5);
}

/// Where a member lies in an object; offsetof is for types without virtual functions only.
template <typename Class, typename Member>
std::ptrdiff_t PositionOf(const Class& object, const Member& member) {
    return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&object);
}

TEST(InterfaceLayout, OfTimes) {
    EXPECT_EQ(sizeof(Time::TimePoint), 8U);
    EXPECT_EQ(sizeof(Time::Ratio), 24U);
    EXPECT_EQ(sizeof(SampleRate), sizeof(Time::Ratio));
}

TEST(InterfaceLayout, OfOutputs) {
    const Output output;
    EXPECT_EQ(PositionOf(output, output.sample_), 8);
    EXPECT_EQ(PositionOf(output, output.tp_), 16);
    EXPECT_EQ(sizeof(Output), 24U);
}

TEST(InterfaceLayout, OfPreloadOrders) {
    const PreloadOrder order;
    EXPECT_EQ(PositionOf(order, order.tp_), 8);
    EXPECT_EQ(PositionOf(order, order.s_), 16);
    EXPECT_EQ(PositionOf(order, order.queue_), 40);
    EXPECT_EQ(PositionOf(order, order.id_), 48);
    EXPECT_EQ(sizeof(TrackId), 56U);
    EXPECT_EQ(sizeof(StorageId), 48U);
    EXPECT_EQ(PositionOf(order, order.priority_), 104);
    EXPECT_EQ(sizeof(PreloadOrder), 112U);
}

TEST(InterfaceLayout, OfDecodeOrders) {
    const DecodeOrder order;
    EXPECT_EQ(PositionOf(order, order.toDecode_), 8);
    EXPECT_EQ(PositionOf(order, order.orderTp_), 16);
    EXPECT_EQ(PositionOf(order, order.queue_), 24);
    EXPECT_EQ(PositionOf(order, order.decodeTopField_), 32);
    EXPECT_EQ(PositionOf(order, order.isInterlace_), 33);
    EXPECT_EQ(PositionOf(order, order.fieldSampleRate_), 40);
    EXPECT_EQ(PositionOf(order, order.width_), 64);
    EXPECT_EQ(PositionOf(order, order.height_), 68);
    EXPECT_EQ(sizeof(DecodeOrder), 72U);
}

TEST(InterfaceLayout, OfCaches) {
    EXPECT_EQ(sizeof(Cache::EntryType), 4U);
    EXPECT_EQ(sizeof(Cache::Information), 40U);
}

TEST(InterfaceLayout, OfStreamParameters) {
    const Stream::StreamParameters parameters;
    EXPECT_EQ(PositionOf(parameters, parameters.type_), 0);
    EXPECT_EQ(PositionOf(parameters, parameters.interlace_), 32);
    EXPECT_EQ(PositionOf(parameters, parameters.compressedSampleRate_), 40);
    EXPECT_EQ(PositionOf(parameters, parameters.uncompressedSampleRate_), 64);
    EXPECT_EQ(PositionOf(parameters, parameters.displayRate_), 88);
    EXPECT_EQ(PositionOf(parameters, parameters.trackId_), 112);
    EXPECT_EQ(PositionOf(parameters, parameters.preloadQueue_), 168);
    EXPECT_EQ(PositionOf(parameters, parameters.nbPreloading_), 176);
    EXPECT_EQ(PositionOf(parameters, parameters.decodeQueue_), 184);
    EXPECT_EQ(PositionOf(parameters, parameters.nbDecoding_), 192);
    EXPECT_EQ(PositionOf(parameters, parameters.width_), 200);
    EXPECT_EQ(PositionOf(parameters, parameters.height_), 204);
    EXPECT_EQ(PositionOf(parameters, parameters.scale_factor_x_), 208);
    EXPECT_EQ(PositionOf(parameters, parameters.scale_factor_y_), 212);
    EXPECT_EQ(sizeof(Stream::StreamParameters), 216U);
}

#endif

TEST(InterfaceLayout, OfWhatIsWrittenAsNumbers) {
    using namespace qor::kp::logging;
    EXPECT_EQ(static_cast<int>(Level_Trace), 10);
    EXPECT_EQ(static_cast<int>(Level_Debug), 20);
    EXPECT_EQ(static_cast<int>(Level_Info), 30);
    EXPECT_EQ(static_cast<int>(Level_Warning), 40);
    EXPECT_EQ(static_cast<int>(Level_Error), 50);
    EXPECT_EQ(static_cast<int>(Level_Fatal), 60);
    EXPECT_EQ(static_cast<int>(Level_NoLog), 100);
    EXPECT_EQ(static_cast<int>(IPreloader::ERROR), 0);
    EXPECT_EQ(static_cast<int>(IPreloader::SUCCESS_EXIST), 1);
    EXPECT_EQ(static_cast<int>(IPreloader::SUCCESS_MISSING), 2);
    EXPECT_EQ(static_cast<int>(Cache::Not_Found), 0);
    EXPECT_EQ(static_cast<int>(Cache::Pending), 1);
    EXPECT_EQ(static_cast<int>(Cache::Missing), 2);
    EXPECT_EQ(static_cast<int>(Cache::Valid), 3);
}

}  // namespace
}  // namespace Tavrin::Player
