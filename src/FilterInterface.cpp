// User filters and image formulas.
#include <KorvaneAPI/Filters.h>

void removeAllFilters() {}
