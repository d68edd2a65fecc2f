// What the shell's tab key offers: call names for the first word, and for an argument that
// names a stored object (NAME in the call's usage), the names its family's list call returns.
#pragma once
#include <string>
#include <vector>

namespace korvane {

// The words that can replace the last, partly typed word of `line` (the text before the
// cursor), sorted, as the line would hold them: a name with blanks in quotes. Calls a list function of the library when an object name is wanted, so the
// suite must be running.
std::vector<std::string> completeLine(const std::string& line);

// The list call whose names an argument called NAME of `call` takes ("getFilterList" for
// "removeFilter"); empty when there is none.
std::string listCallFor(const std::string& call);

}  // namespace korvane
