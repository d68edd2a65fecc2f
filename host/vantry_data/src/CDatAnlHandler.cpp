// The analysis handler: native measures, measure groups and user measures.
#include <vantry_data/CDatAnlHandler.h>

#include <memory>

#include <vantry_access_korlib/KrvNativeMeasures.h>
#include <vantry_data/CDatService.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvImageFormulaManager.h>

CDatAnlHandler* CDatAnlHandler::m_pInstance = krvStoppedHandler<CDatAnlHandler>();

const char* const CDatAnlHandler::kReservedUsrMsr[5] = {"BlobClassDist", "ClassId", "ClassIdConfidence",
                                                         "ComputedClassId", "Validate"};

namespace {

// The five classification measures are bound to these functions, in the same order.
const char* const kReservedFunctions[5] = {"ClassifierDistance", "ClassifierClass", "ClassifierConfidence",
                                           "ClassifierComputedClass", "ManualValidation"};

void addReservedMeasures(CDatAnlHandler& handler) {
    for (int i = 0; i < 5; ++i) {
        CDatUsrMeasure* measure = handler.AddUsrMsr(CDatAnlHandler::kReservedUsrMsr[i]);
        if (measure) measure->initIpFunction(kReservedFunctions[i]);
    }
}

const KrvHandlerRegistration registration{krvSingletonLifetime<CDatAnlHandler, &addReservedMeasures>()};

// Measure formulas read native measures and existing user measures, each name a slot in order
// of first appearance; the measure being defined may not read itself.
class MeasureNames final : public KrvFormulaNames {
public:
    MeasureNames(const CDatAnlHandler& handler, const std::string& self) : m_handler(handler), m_self(self) {}
    int resolve(std::string_view name, std::string& why) const override {
        const CKrvString text{std::string(name)};
        if (name == m_self) {
            why = "measure '" + text.m_str + "' refers to itself";
            return -1;
        }
        if (!m_handler.IsKrvMsr(text) && !m_handler.IsUserMsr(text)) {
            why = "unknown measure '" + text.m_str + "'";
            return -1;
        }
        for (std::size_t slot = 0; slot < m_slots.size(); ++slot)
            if (m_slots[slot] == name) return static_cast<int>(slot);
        m_slots.push_back(text.m_str);
        return static_cast<int>(m_slots.size() - 1);
    }

private:
    const CDatAnlHandler& m_handler;
    const std::string& m_self;
    mutable std::vector<std::string> m_slots;
};

}  // namespace

const std::vector<KrvIpFunction>& krvIpFunctions() {
    static const std::vector<KrvIpFunction> catalogue = {
        {"ConvexArea", "Area of the object's convex hull"},
        {"Compactness", "4 pi area over the square of the perimeter"},
        {"HoleCount", "Number of holes in the object"},
        {"EulerNumber", "Number of connected parts less the number of holes"},
        {"MeanIntensity", "Mean grey value over the object"},
        {"StdDevIntensity", "Standard deviation of the grey values over the object"},
        {"MinIntensity", "Smallest grey value in the object"},
        {"MaxIntensity", "Largest grey value in the object"},
        {"IntegratedIntensity", "Sum of the grey values over the object"},
        {"SkeletonLength", "Length of the object's skeleton"},
        {"Roughness", "Perimeter over the convex perimeter"},
        {"ClassifierDistance", "Distance of the object to its class in the classifier's space"},
        {"ClassifierClass", "Class the classifier gives the object"},
        {"ClassifierConfidence", "Confidence of the classifier in the object's class"},
        {"ClassifierComputedClass", "Class computed for the object before any manual change"},
        {"ManualValidation", "1 when the object's class was validated by hand, else 0"},
    };
    return catalogue;
}

CDatUsrMeasure::CDatUsrMeasure(const CKrvString& name, const CDatAnlHandler& handler)
    : CKrvObject(name), m_handler(&handler) {}

bool CDatUsrMeasure::checkMsrFormula(const std::string& formula) {
    KRV_FAULT_RETURN(bool, "CDatUsrMeasure::checkMsrFormula");
    return KrvFormula::check(formula).ok();
}

bool CDatUsrMeasure::checkIpFunction(const std::string& function) {
    KRV_FAULT_RETURN(bool, "CDatUsrMeasure::checkIpFunction");
    if (function.empty() || function.size() > 255) return false;
    const auto letter = [](unsigned char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; };
    if (!letter(static_cast<unsigned char>(function[0]))) return false;
    for (const unsigned char c : function)
        if (!letter(c) && !(c >= '0' && c <= '9')) return false;
    return true;
}

bool CDatUsrMeasure::initUsrFormula(const std::string& formula) {
    KRV_FAULT_RETURN(bool, "CDatUsrMeasure::initUsrFormula");
    if (m_handler == nullptr) return false;  // a filter: its own vocabulary compiles it
    KrvFormula compiled;
    const KrvFormulaError error = compiled.compile(formula, MeasureNames(*m_handler, GetName().m_str));
    if (!error.ok()) {
        logKrvFormulaRefusal(error, formula);
        return false;
    }
    m_formula = std::move(compiled);
    m_formulaStr = formula;
    m_ipFunction.clear();
    m_type = eUsrMsrFormula;
    return true;
}

bool CDatUsrMeasure::initIpFunction(const std::string& function) {
    KRV_FAULT_RETURN(bool, "CDatUsrMeasure::initIpFunction");
    for (const KrvIpFunction& known : krvIpFunctions()) {
        if (function == known.name) {
            m_ipFunction = function;
            m_formulaStr.clear();
            m_formula.clear();
            m_type = eUsrMsrIpFunction;
            return true;
        }
    }
    return false;
}

eUsrMeasureType CDatUsrMeasure::getUsrMeasureType() const {
    KRV_FAULT_RETURN(eUsrMeasureType, "CDatUsrMeasure::getUsrMeasureType");
    return m_type;
}

CDatAnlHandler::CDatAnlHandler() = default;

int CDatAnlHandler::IsKrvMsr(const CKrvString& name) const {
    KRV_FAULT_RETURN(int, "CDatAnlHandler::IsKrvMsr");
    if (RefusedWhenStopped()) return 0;
    return krvFindNativeMeasure(name.m_str) != nullptr;
}

void CDatAnlHandler::GetNatMsrList(std::vector<CKrvString>& out) const {
    KRV_FAULT_COUNT("CDatAnlHandler::GetNatMsrList");
    if (RefusedWhenStopped()) return;
    for (const KrvNativeMeasure& measure : krvNativeMeasures()) out.emplace_back(measure.name);
}

std::vector<CKrvString>* CDatAnlHandler::AddGrpMsr(const CKrvString& group, const std::vector<CKrvString>& measures) {
    KRV_FAULT_RETURN(std::vector<CKrvString>*, "CDatAnlHandler::AddGrpMsr");
    if (RefusedWhenStopped()) return nullptr;
    const auto found = m_groupIndex.find(group);
    if (found != m_groupIndex.end()) {
        found->second->second = measures;
        return &found->second->second;
    }
    m_groups.emplace_back(group, measures);
    const auto last = std::prev(m_groups.end());
    m_groupIndex.emplace(group, last);
    return &last->second;
}

std::vector<CKrvString>* CDatAnlHandler::GetGrpMsr(const CKrvString& group) {
    KRV_FAULT_RETURN(std::vector<CKrvString>*, "CDatAnlHandler::GetGrpMsr");
    if (RefusedWhenStopped()) return nullptr;
    const auto found = m_groupIndex.find(group);
    return found == m_groupIndex.end() ? nullptr : &found->second->second;
}

int CDatAnlHandler::RemoveGrpMsr(const CKrvString& group) {
    KRV_FAULT_RETURN(int, "CDatAnlHandler::RemoveGrpMsr");
    if (RefusedWhenStopped()) return 0;
    const auto found = m_groupIndex.find(group);
    if (found == m_groupIndex.end()) return 0;
    m_groups.erase(found->second);
    m_groupIndex.erase(found);
    return 1;
}

void CDatAnlHandler::GetGrpList(std::vector<CKrvString>& out) const {
    KRV_FAULT_COUNT("CDatAnlHandler::GetGrpList");
    if (RefusedWhenStopped()) return;
    for (const auto& group : m_groups) out.push_back(group.first);
}

CDatUsrMeasure* CDatAnlHandler::AddUsrMsr(const CKrvString& name) {
    KRV_FAULT_RETURN(CDatUsrMeasure*, "CDatAnlHandler::AddUsrMsr");
    return static_cast<CDatUsrMeasure*>(InsertObj(std::make_unique<CDatUsrMeasure>(name, *this)));
}

CDatUsrMeasure* CDatAnlHandler::GetUsrMsr(const CKrvString& name) const {
    KRV_FAULT_RETURN(CDatUsrMeasure*, "CDatAnlHandler::GetUsrMsr");
    return static_cast<CDatUsrMeasure*>(FindObj(name));
}

int CDatAnlHandler::RemoveUsrMsr(const CKrvString& name) {
    KRV_FAULT_RETURN(int, "CDatAnlHandler::RemoveUsrMsr");
    return EraseObj(name) ? 1 : 0;
}

int CDatAnlHandler::IsUserMsr(const CKrvString& name) const {
    KRV_FAULT_RETURN(int, "CDatAnlHandler::IsUserMsr");
    return FindObj(name) != nullptr;
}

void CDatAnlHandler::GetUsrMsrList(std::vector<CKrvString>& out) const {
    KRV_FAULT_COUNT("CDatAnlHandler::GetUsrMsrList");
    GetObjList(out);
}
