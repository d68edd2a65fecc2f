// The formula parser (recursive descent, one function per precedence level, emitting postfix
// bytecode as it goes) and the stack evaluator.
#include <vantry_util/KrvFormula.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>
#include <new>

enum class KrvFormula::Op : std::uint8_t {
    Const, Var,
    Neg, Not,
    Add, Sub, Mul, Div, Pow,
    Lt, Le, Gt, Ge, Eq, Ne, And, Or,
    Select,
    Abs, Sqrt, Exp, Log, Log10, Sin, Cos, Tan, Asin, Acos, Atan, Floor, Ceil, Round,
    Atan2, Min, Max, Clamp
};

using Op = KrvFormula::Op;

KrvFormulaNames::~KrvFormulaNames() = default;

std::string KrvFormulaError::describe() const {
    if (ok()) return {};
    return "at byte " + std::to_string(position) + ": " + reason;
}

namespace {

struct Function {
    const char* name;
    Op op;
    int arguments;  // min and max take two or more
};

constexpr Function kFunctions[] = {
    {"abs", Op::Abs, 1},     {"sqrt", Op::Sqrt, 1},   {"exp", Op::Exp, 1},     {"log", Op::Log, 1},
    {"log10", Op::Log10, 1}, {"sin", Op::Sin, 1},     {"cos", Op::Cos, 1},     {"tan", Op::Tan, 1},
    {"asin", Op::Asin, 1},   {"acos", Op::Acos, 1},   {"atan", Op::Atan, 1},   {"atan2", Op::Atan2, 2},
    {"min", Op::Min, -2},    {"max", Op::Max, -2},    {"floor", Op::Floor, 1}, {"ceil", Op::Ceil, 1},
    {"round", Op::Round, 1}, {"clamp", Op::Clamp, 3},
};

const Function* findFunction(std::string_view name) {
    for (const Function& f : kFunctions)
        if (name == f.name) return &f;
    return nullptr;
}

// How an instruction changes the depth of the evaluation stack.
int stackEffect(Op op) {
    switch (op) {
        case Op::Const: case Op::Var: return 1;
        case Op::Neg: case Op::Not: case Op::Abs: case Op::Sqrt: case Op::Exp: case Op::Log: case Op::Log10:
        case Op::Sin: case Op::Cos: case Op::Tan: case Op::Asin: case Op::Acos: case Op::Atan: case Op::Floor:
        case Op::Ceil: case Op::Round: return 0;
        case Op::Select: case Op::Clamp: return -2;
        default: return -1;
    }
}

const char* opName(Op op) {
    static constexpr const char* kNames[] = {
        "const", "var", "neg", "not", "add", "sub", "mul", "div", "pow", "lt", "le", "gt", "ge", "eq", "ne",
        "and", "or", "select", "abs", "sqrt", "exp", "log", "log10", "sin", "cos", "tan", "asin", "acos",
        "atan", "floor", "ceil", "round", "atan2", "min", "max", "clamp"};
    return kNames[static_cast<int>(op)];
}

// Names every name slot 0: the vocabulary of the syntax-only check.
class AnyName final : public KrvFormulaNames {
public:
    int resolve(std::string_view, std::string&) const override { return 0; }
};

bool isNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isNameChar(char c) { return isNameStart(c) || isDigit(c); }

std::string quoted(std::string_view text) {
    constexpr std::size_t kShown = 40;
    std::string out = "'";
    out.append(text.substr(0, kShown));
    if (text.size() > kShown) out += "...";
    return out + "'";
}

}  // namespace

// One parse: the text, the read position, the formula being built, the first error.
class KrvFormulaParser {
public:
    KrvFormulaParser(std::string_view text, const KrvFormulaNames& names, KrvFormula& out)
        : m_text(text), m_names(names), m_out(out) {}

    KrvFormulaError run() {
        if (m_text.size() > KrvFormula::kMaxLength)
            return fail(KrvFormula::kMaxLength,
                        "formula longer than " + std::to_string(KrvFormula::kMaxLength) + " bytes");
        skipBlanks();
        if (atEnd()) return fail(m_pos, "empty formula");
        if (!ternary()) return m_error;
        if (!atEnd()) return fail(m_pos, "unexpected " + describeHere());
        return {};
    }

private:
    // Precedence, lowest first: ?: | or || | and && | comparisons | + - | * / | unary - + not ! | ^
    bool ternary() {
        if (!enter()) return false;
        if (!logicalOr()) return false;
        if (accept("?")) {
            if (!ternary()) return false;
            if (!accept(":")) return expected("':' of the '?' operator");
            if (!ternary()) return false;
            emit(Op::Select);
        }
        --m_depth;
        return true;
    }

    // One level of left-associative binary operators: operand {operator operand}.
    struct Infix {
        std::string_view token;
        Op op;
        bool word;  // a keyword, which must not run into a name
    };
    template <std::size_t N>
    bool leftAssociative(bool (KrvFormulaParser::*operand)(), const Infix (&operators)[N]) {
        if (!(this->*operand)()) return false;
        for (;;) {
            const Infix* found = nullptr;
            for (const Infix& infix : operators)
                if (infix.word ? acceptWord(infix.token) : accept(infix.token)) {
                    found = &infix;
                    break;
                }
            if (!found) return true;
            if (!(this->*operand)()) return false;
            emit(found->op);
        }
    }

    bool logicalOr() {
        static constexpr Infix kOr[] = {{"or", Op::Or, true}, {"||", Op::Or, false}};
        return leftAssociative(&KrvFormulaParser::logicalAnd, kOr);
    }

    bool logicalAnd() {
        static constexpr Infix kAnd[] = {{"and", Op::And, true}, {"&&", Op::And, false}};
        return leftAssociative(&KrvFormulaParser::comparison, kAnd);
    }

    bool comparison() {
        static constexpr Infix kCompare[] = {{"<=", Op::Le, false}, {">=", Op::Ge, false}, {"==", Op::Eq, false},
                                             {"!=", Op::Ne, false}, {"<", Op::Lt, false},  {">", Op::Gt, false}};
        if (!leftAssociative(&KrvFormulaParser::additive, kCompare)) return false;
        if (peek() == '=') return fail(m_pos, "'=' is not an operator (compare with '==')"), false;
        return true;
    }

    bool additive() {
        static constexpr Infix kAdd[] = {{"+", Op::Add, false}, {"-", Op::Sub, false}};
        return leftAssociative(&KrvFormulaParser::multiplicative, kAdd);
    }

    bool multiplicative() {
        static constexpr Infix kMultiply[] = {{"*", Op::Mul, false}, {"/", Op::Div, false}};
        return leftAssociative(&KrvFormulaParser::unary, kMultiply);
    }

    // -2^2 is -(2^2); 2^-1 and 2^3^2 = 2^(3^2) read as in mathematics.
    bool unary() {
        Op op;
        if (accept("-")) op = Op::Neg;
        else if (accept("+")) op = Op::Add;  // no instruction
        else if (accept("!") || acceptWord("not")) op = Op::Not;
        else return power();
        if (!enter() || !unary()) return false;
        --m_depth;
        if (op != Op::Add) emit(op);
        return true;
    }

    bool power() {
        if (!primary()) return false;
        if (accept("^")) {
            if (!enter() || !unary()) return false;
            --m_depth;
            emit(Op::Pow);
        }
        return true;
    }

    bool primary() {
        const char c = peek();
        if (isDigit(c) || (c == '.' && m_pos + 1 < m_text.size() && isDigit(m_text[m_pos + 1]))) return number();
        if (isNameStart(c)) return nameOrCall();
        if (accept("(")) {
            if (!ternary()) return false;
            return accept(")") || expected("')'");
        }
        return expected("a number, a name, a function or '('");
    }

    bool number() {
        const std::size_t start = m_pos;
        while (m_pos < m_text.size() && isDigit(m_text[m_pos])) ++m_pos;
        if (m_pos < m_text.size() && m_text[m_pos] == '.') {
            ++m_pos;
            while (m_pos < m_text.size() && isDigit(m_text[m_pos])) ++m_pos;
        }
        bool hasExponent = false;
        bool negativeExponent = false;
        if (m_pos < m_text.size() && (m_text[m_pos] == 'e' || m_text[m_pos] == 'E')) {
            hasExponent = true;
            std::size_t p = m_pos + 1;
            if (p < m_text.size() && (m_text[p] == '+' || m_text[p] == '-')) negativeExponent = m_text[p++] == '-';
            if (p >= m_text.size() || !isDigit(m_text[p])) return fail(p, "exponent without digits"), false;
            while (p < m_text.size() && isDigit(m_text[p])) ++p;
            m_pos = p;
        }
        if (m_pos < m_text.size() && isNameChar(m_text[m_pos]))
            return fail(m_pos, "unexpected " + describeHere() + " after a number"), false;
        const std::string_view token = m_text.substr(start, m_pos - start);
        double value = 0.0;
        const auto [end, ec] = std::from_chars(token.data(), token.data() + token.size(), value);
        if (ec == std::errc::result_out_of_range) {
            // Too small to hold is zero; too large is refused.
            const std::size_t point = token.find('.');
            const bool tiny = hasExponent ? negativeExponent
                                          : point != std::string_view::npos && token.find_first_of("123456789") > point;
            if (!tiny) return fail(start, "number out of range " + quoted(token)), false;
            value = 0.0;
        } else if (ec != std::errc() || end != token.data() + token.size()) {
            return fail(start, "malformed number " + quoted(token)), false;
        }
        emitConstant(value);
        skipBlanks();
        return true;
    }

    bool nameOrCall() {
        const std::size_t start = m_pos;
        while (m_pos < m_text.size() && isNameChar(m_text[m_pos])) ++m_pos;
        const std::string_view name = m_text.substr(start, m_pos - start);
        skipBlanks();
        if (peek() == '(') {
            const Function* function = findFunction(name);
            if (!function) return fail(start, "unknown function " + quoted(name)), false;
            return call(*function, start);
        }
        if (findFunction(name)) return fail(start, "function " + quoted(name) + " needs its arguments"), false;
        if (name == "pi") return emitConstant(3.14159265358979323846), true;
        if (name == "e") return emitConstant(2.71828182845904523536), true;
        if (name == "and" || name == "or" || name == "not")
            return fail(start, "unexpected " + quoted(name)), false;
        std::string why;
        const int slot = m_names.resolve(name, why);
        if (slot < 0) return fail(start, why.empty() ? "unknown name " + quoted(name) : why), false;
        if (std::find(m_out.m_names.begin(), m_out.m_names.end(), name) == m_out.m_names.end())
            m_out.m_names.emplace_back(name);
        m_out.m_slotCount = std::max(m_out.m_slotCount, slot + 1);
        emit(Op::Var, static_cast<std::uint32_t>(slot));
        return true;
    }

    bool call(const Function& function, std::size_t start) {
        accept("(");
        int count = 0;
        do {
            if (!ternary()) return false;
            ++count;
            if (function.arguments < 0 && count > 1) emit(function.op);  // min and max fold pairwise
        } while (accept(","));
        if (!accept(")")) return expected("',' or ')'");
        const bool fits = function.arguments < 0 ? count >= -function.arguments : count == function.arguments;
        if (!fits) {
            const std::string wanted = function.arguments < 0 ? std::to_string(-function.arguments) + " or more"
                                                              : std::to_string(function.arguments);
            return fail(start, quoted(function.name) + " takes " + wanted + " argument" +
                                   (function.arguments == 1 ? "" : "s") + ", not " + std::to_string(count)),
                   false;
        }
        if (function.arguments > 0) emit(function.op);
        return true;
    }

    bool enter() {
        if (++m_depth > KrvFormula::kMaxNesting)
            return fail(m_pos, "nesting deeper than " + std::to_string(KrvFormula::kMaxNesting)), false;
        return true;
    }

    void emit(Op op, std::uint32_t arg = 0) {
        m_out.m_code.push_back({op, arg});
        m_stack += stackEffect(op);
        m_out.m_stackDepth = std::max(m_out.m_stackDepth, m_stack);
    }

    void emitConstant(double value) {
        m_out.m_constants.push_back(value);
        emit(Op::Const, static_cast<std::uint32_t>(m_out.m_constants.size() - 1));
        skipBlanks();
    }

    bool atEnd() const { return m_pos >= m_text.size(); }
    char peek() const { return atEnd() ? '\0' : m_text[m_pos]; }

    void skipBlanks() {
        while (m_pos < m_text.size() &&
               (m_text[m_pos] == ' ' || m_text[m_pos] == '\t' || m_text[m_pos] == '\n' || m_text[m_pos] == '\r'))
            ++m_pos;
    }

    bool accept(std::string_view token) {
        if (m_text.substr(m_pos, token.size()) != token) return false;
        m_pos += token.size();
        skipBlanks();
        return true;
    }

    bool acceptWord(std::string_view word) {
        if (m_text.substr(m_pos, word.size()) != word) return false;
        if (m_pos + word.size() < m_text.size() && isNameChar(m_text[m_pos + word.size()])) return false;
        return accept(word);
    }

    std::string describeHere() const {
        if (atEnd()) return "end of formula";
        const unsigned char c = static_cast<unsigned char>(m_text[m_pos]);
        if (c < 0x20 || c >= 0x7f) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "0x%02x", c);
            return std::string("byte ") + hex;
        }
        return "'" + std::string(1, static_cast<char>(c)) + "'";
    }

    bool expected(const std::string& what) { return fail(m_pos, "expected " + what + ", found " + describeHere()), false; }

    KrvFormulaError fail(std::size_t position, std::string reason) {
        if (m_error.ok()) m_error = {position, std::move(reason)};
        return m_error;
    }

    std::string_view m_text;
    const KrvFormulaNames& m_names;
    KrvFormula& m_out;
    std::size_t m_pos = 0;
    int m_depth = 0;
    int m_stack = 0;
    KrvFormulaError m_error;
};

KrvFormulaError KrvFormula::check(std::string_view text) {
    KrvFormula scratch;
    return scratch.compile(text, AnyName());
}

KrvFormulaError KrvFormula::compile(std::string_view text, const KrvFormulaNames& names) {
    clear();
    KrvFormulaError error = KrvFormulaParser(text, names, *this).run();
    if (!error.ok()) clear();
    return error;
}

void KrvFormula::clear() noexcept {
    m_code.clear();
    m_constants.clear();
    m_names.clear();
    m_slotCount = 0;
    m_stackDepth = 0;
}

namespace {

inline double truth(bool b) { return b ? 1.0 : 0.0; }

inline double unaryValue(Op op, double a) {
    switch (op) {
        case Op::Neg: return -a;
        case Op::Not: return truth(a == 0.0);
        case Op::Abs: return std::fabs(a);
        case Op::Sqrt: return std::sqrt(a);
        case Op::Exp: return std::exp(a);
        case Op::Log: return std::log(a);
        case Op::Log10: return std::log10(a);
        case Op::Sin: return std::sin(a);
        case Op::Cos: return std::cos(a);
        case Op::Tan: return std::tan(a);
        case Op::Asin: return std::asin(a);
        case Op::Acos: return std::acos(a);
        case Op::Atan: return std::atan(a);
        case Op::Floor: return std::floor(a);
        case Op::Ceil: return std::ceil(a);
        default: return std::round(a);
    }
}

inline double binaryValue(Op op, double a, double b) {
    switch (op) {
        case Op::Add: return a + b;
        case Op::Sub: return a - b;
        case Op::Mul: return a * b;
        case Op::Div: return a / b;
        case Op::Pow: return std::pow(a, b);
        case Op::Lt: return truth(a < b);
        case Op::Le: return truth(a <= b);
        case Op::Gt: return truth(a > b);
        case Op::Ge: return truth(a >= b);
        case Op::Eq: return truth(a == b);
        case Op::Ne: return truth(a != b);
        case Op::And: return truth(a != 0.0 && b != 0.0);
        case Op::Or: return truth(a != 0.0 || b != 0.0);
        case Op::Atan2: return std::atan2(a, b);
        case Op::Min: return std::fmin(a, b);
        default: return std::fmax(a, b);
    }
}

inline double clampValue(double x, double lo, double hi) { return std::fmin(std::fmax(x, lo), hi); }

bool isUnary(Op op) { return stackEffect(op) == 0; }

}  // namespace

double KrvFormula::evaluate(const double* slots) const noexcept {
    if (m_code.empty()) return 0.0;
    constexpr int kLocal = 64;
    std::array<double, kLocal> local;
    std::unique_ptr<double[]> heap;
    double* stack = local.data();
    if (m_stackDepth > kLocal) {
        heap.reset(new (std::nothrow) double[static_cast<std::size_t>(m_stackDepth)]);
        if (!heap) return std::nan("");
        stack = heap.get();
    }
    double* top = stack;  // one past the top value
    const double* constants = m_constants.data();
    for (const Instruction& in : m_code) {
        switch (in.op) {
            case Op::Const: *top++ = constants[in.arg]; break;
            case Op::Var: *top++ = slots[in.arg]; break;
            case Op::Add: --top; top[-1] += top[0]; break;
            case Op::Sub: --top; top[-1] -= top[0]; break;
            case Op::Mul: --top; top[-1] *= top[0]; break;
            case Op::Div: --top; top[-1] /= top[0]; break;
            case Op::Sqrt: top[-1] = std::sqrt(top[-1]); break;
            case Op::Neg: top[-1] = -top[-1]; break;
            case Op::Select: top -= 2; top[-1] = top[-1] != 0.0 ? top[0] : top[1]; break;
            case Op::Clamp: top -= 2; top[-1] = clampValue(top[-1], top[0], top[1]); break;
            default:
                if (isUnary(in.op)) {
                    top[-1] = unaryValue(in.op, top[-1]);
                } else {
                    --top;
                    top[-1] = binaryValue(in.op, top[-1], top[0]);
                }
        }
    }
    return top[-1];
}

namespace {

// The block evaluator's stack: level k reads `source[k]`, either a caller's column (a variable,
// read in place, never copied) or the level's own buffer, which an operation writes its result
// into. So a variable costs nothing and each operation is one tight loop over the block.
class BlockStack {
public:
    static constexpr std::size_t kBlock = 256;

    // Up to kLocal levels live on the machine stack: a call for one block allocates nothing.
    explicit BlockStack(std::size_t depth) {
        if (depth > kLocal) m_heap.resize(depth * kBlock), m_heapSource.resize(depth);
        m_store = depth > kLocal ? m_heap.data() : m_local.data();
        m_source = depth > kLocal ? m_heapSource.data() : m_localSource.data();
    }

    void push(std::size_t& depth, const double* column) { m_source[depth++] = column; }
    double* own(std::size_t level) { return m_store + level * kBlock; }
    const double* at(std::size_t level) const { return m_source[level]; }

    template <class F>
    void unary(std::size_t depth, std::size_t n, F f) {
        const double* a = m_source[depth - 1];
        double* t = own(depth - 1);
        for (std::size_t i = 0; i < n; ++i) t[i] = f(a[i]);
        m_source[depth - 1] = t;
    }
    template <class F>
    void binary(std::size_t& depth, std::size_t n, F f) {
        --depth;
        const double* a = m_source[depth - 1];
        const double* b = m_source[depth];
        double* t = own(depth - 1);  // never b: b is a column or the next level's buffer
        for (std::size_t i = 0; i < n; ++i) t[i] = f(a[i], b[i]);
        m_source[depth - 1] = t;
    }
    template <class F>
    void ternary(std::size_t& depth, std::size_t n, F f) {
        depth -= 2;
        const double* a = m_source[depth - 1];
        const double* b = m_source[depth];
        const double* c = m_source[depth + 1];
        double* t = own(depth - 1);
        for (std::size_t i = 0; i < n; ++i) t[i] = f(a[i], b[i], c[i]);
        m_source[depth - 1] = t;
    }

private:
    static constexpr std::size_t kLocal = 8;
    std::array<double, kLocal * kBlock> m_local;
    std::array<const double*, kLocal> m_localSource;
    std::vector<double> m_heap;
    std::vector<const double*> m_heapSource;
    double* m_store;
    const double** m_source;
};

}  // namespace

void KrvFormula::evaluate(const double* const* columns, std::size_t count, double* out) const {
    if (m_code.empty()) {
        std::fill(out, out + count, 0.0);
        return;
    }
    // A block of points goes through each instruction in turn, so each step is a tight loop
    // over the block rather than one dispatch per point.
    constexpr std::size_t kBlock = BlockStack::kBlock;
    BlockStack stack(static_cast<std::size_t>(m_stackDepth));
    for (std::size_t first = 0; first < count; first += kBlock) {
        const std::size_t n = std::min(kBlock, count - first);
        std::size_t depth = 0;  // levels in use
        for (const Instruction& in : m_code) {
            switch (in.op) {
                case Op::Const: {
                    double* t = stack.own(depth);
                    std::fill(t, t + n, m_constants[in.arg]);
                    stack.push(depth, t);
                    break;
                }
                case Op::Var: stack.push(depth, columns[in.arg] + first); break;
                case Op::Add: stack.binary(depth, n, [](double a, double b) { return a + b; }); break;
                case Op::Sub: stack.binary(depth, n, [](double a, double b) { return a - b; }); break;
                case Op::Mul: stack.binary(depth, n, [](double a, double b) { return a * b; }); break;
                case Op::Div: stack.binary(depth, n, [](double a, double b) { return a / b; }); break;
                case Op::Sqrt: stack.unary(depth, n, [](double a) { return std::sqrt(a); }); break;
                case Op::Neg: stack.unary(depth, n, [](double a) { return -a; }); break;
                case Op::Select:
                    stack.ternary(depth, n, [](double c, double a, double b) { return c != 0.0 ? a : b; });
                    break;
                case Op::Clamp: stack.ternary(depth, n, clampValue); break;
                default:
                    if (isUnary(in.op))
                        stack.unary(depth, n, [op = in.op](double a) { return unaryValue(op, a); });
                    else
                        stack.binary(depth, n, [op = in.op](double a, double b) { return binaryValue(op, a, b); });
            }
        }
        std::copy(stack.at(0), stack.at(0) + n, out + first);
    }
}

std::string KrvFormula::disassemble() const {
    std::string out;
    for (const Instruction& in : m_code) {
        out += opName(in.op);
        if (in.op == Op::Const) {
            char value[32];
            std::snprintf(value, sizeof value, " %.17g", m_constants[in.arg]);
            out += value;
        } else if (in.op == Op::Var) {
            out += " " + std::to_string(in.arg);
        }
        out += '\n';
    }
    return out;
}
