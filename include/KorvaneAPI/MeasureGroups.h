// Measure groups: named, ordered lists of measure names.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// Removes every measure group; a Warn line for each group the suite refuses to remove.
KORVANEAPI_EXPORT void removeAllMsrGrp();
