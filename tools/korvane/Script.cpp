#include "Script.h"

#include "Completion.h"
#include "ProgressBar.h"
#include "SuiteLog.h"

#include <algorithm>
#include <cctype>
#include <exception>
#include <istream>
#include <ostream>
#include <sstream>

namespace korvane {

const std::vector<Statement>& statements() {
    static const std::vector<Statement> table = {
        {"expect", "expect LINE...", "the previous call printed exactly these lines (none: printed nothing)"},
        {"fails", "fails CALL ARGS...", "the call must fail; its message is printed"},
        {"print", "print TEXT...", "prints the text"},
        {"complete", "complete TEXT", "prints what the shell's Tab offers after TEXT (\"removeFilter \")"},
        {"help", "help [CALL]", "lists the calls and statements, or describes one"},
        {"quit", "quit", "ends the script or leaves the shell (so do exit and, in the shell, Ctrl-D)"},
    };
    return table;
}

static const Statement* findStatement(const std::string& name) {
    for (const Statement& statement : statements())
        if (name == statement.name || (name == "exit" && std::string(statement.name) == "quit")) return &statement;
    return nullptr;
}

Interpreter::Interpreter(std::ostream& out, std::ostream& err, ScriptOptions options)
    : m_out(out), m_err(err), m_options(options) {}

// "unknown call "creatFilter" (did you mean createFilter? korvane help lists the calls)"
static std::string unknownCall(const std::string& name) {
    std::string hint;
    for (const std::string& near : nearestCalls(name)) hint += (hint.empty() ? "did you mean " : " or ") + near;
    return "unknown call \"" + name + "\" (" + (hint.empty() ? "" : hint + "? ") + "korvane help lists the calls)";
}

static std::string argumentCount(const Call& call) {
    if (call.maxArgs == kAnyNumber) return "at least " + std::to_string(call.minArgs);
    if (call.minArgs == call.maxArgs) return std::to_string(call.minArgs);
    return std::to_string(call.minArgs) + " to " + std::to_string(call.maxArgs);
}

Output Interpreter::callOrThrow(const Args& words) const {
    const Call* call = calls().find(words[0]);
    if (call == nullptr) throw ScriptError(unknownCall(words[0]));
    const Args args(words.begin() + 1, words.end());
    if (args.size() < call->minArgs || args.size() > call->maxArgs)
        throw ScriptError("takes " + argumentCount(*call) + " argument(s), " + std::to_string(args.size()) +
                          " given (usage: " + call->usage + ")");
    forgetFormulaRefusal();
    clearInterrupt();
    try {
        Output output = call->run(args);
        if (interrupted()) throw CallFailed(words[0] + " interrupted");
        return output;
    } catch (const CallFailed& failed) {
        if (interrupted()) throw CallFailed(words[0] + " interrupted");
        const std::string reason = formulaRefusal(args);
        if (reason.empty()) throw;
        throw CallFailed(std::string(failed.what()) + ": formula refused " + reason);
    }
}

// One JSON object for a line: {"version":1,"type":"call","line":N,"call":NAME,"args":[...],
// "ok":BOOL} with "result" (a call that succeeded) or "error"; a fails statement adds
// "expected_failure":true and is ok when the call failed, with its message in "error".
void Interpreter::report(const Args& words, bool ok, const Json& result, const std::string& error) {
    if (!m_options.json) return;
    const bool failsStatement = !words.empty() && words[0] == "fails";
    const auto call = words.begin() + (failsStatement && words.size() > 1 ? 1 : 0);
    Json object = jsonObject("call");
    object["line"] = m_number;
    object["call"] = call != words.end() ? *call : std::string();
    object["args"] = call != words.end() ? Args(call + 1, words.end()) : Args();
    if (failsStatement) object["expected_failure"] = true;
    object["ok"] = ok;
    if (!ok || failsStatement)
        object["error"] = error;
    else
        object["result"] = result;
    writeJson(m_out, object);
}

void Interpreter::status(const std::string& text) {
    if (!m_options.json) {
        m_out << "  [status] " << text << '\n';
        return;
    }
    Json object = jsonObject("status");
    object["line"] = m_number;
    object["text"] = text;
    writeJson(m_out, object);
}

void Interpreter::runFails(const Args& words) {
    if (words.size() < 2) throw ScriptError("usage: fails CALL ARGS...");
    const Args call(words.begin() + 1, words.end());
    m_verb = call[0];
    try {
        callOrThrow(call);
    } catch (const ScriptError&) {
        throw;
    } catch (const std::exception& e) {
        m_last = {{e.what()}, e.what()};
        if (m_options.json)
            report(words, true, nullptr, e.what());
        else if (m_options.echo)
            m_out << "  failed as expected: " << e.what() << '\n';
        return;
    }
    throw ScriptError("did not fail");
}

static std::string joined(Args::const_iterator first, Args::const_iterator last) {
    std::string text;
    for (auto it = first; it != last; ++it) text += (it == first ? "" : " ") + *it;
    return text;
}

void Interpreter::runWords(const Args& words) {
    const std::string& verb = words[0];
    Output output;
    if (verb == "print") {
        const std::string text = joined(words.begin() + 1, words.end());
        output = {{text}, text};
    } else if (verb == "expect") {
        if (const auto unmet = unmetExpectation(Args(words.begin() + 1, words.end()), m_last.lines))
            throw ScriptError(*unmet);
        return report(words, true, nullptr, "");
    } else if (verb == "complete") {
        if (words.size() != 2) throw ScriptError("usage: complete TEXT");
        const Args offered = completeLine(words[1]);
        output = {offered, offered};
    } else if (verb == "fails") {
        return runFails(words);
    } else if (verb == "help" && words.size() <= 2) {
        if (m_options.json) return printHelp(m_out, words.size() == 2 ? words[1] : "", true);
        std::ostringstream text;
        printHelp(text, words.size() == 2 ? words[1] : "");
        return void(m_out << text.str());
    } else if ((verb == "quit" || verb == "exit") && words.size() == 1) {
        m_quit = true;
        return report(words, true, nullptr, "");
    } else {
        m_verb = verb;
        if (m_options.echo && !m_options.json) m_out << "$ " << joinQuoted(words) << '\n';
        m_out.flush();  // see runLine
        output = callOrThrow(words);
    }
    if (verb != "print") m_last = output;
    if (m_options.json) return report(words, true, output.value, "");
    const bool indent = m_options.echo && verb != "print";
    for (const std::string& line : output.lines) m_out << (indent ? "  " : "") << line << '\n';
}

// "tour.krv:4: ", "line 4: " in the shell, nothing for a call of the command line (line 0).
static std::string where(const std::string& source, int number) {
    if (number == 0) return "";
    return (source.empty() ? "line " : source + ":") + std::to_string(number) + ": ";
}

bool Interpreter::runLine(const std::string& line, const std::string& source, int number) {
    // The library's own lines go to standard error while a call runs: what the script printed so
    // far goes out first, so that the log read together with the output is in order.
    m_out.flush();
    m_number = number;
    m_verb.clear();
    Args words;
    try {
        words = splitLine(line);
        if (!words.empty()) runWords(words);
        return true;
    } catch (const std::exception& e) {
        // A script error, or an exception of the library or the suite: reported with the line and
        // the call, unless the message names the call already ("createFilter failed").
        endProgressBar();
        const std::string what = e.what();
        const bool named = m_verb.empty() || what.rfind(m_verb + " ", 0) == 0 ||
                           what.find('"' + m_verb + '"') != std::string::npos;
        const std::string message = named ? what : m_verb + ": " + what;
        m_out.flush();
        if (m_options.json)
            report(words, false, nullptr, message);  // the object carries the error
        else
            m_err << "korvane: " << where(source, number) << message << '\n';
        return false;
    }
}

int Interpreter::runAll(std::istream& in, const std::string& name) {
    int failures = 0;
    std::string line;
    for (int number = 1; !m_quit && std::getline(in, line); ++number) {
        if (number == 1) stripByteOrderMark(line);
        const bool ok = runLine(line, name, number);
        if (!m_out) break;  // standard output is gone: nothing more can be reported
        if (ok) continue;
        ++failures;
        if (!m_options.keepGoing) break;
    }
    return failures;
}

// Edits (insertions, deletions, substitutions) between two names, ignoring case.
static std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                              std::tolower(static_cast<unsigned char>(b[j - 1]));
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::vector<std::string> nearestCalls(const std::string& name) {
    std::vector<std::string> nearest;
    std::size_t best = 3;
    for (const auto& [callName, call] : calls().all()) {
        const std::size_t distance = editDistance(name, callName);
        if (distance < best) nearest.clear(), best = distance;
        if (distance == best) nearest.push_back(callName);
    }
    return nearest;
}

static std::string indented(const std::string& text) {
    std::string shifted = "  " + text;
    for (std::size_t at = shifted.find('\n'); at != std::string::npos; at = shifted.find('\n', at + 3))
        shifted.insert(at + 1, "  ");
    return shifted;
}

// {"version":1,"type":"help","name":..,"kind":"call"|"statement","usage":..,"summary":..} with
// "prints" and "fails" where help CALL says them.
static Json helpObject(const std::string& name, const char* kind, const std::string& usage, const std::string& summary,
                       const std::string& results) {
    Json object = jsonObject("help");
    object.update({{"name", name}, {"kind", kind}, {"usage", usage}, {"summary", summary}});
    const std::size_t fails = results.find("\nfails:  ");
    if (results.compare(0, 8, "prints: ") == 0 && fails != std::string::npos) {
        object["prints"] = results.substr(8, fails - 8);
        object["fails"] = results.substr(fails + 9);
    }
    return object;
}

void printHelp(std::ostream& out, const std::string& name, bool json) {
    if (!name.empty()) {
        if (const Statement* statement = findStatement(name)) {
            if (json) return writeJson(out, helpObject(statement->name, "statement", statement->usage, statement->summary, ""));
            out << statement->usage << "\n  " << statement->summary << '\n';
            return;
        }
        const Call* call = calls().find(name);
        if (call == nullptr) throw ScriptError(unknownCall(name));
        if (json) return writeJson(out, helpObject(name, "call", call->usage, call->summary, call->results));
        out << call->usage << "\n  " << call->summary << '\n';
        if (!call->results.empty()) out << indented(call->results) << '\n';
        return;
    }
    if (json) {
        for (const auto& [callName, call] : calls().all())
            writeJson(out, helpObject(callName, "call", call.usage, call.summary, call.results));
        for (const Statement& statement : statements())
            writeJson(out, helpObject(statement.name, "statement", statement.usage, statement.summary, ""));
        return;
    }
    out << "Calls (one per line in a script; korvane help CALL for one):\n";
    for (const auto& [callName, call] : calls().all()) out << "  " << call.usage << "\n      " << call.summary << '\n';
    out << "Statements:\n";
    for (const Statement& statement : statements())
        out << "  " << statement.usage << std::string(20 - std::min<std::size_t>(18, std::string(statement.usage).size()), ' ')
            << statement.summary << '\n';
}

}  // namespace korvane
