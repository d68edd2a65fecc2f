#include "ProgressBar.h"

#include <csignal>
#include <cstdio>

#include <unistd.h>

#include <KorvaneAPI/Callbacks.h>

namespace korvane {

namespace {

ProgressSeen g_seen;
volatile std::sig_atomic_t g_interrupt = 0;
bool g_drawn = false;
bool g_terminal = false;

void onRatio(float ratio) { g_seen.ratio = ratio; }

// The ratio callback runs first, so the message is drawn with its own ratio.
void onMessage(const std::string& message) {
    g_seen.message = message;
    ++g_seen.messages;
    if (!g_terminal) return;
    const float ratio = g_seen.ratio < 0.0f ? 0.0f : (g_seen.ratio > 1.0f ? 1.0f : g_seen.ratio);
    const int width = 30;
    const int filled = static_cast<int>(ratio * width + 0.5f);
    std::fprintf(stderr, "\r\033[K[%.*s%*s] %3d%% %.60s", filled, "##############################", width - filled, "",
                 static_cast<int>(ratio * 100.0f + 0.5f), message.c_str());
    std::fflush(stderr);
    g_drawn = true;
    if (g_seen.ratio >= 1.0f) endProgressBar();
}

bool onFlush() { return g_interrupt == 0; }

}  // namespace

void installProgress() {
    g_terminal = isatty(STDERR_FILENO) != 0;
    setProgressRatioCB(&onRatio);
    setProgressMsgCB(&onMessage);
    setFlushEventsCB(&onFlush);
}

void removeProgress() {
    endProgressBar();
    setProgressRatioCB(nullptr);
    setProgressMsgCB(nullptr);
    setFlushEventsCB(nullptr);
}

const ProgressSeen& progressSeen() { return g_seen; }
void resetProgressSeen() { g_seen = ProgressSeen(); }

void requestInterrupt() noexcept { g_interrupt = 1; }
bool interrupted() noexcept { return g_interrupt != 0; }
void clearInterrupt() noexcept { g_interrupt = 0; }

void endProgressBar() {
    if (!g_drawn) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    g_drawn = false;
}

}  // namespace korvane
