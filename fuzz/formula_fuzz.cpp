// Fuzzes the formula engine: any bytes must be refused with a position inside the text, or
// compiled; a compiled formula must pass the syntax check too, and its scalar and block
// evaluations must agree.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <vantry_util/KrvFormula.h>
#include <vantry_util/KrvImageFormulaManager.h>

namespace {

bool same(double a, double b) { return (std::isnan(a) && std::isnan(b)) || a == b; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const KrvFormulaError syntax = KrvFormula::check(text);
    if (!syntax.ok() && syntax.position > text.size() && syntax.position != KrvFormula::kMaxLength) std::abort();

    KrvFormula formula;
    const KrvFormulaError error = formula.compile(text, KrvImageFormulaNames::instance());
    if (error.ok() != !formula.empty()) std::abort();
    if (error.ok() && !syntax.ok()) std::abort();
    if (!error.ok()) return 0;

    double slots[KrvImageFormulaNames::kSlotCount];
    for (int i = 0; i < KrvImageFormulaNames::kSlotCount; ++i) slots[i] = 1.5 * i - 4;
    const double scalar = formula.evaluate(slots);
    const double* columns[KrvImageFormulaNames::kSlotCount];
    for (int i = 0; i < KrvImageFormulaNames::kSlotCount; ++i) columns[i] = &slots[i];
    double block = 0;
    formula.evaluate(columns, 1, &block);
    if (!same(scalar, block)) std::abort();
    return 0;
}
