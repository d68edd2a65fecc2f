// korvane shell: calls typed one at a time, with line editing, a history of the last 1,000
// lines in ~/.korvane_history and Tab completion when libedit was found at build time.
#pragma once
#include "Script.h"

namespace korvane {

struct ShellEnd {
    int failures = 0;  // lines that failed
    int signal = 0;    // SIGTERM or SIGHUP when one ended the shell
};

// Reads and runs lines until quit, end of input (Ctrl-D), SIGTERM or SIGHUP. Ctrl-C stops the
// running call, or clears the line being typed. With json, the prompt and the editor's echo go
// to standard error.
ShellEnd runShell(Interpreter& interpreter, bool json);

}  // namespace korvane
