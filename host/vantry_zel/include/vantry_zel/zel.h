// The suite's algorithm library: start and stop, and the registry of algorithm plug-ins.
#pragma once
#include <string>
#include <vector>

#pragma GCC visibility push(default)

namespace zel {

void init();
void finish();
// Registers the suite's algorithms; `path` names an extra plug-in folder and may be null.
void initPlugins(const char* path);
void finishPlugins();

bool isInitialized();
// The names of the registered algorithms, in registration order.
std::vector<std::string> registeredAlgorithms();
// The plug-in folder given to the last initPlugins ("" for null).
const std::string& pluginPath();
// Whether the last initPlugins was given a path at all (null gives false).
bool pluginPathGiven();

}  // namespace zel

#pragma GCC visibility pop
