// User measures, measure parameters and Feret 3-D directions.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// Removes every user measure the client can see; the suite's five reserved measures stay.
KORVANEAPI_EXPORT void removeAllUsrMsr();
