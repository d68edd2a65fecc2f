// User filters, image formulas and the filter list.
#include <KorvaneAPI/Filters.h>

#include <vantry_data/CDatFlrHandler.h>
#include <vantry_data/CDatUsrMeasure.h>
#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvImageFormulaManager.h>

#include "CallFrame.h"
#include "ObjectList.h"

bool createFilter(const std::string& name, const std::string& formula) {
    KAPI_LOG(Debug, "Creating filter ", name, " with formula ", formula);
    if (!CDatFlr::checkFilterFormula(std::string(formula.c_str()))) {  // the text up to its first NUL
        KAPI_LOG(Error, "Invalid user filter formula ", formula, " for user filter ", name);
        return false;
    }
    CKrvString hostName(name);
    CDatFlr* filter = CDatFlrHandler::m_pInstance->AddFlr(hostName);
    if (filter == nullptr) {
        KAPI_LOG(Error, "Internal error while creating filter ", name);
        return false;
    }
    if (filter->initFilterFormula(formula)) return true;
    CDatFlrHandler::m_pInstance->RemoveFlr(CKrvString(name));  // undo: no new filter survives a refusal
    KAPI_LOG(Error, "Invalid user filter formula ", formula, " for filter ", name);
    return false;
}

std::string getFilterFormula(const std::string& name) {
    KAPI_LOG(Debug, "Retrieving formula for filter ", name);
    const CKrvObject* filter = CDatFlrHandler::m_pInstance->FindObj(CKrvString(name));
    if (filter == nullptr) {
        KAPI_LOG(Error, "Can't get formula for filter ", name, ", this filter doesn't exists");
        return std::string();
    }
    const std::string& formula = static_cast<const CDatUsrMeasure*>(filter)->getFormulaStr();
    KAPI_LOG(Debug, formula);
    return formula;
}

void removeFilter(const std::string& name) {
    KAPI_LOG(Debug, "Removing filter ", name);
    if (CDatFlrHandler::m_pInstance->RemoveFlr(CKrvString(name)) == 0)
        KAPI_LOG(Error, "Can't remove filter ", name, ", this filter doesn't exists");
}

void removeAllFilters() {
    KAPI_LOG(Debug, "Removing all filters");
    if (CDatFlrHandler::m_pInstance->RemoveAll() == 0) KAPI_LOG(Error, "Failed to remove all filters");
}

bool isValidImageFormula(const char* formula) {
    KrvImageFormulaManager manager;
    return manager.init(std::string(formula));
}

std::vector<std::string> getFilterList() {
    KAPI_LOG(Debug, "Retrieving filter list :");
    std::vector<CKrvString> hostNames;
    CDatFlrHandler::m_pInstance->GetObjList(hostNames);
    return KAPI_COPY_NAMES(hostNames);
}
