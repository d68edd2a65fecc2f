#include "Completion.h"

#include <algorithm>
#include <exception>
#include <map>

#include <KorvaneAPI/Commands.h>
#include <vantry_process/CProCmd.h>

#include "Calls.h"
#include "Script.h"

namespace korvane {

namespace {

// Calls whose name does not carry their family's noun.
const std::map<std::string, std::string> kListOverrides = {
    {"getNbChain", "getSegmentList"},  {"getNbItems", "getSegmentList"}, {"appendChain", "getSegmentList"},
    {"appendRings", "getSegmentList"}, {"getCmdInfo", "getCmdNameColl"},   {"imageInfo", "getImageList"},
};



// Calls whose NAME is any measure, native or user, as a MEASURE argument is.
const char* const kMeasureCalls[] = {"getMsrInfo", "getMsrParams", "setMsrParams"};
const char* const kMeasureLists[] = {"getNatMsrList", "getUsrMsrList"};

// The words that start with the prefix, as the line would hold them (quoted where needed).
std::vector<std::string> withPrefix(const std::vector<std::string>& words, const std::string& prefix) {
    std::vector<std::string> matches;
    for (const std::string& word : words)
        if (word.compare(0, prefix.size(), prefix) == 0) matches.push_back(quoteWord(word));
    std::sort(matches.begin(), matches.end());
    matches.erase(std::unique(matches.begin(), matches.end()), matches.end());
    return matches;
}

// After runCommand's COMMAND: the command's parameters as "name=", those not given yet.
std::vector<std::string> commandParameters(const Args& words, std::size_t callAt, const std::string& typed) {
    const CProCmd* command = getCmdInfo(words[callAt + 1]);
    if (command == nullptr) return {};
    std::vector<std::string> names;
    for (const CProCmdParam& param : command->GetParams()) {
        const std::string word = std::string(param.name) + "=";
        const bool given = std::any_of(words.begin() + static_cast<std::ptrdiff_t>(callAt) + 2, words.end(),
                                       [&](const std::string& w) { return w != typed && w.compare(0, word.size(), word) == 0; });
        if (!given) names.push_back(word);
    }
    return withPrefix(names, typed);
}

std::vector<std::string> callNames() {
    std::vector<std::string> names;
    for (const auto& [name, call] : calls().all()) names.push_back(name);
    return names;
}

std::vector<std::string> callsAndStatements() {
    std::vector<std::string> names = callNames();
    for (const Statement& statement : statements()) names.push_back(statement.name);
    return names;
}

}  // namespace

std::string listCallFor(const std::string& call) {
    const auto fixed = kListOverrides.find(call);
    if (fixed != kListOverrides.end()) return fixed->second;
    // getXxxList lists the objects of every call whose name holds Xxx; the longest noun wins
    // (removeMorphoLut: MorphoLut, not Lut).
    std::string best;
    std::size_t bestLength = 0;
    for (const auto& [name, entry] : calls().all()) {
        if (name.size() <= 7 || name.compare(0, 3, "get") != 0 || name.compare(name.size() - 4, 4, "List") != 0 ||
            entry.minArgs != 0)
            continue;  // getMsrGrpMsrList lists a group's measures: not an object store
        const std::string noun = name.substr(3, name.size() - 7);
        if (noun.size() > bestLength && call.find(noun) != std::string::npos) best = name, bestLength = noun.size();
    }
    return best == call ? std::string() : best;
}

std::vector<std::string> completeLine(const std::string& line) {
    const PartialLine read = splitPartial(line);
    const Args& words = read.words;
    const bool fresh = read.newWord && !read.openQuote;
    const std::string typed = fresh || words.empty() ? "" : words.back();
    std::size_t index = fresh ? words.size() : words.size() - 1;
    if (index == 0 || (words[0] == "help" && index == 1)) return withPrefix(callsAndStatements(), typed);
    std::size_t callAt = 0;
    if (words[0] == "fails") callAt = 1;
    if (words[0] == "help" || (callAt == 1 && index == 1)) return index == 1 ? withPrefix(callNames(), typed) : Args{};
    const Call* call = calls().find(words[callAt]);
    if (call == nullptr) return {};
    const Args usage = splitLine(call->usage);
    const std::size_t argument = index - callAt;  // usage[0] is the call's name
    if (words[callAt] == "runCommand" && argument >= 2) return commandParameters(words, callAt, typed);
    if (argument >= usage.size()) return {};
    const std::string& kind = usage[argument];
    const bool anyMeasure = kind == "MEASURE" || (kind == "NAME" && std::find(std::begin(kMeasureCalls),
                                                                               std::end(kMeasureCalls),
                                                                               words[callAt]) != std::end(kMeasureCalls));
    std::vector<std::string> lists;
    if (anyMeasure)
        lists.assign(std::begin(kMeasureLists), std::end(kMeasureLists));
    else if (kind == "COMMAND")
        lists.push_back("getCmdNameColl");
    else if (kind == "NAME" || kind == "GROUP")
        lists.push_back(listCallFor(words[callAt]));
    std::vector<std::string> names;
    for (const std::string& listName : lists) {
        const Call* list = calls().find(listName);
        if (list == nullptr || list->minArgs != 0) continue;
        try {
            const Output listed = list->run({});
            names.insert(names.end(), listed.lines.begin(), listed.lines.end());
        } catch (const std::exception&) {
            // no names from a list that fails
        }
    }
    return withPrefix(names, typed);
}

}  // namespace korvane
