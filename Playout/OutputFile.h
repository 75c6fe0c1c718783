#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

#include "Playout/PlayoutExport.h"

namespace Tavrin::Playout {

/// A file to be written from start to end, whose every failure is noticed.
///
/// *Threads:* externally synchronised. *Blocking:* on the disk. *Errors:* all but the destructor throw
/// std::runtime_error in one line that names the file and the reason.
class TAVRIN_PLAYOUT_EXPORT OutputFile {
public:
    /// Makes the file, or empties it.
    explicit OutputFile(std::string file);

    void Write(const void* bytes, std::size_t nb);
    void Write(const std::string& text) { Write(text.data(), text.size()); }

    /// Everything is on its way to the disk and the file is closed. A second call does nothing.
    void Finish();

private:
    struct Closer {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };
    [[noreturn]] void Fail(const char* what) const;

    std::string file_;
    std::unique_ptr<std::FILE, Closer> stream_;
};

}  // namespace Tavrin::Playout
