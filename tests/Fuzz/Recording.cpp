// Bytes as a recording: it is either refused as documented, or has an index that holds together and a straight decode
// that ends.

extern "C" {
#include <libavutil/mem.h>
}

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "Fuzz/Support/Require.h"
#include "Playout/Picture.h"
#include "Playout/RecordingIndex.h"
#include "Playout/StraightDecoder.h"

namespace Tavrin::Fuzz {
namespace {

using Playout::IndexedPicture;
using Playout::Picture;
using Playout::PictureGroup;
using Playout::RecordingIndex;
using Playout::StraightDecoder;
using Time::TimePoint;

/// Room for some pictures; what is longer takes longer, and tells nothing more.
constexpr std::size_t kMostBytes = std::size_t{1} << 18;
constexpr std::size_t kMostPictures = 8;

/// A header may claim pictures of any size: FFmpeg is not to take more than this at once.
constexpr std::size_t kMostMemory = std::size_t{1} << 24;

/// A file in memory that is written anew for each input.
class MemoryFile {
public:
    MemoryFile() : descriptor_(memfd_create("recording", 0)) {
        Require(descriptor_ >= 0, "there can be a file in memory");
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(descriptor_); }

    std::string Path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

    void Write(const std::uint8_t* data, std::size_t size) const {
        const bool isWritten = ftruncate(descriptor_, 0) == 0 &&
                               pwrite(descriptor_, data, size, 0) == static_cast<ssize_t>(size);
        Require(isWritten, "the file in memory takes the bytes");
    }

private:
    int descriptor_;
};

/// Null when the recording is refused.
std::shared_ptr<const RecordingIndex> IndexOf(const std::string& file) {
    try {
        return RecordingIndex::Build(file);
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        Require(text.starts_with("\"" + file + "\": "), "an error names the file", text);
        Require(text.find('\n') == std::string::npos, "an error is one line", text);
        return nullptr;
    }
}

void CheckPicture(const RecordingIndex& index, std::size_t number) {
    const IndexedPicture& picture = index.Picture(number);
    Require(picture.duration >= TimePoint(), "no picture ends before it begins");
    Require(picture.sample <= picture.end, "no picture goes off display before it comes on");
    Require(index.PictureOfPacket(picture.packet) == number, "a picture's packet shows that picture");
    const PictureGroup& group = index.Group(picture.group);
    Require(number >= group.firstPicture && number < group.EndPicture(), "a picture lies in its group");
    Require(picture.packet >= group.firstPacket && picture.packet < group.EndPacket(),
            "a group's run has the packets of all its pictures");
    if (picture.sample < picture.end) {
        Require(index.PictureAt(picture.sample) == number, "a picture is on display at its first sample");
        Require(index.PictureAt(picture.end - 1) == number, "a picture is on display at its last sample");
    }
}

void CheckPictures(const RecordingIndex& index) {
    Require(index.NbPictures() > 0, "a recording has pictures");
    Require(index.Picture(0).start == TimePoint(), "the first picture begins at the origin");
    for (std::size_t number = 0; number < index.NbPictures(); ++number) {
        CheckPicture(index, number);
        if (number > 0) {
            const IndexedPicture& before = index.Picture(number - 1);
            Require(before.start <= index.Picture(number).start, "pictures are in the order of display");
            Require(before.end <= index.Picture(number).sample, "one picture goes before the next comes");
        }
    }
    Require(index.Picture(index.NbPictures() - 1).end <= index.NbSamples(), "the grid holds all pictures");
    Require(!index.PictureAt(-1) && !index.PictureAt(index.NbSamples()), "outside of it there is none");
    Require(index.Rate().Positive(), "a recording has a rate");
}

void CheckGroups(const RecordingIndex& index) {
    std::size_t nextPicture = 0;
    for (std::size_t number = 0; number < index.NbGroups(); ++number) {
        const PictureGroup& group = index.Group(number);
        Require(group.firstPicture == nextPicture, "groups follow one another without a gap");
        Require(group.nbPictures > 0 && group.nbPackets > 0, "no group is empty");
        Require(group.EndPacket() <= index.NbPackets(), "a group's packets exist");
        nextPicture = group.EndPicture();
    }
    Require(nextPicture == index.NbPictures(), "every picture has a group");
}

/// Memory that runs out is not a defect here: there is a limit to it.
void CheckDecode(const std::shared_ptr<const RecordingIndex>& index) {
    std::size_t nbHandedOver = 0;
    const auto take = [&](const std::shared_ptr<const Picture>& picture) {
        Require(picture != nullptr && picture->Number() < index->NbPictures(), "a picture is in the index");
        Require(picture->Width() > 0 && picture->Height() > 0 && picture->NbPlanes() > 0,
                "a picture has pixels");
        // Reads every byte that may be read.
        Require(!picture->Md5().empty(), "a picture has a check sum");
        return ++nbHandedOver < kMostPictures;
    };
    try {
        const StraightDecoder::Result result = StraightDecoder(index).Run(take);
        Require(result.nbPictures == nbHandedOver, "a decode counts the pictures that it hands over");
    } catch (const std::runtime_error& error) {
        Require(error.what()[0] != 0, "an error says what is wrong");
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace
}  // namespace Tavrin::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace Tavrin::Fuzz;
    static const MemoryFile file;
    av_max_alloc(kMostMemory);
    if (size > kMostBytes) {
        return 0;
    }
    file.Write(data, size);
    if (const auto index = IndexOf(file.Path()); index != nullptr) {
        CheckPictures(*index);
        CheckGroups(*index);
        CheckDecode(index);
    }
    return 0;
}
