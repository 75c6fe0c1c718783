#include "Playout/OutputFile.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Tavrin::Playout {

OutputFile::OutputFile(std::string file) : file_(std::move(file)), stream_(std::fopen(file_.c_str(), "wb")) {
    if (stream_ == nullptr) {
        Fail("cannot be made");
    }
}

void OutputFile::Fail(const char* what) const {
    throw std::runtime_error("\"" + file_ + "\": " + what + ": " + std::generic_category().message(errno));
}

void OutputFile::Write(const void* bytes, std::size_t nb) {
    if (std::fwrite(bytes, 1, nb, stream_.get()) != nb) {
        Fail("cannot be written");
    }
}

void OutputFile::Finish() {
    // What is buffered goes out here, and only here the last failure shows.
    if (stream_ != nullptr && std::fclose(stream_.release()) != 0) {
        Fail("cannot be written");
    }
}

}  // namespace Tavrin::Playout
