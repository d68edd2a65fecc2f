// The pattern every list function follows: the caller logs its heading at Debug, asks the host
// handler for its names, and hands them here; each kept name is copied, in the host's order, and
// logged alone at Debug (the level checked per name, so with Debug off the loop only copies).
#pragma once
#include <string>
#include <vector>

#include <vantry_util/CKrvString.h>

#include "CallFrame.h"

namespace kapi {

struct KeepEveryName {
    bool operator()(const CKrvString&) const noexcept { return true; }
};

enum class NameLines { Logged, Silent };

// `file` and `line` are the caller's: the name lines carry the list function's place.
template <class Keep = KeepEveryName>
std::vector<std::string> copyNames(const std::vector<CKrvString>& hostNames, const char* file, int line,
                                   NameLines nameLines = NameLines::Logged, Keep keep = Keep()) {
    std::vector<std::string> names;  // grows by appending, as the host's count is not known up front
    const KrvLogger& log = getKorvaneAPILogger();
    for (const CKrvString& name : hostNames) {
        if (!keep(name)) continue;
        names.push_back(name.m_str);
        if (nameLines == NameLines::Logged && log.isEnabledFor(KrvLoggerLevel::Debug))
            writeLogLine(log, KrvLoggerLevel::Debug, file, line, name);
    }
    return names;
}

}  // namespace kapi

// KAPI_COPY_NAMES(hostNames) or KAPI_COPY_NAMES(hostNames, NameLines::Silent, keep): the names
// logged with this statement's line.
#define KAPI_COPY_NAMES(HOST_NAMES, ...) ::kapi::copyNames(HOST_NAMES, __FILE__, __LINE__, ##__VA_ARGS__)
