// The suite's formula engine: one hand-written recursive-descent parser that compiles a formula
// text to postfix bytecode, and an evaluator for it. The names a formula may use come from a
// vocabulary (KrvFormulaNames), so image formulas, filter formulas and measure formulas share the
// parser; a syntax-only check accepts any name. The language is described in docs/formula.md.
//
// Hostile input is refused with a position and a reason, never by crashing: texts longer than
// kMaxLength, nesting deeper than kMaxNesting, numbers that do not fit a double, bytes outside the
// language (an embedded NUL included).
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <vantry_util/KrvExport.h>

// A vocabulary: which names a formula may use, and the variable slot each one reads at
// evaluation.
class VANTRY_UTIL_EXPORT KrvFormulaNames {
public:
    virtual ~KrvFormulaNames();
    // The slot (0 or more) of `name`, or -1 to refuse it. On refusal `why` may say why in a few
    // words ("unknown measure 'Foo'"); left empty, the engine says "unknown name 'Foo'".
    virtual int resolve(std::string_view name, std::string& why) const = 0;
};

// Why a text was refused: the byte offset where the parser stopped, and a readable reason.
// An empty reason means no error.
struct VANTRY_UTIL_EXPORT KrvFormulaError {
    std::size_t position = 0;
    std::string reason;

    bool ok() const noexcept { return reason.empty(); }
    // "at byte 4: unknown name 'Q'" (empty when there is no error).
    std::string describe() const;
};

class VANTRY_UTIL_EXPORT KrvFormula {
public:
    // Longest text the parser reads, in bytes.
    static constexpr std::size_t kMaxLength = 65536;
    // Deepest nesting of parentheses, function arguments, ternaries and unary operators.
    static constexpr int kMaxNesting = 200;

    // Syntax only: any name is accepted as a variable; functions and their argument counts are
    // checked.
    static KrvFormulaError check(std::string_view text);

    // Compiles `text` with the names of `names`. On success the formula holds the bytecode; on
    // failure it is left empty and the error says where and why.
    KrvFormulaError compile(std::string_view text, const KrvFormulaNames& names);

    // True until a compilation succeeds.
    bool empty() const noexcept { return m_code.empty(); }
    void clear() noexcept;
    // The distinct names the formula reads, in order of first appearance.
    const std::vector<std::string>& names() const noexcept { return m_names; }
    // One more than the highest slot the formula reads (0 when it reads none).
    int slotCount() const noexcept { return m_slotCount; }

    // The value for the variables `slots[0 .. slotCount()-1]`. Truth values: 0 is false, anything
    // else true; comparisons and logical operators give 1 or 0. An empty formula gives 0.
    double evaluate(const double* slots) const noexcept;
    // The values for `count` points at once: columns[s][i] is slot s at point i; out[i] the value.
    // Much faster per point than evaluate() for images.
    void evaluate(const double* const* columns, std::size_t count, double* out) const;

    // The bytecode, one instruction per line ("var 0", "mul", ...), for tests and debugging.
    std::string disassemble() const;

    enum class Op : std::uint8_t;
    struct Instruction {
        Op op;
        std::uint32_t arg;  // constant index or slot
    };

private:
    friend class KrvFormulaParser;
    std::vector<Instruction> m_code;
    std::vector<double> m_constants;
    std::vector<std::string> m_names;
    int m_slotCount = 0;
    int m_stackDepth = 0;
};
