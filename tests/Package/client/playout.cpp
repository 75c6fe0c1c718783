// Asks the installed media client for a recording that is not there. Exits 0 when it refuses in words.
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "Playout/RecordingIndex.h"

int main() {
    try {
        const auto index = Tavrin::Playout::RecordingIndex::Build("no-such-recording.mp4");
    } catch (const std::exception& error) {
        const std::string message = error.what();
        return message.find("no-such-recording.mp4") != std::string::npos ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    std::cerr << "a recording that does not exist was opened\n";
    return EXIT_FAILURE;
}
