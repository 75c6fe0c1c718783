#include "Playout/Support/VirtualDisplay.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace Tavrin::Playout::Support {

namespace {

/// The path of a program; empty when it is not installed.
std::string FindProgram(const std::string& name) {
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    for (std::string folder; std::getline(folders, folder, ':');) {
        const std::string program = folder + "/" + name;
        if (access(program.c_str(), X_OK) == 0) {
            return program;
        }
    }
    return "";
}

/// The server chooses a free number and says it, once it can be used. It must not begin anew when its last client
/// leaves, which here is a program that only looks: who comes at that moment would be turned away.
std::vector<std::string> ServerCommand() {
    return {FindProgram("Xvfb"), "-displayfd", "1",   "-screen", "0",
            "800x600x24",        "-nolisten",  "tcp", "-noreset"};
}

}  // namespace

Colour Screenshot::At(int x, int y) const {
    if (x < 0 || x >= width || y < 0 || y >= height) {
        throw std::out_of_range("no pixel " + std::to_string(x) + ", " + std::to_string(y));
    }
    const auto first =
        (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 3;
    return {bytes.at(first), bytes.at(first + 1), bytes.at(first + 2)};
}

bool VirtualDisplay::IsAvailable() {
    return !FindProgram("Xvfb").empty() && !FindProgram("xdotool").empty() && !FindProgram("import").empty();
}

VirtualDisplay::VirtualDisplay() : server_(ServerCommand()) {
    if (!server_.ReadUntil("\n")) {
        throw std::runtime_error("Xvfb does not start");
    }
    variable_ = "DISPLAY=:" + server_.Output().substr(0, server_.Output().find('\n'));
}

VirtualDisplay::~VirtualDisplay() {
    // In order, so that its lock on the number goes with it.
    server_.Signal(SIGTERM);
    static_cast<void>(server_.Finish());
}

std::string VirtualDisplay::OutputOf(const std::string& command) const {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(
        popen((variable_ + " " + command).c_str(), "r"), pclose);
    if (pipe == nullptr) {
        throw std::runtime_error("cannot be run: " + command);
    }
    std::string output;
    std::array<char, 65536> buffer{};
    while (const auto nb = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) {
        output.append(buffer.data(), nb);
    }
    return output;
}

void VirtualDisplay::Input(const std::string& actions) const {
    if (std::system((variable_ + " xdotool " + actions).c_str()) != 0) {
        throw std::runtime_error("this failed: xdotool " + actions);
    }
}

std::vector<WindowPlace> VirtualDisplay::Windows(const std::string& program) const {
    std::istringstream numbers(
        OutputOf("xdotool search --onlyvisible --class '^" + program + "$' 2>/dev/null"));
    std::vector<WindowPlace> places;
    for (std::string number; std::getline(numbers, number);) {
        const std::string geometry = OutputOf("xdotool getwindowgeometry --shell " + number);
        WindowPlace place;
        int id = 0;
        if (std::sscanf(geometry.c_str(), "WINDOW=%d X=%d Y=%d WIDTH=%d HEIGHT=%d", &id, &place.x, &place.y,
                        &place.width, &place.height) == 5) {
            places.push_back(place);
        }
    }
    return places;
}

Screenshot VirtualDisplay::Shoot() const {
    const std::string file = OutputOf("import -window root -depth 8 ppm:-");
    std::istringstream in(file);
    std::string kind;
    int highest = 0;
    Screenshot shot;
    if (!(in >> kind >> shot.width >> shot.height >> highest) || kind != "P6" || highest != 255) {
        throw std::runtime_error("the display cannot be looked at");
    }
    in.get();
    shot.bytes.assign(file.begin() + in.tellg(), file.end());
    return shot;
}

}  // namespace Tavrin::Playout::Support
