// Fuzzes the korvane script reader: any bytes, read as a script, must split line by line without
// crashing, and what it reads must hold together: a line's words written back with the tool's
// quoting read as the same words, a comment after them changes nothing, and an expect line
// built from any printed lines is met by exactly those lines.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "ScriptReader.h"

namespace {

using korvane::Args;

void check(bool holds) {
    if (!holds) std::abort();
}

void readLine(const std::string& line) {
    const korvane::PartialLine partial = korvane::splitPartial(line);
    Args words;
    try {
        words = korvane::splitLine(line);
    } catch (const korvane::ScriptError&) {
        check(partial.openQuote);
        return;
    }
    check(!partial.openQuote && words == partial.words);

    const std::string written = korvane::joinQuoted(words);
    check(korvane::splitLine(written) == words);
    check(korvane::splitLine(line + " #" + line) == words);

    // The line's words as the lines a call printed, and an expect statement for them.
    const Args expectLine = korvane::splitLine("expect " + written);
    check(!expectLine.empty() && expectLine[0] == "expect");
    const Args wanted(expectLine.begin() + 1, expectLine.end());
    check(!korvane::unmetExpectation(wanted, words));
    Args more = words;
    more.push_back(std::string());
    check(korvane::unmetExpectation(wanted, more).has_value());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The newline added ends the last line, and makes an empty script one empty line.
    std::istringstream script(std::string(reinterpret_cast<const char*>(data), size) + '\n');
    std::string line;
    for (bool first = true; std::getline(script, line); first = false) {
        if (first) korvane::stripByteOrderMark(line);
        readLine(line);
    }
    return 0;
}
