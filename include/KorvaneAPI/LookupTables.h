// Lookup tables (LUTs): named lists of integer values kept by the suite, plain ones and
// morphological ones (the latter with two integer flags), in one name space.
//
// None of these functions throws KorvaneAPIException: a failure is logged (source file
// src/LutInterface.cpp) and reported by the result. Exceptions of the suite pass through.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// Creates the plain table `name` from `values` (copied). Logs at Debug "Creating lut <name> with
// <count> values". False when the suite refuses (a name that is empty, too long, holds a control
// character or is taken, or values past the memory budget), with Error "Internal error, can't
// create lut <name>".
KORVANEAPI_EXPORT bool createLut(const std::string& name, const std::vector<int>& values);

// The values of the table `name`, plain or morphological. An empty vector for an unknown name
// (Error "Can't get lut <name>, this lut doesn't exists") and for a table whose values can't be
// read, an empty one included (Warn "Empty lut <name>, can't get lut values").
// When the suite reports success without writing the values, they read as zeros.
KORVANEAPI_EXPORT std::vector<int> getLutValues(const std::string& name);

// Removes the table `name`, plain or morphological; logs at Debug "Removing lut <name>", and at
// Warn "Failed to remove lut <name>" when the suite removes nothing.
KORVANEAPI_EXPORT void removeLut(const std::string& name);

// The names of the plain tables, in the suite's order. Logs at Debug "Retrieving lut list :",
// then each name on a line of its own.
KORVANEAPI_EXPORT std::vector<std::string> getLutList();

// Creates the morphological table `name` from `size` values at `values` (copied by the suite) and
// its two flags. Logs at Debug "Creating '<name>' morphological lut.". False, with no further
// line, when the suite refuses (name as for createLut, a negative size, null values with a
// positive size, the memory budget).
KORVANEAPI_EXPORT bool createMorphoLut(const std::string& name, const int* values, int size, int flag1, int flag2);

// Points `values` at the suite's own storage of the values of table `name` and sets `size` to
// their number; the pointer is valid while the table exists and must not be freed. False when:
// the name is unknown (size 0, values null; Error "Can't get '<name>' morphological lut, this
// morphological lut doesn't exists"); the table is empty (size 0; Warn "Empty '<name>'
// morphological lut, can't get values"); its values are not an integer field "Grey" (size set,
// values null; Warn "Invalid '<name>' morphological lut, can't get values"); the suite gives no
// storage (size set, values null, no line).
KORVANEAPI_EXPORT bool getMorphoLutDataPtr(const std::string& name, int*& values, int& size);

// The two flags of table `name`. False, both flags -1, for an unknown name, with Error "Can't get
// '<name>' morphological lut, this morphological lut doesn't exist."
KORVANEAPI_EXPORT bool getMorphoLutFlags(const std::string& name, int& flag1, int& flag2);

// Writes the two flags of table `name` as given. False for an unknown name, with the Error line of
// getMorphoLutFlags.
KORVANEAPI_EXPORT bool setMorphoLutFlags(const std::string& name, int flag1, int flag2);

// Removes the morphological table `name`; logs at Debug "Removing '<name>' morphological lut.".
// True, after a Warn line, when there is no such table ("The '<name>' morphological lut does not
// exist.") or when it is a plain table, which stays ("The '<name>' lut does not a morphological
// lut."). False only when the suite refuses to remove it (Warn "Failed to remove '<name>'
// morphological lut.").
KORVANEAPI_EXPORT bool removeMorphoLut(const std::string& name);

// The names of the morphological tables, in the suite's order. Logs at Debug "Retrieving
// morphological lut list :", then each name on a line of its own.
KORVANEAPI_EXPORT std::vector<std::string> getMorphoLutList();
