// The analysis handler: the native measure catalogue, the measure groups and the user
// measures (defined by a formula over other measures, or bound to an IP function of the suite).
#pragma once
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include <vantry_util/CKrvHandler.h>
#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvFormula.h>

#pragma GCC visibility push(default)

enum eUsrMeasureType : std::int32_t { eUsrMsrFormula = 0, eUsrMsrIpFunction = 1 };

// One IP function of the suite's catalogue.
struct KrvIpFunction {
    const char* name;
    const char* description;
};
const std::vector<KrvIpFunction>& krvIpFunctions();

class CDatAnlHandler;

class CDatUsrMeasure : public CKrvObject {
public:
    CDatUsrMeasure(const CKrvString& name, const CDatAnlHandler& handler);

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

private:
    const CDatAnlHandler& m_handler;
    eUsrMeasureType m_type = eUsrMsrFormula;
    std::string m_formulaStr;
    std::string m_ipFunction;
    KrvFormula m_formula;
};

class CDatAnlHandler : public CKrvHandler {
public:
    static CDatAnlHandler* m_pInstance;

    // The suite's own classification measures, made when the data service starts.
    static const char* const kReservedUsrMsr[5];

    CDatAnlHandler();

    // Native measures.
    int IsKrvMsr(const CKrvString& name) const;
    void GetNatMsrList(std::vector<CKrvString>& out) const;

    // Measure groups: the given list becomes the group's whole list (the group is made when
    // missing); the stored list is returned.
    std::vector<CKrvString>* AddGrpMsr(const CKrvString& group, const std::vector<CKrvString>& measures);
    // The group's list, kept by the handler, or null.
    std::vector<CKrvString>* GetGrpMsr(const CKrvString& group);
    int RemoveGrpMsr(const CKrvString& group);
    void GetGrpList(std::vector<CKrvString>& out) const;

    // User measures.
    CDatUsrMeasure* AddUsrMsr(const CKrvString& name);
    CDatUsrMeasure* GetUsrMsr(const CKrvString& name) const;
    int RemoveUsrMsr(const CKrvString& name);
    int IsUserMsr(const CKrvString& name) const;
    void GetUsrMsrList(std::vector<CKrvString>& out) const;

private:
    using Groups = std::list<std::pair<CKrvString, std::vector<CKrvString>>>;
    Groups m_groups;
    std::unordered_map<CKrvString, Groups::iterator> m_groupIndex;
};

#pragma GCC visibility pop
