// User filters and image formulas.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// Removes every user filter; an Error line when the suite refuses.
KORVANEAPI_EXPORT void removeAllFilters();
