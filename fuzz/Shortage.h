#pragma once

namespace fuzz {

/// While it lives, the library is refused memory, except where the headers say that the process
/// ends without it. In any case it is refused what is larger than 256 KiB, so that a few bytes that
/// name a huge image or PSF cost no time.
class Shortage {
  public:
    /// Refuses the first-th allocation from now on (1 is the next; 0 none), and all later ones when
    /// it lasts.
    Shortage(unsigned first, bool lasts);
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;
    ~Shortage();
};

}  // namespace fuzz
