// Calls of the image-operator family: user filters and image formulas, plain and morphological
// lookup tables. A table's values print on one line, flags by name.
#include <KorvaneAPI/KorvaneAPI.h>

#include "Calls.h"

namespace korvane {

namespace {

Output morphoLutData(const Args& args) {
    int* values = nullptr;
    int size = 0;
    const bool ok = getMorphoLutDataPtr(args[0], values, size);
    succeeded(ok, "getMorphoLutDataPtr", "size " + std::to_string(size));
    const Output listed = saidOnOneLine(std::vector<int>(values, values + size));
    return {{std::to_string(size) + " values: " + listed.lines[0]}, {{"count", size}, {"values", listed.value}}};
}

Output morphoLutFlags(const Args& args) {
    int flag1 = 0;
    int flag2 = 0;
    succeeded(getMorphoLutFlags(args[0], flag1, flag2), "getMorphoLutFlags");
    return {{"flag1 " + std::to_string(flag1) + ", flag2 " + std::to_string(flag2)}, {{"flag1", flag1}, {"flag2", flag2}}};
}

Output createMorpho(const Args& args) {
    const std::vector<int> values = toInts(args, 3, "VALUE");
    return succeeded(createMorphoLut(args[0], values.data(), static_cast<int>(values.size()), toInt(args[1], "FLAG1"),
                                     toInt(args[2], "FLAG2")),
                     "createMorphoLut");
}

}  // namespace

void addImageCalls(CallTable& table) {
    table.add("createFilter", {"createFilter NAME FORMULA", "creates a user filter from an image formula", 2, 2,
                               [](const Args& a) { return succeeded(createFilter(a[0], a[1]), "createFilter"); }});
    table.add("getFilterFormula", {"getFilterFormula NAME", "the formula of a filter (empty when unknown)", 1, 1,
                                   [](const Args& a) { return said(getFilterFormula(a[0])); }});
    table.add("removeFilter", {"removeFilter NAME", "removes a filter", 1, 1, [](const Args& a) {
                                   removeFilter(a[0]);
                                   return Output{};
                               }});
    table.add("removeAllFilters", {"removeAllFilters", "removes every filter", 0, 0, [](const Args&) {
                                       removeAllFilters();
                                       return Output{};
                                   }});
    table.add("isValidImageFormula", {"isValidImageFormula FORMULA", "whether the text is a valid image formula", 1, 1,
                                      [](const Args& a) { return said(isValidImageFormula(a[0].c_str())); }});
    table.add("getFilterList", {"getFilterList", "the filter names, one a line", 0, 0,
                                [](const Args&) { return said(getFilterList()); }});

    table.add("createLut", {"createLut NAME VALUE...", "creates a plain lookup table", 1, kAnyNumber,
                            [](const Args& a) { return succeeded(createLut(a[0], toInts(a, 1, "VALUE")), "createLut"); }});
    table.add("getLutValues", {"getLutValues NAME", "a table's values on one line (empty when unknown)", 1, 1,
                               [](const Args& a) {
                                   return saidOnOneLine(getLutValues(a[0]));
                               }});
    table.add("removeLut", {"removeLut NAME", "removes a lookup table of either kind", 1, 1, [](const Args& a) {
                                removeLut(a[0]);
                                return Output{};
                            }});
    table.add("getLutList", {"getLutList", "the plain lookup table names, one a line", 0, 0,
                             [](const Args&) { return said(getLutList()); }});
    table.add("createMorphoLut", {"createMorphoLut NAME FLAG1 FLAG2 VALUE...",
                                  "creates a morphological lookup table with its two flags", 3, kAnyNumber,
                                  createMorpho});
    table.add("getMorphoLutDataPtr", {"getMorphoLutDataPtr NAME", "the count and values the suite holds for a table", 1,
                                      1, morphoLutData});
    table.add("getMorphoLutFlags", {"getMorphoLutFlags NAME", "a table's two flags, by name", 1, 1, morphoLutFlags});
    table.add("setMorphoLutFlags", {"setMorphoLutFlags NAME FLAG1 FLAG2", "writes a table's two flags", 3, 3,
                                    [](const Args& a) {
                                        return succeeded(setMorphoLutFlags(a[0], toInt(a[1], "FLAG1"), toInt(a[2], "FLAG2")),
                                                         "setMorphoLutFlags");
                                    }});
    table.add("removeMorphoLut", {"removeMorphoLut NAME", "removes a morphological table (not a plain one)", 1, 1,
                                  [](const Args& a) { return succeeded(removeMorphoLut(a[0]), "removeMorphoLut"); }});
    table.add("getMorphoLutList", {"getMorphoLutList", "the morphological lookup table names, one a line", 0, 0,
                                   [](const Args&) { return said(getMorphoLutList()); }});
}

}  // namespace korvane
