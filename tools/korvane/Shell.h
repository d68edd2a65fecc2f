// korvane shell: calls typed one at a time, with line editing, a history of the last 1,000
// lines in ~/.korvane_history and Tab completion when libedit was found at build time.
#pragma once
#include "Script.h"

namespace korvane {

// Reads and runs lines until quit, end of input (Ctrl-D) or SIGTERM/SIGHUP; the number of lines
// that failed. Ctrl-C stops the running call, or clears the line being typed.
int runShell(Interpreter& interpreter);

}  // namespace korvane
