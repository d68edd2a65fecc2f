// Measure groups.
#include <KorvaneAPI/MeasureGroups.h>

void removeAllMsrGrp() {}
