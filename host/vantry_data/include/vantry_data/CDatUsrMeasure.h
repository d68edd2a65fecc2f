// The object that carries a formula text: user measures are made of it (defined by a formula over
// other measures, or bound to an IP function of the suite), and filters carry their formula the
// same way, so both answer getFormulaStr.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include <vantry_util/CKrvHandler.h>
#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>
#include <vantry_util/KrvFormula.h>

enum eUsrMeasureType : std::int32_t { eUsrMsrFormula = 0, eUsrMsrIpFunction = 1 };

// One IP function of the suite's catalogue.
struct VANTRY_DATA_EXPORT KrvIpFunction {
    const char* name;
    const char* description;
};
VANTRY_DATA_EXPORT const std::vector<KrvIpFunction>& krvIpFunctions();

class CDatAnlHandler;

class VANTRY_DATA_EXPORT CDatUsrMeasure : public CKrvObject {
public:
    // A user measure of `handler`, whose formulas may name its native and user measures.
    CDatUsrMeasure(const CKrvString& name, const CDatAnlHandler& handler);
    ~CDatUsrMeasure() override;

    // Syntax only; any measure name passes.
    static bool checkMsrFormula(const std::string& formula);
    // A well-formed identifier.
    static bool checkIpFunction(const std::string& function);

    // Compiles the formula over native and existing user measures (not this one); false, and the
    // measure unchanged, when refused.
    bool initUsrFormula(const std::string& formula);
    // Binds the measure to a function of the catalogue; false when there is none of that name.
    bool initIpFunction(const std::string& function);

    eUsrMeasureType getUsrMeasureType() const;
    const std::string& getFormulaStr() const noexcept { return m_formulaStr; }
    const std::string& getIpFunctionName() const noexcept { return m_ipFunction; }
    const KrvFormula& getFormula() const noexcept { return m_formula; }

    // The value of a formula measure given the values of the measures it names; `valueOf` is
    // called once per name, in order of first appearance. 0 for an undefined or IP measure.
    template <class ValueOf>
    double evaluate(ValueOf valueOf) const {
        std::vector<double> slots;
        for (const std::string& name : m_formula.names()) slots.push_back(valueOf(name));
        return m_formula.evaluate(slots.data());
    }

    std::int32_t m_unitDim = 0;  // the stored unit dimension (5 - eMsrUnitDim)

protected:
    // A formula carrier outside the analysis handler (a filter): it keeps its text here and
    // compiles it with its own vocabulary.
    explicit CDatUsrMeasure(const CKrvString& name) : CKrvObject(name) {}
    std::string m_formulaStr;

private:
    const CDatAnlHandler* m_handler = nullptr;
    eUsrMeasureType m_type = eUsrMsrFormula;
    std::string m_ipFunction;
    KrvFormula m_formula;
};
