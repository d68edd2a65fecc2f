// The object that carries a formula text: user measures are made of it, and filters carry their
// formula the same way, so both answer getFormulaStr.
#pragma once
#include <string>

#include <vantry_util/CKrvHandler.h>

#pragma GCC visibility push(default)

class CDatUsrMeasure : public CKrvObject {
public:
    explicit CDatUsrMeasure(const CKrvString& name) : CKrvObject(name) {}
    ~CDatUsrMeasure() override;

    // The formula text as last set (empty until then).
    const std::string& getFormulaStr() const noexcept { return m_formula; }

protected:
    std::string m_formula;
};

#pragma GCC visibility pop
