#include "Shell.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#ifdef KORVANE_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

#include "Completion.h"
#include "ProgressBar.h"

namespace korvane {

namespace {

// The shell's signals only set flags: a call in progress sees them between its steps, and the
// prompt waits for input with them blocked except inside ppoll, so a signal that comes at any
// moment ends the wait at once and never lands inside the line editor or stdio.
volatile std::sig_atomic_t g_leave = 0;

void onInterrupt(int) { requestInterrupt(); }

void onTerminate(int signal) {
    g_leave = signal;
    requestInterrupt();
}

// Without SA_RESTART, so that a wait at the prompt returns at once.
void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

constexpr int kShellSignals[] = {SIGINT, SIGTERM, SIGHUP};

sigset_t shellSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kShellSignals) sigaddset(&set, signal);
    return set;
}

// Blocks the shell's signals for as long as it lives; `open` is the mask that lets them in.
class SignalsHeld {
public:
    SignalsHeld() {
        const sigset_t set = shellSignals();
        pthread_sigmask(SIG_BLOCK, &set, &m_open);
        for (const int signal : kShellSignals) sigdelset(&m_open, signal);
    }
    ~SignalsHeld() {
        const sigset_t set = shellSignals();
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
    const sigset_t& open() const noexcept { return m_open; }

private:
    sigset_t m_open;
};

enum class Wait { Input, Signal };

// Waits until standard input can be read or one of the shell's signals came.
Wait waitForInput(const SignalsHeld& held) {
    for (;;) {
        if (g_leave != 0 || interrupted()) return Wait::Signal;
        pollfd input{STDIN_FILENO, POLLIN, 0};
        const int ready = ppoll(&input, 1, nullptr, &held.open());
        if (ready > 0) return Wait::Input;
        if (ready < 0 && errno != EINTR) return Wait::Input;  // the read will report it
    }
}

const bool kInteractive = isatty(STDIN_FILENO) != 0;
// What the shell shows the person typing (banner, prompt, line ends): standard error with
// --json, so that standard output carries only the objects.
std::ostream* g_screen = &std::cout;

#ifdef KORVANE_HAVE_LIBEDIT
constexpr int kHistoryLines = 1000;

// Tab completion: call names first, then stored object names where the call takes one, in
// quotes when they hold blanks.
std::vector<std::string> g_matches;

char* nextMatch(const char*, int state) {
    if (static_cast<std::size_t>(state) >= g_matches.size()) return nullptr;
    return strdup(g_matches[static_cast<std::size_t>(state)].c_str());
}

char** completeCall(const char* text, int, int end) {
    rl_attempted_completion_over = 1;  // no file names
    g_matches = completeLine(std::string(rl_line_buffer, static_cast<std::size_t>(end)));
    if (g_matches.empty()) return nullptr;
    return rl_completion_matches(text, &nextMatch);
}

// The history, read at the start and written however the shell ends.
class History {
public:
    History() {
        const char* home = std::getenv("HOME");
        if (home != nullptr) m_file = std::string(home) + "/.korvane_history";
        stifle_history(kHistoryLines);
        if (!m_file.empty()) read_history(m_file.c_str());
    }
    ~History() {
        if (!m_file.empty()) write_history(m_file.c_str());
    }
    History(const History&) = delete;
    History& operator=(const History&) = delete;

private:
    std::string m_file;
};
#endif

enum class Read { Line, Interrupted, End };

Read signalled() { return g_leave != 0 ? Read::End : Read::Interrupted; }

#ifdef KORVANE_HAVE_LIBEDIT
// The editor's callback interface: it takes one key at a time, so the shell does the waiting.
struct EditedLine {
    bool done = false;
    bool ended = false;
    std::string text;
} g_edited;

void onLineEdited(char* line) {
    g_edited.done = true;
    g_edited.ended = line == nullptr;
    if (line == nullptr) return;
    g_edited.text = line;
    if (*line != '\0') add_history(line);
    std::free(line);
}

Read editLine(std::string& line) {
    const SignalsHeld held;
    g_edited = EditedLine{};
    rl_callback_handler_install("korvane> ", &onLineEdited);
    Read read = Read::Line;
    while (!g_edited.done) {
        if (waitForInput(held) == Wait::Signal) {
            read = signalled();
            rl_replace_line("", 0);  // an interrupted line is dropped, not kept for the next prompt
            break;
        }
        rl_callback_read_char();
    }
    rl_callback_handler_remove();  // the terminal back to its own mode
    if (read == Read::Line && g_edited.ended) return Read::End;
    line = std::move(g_edited.text);
    return read;
}
#endif

// Standard input read by the shell itself, a line at a time, so that a wait for input can end
// at a signal and no stream holds half a line.
class PlainInput {
public:
    Read readLine(std::string& line) {
        const SignalsHeld held;
        for (;;) {
            if (takeLine(line)) return Read::Line;
            if (m_ended) return Read::End;
            if (waitForInput(held) == Wait::Signal) return signalled();
            readMore();
        }
    }

private:
    bool takeLine(std::string& line) {
        const std::size_t end = m_pending.find('\n');
        if (end == std::string::npos && !(m_ended && !m_pending.empty())) return false;
        const std::size_t length = end == std::string::npos ? m_pending.size() : end;
        line.assign(m_pending, 0, length);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        m_pending.erase(0, end == std::string::npos ? length : length + 1);
        return true;
    }
    void readMore() {
        char buffer[4096];
        const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (got > 0) m_pending.append(buffer, static_cast<std::size_t>(got));
        else if (got == 0 || errno != EINTR) m_ended = true;
    }

    std::string m_pending;
    bool m_ended = false;
};

// One line: with editing, history and completion on a terminal when libedit was found at build
// time, a plain prompt otherwise.
Read readLine(PlainInput& plain, std::string& line) {
    clearInterrupt();
#ifdef KORVANE_HAVE_LIBEDIT
    if (kInteractive) return editLine(line);
#endif
    if (kInteractive) *g_screen << "korvane> " << std::flush;
    return plain.readLine(line);
}

}  // namespace

ShellEnd runShell(Interpreter& interpreter, bool json) {
    g_screen = json ? &std::cerr : &std::cout;
    handle(SIGINT, &onInterrupt);
    handle(SIGTERM, &onTerminate);
    handle(SIGHUP, &onTerminate);
#ifdef KORVANE_HAVE_LIBEDIT
    rl_readline_name = "korvane";
    rl_catch_signals = 0;  // the shell's own handlers, not the editor's
    rl_outstream = json ? stderr : stdout;
    rl_attempted_completion_function = &completeCall;
    rl_basic_word_break_characters = const_cast<char*>(" \t\n");  // a quoted name is one word
    const History history;
#endif
    if (kInteractive)
        *g_screen << "korvane shell: one call per line; help, help CALL, Tab to complete, Ctrl-C to stop a call, "
                     "quit or Ctrl-D to leave\n";
    ShellEnd end;
    std::string line;
    PlainInput plain;
    for (int number = 1; !g_leave && !interpreter.quitting(); ++number) {
        const Read read = readLine(plain, line);
        if (read == Read::End) {
            if (kInteractive) *g_screen << '\n';  // the prompt's line ends
            break;
        }
        if (read == Read::Interrupted) {
            *g_screen << '\n';
            --number;
            continue;
        }
        if (number == 1) stripByteOrderMark(line);
        if (!interpreter.runLine(line, "", number)) ++end.failures;
        std::cout.flush();
    }
    end.signal = g_leave;
    return end;
}

}  // namespace korvane
