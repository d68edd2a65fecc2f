// Opening and closing of the access layer.
#include <vantry_access_korlib/CAccess.h>

#include <mutex>

#include <vantry_access_korlib/IpMeasure.h>

namespace {
std::mutex g_mutex;
bool g_open = false;
std::string g_path;
}  // namespace

void CAccess::Init(std::string path) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_open = true;
    g_path = std::move(path);
    krvResetMsrParams();  // every measure starts from its defaults
}

void CAccess::End() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_open = false;
}

bool CAccess::IsOpen() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_open;
}

std::string CAccess::GetPath() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_path;
}
