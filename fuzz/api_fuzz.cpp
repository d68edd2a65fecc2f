// Model-based fuzzing of the exported functions: the input is read as a sequence of calls with
// their arguments (names from a small alphabet plus hostile ones, values of any bit pattern,
// negative and huge counts). A plain model of the stores, written from the functions' documented
// behaviour, runs beside the library; after each call the result and every name list must agree,
// or the run aborts with both sides printed. Measure groups, user measures and measure parameters
// are called too. The calls are a table (kCalls): an input's bytes pick them by their place in it.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>
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
        static const int extremes[] = {-1, -2147483647 - 1, 2147483647, 255, 256, 1000, 65536, -7,
                                       1 << 30, 0,  1, 2, 3, 4, 5, 6};
        const std::uint8_t b = byte();
        return b < 240 ? b % 24 : extremes[b - 240];
    }
    float real() {
        const std::int32_t bits = int32();
        float v;
        std::memcpy(&v, &bits, sizeof v);
        return v;
    }
    template <class T>
    const T& pick(const std::vector<T>& table) {
        return table[byte() % table.size()];
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_pos = 0;
};

const std::vector<std::string> kNames{
    "a", "b", "c", "Grey", " lead", "ü", std::string(255, 'n'), std::string(256, 'n'),
    "", std::string("a\0b", 3), "tab\there", "del\x7f", "none", "A", "a "};

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
    return kNames[b % kNames.size()];
}

bool validName(const std::string& name) {
    const auto control = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
    return !name.empty() && name.size() <= 255 && std::none_of(name.begin(), name.end(), control);
}

// Formulas whose fate is known: accepted, refused by the syntax check, refused by the filter
// (a name outside the image vocabulary, text after a NUL). A measure formula naming "a" or "b"
// is accepted only while that user measure exists and is not the one being made.
enum class Fate { Valid, BadSyntax, Refused };
struct Formula {
    std::string text;
    Fate fate;
    const char* reads = nullptr;  // the user measure the formula needs
};
const std::vector<Formula> kFormulas{
    {"I1+1", Fate::Valid},         {"X*Y-Z", Fate::Valid},      {"(I9/2)+I3", Fate::Valid},
    {"I1+", Fate::BadSyntax},      {"((I1)", Fate::BadSyntax},  {"1+*2", Fate::BadSyntax},
    {"Q1+1", Fate::Refused},       {"I10", Fate::Refused},      {std::string("I1+1\0+", 6), Fate::Refused}};
const std::vector<Formula> kMeasureFormulas{
    {"Area*2", Fate::Valid},     {"Perimeter/Area+1", Fate::Valid}, {"a+1", Fate::Valid, "a"},
    {"b*Area", Fate::Valid, "b"}, {"Area+", Fate::BadSyntax},        {"Nope+1", Fate::Refused},
    {"ClassId*2", Fate::Valid},  {std::string("Area\0+", 6), Fate::Refused}};
const std::vector<Formula> kIpFunctions{{"ConvexArea", Fate::Valid}, {"HoleCount", Fate::Valid},
                                        {"Nope", Fate::Refused},      {"1bad", Fate::BadSyntax},
                                        {"", Fate::BadSyntax},        {"Convex Area", Fate::BadSyntax}};

// Measure names a group may take: native ones, a reserved user measure, and the name alphabet
// (user measures when made).
const std::vector<std::string> kNative{"Area", "Perimeter", "FeretMax", "IntensityPercentile", "Length3d"};
bool isNative(const std::string& name) { return std::find(kNative.begin(), kNative.end(), name) != kNative.end(); }

template <class T>
std::uint64_t bytesOf(const std::vector<T>& values) {
    return values.size() * sizeof(T);
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
    typename std::vector<Entry<T>>::iterator at(const std::string& name) {
        return std::find_if(entries.begin(), entries.end(), [&](const Entry<T>& e) { return e.name == name; });
    }
    T* find(const std::string& name) {
        const auto it = at(name);
        return it == entries.end() ? nullptr : &it->value;
    }
    bool add(const std::string& name, T value) {
        if (!validName(name) || find(name)) return false;
        entries.push_back({name, std::move(value)});
        return true;
    }
    bool erase(const std::string& name) {
        const auto it = at(name);
        const bool found = it != entries.end();
        if (found) entries.erase(it);
        return found;
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
    std::pair<int, int> flags;
};

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
    bool hugeUsed = false;

    // The bytes the budget holds: table and sieve values.
    std::uint64_t used() const {
        std::uint64_t bytes = 0;
        for (const auto& e : luts.entries) bytes += bytesOf(e.value.values);
        for (const auto& e : sieves.entries) bytes += bytesOf(e.value);
        return bytes;
    }
    // Nothing to hold fits any budget, even one already passed (the limit lowered below what the
    // stores hold): an empty table is made whatever the limit.
    bool fits(std::uint64_t bytes) const {
        if (bytes == 0) return true;
        const auto limit = static_cast<std::uint64_t>(static_cast<std::int64_t>(memory));
        return limit == 0 || (bytes <= limit && used() <= limit - bytes);
    }
    std::vector<std::string>& groupAt(const std::string& name) {
        if (auto* g = groups.find(name)) return *g;
        groups.entries.push_back({name, {}});
        return groups.entries.back().value;
    }
    bool measureExists(const std::string& name) {
        return isNative(name) || name == "ClassId" || userMeasures.find(name) != nullptr;
    }
};

void expect(bool same, const char* call, const std::string& name, const std::string& library = "?",
            const std::string& model = "?") {
    if (same) return;
    std::fprintf(stderr, "%s(%.40s...): library %s, model %s\n", call, name.c_str(), library.c_str(), model.c_str());
    std::abort();
}

// A look-up against the model's entry, or the empty value for a name the model does not hold.
template <class V>
void expectEntry(const V& library, const V* model, const char* call, const std::string& name) {
    expect(library == (model ? *model : V()), call, name);
}

std::string str(const std::vector<std::string>& v) {
    std::string out = "[";
    for (const auto& s : v) out += s.substr(0, 20) + ",";
    return out + "]";
}

void expectList(const std::vector<std::string>& library, const std::vector<std::string>& model, const char* call) {
    if (library != model) expect(false, call, "", str(library), str(model));
}

bool sameBits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}

void checkLists(const Model& m) {
    expectList(getFilterList(), m.filters.list(), "getFilterList");
    expectList(getLutList(), m.luts.list([](const Lut& l) { return !l.morpho; }), "getLutList");
    expectList(getMorphoLutList(), m.luts.list([](const Lut& l) { return l.morpho; }), "getMorphoLutList");
    expectList(getSieveList(), m.sieves.list(), "getSieveList");
    expectList(getSegmentList(), m.segments.list(), "getSegmentList");
    expect(getExtraMemUsage() == m.memory, "getExtraMemUsage", "");
    expectList(getMsrGrpList(), m.groups.list(), "getMsrGrpList");
    expectList(getUsrMsrList(), m.userMeasures.list(), "getUsrMsrList");
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

// One call being made: the input it reads its arguments from, the model, the name it was given.
struct Step {
    Input& in;
    Model& m;
    const std::string& name;

    const std::string& measure() {
        static const std::string reserved = "ClassId";
        const std::uint8_t b = in.byte();
        if (b % 4 == 0) return kNative[(b / 4) % kNative.size()];
        if (b % 4 == 1) return reserved;
        return pickName(b, m.hugeUsed);
    }
};

// A user measure's creation: the name as far as its first NUL is the one the suite stores.
void createUserMeasure(Step& s, bool byFormula) {
    const std::string stored(s.name.c_str());
    const std::int32_t dim = s.in.byte() < 200 ? s.in.byte() % 8 : s.in.int32();
    const Formula& d = s.in.pick(byFormula ? kMeasureFormulas : kIpFunctions);
    const bool reads = d.reads == nullptr || (stored != d.reads && s.m.userMeasures.find(d.reads) != nullptr);
    const bool made = d.fate == Fate::Valid && reads && validName(stored) && !s.m.userMeasures.find(stored);
    const auto unit = static_cast<eMsrUnitDim>(dim);
    if (byFormula)
        expect(createUsrMsrByFormula(s.name, d.text, unit) == made, "createUsrMsrByFormula", s.name);
    else
        expect(createUsrMsrByIPFunction(s.name, d.text, unit) == made, "createUsrMsrByIPFunction", s.name);
    if (made) s.m.userMeasures.add(stored, {d.text, dim >= 0 && dim <= 7 ? 5 - dim : 0});
}

// Parameters: what a native measure holds after a refused change is what it held before, and
// after an accepted one exactly the values given.
void setParams(Step& s) {
    const std::string& name = s.measure();
    std::vector<float> values(static_cast<std::size_t>(s.in.byte() % 16));
    for (float& v : values) v = s.in.byte() < 128 ? static_cast<float>(s.in.byte() % 181) : s.in.real();
    const std::vector<float> before = getMsrParams(name);
    const bool set = setMsrParams(name, values);
    expect(!set || isNative(name), "setMsrParams", name);
    expect(sameBits(getMsrParams(name), set ? values : before), "setMsrParams (values)", name);
}

// A call changes the stores or only reads them: the lists are compared after each call that
// changes them and at the end of an input (copying every list after every call took half the run).
enum Kind { Reads, Changes };
struct Call {
    Kind kind;
    void (*run)(Step&);
};

// The input's byte modulo the table's size picks a call: the corpus holds on to this order.
const Call kCalls[] = {
    {Changes, [](Step& s) {  // 0
         const Formula& f = s.in.pick(kFormulas);
         const bool made = f.fate == Fate::Valid && s.m.filters.add(s.name, f.text);
         expect(createFilter(s.name, f.text) == made, "createFilter", s.name);
     }},
    {Reads, [](Step& s) {
         expectEntry(getFilterFormula(s.name), s.m.filters.find(s.name), "getFilterFormula", s.name);
     }},
    {Changes, [](Step& s) { removeFilter(s.name); s.m.filters.erase(s.name); }},
    {Changes, [](Step& s) { removeAllFilters(); s.m.filters.entries.clear(); }},
    {Reads, [](Step& s) {
         const Formula& f = s.in.pick(kFormulas);
         if (f.text.find('\0') == std::string::npos)
             expect(isValidImageFormula(f.text.c_str()) == (f.fate == Fate::Valid), "isValidImageFormula", f.text);
     }},
    {Changes, [](Step& s) {  // 5
         std::vector<int> values(static_cast<std::size_t>(s.in.byte() % 40));
         for (int& v : values) v = s.in.int32();
         const bool made = s.m.fits(bytesOf(values)) && s.m.luts.add(s.name, {false, values, {0, 0}});
         expect(createLut(s.name, values) == made, "createLut", s.name);
     }},
    {Reads, [](Step& s) {
         const Lut* lut = s.m.luts.find(s.name);
         expectEntry(getLutValues(s.name), lut ? &lut->values : nullptr, "getLutValues", s.name);
     }},
    {Changes, [](Step& s) { removeLut(s.name); s.m.luts.erase(s.name); }},
    {Changes, [](Step& s) {
         // Sizes past 64 come with a null array only: a size above what the array holds would be
         // the caller's fault, not the library's.
         const int size = s.in.count();
         const bool null = size > 64 || (s.in.byte() & 1) != 0;
         const int flag1 = s.in.int32(), flag2 = s.in.int32();
         std::vector<int> values(size > 0 && size <= 64 ? static_cast<std::size_t>(size) : 0);
         for (int& v : values) v = s.in.int32();
         const bool sizeOk = size == 0 || (size > 0 && !null);
         const bool made = sizeOk && s.m.fits(bytesOf(values)) && s.m.luts.add(s.name, {true, values, {flag1, flag2}});
         expect(createMorphoLut(s.name, null ? nullptr : values.data(), size, flag1, flag2) == made,
                "createMorphoLut", s.name);
     }},
    {Reads, [](Step& s) {
         int* values = nullptr;
         int size = -5;
         const Lut* lut = s.m.luts.find(s.name);
         const std::vector<int> held = lut ? lut->values : std::vector<int>();  // none for an empty table
         const bool ok = getMorphoLutDataPtr(s.name, values, size);
         expect(ok == !held.empty() && size == static_cast<int>(held.size()) &&
                    (held.empty() ? values == nullptr : std::equal(held.begin(), held.end(), values)),
                "getMorphoLutDataPtr", s.name);
     }},
    {Reads, [](Step& s) {  // 10
         int f1 = 7, f2 = 7;
         const Lut* lut = s.m.luts.find(s.name);
         const bool ok = getMorphoLutFlags(s.name, f1, f2);
         expect(ok == (lut != nullptr) && std::make_pair(f1, f2) == (lut ? lut->flags : std::make_pair(-1, -1)),
                "getMorphoLutFlags", s.name);
     }},
    {Changes, [](Step& s) {
         const int f1 = s.in.int32(), f2 = s.in.int32();
         Lut* lut = s.m.luts.find(s.name);
         if (lut) lut->flags = {f1, f2};
         expect(setMorphoLutFlags(s.name, f1, f2) == (lut != nullptr), "setMorphoLutFlags", s.name);
     }},
    {Changes, [](Step& s) {
         const Lut* lut = s.m.luts.find(s.name);
         expect(removeMorphoLut(s.name), "removeMorphoLut", s.name);
         if (lut && lut->morpho) s.m.luts.erase(s.name);
     }},
    {Changes, [](Step& s) {
         std::vector<float> values(static_cast<std::size_t>(s.in.byte() % 40));
         for (float& v : values) v = s.in.real();
         // Past the budget the sieve is made, empty, and the suite's exception reaches the caller.
         const bool made = s.m.sieves.add(s.name, {}), held = made && !values.empty() && s.m.fits(bytesOf(values));
         if (held) *s.m.sieves.find(s.name) = values;
         bool threw = false, result = false;
         try {
             result = createSieve(s.name, values);
         } catch (const KrvBaseException&) {
             threw = true;
         }
         expect(threw == (made && !values.empty() && !held), "createSieve (exception)", s.name);
         expect(threw || result == made, "createSieve", s.name);
     }},
    {Reads, [](Step& s) {
         const std::vector<float>* values = s.m.sieves.find(s.name);
         expect(sameBits(getSieveParams(s.name), values ? *values : std::vector<float>()), "getSieveParams", s.name);
     }},
    {Changes, [](Step& s) { removeSieve(s.name); s.m.sieves.erase(s.name); }},  // 15
    {Changes, [](Step& s) { expect(createSegment(s.name) == s.m.segments.add(s.name, 0), "createSegment", s.name); }},
    {Reads, [](Step& s) { expect(getNbChain(s.name) == (s.m.segments.find(s.name) ? 0 : -1), "getNbChain", s.name); }},
    // No object has chains.
    {Reads, [](Step& s) { expect(getNbItems(s.name, s.in.count()) == -1, "getNbItems", s.name); }},
    {Reads, [](Step& s) {
         float x1 = 1, y1 = 2, x2 = 3, y2 = 4;
         const int chain = s.in.count(), item = s.in.count();
         expect(!getSegment(s.name, chain, item, x1, y1, x2, y2) && x1 == 1 && y2 == 4, "getSegment", s.name);
     }},
    {Changes, [](Step& s) { expect(removeSegment(s.name) == s.m.segments.erase(s.name), "removeSegment", s.name); }},
    {Changes, [](Step& s) {
         const std::uint8_t kind = s.in.byte() % 4;
         s.m.memory = kind == 0 ? 0 : kind == 1 ? -1 : kind == 2 ? static_cast<int>(s.in.count() * 64LL) : s.in.int32();
         setExtraMemUsage(s.m.memory);
     }},
    {Reads, [](Step& s) { expect(getExtraMemUsage() == s.m.memory, "getExtraMemUsage", s.name); }},
    {Reads, [](Step& s) {
         const CProCmd* info = getCmdInfo(s.name);
         const std::vector<std::string> listed = getCmdNameColl();
         expect(info || std::find(listed.begin(), listed.end(), s.name) == listed.end(), "getCmdInfo", s.name);
     }},
    // Measure groups, user measures and parameters.
    {Changes, [](Step& s) { addMsrGrp(s.name); s.m.groupAt(s.name).clear(); }},
    {Changes, [](Step& s) {  // 25
         const std::string& measure = s.measure();
         const bool known = s.m.measureExists(measure);
         if (known) s.m.groupAt(s.name).push_back(measure);
         expect(addMsrToMsrGrp(s.name, measure) == known, "addMsrToMsrGrp", measure);
     }},
    {Changes, [](Step& s) {
         const std::string& measure = s.measure();
         removeMsrFromMsrGrp(s.name, measure);
         if (auto* g = s.m.groups.find(s.name)) {
             const auto it = std::find(g->begin(), g->end(), measure);
             if (it != g->end()) g->erase(it);
         }
     }},
    {Changes, [](Step& s) { removeMsrGrp(s.name); s.m.groups.erase(s.name); }},
    {Changes, [](Step& s) { removeAllMsrGrp(); s.m.groups.entries.clear(); }},
    {Reads, [](Step& s) {
         expectEntry(getMsrGrpMsrList(s.name), s.m.groups.find(s.name), "getMsrGrpMsrList", s.name);
     }},
    {Changes, [](Step& s) { createUserMeasure(s, true); }},  // 30
    {Changes, [](Step& s) { createUserMeasure(s, false); }},
    {Reads, [](Step& s) {
         const auto* u = s.m.userMeasures.find(s.name);
         expectEntry(getUsrMsrFormula(s.name), u ? &u->definition : nullptr, "getUsrMsrFormula", s.name);
     }},
    {Changes, [](Step& s) { removeUsrMsr(s.name); s.m.userMeasures.erase(s.name.c_str()); }},
    {Changes, [](Step& s) { removeAllUsrMsr(); s.m.userMeasures.entries.clear(); }},
    {Reads, [](Step& s) {  // 35
         const std::string& measure = s.measure();
         MeasureInfo info;
         const auto* u = s.m.userMeasures.find(measure);
         expect(getMsrInfo(measure, info) == s.m.measureExists(measure), "getMsrInfo", measure);
         expect(!u || (info.isUser && info.unitDim == u->unitDim && info.description == u->definition),
                "getMsrInfo (user measure)", measure);
     }},
    {Reads, &setParams},
};

// One call and its check against the model; whether it changed the stores, for the caller.
bool step(Input& in, Model& m) {
    const std::uint8_t op = in.byte() % std::size(kCalls);
    Step s{in, m, pickName(in.byte(), m.hugeUsed)};
    static const bool trace = std::getenv("KAPI_FUZZ_TRACE") != nullptr;  // each call on stderr
    if (trace)
        std::fprintf(stderr, "call %d on \"%.20s\" (memory %d, model holds %llu bytes)\n", op, s.name.c_str(),
                     m.memory, static_cast<unsigned long long>(m.used()));
    kCalls[op].run(s);
    return kCalls[op].kind == Changes;
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
        if (step(in, model)) checkLists(model);
    checkLists(model);
    clearLibrary();
    return 0;
}
