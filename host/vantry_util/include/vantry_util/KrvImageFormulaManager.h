// Image formulas: the vocabulary of pixel values I1..I9 of the input images and voxel
// coordinates X, Y, Z, and the manager that says whether a text is a valid image formula.
#pragma once
#include <string>
#include <string_view>

#include <vantry_util/KrvExport.h>
#include <vantry_util/KrvFormula.h>

// I1..I9 read slots 0..8, X, Y, Z slots 9, 10, 11.
class VANTRY_UTIL_EXPORT KrvImageFormulaNames final : public KrvFormulaNames {
public:
    enum Slot { kFirstImage = 0, kImageCount = 9, kX = 9, kY = 10, kZ = 11, kSlotCount = 12 };
    int resolve(std::string_view name, std::string& why) const override;
    static const KrvImageFormulaNames& instance();
};

class VANTRY_UTIL_EXPORT KrvImageFormulaManager {
public:
    KrvImageFormulaManager() = default;
    ~KrvImageFormulaManager() = default;

    // Compiles the text with the image vocabulary; true when it is a valid image formula. A
    // refusal is logged at Debug by "Korvane.Formula", with its position and reason.
    bool init(const std::string& formula);

    const KrvFormula& formula() const noexcept { return m_formula; }
    const KrvFormulaError& error() const noexcept { return m_error; }

private:
    KrvFormula m_formula;
    KrvFormulaError m_error;
};

// Logs a refused formula at Debug ("Formula refused at byte 3: unknown name 'Q': I1+Q"),
// the line that every vocabulary of the suite writes.
VANTRY_UTIL_EXPORT void logKrvFormulaRefusal(const KrvFormulaError& error, std::string_view formula);
