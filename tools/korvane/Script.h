// korvane scripts: one call per line (ScriptReader.h says how a line splits into words). Beside
// the API's calls, a script has statements of its own:
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

class Interpreter {
public:
    Interpreter(std::ostream& out, std::ostream& err, ScriptOptions options);
    // Runs line `number` of `source` (a file name; empty in the shell); false when it failed
    // (the error is already reported, naming the line and the call).
    bool runLine(const std::string& line, const std::string& source, int number);
    // Runs every line of `in`; the number of failed lines (stops at the first one unless
    // keepGoing, or when standard output can no longer be written).
    int runAll(std::istream& in, const std::string& name);
    // A status-bar text of the suite, as "  [status] TEXT" or a status object.
    void status(const std::string& text);
    // A quit (or exit) statement was run.
    bool quitting() const noexcept { return m_quit; }

private:
    Output callOrThrow(const Args& words) const;
    void runWords(const Args& words);
    void runFails(const Args& words);
    void report(const Args& words, bool ok, const Json& result, const std::string& error);

    // The line being run, for errors and JSON objects.
    int m_number = 0;
    std::string m_verb;
    std::ostream& m_out;
    std::ostream& m_err;
    ScriptOptions m_options;
    Output m_last;
    bool m_quit = false;
};

// The tool's own statements, with their usage line and summary for help.
struct Statement {
    const char* name;
    const char* usage;
    const char* summary;
};
const std::vector<Statement>& statements();

// "help" and "help CALL": the signature, the summary, what it prints and when it fails; one
// object per call or statement with json.
void printHelp(std::ostream& out, const std::string& call, bool json = false);

// The call names closest to a misspelt one (at most two edits), for "did you mean".
std::vector<std::string> nearestCalls(const std::string& name);

}  // namespace korvane
