// User filters and image formulas.
//
// A user filter is a named image operator defined by a formula over the pixel values of the
// input images (I1 to I9) and the voxel coordinates (X, Y, Z); see docs/formula.md. None of these
// functions throws KorvaneAPIException: a failure is logged at Error (source file
// src/FilterInterface.cpp) and reported by the result. Exceptions of the suite pass through.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// Creates the filter `name` with `formula`. True when the filter exists with its formula
// afterwards. Logs at Debug "Creating filter <name> with formula <formula>". False, and nothing
// created, when the formula (read up to its first NUL) fails the suite's syntax check: Error
// "Invalid user filter formula <formula> for user filter <name>"; or when the suite can't create
// the filter (the name is empty, too long, holds a control character or is taken): Error
// "Internal error while creating filter <name>". False when the filter refuses the whole
// formula (a name other than I1..I9, X, Y, Z, or text after a NUL): the new filter is removed
// again and Error "Invalid user filter formula <formula> for filter <name>" is logged.
KORVANEAPI_EXPORT bool createFilter(const std::string& name, const std::string& formula);

// The formula of the filter `name`; logs at Debug "Retrieving formula for filter <name>", then
// the formula alone. An empty string for an unknown name, with Error "Can't get formula for filter
// <name>, this filter doesn't exists".
KORVANEAPI_EXPORT std::string getFilterFormula(const std::string& name);

// Removes the filter `name`; logs at Debug "Removing filter <name>", and at Error "Can't remove
// filter <name>, this filter doesn't exists" when the suite removes nothing.
KORVANEAPI_EXPORT void removeFilter(const std::string& name);

// Removes every user filter; logs at Debug "Removing all filters", and at Error "Failed to remove
// all filters" when the suite refuses.
KORVANEAPI_EXPORT void removeAllFilters();

// True when `formula` (a NUL-terminated text, not null) is a valid image formula. Logs nothing,
// stores nothing.
KORVANEAPI_EXPORT bool isValidImageFormula(const char* formula);

// The names of the user filters, in the suite's order (creation order). Logs at Debug "Retrieving
// filter list :", then each name on a line of its own.
KORVANEAPI_EXPORT std::vector<std::string> getFilterList();
