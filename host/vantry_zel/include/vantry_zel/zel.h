// The suite's algorithm library: start and stop, and the registry of algorithm plug-ins.
#pragma once
#include <string>
#include <vector>

#include <vantry_util/KrvExport.h>

namespace zel {

VANTRY_ZEL_EXPORT void init();
VANTRY_ZEL_EXPORT void finish();
// Registers the suite's algorithms; `path` names an extra plug-in folder and may be null.
VANTRY_ZEL_EXPORT void initPlugins(const char* path);
VANTRY_ZEL_EXPORT void finishPlugins();

VANTRY_ZEL_EXPORT bool isInitialized();
// The names of the registered algorithms, in registration order.
VANTRY_ZEL_EXPORT std::vector<std::string> registeredAlgorithms();
// The plug-in folder given to the last initPlugins ("" for null).
VANTRY_ZEL_EXPORT const std::string& pluginPath();
// Whether the last initPlugins was given a path at all (null gives false).
VANTRY_ZEL_EXPORT bool pluginPathGiven();

}  // namespace zel
