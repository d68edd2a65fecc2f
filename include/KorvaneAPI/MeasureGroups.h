// Measure groups: named, ordered lists of measure names. No function here throws; failures are
// logged (source file src/MeasureGroupInterface) and reported by the result where there is one.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// Makes `group` with no measures; an existing group of that name is emptied. Logs at Debug
// "Creating measure group <group>".
KORVANEAPI_EXPORT void addMsrGrp(const std::string& group);

// Appends `measure` (a native or user measure) to `group`, making the group when missing; a
// measure already there is added again. False, with the Error "Can't add measure to measure group
// <group>, this measure doesn't exists", when the suite knows no such measure.
KORVANEAPI_EXPORT bool addMsrToMsrGrp(const std::string& group, const std::string& measure);

// Takes the first entry equal to `measure` (exactly) out of `group`. Logs at Error, and changes
// nothing, when the group or the entry is missing ("..., this measure group doesn't exists" /
// "..., this measure doesn't exists").
KORVANEAPI_EXPORT void removeMsrFromMsrGrp(const std::string& group, const std::string& measure);

// Removes `group`; a Warn line "Can't remove measure group <group>, this measure group doesn't
// exists" when there is none.
KORVANEAPI_EXPORT void removeMsrGrp(const std::string& group);

// Removes every measure group; a Warn line for each group the suite refuses to remove.
KORVANEAPI_EXPORT void removeAllMsrGrp();

// The names of all groups, in the suite's order; each logged at Debug after the heading
// "Retrieving measure group list :".
KORVANEAPI_EXPORT std::vector<std::string> getMsrGrpList();

// The measures of `group`, in order, duplicates included; empty, with the Error "Can't get
// measures from measure group <group>, this measure group doesn't exists", for an unknown group.
KORVANEAPI_EXPORT std::vector<std::string> getMsrGrpMsrList(const std::string& group);
