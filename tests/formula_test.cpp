// The suite's formula engine: what it accepts and refuses (with the position and reason), how
// it reads precedence, its limits against hostile texts, and the values it computes.
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vantry_util/KrvFormula.h>
#include <vantry_util/KrvImageFormulaManager.h>

namespace {

const KrvImageFormulaNames& image() { return KrvImageFormulaNames::instance(); }

double value(const std::string& text, std::vector<double> slots = std::vector<double>(12, 0.0)) {
    KrvFormula f;
    const KrvFormulaError error = f.compile(text, image());
    EXPECT_TRUE(error.ok()) << text << " " << error.describe();
    return f.evaluate(slots.data());
}

struct Refusal { const char* text; std::size_t position; const char* reason; };

TEST(Formula, AcceptsTheLanguageAndRefusesWithPositionAndReason) {
    for (const char* text : {"I1", "  I1 + I2*3.5 ", "-X^2", "sqrt(I1*I1+I2*I2)", "I1 > 3 ? I2 : -I3", ".5e-3*Z",
                             "min(I1, I2, I3, 4)", "clamp(I1, 0, 255)", "not I1 and (I2 || !I3)", "atan2(Y, X) * 180 / pi",
                             "e^2", "I9 != I8 == 1", "+X", "1E+3"})
        EXPECT_TRUE(KrvFormula::check(text).ok() && KrvFormula().compile(text, image()).ok()) << text;

    const Refusal refusals[] = {
        {"", 0, "empty formula"},
        {"  ", 2, "empty formula"},
        {"I1 +", 4, "expected a number, a name, a function or '(', found end of formula"},
        {"(I1 + 2", 7, "expected ')', found end of formula"},
        {"I1 = 2", 3, "'=' is not an operator (compare with '==')"},
        {"I1 2", 3, "unexpected '2'"},
        {"2x", 1, "unexpected 'x' after a number"},
        {"1e+", 3, "exponent without digits"},
        {"1.2.3", 3, "unexpected '.'"},
        {"sqrt", 0, "function 'sqrt' needs its arguments"},
        {"foo(1)", 0, "unknown function 'foo'"},
        {"atan2(1)", 0, "'atan2' takes 2 arguments, not 1"},
        {"sin(1, 2)", 0, "'sin' takes 1 argument, not 2"},
        {"max(1)", 0, "'max' takes 2 or more arguments, not 1"},
        {"1 ? 2", 5, "expected ':' of the '?' operator, found end of formula"},
        {"1, 2", 1, "unexpected ','"},
        {"I1 and", 6, "expected a number, a name, a function or '(', found end of formula"},
        {"I1 $ 2", 3, "unexpected '$'"},
        {"1e999999", 0, "number out of range '1e999999'"},
    };
    for (const Refusal& r : refusals) {
        const KrvFormulaError error = KrvFormula::check(r.text);
        EXPECT_EQ(error.position, r.position) << r.text;
        EXPECT_EQ(error.reason, r.reason) << r.text;
        KrvFormula f;
        EXPECT_EQ(f.compile(r.text, image()).reason, r.reason) << r.text;
        EXPECT_TRUE(f.empty());
    }
    EXPECT_EQ(KrvFormula::check("I1 +").describe(), "at byte 4: expected a number, a name, a function or '(', found end of formula");
}

TEST(Formula, ImageVocabularyRefusesOtherNamesWhichTheSyntaxCheckAccepts) {
    for (const char* text : {"Q", "I0", "I10", "i1", "x", "Area + 1", "I1 + W"}) {
        EXPECT_TRUE(KrvFormula::check(text).ok()) << text;
        EXPECT_FALSE(KrvImageFormulaManager().init(text)) << text;
    }
    KrvImageFormulaManager manager;
    EXPECT_FALSE(manager.init("I1 + W"));
    EXPECT_EQ(manager.error().position, 5u);
    EXPECT_EQ(manager.error().reason, "unknown name 'W' (an image formula reads I1 to I9, X, Y and Z)");
    ASSERT_TRUE(manager.init("I3 + Z + I3"));
    EXPECT_EQ(manager.formula().names(), (std::vector<std::string>{"I3", "Z"}));
    EXPECT_EQ(manager.formula().slotCount(), 12);
    EXPECT_EQ(manager.formula().disassemble(), "var 2\nvar 11\nadd\nvar 2\nadd\n");
}

TEST(Formula, ReadsPrecedenceAndEvaluatesFunctionsTruthValuesAndVariables) {
    // "not" binds as tightly as unary minus; any non-zero value is true, negatives included.
    const std::pair<const char*, double> cases[] = {
        {"2+3*4", 14}, {"(2+3)*4", 20}, {"-2^2", -4}, {"2^-1", 0.5}, {"2^3^2", 512}, {"10-4-3", 3}, {"12/3/2", 2},
        {"1+2 < 4 and 0 or 5 > 4", 1}, {"1 < 2 == 1", 1}, {"0 ? 1 : 0 ? 2 : 3", 3}, {"1 ? 0 ? 5 : 6 : 7", 6},
        {"not 0 + 1", 2}, {"--3", 3}, {"sqrt(I1*I1+I2*I2)", 5}, {"abs(I9) + X*Z", 12}, {"min(I1, I2, I9) + max(I1, X)", 3},
        {"clamp(X, 0, 4) + clamp(I9, 0, 4)", 4}, {"floor(2.5) + ceil(2.5) + round(2.5) + round(-2.5)", 5},
        {"atan2(1, 1) * 4 - pi + log(e) + log10(1000) + exp(0)", 5},
        {"sin(pi/2) + cos(0) + tan(0) + asin(1) + acos(1) + atan(0)", 2 + M_PI / 2}, {"I9 ? 1 : 2", 1},
        {"I9 and 0.25", 1}, {"!I9 + !Y", 1}};
    std::vector<double> slots(12, 0.0);
    slots[0] = 3;     // I1
    slots[1] = 4;     // I2
    slots[8] = -7;    // I9
    slots[9] = 10;    // X
    slots[11] = 0.5;  // Z
    for (const auto& [text, expected] : cases) EXPECT_NEAR(value(text, slots), expected, 1e-12) << text;
    EXPECT_DOUBLE_EQ(value("1e-999999 + 0.000", slots), 0);  // too small to hold is zero
    EXPECT_TRUE(std::isinf(value("1/0")));
    EXPECT_TRUE(std::isnan(value("sqrt(-1)")));
    EXPECT_EQ(KrvFormula().evaluate(nullptr), 0.0);

    // The block evaluator gives the scalar evaluator's values, across block boundaries, with
    // variables read in place (several times, as both operands) and constants between them.
    for (const char* text : {"I1 > 500 ? sqrt(I1*I1 + I2*I2) : clamp(-I2, -3, 3) + min(X, 2)^2",
                             "I1 - I1/(I2 + 4.5) * X - 2 - (1 - I2)", "atan2(I2, I1 + 1) + abs(I2 - X) / 3"}) {
        KrvFormula f;
        ASSERT_TRUE(f.compile(text, image()).ok()) << text;
        const std::size_t n = 1000;
        std::vector<std::vector<double>> columns(12, std::vector<double>(n));
        std::vector<const double*> pointers;
        for (std::size_t i = 0; i < n; ++i) {
            columns[0][i] = double(i);
            columns[1][i] = double(i % 7) - 3;
            columns[9][i] = double(i % 5);
        }
        for (const auto& c : columns) pointers.push_back(c.data());
        std::vector<double> out(n);
        f.evaluate(pointers.data(), n, out.data());
        for (std::size_t i = 0; i < n; ++i) {
            const double point[12] = {columns[0][i], columns[1][i], 0, 0, 0, 0, 0, 0, 0, columns[9][i], 0, 0};
            ASSERT_DOUBLE_EQ(out[i], f.evaluate(point)) << text << " at " << i;
        }
    }
}

TEST(Formula, SurvivesHostileTexts) {
    const std::string deep(100000, '(');
    EXPECT_EQ(KrvFormula::check(deep).reason, "formula longer than 65536 bytes");
    const std::string deepButShort(60000, '(');
    KrvFormulaError error = KrvFormula::check(deepButShort);
    EXPECT_EQ(error.reason, "nesting deeper than 200");
    EXPECT_EQ(error.position, 200u);
    EXPECT_EQ(KrvFormula::check(std::string(5000, '-') + "1").reason, "nesting deeper than 200");
    EXPECT_EQ(KrvFormula::check("2" + std::string(5000, '^') + "2").reason,
              "expected a number, a name, a function or '(', found '^'");

    // Nesting at the limit is fine, and evaluates through the deep stack.
    std::string atLimit = "1";
    for (int i = 1; i < KrvFormula::kMaxNesting; ++i) atLimit = "(1+" + atLimit + ")";
    KrvFormula f;
    ASSERT_TRUE(f.compile(atLimit, image()).ok());
    EXPECT_DOUBLE_EQ(f.evaluate(nullptr), KrvFormula::kMaxNesting);

    EXPECT_EQ(KrvFormula::check(std::string(1 << 20, '1')).reason, "formula longer than 65536 bytes");
    std::string longSum = "I1";
    while (longSum.size() < KrvFormula::kMaxLength - 3) longSum += "+I1";
    ASSERT_TRUE(f.compile(longSum, image()).ok());
    const double ones[12] = {1};
    EXPECT_DOUBLE_EQ(f.evaluate(ones), double((longSum.size() + 1) / 3));

    const std::string withNul("I1 + 1\0 + Q", 11);
    error = KrvFormula::check(withNul);
    EXPECT_EQ(error.position, 6u);
    EXPECT_EQ(error.reason, "unexpected byte 0x00");
    EXPECT_TRUE(KrvFormula::check(std::string(withNul.c_str())).ok());
    EXPECT_EQ(KrvFormula::check("I1 \xff").reason, "unexpected byte 0xff");
    EXPECT_EQ(KrvFormula::check(std::string(70, '9') + "e99999999999999999999").reason,
              "number out of range '" + std::string(40, '9') + "...'");
}

}  // namespace
