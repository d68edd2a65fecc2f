// Segment objects: named sets of chains whose items are segments of four float values
// (x1, y1, x2, y2: from (x1, y1) to (x2, y2)). Chains and items are numbered from 0. These
// functions write no log line (except the heading of getSegmentList) and throw nothing of their
// own; an exception of the suite passes through unchanged.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// Creates an object without chains; false when the suite refuses the name (invalid or used).
KORVANEAPI_EXPORT bool createSegment(const std::string& name);

// The number of chains of `name`; -1 when there is no such object.
KORVANEAPI_EXPORT int getNbChain(const std::string& name);

// The number of items of chain `chain` of `name`; -1 when there is no such object, and
// whatever the suite answers for a chain out of range (-1 in the stand-alone suite).
KORVANEAPI_EXPORT int getNbItems(const std::string& name, int chain);

// Item `item` of chain `chain` of `name` into the four outputs, in the suite's order
// (x1, y1, x2, y2). True whenever the suite answers more than 0 (its way of saying it filled
// them); false when there is no such object (outputs untouched), and false when the suite answers
// 0 or less, as it does for a chain or item out of range (the outputs then hold whatever the
// suite wrote, which the stand-alone suite leaves untouched).
KORVANEAPI_EXPORT bool getSegment(const std::string& name, int chain, int item, float& x1, float& y1, float& x2,
                                  float& y2);

// Removes `name`; false when the suite removed nothing.
KORVANEAPI_EXPORT bool removeSegment(const std::string& name);

// The names of all segment objects in the suite's order. Logs "Retrieving segment list :" at
// Debug, and no line per name.
KORVANEAPI_EXPORT std::vector<std::string> getSegmentList();
