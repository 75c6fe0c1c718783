#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Playout/IPictureSink.h"
#include "Playout/Session.h"

namespace Tavrin::Playout::Program {

/// Where the pictures of `play` go.
struct Output {
    enum class Kind { None, Png, Y4m, Md5 };
    Kind kind = Kind::None;
    std::string path;  ///< A folder for Png, otherwise a file; "-" is standard output.

    [[nodiscard]] bool IsWritten() const { return kind != Kind::None; }

    /// Standard output is not free for messages then.
    [[nodiscard]] bool IsStandardOutput() const;
};

/// From "none", "png:DIR", "y4m:FILE" or "md5:FILE"; throws UsageError for anything else.
[[nodiscard]] Output ParseOutput(const std::string& text);

/// Throws UsageError when the file is one of the recordings being played; \p option is what asks for it.
void RefuseRecordings(const std::string& option, const std::string& path, const Session& session);
void RefuseRecordings(const std::string& option, const std::string& path,
                      const std::vector<std::string>& recordings);

/// Opens it for the session's tracks, as a mosaic when there are several; null when nothing is to be written.
/// Throws UsageError when it is one of the recordings being played, and std::runtime_error when it cannot be
/// written.
[[nodiscard]] std::unique_ptr<IPictureSink> OpenOutput(const Output& output, const Session& session);

}  // namespace Tavrin::Playout::Program
