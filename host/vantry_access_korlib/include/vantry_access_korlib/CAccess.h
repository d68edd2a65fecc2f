// The access layer of the suite's measurement library.
#pragma once
#include <string>

#pragma GCC visibility push(default)

class CAccess {
public:
    // Opens the access layer on the plug-in and settings folder (may be empty).
    static void Init(std::string path);
    static void End();

    static bool IsOpen();
    static std::string GetPath();
};

#pragma GCC visibility pop
