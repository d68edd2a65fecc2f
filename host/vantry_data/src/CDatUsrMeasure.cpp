// The formula-carrying object of user measures and filters.
#include <vantry_data/CDatUsrMeasure.h>

CDatUsrMeasure::~CDatUsrMeasure() = default;
