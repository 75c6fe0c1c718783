#pragma once

#include <atomic>

namespace Tavrin::Playout::Program {

/// Makes the first Ctrl-C (or termination signal) set the flag that is returned, so that what was begun is
/// ended in order; a second one ends the program at once. A pipe that nobody reads any more is left to be
/// found by the writes to it. To be called once, before threads are started.
const std::atomic<bool>& CatchInterrupts();

/// The exit status of a program that a signal ended; 0 when none has come.
int InterruptStatus();

}  // namespace Tavrin::Playout::Program
