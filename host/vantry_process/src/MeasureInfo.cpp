// Descriptions of the native and user measures.
#include <vantry_process/MeasureInfo.h>

#include <vantry_access_korlib/CAccess.h>
#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_access_korlib/KrvNativeMeasures.h>
#include <vantry_data/CDatAnlHandler.h>
#include <vantry_util/KrvFault.h>

#include <cstdlib>

bool findMsrInfo(const std::string& name, MeasureInfo& info) {
    KRV_FAULT_RETURN(bool, "findMsrInfo");
    if (!CAccess::IsOpen()) {  // the suite is stopped: no measure is described
        logKrvNotStarted();
        return false;
    }
    if (const KrvNativeMeasure* native = krvFindNativeMeasure(name)) {
        MsrInfo block{};
        float* values = nullptr;
        const int unknown = IpIndGetMsrInfo(name.c_str(), &block, &values, nullptr);
        std::free(values);
        info.name = native->name;
        info.isUser = false;
        info.unitDim = native->unitDim;
        info.dimension = native->dimension;
        info.nbParams = unknown ? 0 : block.nbParams;
        info.description = native->description;
        return true;
    }
    const CDatUsrMeasure* user = CDatAnlHandler::m_pInstance->GetUsrMsr(name);
    if (user == nullptr) return false;
    info.name = name;
    info.isUser = true;
    info.unitDim = user->m_unitDim;
    info.dimension = 0;
    info.nbParams = 0;
    info.description = user->getUsrMeasureType() == eUsrMsrIpFunction ? user->getIpFunctionName()
                                                                       : user->getFormulaStr();
    return true;
}
