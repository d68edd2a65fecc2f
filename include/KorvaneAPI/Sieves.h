// Sieves: named, ordered lists of float parameters kept by the suite. None of these functions
// throws on its own; an exception of the suite passes through unchanged.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// Creates the sieve `name` holding a copy of `values` (any number, an empty vector included,
// stored unchanged). Logs "Creating sieve <name> with <count> parameters" at Debug. Returns
// false, with the Error line "Internal error, can't create sieve <name>", when the suite
// refuses the name (invalid or already used). When the values pass the suite's memory budget,
// the suite's exception reaches the caller and the sieve stays, empty.
KORVANEAPI_EXPORT bool createSieve(const std::string& name, const std::vector<float>& values);

// The values of the sieve `name`, in the order they were given. An empty vector when there is
// no such sieve (Error "Can't get sieve <name>, this sieve doesn't exists"), when it holds no
// values (Warn "Empty sieve <name>, can't get sieve params"), or when the suite reports a count
// of 0 or less (no line).
KORVANEAPI_EXPORT std::vector<float> getSieveParams(const std::string& name);

// Removes the sieve `name`. Logs "Removing sieve <name>" at Debug; when the suite removes
// nothing, a Warn line "Failed to remove sieve <name>" and nothing else.
KORVANEAPI_EXPORT void removeSieve(const std::string& name);

// The names of all sieves in the suite's order. Logs "Retrieving sieve list :" at Debug, then
// each name on a line of its own.
KORVANEAPI_EXPORT std::vector<std::string> getSieveList();
