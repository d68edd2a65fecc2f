#include "Script.h"

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

Output Interpreter::callOrThrow(const Args& words) const {
    const Call* call = calls().find(words[0]);
    if (call == nullptr) throw ScriptError("unknown call \"" + words[0] + "\" (try: korvane help)");
    const Args args(words.begin() + 1, words.end());
    if (args.size() < call->minArgs || args.size() > call->maxArgs)
        throw ScriptError("usage: " + call->usage);
    return call->run(args);
}

static std::string joinedLines(const Output& lines) {
    std::string text;
    for (const std::string& line : lines) text += "\n    " + line;
    return lines.empty() ? " (nothing)" : text;
}

void Interpreter::runWords(const Args& words) {
    const std::string& verb = words[0];
    if (verb == "print") {
        for (std::size_t i = 1; i < words.size(); ++i) m_out << (i > 1 ? " " : "") << words[i];
        m_out << '\n';
    } else if (verb == "expect") {
        const Output wanted(words.begin() + 1, words.end());
        if (wanted != m_last)
            throw ScriptError("expected" + joinedLines(wanted) + "\n  but the last call printed" + joinedLines(m_last));
    } else if (verb == "fails") {
        if (words.size() < 2) throw ScriptError("usage: fails CALL ARGS...");
        const Args call(words.begin() + 1, words.end());
        try {
            callOrThrow(call);
        } catch (const ScriptError&) {
            throw;
        } catch (const std::exception& e) {
            m_last = {e.what()};
            if (m_options.echo) m_out << "  failed as expected: " << e.what() << '\n';
            return;
        }
        throw ScriptError(call[0] + " did not fail");
    } else {
        if (m_options.echo) {
            m_out << "$";
            for (const std::string& word : words) m_out << ' ' << word;
            m_out << '\n';
        }
        m_last = callOrThrow(words);
        for (const std::string& line : m_last) m_out << (m_options.echo ? "  " : "") << line << '\n';
    }
}

bool Interpreter::runLine(const std::string& line, const std::string& where) {
    try {
        const Args words = splitLine(line);
        if (!words.empty()) runWords(words);
        return true;
    } catch (const std::exception& e) {
        // A script error, or an exception of the library or the suite: reported with its place.
        m_out.flush();
        m_err << where << ": " << e.what() << '\n';
        return false;
    }
}

int Interpreter::runAll(std::istream& in, const std::string& name) {
    int failures = 0;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (runLine(line, name + ":" + std::to_string(number))) continue;
        ++failures;
        if (!m_options.keepGoing) break;
    }
    return failures;
}

void printHelp(std::ostream& out, const std::string& name) {
    if (!name.empty()) {
        const Call* call = calls().find(name);
        if (call == nullptr) throw ScriptError("unknown call \"" + name + "\"");
        out << call->usage << "\n  " << call->summary << '\n';
        return;
    }
    out << "Calls (one per line in a script; korvane help CALL for one):\n";
    for (const auto& [callName, call] : calls().all()) out << "  " << call.usage << "\n      " << call.summary << '\n';
    out << "Script statements:\n"
           "  expect LINE...      the previous call printed exactly these lines\n"
           "  fails CALL ARGS...  the call must throw; its message is printed\n"
           "  print TEXT...       prints the text\n";
}

}  // namespace korvane
