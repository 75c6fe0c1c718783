#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Playout/Support/ProgramRun.h"

namespace Tavrin::Playout::Support {

struct Colour {
    int red = 0;
    int green = 0;
    int blue = 0;
    friend bool operator==(const Colour&, const Colour&) = default;
};

/// What is on a display at a moment.
struct Screenshot {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> bytes;  ///< Three for each pixel, row by row.

    /// Throws std::out_of_range for a point outside.
    [[nodiscard]] Colour At(int x, int y) const;
};

/// Where a window lies on its display.
struct WindowPlace {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

/// A display that nobody sees, with keys and a mouse that a test presses: an X server in memory.
///
/// *Threads:* bound to one thread. *Blocking:* on the programs that it runs, for some hundredths of a second.
/// *Errors:* std::runtime_error when one of them fails.
class VirtualDisplay final {
public:
    /// Whether the programs that it takes are installed.
    [[nodiscard]] static bool IsAvailable();

    VirtualDisplay();
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay&) = delete;
    VirtualDisplay& operator=(const VirtualDisplay&) = delete;

    /// What a program's environment must hold to use it.
    [[nodiscard]] const std::string& Variable() const { return variable_; }

    /// Keys and mouse, in the words of xdotool: "key Right", "mousemove 10 20 mousedown 1".
    void Input(const std::string& actions) const;

    /// The windows of the program of this name.
    [[nodiscard]] std::vector<WindowPlace> Windows(const std::string& program) const;

    [[nodiscard]] Screenshot Shoot() const;

private:
    [[nodiscard]] std::string OutputOf(const std::string& command) const;

    ProgramRun server_;
    std::string variable_;
};

}  // namespace Tavrin::Playout::Support
