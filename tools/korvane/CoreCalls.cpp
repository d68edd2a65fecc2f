// Calls of the library's lifecycle, memory limit and proxy service.
#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_service_handler/CService.h>
#include <vantry_util/KrvVariant.h>

#include "Calls.h"

namespace korvane {

namespace {

Output sendStatus(const Args& args) {
    const std::vector<KrvVariant> params{1, 0, CKrvString(args[0])};
    CService::SendMessage(eServiceProxy, eServiceProcess, CKrvString("status"), CKrvString(""), eMessageStatusBar,
                          params);
    return {};
}

}  // namespace

void addCoreCalls(CallTable& table) {
    table.add("getExtraMemUsage", {"getExtraMemUsage", "the suite's memory limit in bytes (low 32 bits)", 0, 0,
                                   [](const Args&) { return said(static_cast<long long>(getExtraMemUsage())); }});
    table.add("setExtraMemUsage", {"setExtraMemUsage BYTES", "sets the suite's memory limit (-1: no limit)", 1, 1,
                                   [](const Args& args) {
                                       setExtraMemUsage(toInt(args[0], "BYTES"));
                                       return Output{};
                                   }});
    table.add("sendStatus", {"sendStatus TEXT", "sends a status-bar text to the proxy service, as the suite does", 1, 1,
                             sendStatus});
}

}  // namespace korvane
