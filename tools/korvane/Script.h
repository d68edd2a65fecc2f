// korvane scripts: one call per line, arguments separated by blanks, "double quotes" around an
// argument with blanks (\" and \\ inside), # to the end of the line is a comment. Beside the
// API's calls, a script has three statements of its own:
//   expect LINE...      the previous call printed exactly these lines (none: printed nothing)
//   fails CALL ARGS...  the call must throw; its message is printed
//   print TEXT...       prints the text
#pragma once
#include <iosfwd>
#include <string>
#include <vector>

#include "Calls.h"

namespace korvane {

struct ScriptOptions {
    bool keepGoing = false;  // go on after an error, and report them all
    bool echo = true;        // print each call before its output
};

// Splits one line into words; throws ScriptError on an unclosed quote.
Args splitLine(const std::string& line);

class Interpreter {
public:
    Interpreter(std::ostream& out, std::ostream& err, ScriptOptions options);
    // Runs one line; false when it failed (the error is already reported).
    bool runLine(const std::string& line, const std::string& where);
    // Runs every line of `in`; the number of failed lines (stops at the first one unless
    // keepGoing).
    int runAll(std::istream& in, const std::string& name);

private:
    Output callOrThrow(const Args& words) const;
    void runWords(const Args& words);

    std::ostream& m_out;
    std::ostream& m_err;
    ScriptOptions m_options;
    Output m_last;
};

// "help" and "help CALL".
void printHelp(std::ostream& out, const std::string& call);

}  // namespace korvane
