#include "ScriptReader.h"

namespace korvane {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

}  // namespace

PartialLine splitPartial(const std::string& line) {
    PartialLine read;
    std::string word;
    bool inWord = false;
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted) {
            if (c == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\'))
                word += line[++i];
            else if (c == '"')
                quoted = false;
            else
                word += c;
        } else if (c == '"') {
            quoted = inWord = true;
        } else if (c == '#' && !inWord) {
            break;
        } else if (isBlank(c)) {
            if (inWord) read.words.push_back(std::move(word));
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) read.words.push_back(std::move(word));
    read.openQuote = quoted;
    read.newWord = !inWord;
    return read;
}

Args splitLine(const std::string& line) {
    PartialLine read = splitPartial(line);
    if (read.openQuote) throw ScriptError("unclosed quote");
    return std::move(read.words);
}

std::string quoteWord(const std::string& word) {
    const bool plain = !word.empty() && word[0] != '#' && word.find_first_of(" \t\r\"\\") == std::string::npos;
    if (plain) return word;
    std::string quoted = "\"";
    for (const char c : word) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

std::string joinQuoted(const Args& words) {
    std::string line;
    for (const std::string& word : words) line += (line.empty() ? "" : " ") + quoteWord(word);
    return line;
}

bool stripByteOrderMark(std::string& line) {
    if (line.compare(0, 3, "\xEF\xBB\xBF") != 0) return false;
    line.erase(0, 3);
    return true;
}

static std::string joinedLines(const Args& lines) {
    std::string text;
    for (const std::string& line : lines) text += "\n    " + line;
    return lines.empty() ? " (nothing)" : text;
}

std::optional<std::string> unmetExpectation(const Args& wanted, const Args& printed) {
    if (wanted == printed) return std::nullopt;
    return "expected" + joinedLines(wanted) + "\n  but the last call printed" + joinedLines(printed);
}

}  // namespace korvane
