// The filter store and the filter objects.
#include <vantry_data/CDatFlrHandler.h>

#include <memory>

#include <vantry_data/CDatService.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvImageFormulaManager.h>

CDatFlrHandler* CDatFlrHandler::m_pInstance = krvStoppedHandler<CDatFlrHandler>();

namespace {

const KrvHandlerRegistration registration{krvSingletonLifetime<CDatFlrHandler>()};

}  // namespace

CDatFlr::~CDatFlr() = default;

bool CDatFlr::checkFilterFormula(const std::string& formula) {
    KRV_FAULT_RETURN(bool, "CDatFlr::checkFilterFormula");
    const KrvFormulaError error = KrvFormula::check(formula);
    if (!error.ok()) logKrvFormulaRefusal(error, formula);
    return error.ok();
}

bool CDatFlr::initFilterFormula(const std::string& formula) {
    KRV_FAULT_RETURN(bool, "CDatFlr::initFilterFormula");
    m_formulaStr = formula;
    const KrvFormulaError error = m_compiled.compile(formula, KrvImageFormulaNames::instance());
    if (!error.ok()) logKrvFormulaRefusal(error, formula);
    return error.ok();
}

double CDatFlr::Evaluate(const double* pixels, double x, double y, double z) const noexcept {
    double slots[KrvImageFormulaNames::kSlotCount];
    for (int i = 0; i < KrvImageFormulaNames::kImageCount; ++i) slots[KrvImageFormulaNames::kFirstImage + i] = pixels[i];
    slots[KrvImageFormulaNames::kX] = x;
    slots[KrvImageFormulaNames::kY] = y;
    slots[KrvImageFormulaNames::kZ] = z;
    return m_compiled.evaluate(slots);
}

CKrvObject* CDatFlrHandler::FindObj(const CKrvString& name) const {
    KRV_FAULT_RETURN(CKrvObject*, "CDatFlrHandler::FindObj");
    return CKrvHandler::FindObj(name);
}

CDatFlr* CDatFlrHandler::AddFlr(CKrvString& name) {
    KRV_FAULT_RETURN(CDatFlr*, "CDatFlrHandler::AddFlr");
    return static_cast<CDatFlr*>(InsertObj(std::make_unique<CDatFlr>(name)));
}

int CDatFlrHandler::RemoveFlr(const CKrvString& name) {
    KRV_FAULT_RETURN(int, "CDatFlrHandler::RemoveFlr");
    return EraseObj(name) ? 1 : 0;
}

int CDatFlrHandler::RemoveAll() {
    KRV_FAULT_RETURN(int, "CDatFlrHandler::RemoveAll");
    return ClearObj() ? 1 : 0;
}
