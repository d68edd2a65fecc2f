// The access layer of the suite's measurement library.
#pragma once
#include <string>

#include <vantry_util/KrvExport.h>

class VANTRY_ACCESS_KORLIB_EXPORT CAccess {
public:
    // Opens the access layer on the plug-in and settings folder (may be empty).
    static void Init(std::string path);
    static void End();

    static bool IsOpen();
    static std::string GetPath();
};
