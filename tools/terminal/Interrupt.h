// Ctrl-C and its kin while files are being put in place.
#pragma once

namespace calcut::tools {

/// While one exists, SIGINT, SIGTERM and SIGHUP only leave a note; a second one ends the process at
/// once. When it goes, and a note was left, it ends the process by that signal, so that a shell
/// sees what happened. Declare it before whatever has to be cleaned up. Signals that were ignored
/// stay so.
class InterruptGuard {
  public:
    InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
    ~InterruptGuard();

    /// Whether a signal came. Any thread may ask.
    static bool interrupted();
};

}  // namespace calcut::tools
