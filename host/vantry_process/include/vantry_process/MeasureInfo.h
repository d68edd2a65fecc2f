// The descriptive record of a measure, native or user, as the process library gives it.
#pragma once
#include <string>

#include <vantry_util/KrvExport.h>

struct VANTRY_PROCESS_EXPORT MeasureInfo {
    std::string name;
    bool isUser = false;
    int unitDim = 0;     // native: the power of the length unit; user: the stored unit dimension
    int dimension = 0;   // 2 or 3; 0 for a user measure
    int nbParams = 0;    // current number of parameter values (0 for a user measure)
    std::string description;  // for a user measure, its formula or IP function
};

// Fills `info` for the native or user measure `name`; false (and `info` unchanged) when there is
// none of that name, or the suite is stopped (Error "the suite is not started").
VANTRY_PROCESS_EXPORT bool findMsrInfo(const std::string& name, MeasureInfo& info);
