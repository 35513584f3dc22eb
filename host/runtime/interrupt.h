// Interrupt: the one path SIGINT, SIGTERM, SIGHUP and SIGPIPE take. The
// handler only records which signal came; the program notices it at frame
// boundaries and inside blocking opens and reads (FFmpeg's interrupt
// callback), unwinds, which removes every unfinished output, and exits with
// 128 + the signal's number, as shells report a death by signal.
#pragma once

namespace nimbo::host {

// Installs the handler for the four signals, without SA_RESTART, so a
// blocking open() or read() returns EINTR instead of waiting on.
void InstallInterruptHandlers();

// The number of the first signal received, 0 while none came.
int InterruptSignal();
// Throws HostError("interrupted by SIGxxx") once a signal came.
void ThrowIfInterrupted();
// The exit code for a run ended by InterruptSignal(): 128 + its number.
int InterruptExitCode();

// Holds the four signals back for its lifetime (they are delivered when it
// ends), so a short step that must not stop halfway, such as renaming the
// finished outputs into place, runs to its end.
class InterruptsHeld {
 public:
  InterruptsHeld();
  ~InterruptsHeld();
  InterruptsHeld(const InterruptsHeld&) = delete;
  InterruptsHeld& operator=(const InterruptsHeld&) = delete;
};

// Tests: forget a recorded signal.
void ResetInterruptForTesting();

}  // namespace nimbo::host
