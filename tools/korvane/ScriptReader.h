// The script reader: how a line of a korvane script becomes words. Blanks separate words; an
// argument with blanks goes in "double quotes" (\" and \\ inside); # starts a comment where a
// word could start, so "grade#2" is one word. It needs nothing of the library, so the fuzzer
// links it alone.
#pragma once
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace korvane {

using Args = std::vector<std::string>;

// A script error: bad arguments, an unknown call, an unmet expectation. The script stops at it
// unless --keep-going is given; the tool then exits with status 1.
struct ScriptError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A line read up to its end, as the shell's Tab key sees it.
struct PartialLine {
    Args words;
    bool openQuote = false;  // the line ends inside a quoted word (the last word)
    bool newWord = true;     // the line ends where a new word would start
};
PartialLine splitPartial(const std::string& line);

// Splits one line into words; throws ScriptError on an unclosed quote.
Args splitLine(const std::string& line);

// A word as a script writes it: quoted when it is empty or holds a blank, a quote, a backslash or
// a leading #, so that splitLine gives it back.
std::string quoteWord(const std::string& word);

// The words as one line of a script, quoted where needed.
std::string joinQuoted(const Args& words);

// Takes a UTF-8 byte order mark off the start of a script's first line; true when there was one.
bool stripByteOrderMark(std::string& line);

// Why `expect WANTED...` fails after a call that printed `printed`; nothing when it holds.
std::optional<std::string> unmetExpectation(const Args& wanted, const Args& printed);

}  // namespace korvane
