// The suite's catalogue of processing commands. Neither function logs or throws on its own;
// both need the process service that initKorvaneAPI starts.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// The suite's description of one command, CProCmd: GetName(), GetCategory(), GetDescription()
// and GetParams() (each parameter's name, type and default as text).
#include <vantry_process/CProCmd.h>

// The names of the suite's commands in the suite's order; duplicates are kept and the
// separators of the suite's table ("none") are left out. Empty when the table holds no more
// than its first record.
KORVANEAPI_EXPORT std::vector<std::string> getCmdNameColl();

// The suite's description of the command `name` (exact spelling), owned by the suite: do not
// free it. Null when the suite knows no such command, or has no process service.
KORVANEAPI_EXPORT CProCmd* getCmdInfo(const std::string& name);
