// User filters: named image operators defined by a formula over the pixel values of the input
// images (I1..I9) and the voxel coordinates (X, Y, Z), kept by the filter handler.
#pragma once
#include <string>

#include <vantry_data/CDatUsrMeasure.h>
#include <vantry_util/KrvExport.h>
#include <vantry_util/KrvFormula.h>

class VANTRY_DATA_EXPORT CDatFlr : public CDatUsrMeasure {
public:
    explicit CDatFlr(const CKrvString& name) : CDatUsrMeasure(name) {}
    ~CDatFlr() override;

    // The cheap static check: syntax only, any name allowed.
    static bool checkFilterFormula(const std::string& formula);
    // Sets the formula text and compiles it with the image vocabulary; false (the filter then
    // keeps the text and no compiled formula) when the text is not a valid image formula. A
    // refusal is logged at Debug by "Korvane.Formula".
    bool initFilterFormula(const std::string& formula);

    // The compiled formula (empty until initFilterFormula succeeds).
    const KrvFormula& GetFormula() const noexcept { return m_compiled; }
    // The filter's value for pixel values I1..I9 (`pixels`, 9 values) at voxel (x, y, z); 0 for
    // a filter without a compiled formula.
    double Evaluate(const double* pixels, double x, double y, double z) const noexcept;

private:
    KrvFormula m_compiled;
};

class VANTRY_DATA_EXPORT CDatFlrHandler : public CKrvHandler {
public:
    static CDatFlrHandler* m_pInstance;

    CKrvObject* FindObj(const CKrvString& name) const override;
    // A new filter without a formula; null when the name is empty, longer than 255 bytes, holds a
    // control character or is taken.
    CDatFlr* AddFlr(CKrvString& name);
    // 1 when the filter was removed, 0 when there is none of that name.
    int RemoveFlr(const CKrvString& name);
    // Removes every filter; 1 (0 when the suite is stopped).
    int RemoveAll();
};
