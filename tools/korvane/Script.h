// korvane scripts: one call per line, arguments separated by blanks, "double quotes" around an
// argument with blanks (\" and \\ inside), # to the end of the line is a comment. Beside the
// API's calls, a script has three statements of its own:
//   expect LINE...      the previous call printed exactly these lines (none: printed nothing)
//   fails CALL ARGS...  the call must throw; its message is printed
//   print TEXT...       prints the text
//   complete TEXT       prints what the shell's Tab key offers after TEXT, one a line
#pragma once
#include <iosfwd>
#include <string>
#include <vector>

#include "Calls.h"

namespace korvane {

struct ScriptOptions {
    bool keepGoing = false;  // go on after an error, and report them all
    bool echo = true;        // print each call before its output
    bool json = false;       // one JSON object per line and call instead of text
};

// Splits one line into words; throws ScriptError on an unclosed quote.
Args splitLine(const std::string& line);

class Interpreter {
public:
    Interpreter(std::ostream& out, std::ostream& err, ScriptOptions options);
    // Runs line `number` of `source` (a file name; empty in the shell); false when it failed
    // (the error is already reported, naming the line and the call).
    bool runLine(const std::string& line, const std::string& source, int number);
    // Runs every line of `in`; the number of failed lines (stops at the first one unless
    // keepGoing).
    int runAll(std::istream& in, const std::string& name);

private:
    Output callOrThrow(const Args& words) const;
    void runWords(const Args& words);
    void report(const Args& words, bool ok, const Output& result, const std::string& error, bool expected);

    // The line being run, for errors and JSON objects.
    int m_number = 0;
    std::string m_verb;
    std::ostream& m_out;
    std::ostream& m_err;
    ScriptOptions m_options;
    Output m_last;
};

// "help" and "help CALL": the signature, the summary, what it prints and when it fails.
void printHelp(std::ostream& out, const std::string& call);

// The call names closest to a misspelt one (at most two edits), for "did you mean".
std::vector<std::string> nearestCalls(const std::string& name);

// A text as a JSON string, quotes included.
std::string jsonString(const std::string& text);

}  // namespace korvane
