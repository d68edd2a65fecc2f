// What the tool does with the suite's progress: a bar on standard error while a call works
// (only when standard error is a terminal), and the last message and ratio, which the
// lastProgress call prints so that scripts can check them.
#pragma once
#include <string>

namespace korvane {

// Registers the tool's progress and flush callbacks with the library.
void installProgress();
// Forgets them (the library keeps no pointer into the tool afterwards).
void removeProgress();

struct ProgressSeen {
    std::string message;  // empty: no progress since the last reset
    float ratio = 0.0f;
    int messages = 0;
};
const ProgressSeen& progressSeen();
void resetProgressSeen();

// Erases the bar, if one is drawn; for calls whose work may stop before the last step.
void endProgressBar();

// Ctrl-C in the shell: the signal handler asks, the flush callback answers false from then on,
// so that the suite stops the call's work; the tool asks before each call whether it was
// interrupted.
void requestInterrupt() noexcept;  // async-signal-safe
bool interrupted() noexcept;
void clearInterrupt() noexcept;

}  // namespace korvane
