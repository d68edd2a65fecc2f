#include "Shell.h"

#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <termios.h>
#include <unistd.h>

#ifdef KORVANE_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

#include "Completion.h"
#include "ProgressBar.h"

namespace korvane {

namespace {

// A signal at the prompt leaves the read by a jump: a read that had not started when the signal
// came would wait for a key otherwise. At libedit's prompt any of them jumps; in a plain read
// (stdio holds its lock) only the signals that end the shell.
enum Prompt : int { kNoPrompt, kEditing, kPlainRead };
sigjmp_buf g_prompt;
volatile std::sig_atomic_t g_atPrompt = kNoPrompt;
volatile std::sig_atomic_t g_leave = 0;

void onInterrupt(int) {
    requestInterrupt();
    if (g_atPrompt == kEditing) siglongjmp(g_prompt, 1);
}

void onTerminate(int signal) {
    g_leave = signal;
    requestInterrupt();
    if (g_atPrompt != kNoPrompt) siglongjmp(g_prompt, 1);
}

// Enters the prompt, or jumps out at once when a signal came on the way there.
void enterPrompt(Prompt kind) {
    g_atPrompt = kind;
    if (g_leave != 0 || (kind == kEditing && interrupted())) siglongjmp(g_prompt, 1);
}

// Without SA_RESTART, so that a read at the prompt returns at once.
void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
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

// One line: with editing, history and completion on a terminal when libedit was found at build
// time, a plain prompt otherwise.
Read readLine(std::string& line) {
    clearInterrupt();
    termios terminal{};
    const bool restore = kInteractive && tcgetattr(STDIN_FILENO, &terminal) == 0;
    if (sigsetjmp(g_prompt, 1) != 0) {
        g_atPrompt = kNoPrompt;
        if (restore) tcsetattr(STDIN_FILENO, TCSANOW, &terminal);  // the editor's raw mode ends
        return g_leave != 0 ? Read::End : Read::Interrupted;
    }
#ifdef KORVANE_HAVE_LIBEDIT
    if (kInteractive) {
        enterPrompt(kEditing);
        char* read = readline("korvane> ");
        g_atPrompt = kNoPrompt;
        if (read == nullptr) return interrupted() && !g_leave ? Read::Interrupted : Read::End;
        line = read;
        if (!line.empty()) add_history(read);
        std::free(read);
        return Read::Line;
    }
#endif
    if (kInteractive) *g_screen << "korvane> " << std::flush;
    enterPrompt(kPlainRead);
    const bool read = static_cast<bool>(std::getline(std::cin, line));
    g_atPrompt = kNoPrompt;
    if (read) return Read::Line;
    if (interrupted() && !g_leave && !std::cin.eof()) {
        std::cin.clear();
        std::clearerr(stdin);
        return Read::Interrupted;
    }
    return Read::End;
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
    for (int number = 1; !g_leave && !interpreter.quitting(); ++number) {
        const Read read = readLine(line);
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
