#include "Script.h"

#include "Completion.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <istream>
#include <ostream>

namespace korvane {

Args splitLine(const std::string& line) {
    Args words;
    std::string word;
    bool inWord = false;
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted) {
            if (c == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) {
                word += line[++i];
            } else if (c == '"') {
                quoted = false;
            } else {
                word += c;
            }
        } else if (c == '"') {
            quoted = inWord = true;
        } else if (c == '#') {
            break;
        } else if (c == ' ' || c == '\t' || c == '\r') {
            if (inWord) words.push_back(std::move(word));
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quoted) throw ScriptError("unclosed quote");
    if (inWord) words.push_back(std::move(word));
    return words;
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
    return call->run(args);
}

static std::string joinedLines(const Output& lines) {
    std::string text;
    for (const std::string& line : lines) text += "\n    " + line;
    return lines.empty() ? " (nothing)" : text;
}

std::string jsonString(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        switch (c) {
        case '"': quoted += "\\\""; break;
        case '\\': quoted += "\\\\"; break;
        case '\n': quoted += "\\n"; break;
        case '\t': quoted += "\\t"; break;
        case '\r': quoted += "\\r"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                quoted += escaped;
            } else {
                quoted += c;
            }
        }
    }
    return quoted + '"';
}

static std::string jsonArray(Args::const_iterator first, Args::const_iterator last) {
    std::string array = "[";
    for (auto it = first; it != last; ++it) array += (it == first ? "" : ",") + jsonString(*it);
    return array + "]";
}

// One JSON object for a call, a fails statement, an expect or a print:
// {"line":N,"call":NAME,"args":[...],"ok":BOOL,"result":[...]} or ... "error":TEXT}; a fails
// statement adds "expected_failure":true and is ok when the call failed.
void Interpreter::report(const Args& words, bool ok, const Output& result, const std::string& error, bool expected) {
    if (!m_options.json) return;
    const bool failsStatement = !words.empty() && words[0] == "fails";
    const auto call = words.begin() + (failsStatement && words.size() > 1 ? 1 : 0);
    m_out << "{\"line\":" << m_number;
    if (call != words.end()) m_out << ",\"call\":" << jsonString(*call) << ",\"args\":" << jsonArray(call + 1, words.end());
    if (failsStatement) m_out << ",\"expected_failure\":true";
    m_out << ",\"ok\":" << (ok ? "true" : "false");
    if (!error.empty() && (!ok || expected)) m_out << ",\"error\":" << jsonString(error);
    if (ok && !expected) m_out << ",\"result\":" << jsonArray(result.begin(), result.end());
    m_out << "}\n";
}

void Interpreter::runWords(const Args& words) {
    const std::string& verb = words[0];
    if (verb == "print") {
        std::string text;
        for (std::size_t i = 1; i < words.size(); ++i) text += (i > 1 ? " " : "") + words[i];
        if (m_options.json)
            report(words, true, {text}, "", false);
        else
            m_out << text << '\n';
    } else if (verb == "expect") {
        const Output wanted(words.begin() + 1, words.end());
        if (wanted != m_last)
            throw ScriptError("expected" + joinedLines(wanted) + "\n  but the last call printed" + joinedLines(m_last));
        report(words, true, m_last, "", false);
    } else if (verb == "complete") {
        if (words.size() != 2) throw ScriptError("usage: complete TEXT");
        m_last = completeLine(words[1]);
        if (m_options.json) return report(words, true, m_last, "", false);
        for (const std::string& line : m_last) m_out << (m_options.echo ? "  " : "") << line << '\n';
    } else if (verb == "fails") {
        if (words.size() < 2) throw ScriptError("usage: fails CALL ARGS...");
        const Args call(words.begin() + 1, words.end());
        m_verb = call[0];
        try {
            callOrThrow(call);
        } catch (const ScriptError&) {
            throw;
        } catch (const std::exception& e) {
            m_last = {e.what()};
            if (m_options.json)
                report(words, true, {}, e.what(), true);
            else if (m_options.echo)
                m_out << "  failed as expected: " << e.what() << '\n';
            return;
        }
        throw ScriptError("did not fail");
    } else {
        m_verb = verb;
        if (m_options.echo && !m_options.json) {
            m_out << "$";
            for (const std::string& word : words)
                m_out << ' ' << (word.empty() || word.find_first_of(" \t\"#") != std::string::npos ? jsonString(word) : word);
            m_out << '\n';
        }
        m_out.flush();  // see runLine
        m_last = callOrThrow(words);
        if (m_options.json) return report(words, true, m_last, "", false);
        for (const std::string& line : m_last) m_out << (m_options.echo ? "  " : "") << line << '\n';
    }
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
        const std::string what = e.what();
        const bool named = m_verb.empty() || what.rfind(m_verb + " ", 0) == 0 ||
                           what.find('"' + m_verb + '"') != std::string::npos;
        const std::string message = named ? what : m_verb + ": " + what;
        m_out.flush();
        if (m_options.json)
            report(words, false, {}, message, false);  // the object carries the error
        else
            m_err << (source.empty() ? "line " : source + ":") << number << ": " << message << '\n';
        return false;
    }
}

int Interpreter::runAll(std::istream& in, const std::string& name) {
    int failures = 0;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (runLine(line, name, number)) continue;
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

void printHelp(std::ostream& out, const std::string& name) {
    if (!name.empty()) {
        const Call* call = calls().find(name);
        if (call == nullptr) throw ScriptError(unknownCall(name));
        out << call->usage << "\n  " << call->summary << '\n';
        if (!call->results.empty()) {
            std::string indented = "  " + call->results;
            for (std::size_t at = indented.find('\n'); at != std::string::npos; at = indented.find('\n', at + 3))
                indented.insert(at + 1, "  ");
            out << indented << '\n';
        }
        return;
    }
    out << "Calls (one per line in a script; korvane help CALL for one):\n";
    for (const auto& [callName, call] : calls().all()) out << "  " << call.usage << "\n      " << call.summary << '\n';
    out << "Script statements:\n"
           "  expect LINE...      the previous call printed exactly these lines\n"
           "  fails CALL ARGS...  the call must throw; its message is printed\n"
           "  print TEXT...       prints the text\n"
           "  complete TEXT       prints what the shell's Tab offers after TEXT (\"removeFilter \")\n";
}

}  // namespace korvane
