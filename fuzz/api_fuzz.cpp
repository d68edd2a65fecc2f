// Model-based fuzzing of the exported functions: the input is read as a sequence of calls with
// their arguments (names from a small alphabet plus hostile ones, values of any bit pattern,
// negative and huge counts). A plain model of the stores, written from the functions' documented
// behaviour, runs beside the library; after each call the result and every name list must agree,
// or the run aborts with both sides printed. Measure groups, user measures and measure parameters
// are called too.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_process/MeasureInfo.h>
#include <vantry_util/KrvBaseException.h>

namespace {

// The input, read from the front; zeros once it runs out.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    bool empty() const { return m_pos >= m_size; }
    std::uint8_t byte() { return m_pos < m_size ? m_data[m_pos++] : 0; }
    std::int32_t int32() {
        std::uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
        return static_cast<std::int32_t>(v);
    }
    // Small values mostly, the extremes sometimes.
    int count() {
        const std::uint8_t b = byte();
        if (b < 240) return b % 24;
        const int extremes[] = {-1, -2147483647 - 1, 2147483647, 255, 256, 1000, 65536, -7,
                                1 << 30, 0,  1, 2, 3, 4, 5, 6};
        return extremes[b - 240];
    }
    float real() {
        std::uint32_t bits = 0;
        for (int i = 0; i < 4; ++i) bits = (bits << 8) | byte();
        float v;
        std::memcpy(&v, &bits, sizeof v);
        return v;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_pos = 0;
};

const std::vector<std::string>& names() {
    static const std::vector<std::string> table{
        "a", "b", "c", "Grey", " lead", "ü", std::string(255, 'n'), std::string(256, 'n'),
        "", std::string("a\0b", 3), "tab\there", "del\x7f", "none", "A", "a "};
    return table;
}

// Byte 255 picks a name of 1 MiB, once per input and only in inputs whose length is a multiple
// of 32: each use copies it several times, each copy a fresh mapping under asan (a group keeps
// it, and every list check copies it again), and allowed in every input it took most of the
// run's time.
const std::string& pickName(std::uint8_t b, bool& hugeUsed) {
    static const std::string huge(1 << 20, 'L');
    if (b == 255 && !hugeUsed) {
        hugeUsed = true;
        return huge;
    }
    return names()[b % names().size()];
}

bool validName(const std::string& name) {
    if (name.empty() || name.size() > 255) return false;
    for (const unsigned char c : name)
        if (c < 0x20 || c == 0x7f) return false;
    return true;
}

// Formulas whose fate is known: accepted, refused by the syntax check, refused by the filter
// (a name outside the image vocabulary, text after a NUL).
enum class Fate { Valid, BadSyntax, Refused };
struct Formula {
    std::string text;
    Fate fate;
};
const std::vector<Formula>& formulas() {
    static const std::vector<Formula> table{
        {"I1+1", Fate::Valid},         {"X*Y-Z", Fate::Valid},      {"(I9/2)+I3", Fate::Valid},
        {"I1+", Fate::BadSyntax},      {"((I1)", Fate::BadSyntax},  {"1+*2", Fate::BadSyntax},
        {"Q1+1", Fate::Refused},       {"I10", Fate::Refused},      {std::string("I1+1\0+", 6), Fate::Refused}};
    return table;
}

// Measure names a group may take: native ones, a reserved user measure, and the name alphabet
// (user measures when made).
const std::vector<std::string>& nativeMeasures() {
    static const std::vector<std::string> table{"Area", "Perimeter", "FeretMax", "IntensityPercentile", "Length3d"};
    return table;
}
bool isNative(const std::string& name) {
    for (const auto& n : nativeMeasures())
        if (n == name) return true;
    return false;
}
const std::string& pickMeasure(std::uint8_t b, bool& hugeUsed) {
    static const std::string reserved = "ClassId";
    if (b % 4 == 0) return nativeMeasures()[(b / 4) % nativeMeasures().size()];
    if (b % 4 == 1) return reserved;
    return pickName(b, hugeUsed);
}

// Measure formulas and IP functions whose fate is known; formulas naming "a" or "b" are
// accepted only while that user measure exists and is not the one being made.
struct Definition {
    std::string text;
    Fate fate;
    const char* reads;  // the user measure the formula needs, or null
};
const std::vector<Definition>& measureFormulas() {
    static const std::vector<Definition> table{
        {"Area*2", Fate::Valid, nullptr},   {"Perimeter/Area+1", Fate::Valid, nullptr},
        {"a+1", Fate::Valid, "a"},          {"b*Area", Fate::Valid, "b"},
        {"Area+", Fate::BadSyntax, nullptr}, {"Nope+1", Fate::Refused, nullptr},
        {"ClassId*2", Fate::Valid, nullptr}, {std::string("Area\0+", 6), Fate::Refused, nullptr}};
    return table;
}
const std::vector<Formula>& ipFunctions() {
    static const std::vector<Formula> table{{"ConvexArea", Fate::Valid},  {"HoleCount", Fate::Valid},
                                            {"Nope", Fate::Refused},       {"1bad", Fate::BadSyntax},
                                            {"", Fate::BadSyntax},         {"Convex Area", Fate::BadSyntax}};
    return table;
}

template <class T>
struct Entry {
    std::string name;
    T value;
};

// An ordered store of named entries, as the suite's handlers keep them.
template <class T>
struct Store {
    std::vector<Entry<T>> entries;
    T* find(const std::string& name) {
        for (auto& e : entries)
            if (e.name == name) return &e.value;
        return nullptr;
    }
    bool add(const std::string& name, T value) {
        if (!validName(name) || find(name)) return false;
        entries.push_back({name, std::move(value)});
        return true;
    }
    bool erase(const std::string& name) {
        for (auto it = entries.begin(); it != entries.end(); ++it)
            if (it->name == name) {
                entries.erase(it);
                return true;
            }
        return false;
    }
    std::vector<std::string> list(bool (*keep)(const T&) = nullptr) const {
        std::vector<std::string> out;
        for (const auto& e : entries)
            if (!keep || keep(e.value)) out.push_back(e.name);
        return out;
    }
};

struct Lut {
    bool morpho;
    std::vector<int> values;
    int flag1, flag2;
};
bool plainLut(const Lut& l) { return !l.morpho; }
bool morphoLut(const Lut& l) { return l.morpho; }

struct Model {
    Store<std::string> filters;
    Store<Lut> luts;
    Store<std::vector<float>> sieves;
    Store<int> segments;
    Store<std::vector<std::string>> groups;  // group names are not checked: use groupAt
    struct UserMeasure {
        std::string definition;
        int unitDim;
    };
    Store<UserMeasure> userMeasures;
    int memory = 0;
    std::uint64_t used = 0;  // bytes the budget holds: table and sieve values
    bool hugeUsed = false;

    // Nothing to hold fits any budget, even one already passed (the limit lowered below what the
    // stores hold): an empty table is made whatever the limit.
    bool fits(std::uint64_t bytes) const {
        if (bytes == 0) return true;
        const auto limit = static_cast<std::uint64_t>(static_cast<std::int64_t>(memory));
        return limit == 0 || (bytes <= limit && used <= limit - bytes);
    }
    std::uint64_t bytesOf(const Lut& l) const { return l.values.size() * sizeof(int); }

    std::vector<std::string>& groupAt(const std::string& name) {
        if (auto* g = groups.find(name)) return *g;
        groups.entries.push_back({name, {}});
        return groups.entries.back().value;
    }
    bool measureExists(const std::string& name) {
        return isNative(name) || name == "ClassId" || userMeasures.find(name) != nullptr;
    }
};

[[noreturn]] void mismatch(const char* call, const std::string& name, const std::string& library,
                           const std::string& model) {
    std::fprintf(stderr, "%s(%.40s...): library %s, model %s\n", call, name.c_str(), library.c_str(), model.c_str());
    std::abort();
}

void expect(bool same, const char* call, const std::string& name, const std::string& library = "?",
            const std::string& model = "?") {
    if (!same) mismatch(call, name, library, model);
}

std::string str(const std::vector<std::string>& v) {
    std::string out = "[";
    for (const auto& s : v) out += s.substr(0, 20) + ",";
    return out + "]";
}

bool sameBits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}

void checkLists(const Model& m) {
    expect(getFilterList() == m.filters.list(), "getFilterList", "", str(getFilterList()), str(m.filters.list()));
    expect(getLutList() == m.luts.list(&plainLut), "getLutList", "", str(getLutList()), str(m.luts.list(&plainLut)));
    expect(getMorphoLutList() == m.luts.list(&morphoLut), "getMorphoLutList", "");
    expect(getSieveList() == m.sieves.list(), "getSieveList", "", str(getSieveList()), str(m.sieves.list()));
    expect(getSegmentList() == m.segments.list(), "getSegmentList", "");
    expect(getExtraMemUsage() == m.memory, "getExtraMemUsage", "");
    expect(getMsrGrpList() == m.groups.list(), "getMsrGrpList", "", str(getMsrGrpList()), str(m.groups.list()));
    expect(getUsrMsrList() == m.userMeasures.list(), "getUsrMsrList", "", str(getUsrMsrList()),
           str(m.userMeasures.list()));
}

void clearLibrary() {
    removeAllFilters();
    for (const auto& n : getLutList()) removeLut(n);
    for (const auto& n : getMorphoLutList()) removeLut(n);
    for (const auto& n : getSieveList()) removeSieve(n);
    for (const auto& n : getSegmentList()) removeSegment(n);
    setExtraMemUsage(0);
    removeAllMsrGrp();
    removeAllUsrMsr();
}

// A user measure's creation: the name as far as its first NUL is the one the suite stores.
void createUserMeasure(Model& m, const std::string& name, bool byFormula, Input& in) {
    const std::string stored(name.c_str());
    const std::int32_t dim = in.byte() < 200 ? in.byte() % 8 : in.int32();
    bool made = false;
    std::string text;
    if (byFormula) {
        const Definition& d = measureFormulas()[in.byte() % measureFormulas().size()];
        text = d.text;
        const bool reads = d.reads == nullptr || (stored != d.reads && m.userMeasures.find(d.reads) != nullptr);
        made = d.fate == Fate::Valid && reads && validName(stored) && !m.userMeasures.find(stored);
        expect(createUsrMsrByFormula(name, text, static_cast<eMsrUnitDim>(dim)) == made, "createUsrMsrByFormula",
               name);
    } else {
        const Formula& f = ipFunctions()[in.byte() % ipFunctions().size()];
        text = f.text;
        made = f.fate == Fate::Valid && validName(stored) && !m.userMeasures.find(stored);
        expect(createUsrMsrByIPFunction(name, text, static_cast<eMsrUnitDim>(dim)) == made,
               "createUsrMsrByIPFunction", name);
    }
    if (made) m.userMeasures.add(stored, {text, dim >= 0 && dim <= 7 ? 5 - dim : 0});
}

// Parameters: what a native measure holds after a refused change is what it held before, and
// after an accepted one exactly the values given.
void setParams(const std::string& name, Input& in) {
    std::vector<float> values(static_cast<std::size_t>(in.byte() % 16));
    for (float& v : values) v = in.byte() < 128 ? static_cast<float>(in.byte() % 181) : in.real();
    const std::vector<float> before = getMsrParams(name);
    const bool set = setMsrParams(name, values);
    expect(!set || isNative(name), "setMsrParams", name);
    expect(sameBits(getMsrParams(name), set ? values : before), "setMsrParams (values)", name);
}

void measureStep(std::uint8_t op, Input& in, Model& m, const std::string& name) {
    switch (op) {
    case 0:
        addMsrGrp(name);
        m.groupAt(name).clear();
        break;
    case 1: {
        const std::string& measure = pickMeasure(in.byte(), m.hugeUsed);
        const bool known = m.measureExists(measure);
        if (known) m.groupAt(name).push_back(measure);
        expect(addMsrToMsrGrp(name, measure) == known, "addMsrToMsrGrp", measure);
        break;
    }
    case 2: {
        const std::string& measure = pickMeasure(in.byte(), m.hugeUsed);
        removeMsrFromMsrGrp(name, measure);
        if (auto* g = m.groups.find(name))
            for (auto it = g->begin(); it != g->end(); ++it)
                if (*it == measure) {
                    g->erase(it);
                    break;
                }
        break;
    }
    case 3:
        removeMsrGrp(name);
        m.groups.erase(name);
        break;
    case 4:
        removeAllMsrGrp();
        m.groups.entries.clear();
        break;
    case 5: {
        const auto* g = m.groups.find(name);
        expect(getMsrGrpMsrList(name) == (g ? *g : std::vector<std::string>()), "getMsrGrpMsrList", name);
        break;
    }
    case 6:
    case 7:
        createUserMeasure(m, name, op == 6, in);
        break;
    case 8: {
        const auto* u = m.userMeasures.find(name);
        expect(getUsrMsrFormula(name) == (u ? u->definition : std::string()), "getUsrMsrFormula", name);
        break;
    }
    case 9:
        removeUsrMsr(name);
        m.userMeasures.erase(std::string(name.c_str()));
        break;
    case 10:
        removeAllUsrMsr();
        m.userMeasures.entries.clear();
        break;
    case 11: {
        const std::string& measure = pickMeasure(in.byte(), m.hugeUsed);
        MeasureInfo info;
        const auto* u = m.userMeasures.find(measure);
        const bool found = getMsrInfo(measure, info);
        expect(found == m.measureExists(measure), "getMsrInfo", measure);
        expect(!u || (info.isUser && info.unitDim == u->unitDim && info.description == u->definition),
               "getMsrInfo (user measure)", measure);
        break;
    }
    default:
        setParams(pickMeasure(in.byte(), m.hugeUsed), in);
        break;
    }
}

// The calls that only read: the lists are compared after every other call and at the end of
// an input (copying every list after every call took half the run).
bool onlyReads(std::uint8_t op) {
    switch (op) {
    case 1: case 4: case 6: case 9: case 10: case 14: case 17: case 18: case 19: case 22: case 23:
    case 24 + 5: case 24 + 8: case 24 + 11: case 24 + 12:
        return true;
    default:
        return false;
    }
}

// One call and its check against the model; the call's number, for the caller.
std::uint8_t step(Input& in, Model& m) {
    const std::uint8_t op = in.byte() % 37;
    const std::string& name = pickName(in.byte(), m.hugeUsed);
    static const bool trace = std::getenv("KAPI_FUZZ_TRACE") != nullptr;  // each call on stderr
    if (trace)
        std::fprintf(stderr, "call %d on \"%.20s\" (memory %d, model holds %llu bytes)\n", op, name.c_str(), m.memory,
                     static_cast<unsigned long long>(m.used));
    if (op >= 24) {
        measureStep(static_cast<std::uint8_t>(op - 24), in, m, name);
        return op;
    }
    switch (op) {
    case 0: {
        const Formula& f = formulas()[in.byte() % formulas().size()];
        const bool made = f.fate == Fate::Valid && validName(name) && !m.filters.find(name);
        if (made) m.filters.add(name, f.text);
        expect(createFilter(name, f.text) == made, "createFilter", name);
        break;
    }
    case 1: {
        const std::string* f = m.filters.find(name);
        expect(getFilterFormula(name) == (f ? *f : std::string()), "getFilterFormula", name);
        break;
    }
    case 2:
        removeFilter(name);
        m.filters.erase(name);
        break;
    case 3:
        removeAllFilters();
        m.filters.entries.clear();
        break;
    case 4: {
        const Formula& f = formulas()[in.byte() % formulas().size()];
        if (f.text.find('\0') == std::string::npos)
            expect(isValidImageFormula(f.text.c_str()) == (f.fate == Fate::Valid), "isValidImageFormula", f.text);
        break;
    }
    case 5: {
        std::vector<int> values(static_cast<std::size_t>(in.byte() % 40));
        for (int& v : values) v = in.int32();
        Lut lut{false, values, 0, 0};
        const bool made = validName(name) && !m.luts.find(name) && m.fits(m.bytesOf(lut));
        if (made) {
            m.used += m.bytesOf(lut);
            m.luts.add(name, lut);
        }
        expect(createLut(name, values) == made, "createLut", name);
        break;
    }
    case 6: {
        const Lut* lut = m.luts.find(name);
        expect(getLutValues(name) == (lut ? lut->values : std::vector<int>()), "getLutValues", name);
        break;
    }
    case 7:
    case 12: {
        const Lut* lut = m.luts.find(name);
        if (op == 12) {
            expect(removeMorphoLut(name), "removeMorphoLut", name);
            if (lut == nullptr || !lut->morpho) break;
        } else {
            removeLut(name);
        }
        if (lut) m.used -= m.bytesOf(*lut);
        m.luts.erase(name);
        break;
    }
    case 8: {
        // Sizes past 64 come with a null array only: a size above what the array holds would be
        // the caller's fault, not the library's.
        const int size = in.count();
        const bool null = size > 64 || (in.byte() & 1) != 0;
        const int flag1 = in.int32(), flag2 = in.int32();
        std::vector<int> values(size > 0 && size <= 64 ? static_cast<std::size_t>(size) : 0);
        for (int& v : values) v = in.int32();
        const bool sizeOk = size == 0 || (size > 0 && !null);
        Lut lut{true, values, flag1, flag2};
        const bool made = sizeOk && validName(name) && !m.luts.find(name) && m.fits(m.bytesOf(lut));
        if (made) {
            m.used += m.bytesOf(lut);
            m.luts.add(name, lut);
        }
        expect(createMorphoLut(name, null ? nullptr : values.data(), size, flag1, flag2) == made, "createMorphoLut",
               name);
        break;
    }
    case 9: {
        int* values = nullptr;
        int size = -5;
        const Lut* lut = m.luts.find(name);
        const bool ok = getMorphoLutDataPtr(name, values, size);
        if (!lut || lut->values.empty()) {
            expect(!ok && size == 0 && !values, "getMorphoLutDataPtr", name);
        } else {
            expect(ok && size == static_cast<int>(lut->values.size()) &&
                       std::memcmp(values, lut->values.data(), lut->values.size() * sizeof(int)) == 0,
                   "getMorphoLutDataPtr", name);
        }
        break;
    }
    case 10: {
        int f1 = 7, f2 = 7;
        const Lut* lut = m.luts.find(name);
        const bool ok = getMorphoLutFlags(name, f1, f2);
        expect(ok == (lut != nullptr) && f1 == (lut ? lut->flag1 : -1) && f2 == (lut ? lut->flag2 : -1),
               "getMorphoLutFlags", name);
        break;
    }
    case 11: {
        const int f1 = in.int32(), f2 = in.int32();
        Lut* lut = m.luts.find(name);
        if (lut) {
            lut->flag1 = f1;
            lut->flag2 = f2;
        }
        expect(setMorphoLutFlags(name, f1, f2) == (lut != nullptr), "setMorphoLutFlags", name);
        break;
    }
    case 13: {
        std::vector<float> values(static_cast<std::size_t>(in.byte() % 40));
        for (float& v : values) v = in.real();
        const bool made = validName(name) && !m.sieves.find(name);
        const std::uint64_t bytes = values.size() * sizeof(float);
        const bool held = made && !values.empty() && m.fits(bytes);
        if (made) m.sieves.add(name, held ? values : std::vector<float>());
        if (held) m.used += bytes;
        bool threw = false, result = false;
        try {
            result = createSieve(name, values);
        } catch (const KrvBaseException&) {
            threw = true;
        }
        expect(threw == (made && !values.empty() && !held), "createSieve (exception)", name);
        expect(threw || result == made, "createSieve", name);
        break;
    }
    case 14: {
        const std::vector<float>* values = m.sieves.find(name);
        expect(sameBits(getSieveParams(name), values ? *values : std::vector<float>()), "getSieveParams", name);
        break;
    }
    case 15: {
        const std::vector<float>* values = m.sieves.find(name);
        if (values) m.used -= values->size() * sizeof(float);
        removeSieve(name);
        m.sieves.erase(name);
        break;
    }
    case 16:
        expect(createSegment(name) == m.segments.add(name, 0), "createSegment", name);
        break;
    case 17:
        expect(getNbChain(name) == (m.segments.find(name) ? 0 : -1), "getNbChain", name);
        break;
    case 18:
        expect(getNbItems(name, in.count()) == -1, "getNbItems", name);  // no object has chains
        break;
    case 19: {
        float x1 = 1, y1 = 2, x2 = 3, y2 = 4;
        const int chain = in.count(), item = in.count();
        expect(!getSegment(name, chain, item, x1, y1, x2, y2) && x1 == 1 && y2 == 4, "getSegment", name);
        break;
    }
    case 20:
        expect(removeSegment(name) == m.segments.erase(name), "removeSegment", name);
        break;
    case 21: {
        const std::uint8_t kind = in.byte() % 4;
        const int value = kind == 0 ? 0 : kind == 1 ? -1 : kind == 2 ? static_cast<int>(in.count() * 64LL) : in.int32();
        setExtraMemUsage(value);
        m.memory = value;
        break;
    }
    case 22:
        expect(getExtraMemUsage() == m.memory, "getExtraMemUsage", name);
        break;
    default: {
        CProCmd* info = getCmdInfo(name);
        bool listed = false;
        for (const std::string& command : getCmdNameColl()) listed = listed || command == name;
        expect(!listed || info != nullptr, "getCmdInfo", name);
        break;
    }
    }
    return op;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    initKorvaneAPI(nullptr);
    std::atexit(&endKorvaneAPI);  // the suite's services go before the leak check at exit
    getKorvaneAPILogger().setLogLevel(static_cast<int>(KrvLoggerLevel::Off));
    return 0;
}

// The stores are emptied after each input, so that an input frees what it made and the leak
// check runs only when something was lost.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Model model;
    model.hugeUsed = size % 32 != 0;
    Input in(data, size);
    for (int calls = 0; !in.empty() && calls < 64; ++calls)
        if (!onlyReads(step(in, model))) checkLists(model);
    checkLists(model);
    clearLibrary();
    return 0;
}
