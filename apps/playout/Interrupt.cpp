#include "apps/playout/Interrupt.h"

#include <csignal>

namespace Tavrin::Playout::Program {

namespace {

/// What a shell adds to the number of the signal that ended a program.
constexpr int kSignalStatus = 128;

std::atomic<bool> interrupted = false;
std::atomic<int> signalNumber = 0;
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "a signal handler must not wait for a lock");

void Interrupt(int number) {
    signalNumber.store(number);
    interrupted.store(true);
}

}  // namespace

const std::atomic<bool>& CatchInterrupts() {
    struct sigaction action = {};
    action.sa_handler = &Interrupt;
    // The second signal finds the default action again. Writes in progress go on.
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return interrupted;
}

int InterruptStatus() {
    const int number = signalNumber.load();
    return number == 0 ? 0 : kSignalStatus + number;
}

}  // namespace Tavrin::Playout::Program
