// Ctrl-C and its kin while files are being put in place.
#pragma once

namespace calcut::tools {

/// While one exists, SIGINT, SIGTERM and SIGHUP only leave a note; a second one ends the process at
/// once. Signals that were ignored stay so.
class InterruptGuard {
  public:
    InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
    ~InterruptGuard();

    /// Whether a signal came. Any thread may ask.
    static bool interrupted();

    /// When a note was left, ends the process by that signal, so that a shell sees what happened.
    /// runMain does so, when all is cleaned up and told.
    static void raiseNoted();
};

}  // namespace calcut::tools
