// The suite's stored objects with Python types: user filters, lookup tables, sieves, segment
// objects and measure groups.
#include <optional>
#include <tuple>

#include <KorvaneAPI/Filters.h>
#include <KorvaneAPI/LookupTables.h>
#include <KorvaneAPI/MeasureGroups.h>
#include <KorvaneAPI/Segments.h>
#include <KorvaneAPI/Sieves.h>

#include <pybind11/stl.h>

#include "arrays.h"

namespace korvane_py {

namespace {

void bindFilters(py::module_& m) {
    m.def("createFilter", inSession(&createFilter), py::arg("name"), py::arg("formula"),
          apiDoc("createFilter",
                 "Creates the user filter `name` with `formula`; True when it exists with it afterwards."));
    m.def("getFilterFormula", inSession(&getFilterFormula), py::arg("name"),
          apiDoc("getFilterFormula", "The formula of the filter; '' for an unknown name."));
    m.def("removeFilter", inSession(&removeFilter), py::arg("name"), apiDoc("removeFilter"));
    m.def("removeAllFilters", inSession(&removeAllFilters), apiDoc("removeAllFilters"));
    m.def("isValidImageFormula", inSession(&isValidImageFormula), py::arg("formula"),
          apiDoc("isValidImageFormula", "True when `formula` is a valid image formula; stores nothing."));
    m.def("getFilterList", inSession(&getFilterList),
          apiDoc("getFilterList", "The names of the user filters, in creation order."));
}

std::optional<py::array_t<int>> morphoLutValues(const std::string& name) {
    int* values = nullptr;
    int size = 0;
    if (!getMorphoLutDataPtr(name, values, size)) return std::nullopt;
    return toArray(std::vector<int>(values, values + size));
}

std::optional<std::tuple<int, int>> morphoLutFlags(const std::string& name) {
    int flag1 = -1;
    int flag2 = -1;
    if (!getMorphoLutFlags(name, flag1, flag2)) return std::nullopt;
    return std::make_tuple(flag1, flag2);
}

void bindLookupTables(py::module_& m) {
    m.def("createLut", inSession(+[](const std::string& name, const py::object& values) {
              return createLut(name, intValues(values, "values"));
          }),
          py::arg("name"), py::arg("values"),
          apiDoc("createLut", "Creates the plain table `name` from 1-D integers (int32 range)."));
    m.def("getLutValues", inSession(+[](const std::string& name) { return toArray(getLutValues(name)); }),
          py::arg("name"),
          apiDoc("getLutValues", "The values of a table as an int32 array; empty for an unknown or empty one."));
    m.def("removeLut", inSession(&removeLut), py::arg("name"), apiDoc("removeLut"));
    m.def("getLutList", inSession(&getLutList), apiDoc("getLutList", "The names of the plain tables."));
    m.def("createMorphoLut", inSession(+[](const std::string& name, const py::object& values, int flag1, int flag2) {
              std::vector<int> ints = intValues(values, "values");
              return createMorphoLut(name, ints.data(), static_cast<int>(ints.size()), flag1, flag2);
          }),
          py::arg("name"), py::arg("values"), py::arg("flag1"), py::arg("flag2"),
          apiDoc("createMorphoLut", "Creates the morphological table `name` from 1-D integers and its two flags."));
    m.def("getMorphoLutDataPtr", inSession(&morphoLutValues), py::arg("name"),
          apiDoc("getMorphoLutDataPtr",
                 "A copy of a morphological table's values as an int32 array; None when the suite gives none."));
    m.def("getMorphoLutFlags", inSession(&morphoLutFlags), py::arg("name"),
          apiDoc("getMorphoLutFlags", "The two flags of a table as a tuple (flag1, flag2); None for an unknown name."));
    m.def("setMorphoLutFlags", inSession(&setMorphoLutFlags), py::arg("name"), py::arg("flag1"), py::arg("flag2"),
          apiDoc("setMorphoLutFlags"));
    m.def("removeMorphoLut", inSession(&removeMorphoLut), py::arg("name"), apiDoc("removeMorphoLut"));
    m.def("getMorphoLutList", inSession(&getMorphoLutList),
          apiDoc("getMorphoLutList", "The names of the morphological tables."));
}

void bindSieves(py::module_& m) {
    m.def("createSieve", inSession(+[](const std::string& name, const py::object& values) {
              return createSieve(name, floatValues(values, "values"));
          }),
          py::arg("name"), py::arg("values"),
          apiDoc("createSieve", "Creates the sieve `name` from 1-D real numbers (stored as float32)."));
    m.def("getSieveParams", inSession(+[](const std::string& name) { return toArray(getSieveParams(name)); }),
          py::arg("name"),
          apiDoc("getSieveParams", "The values of a sieve as a float32 array; empty for an unknown or empty one."));
    m.def("removeSieve", inSession(&removeSieve), py::arg("name"), apiDoc("removeSieve"));
    m.def("getSieveList", inSession(&getSieveList), apiDoc("getSieveList", "The names of the sieves."));
}

std::optional<std::tuple<float, float, float, float>> segmentItem(const std::string& name, int chain, int item) {
    float x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    if (!getSegment(name, chain, item, x1, y1, x2, y2)) return std::nullopt;
    return std::make_tuple(x1, y1, x2, y2);
}

void bindSegments(py::module_& m) {
    m.def("createSegment", inSession(&createSegment), py::arg("name"), apiDoc("createSegment"));
    m.def("getNbChain", inSession(&getNbChain), py::arg("name"),
          apiDoc("getNbChain", "The number of chains; -1 for an unknown name."));
    m.def("getNbItems", inSession(&getNbItems), py::arg("name"), py::arg("chain"), apiDoc("getNbItems"));
    m.def("getSegment", inSession(&segmentItem), py::arg("name"), py::arg("chain"), py::arg("item"),
          apiDoc("getSegment", "An item as (x1, y1, x2, y2); None when there is no such object, chain or item."));
    m.def("removeSegment", inSession(&removeSegment), py::arg("name"), apiDoc("removeSegment"));
    m.def("getSegmentList", inSession(&getSegmentList), apiDoc("getSegmentList", "The names of the segment objects."));
}

void bindMeasureGroups(py::module_& m) {
    m.def("addMsrGrp", inSession(&addMsrGrp), py::arg("group"), apiDoc("addMsrGrp"));
    m.def("addMsrToMsrGrp", inSession(&addMsrToMsrGrp), py::arg("group"), py::arg("measure"), apiDoc("addMsrToMsrGrp"));
    m.def("removeMsrFromMsrGrp", inSession(&removeMsrFromMsrGrp), py::arg("group"), py::arg("measure"),
          apiDoc("removeMsrFromMsrGrp"));
    m.def("removeMsrGrp", inSession(&removeMsrGrp), py::arg("group"), apiDoc("removeMsrGrp"));
    m.def("removeAllMsrGrp", inSession(&removeAllMsrGrp), apiDoc("removeAllMsrGrp"));
    m.def("getMsrGrpList", inSession(&getMsrGrpList), apiDoc("getMsrGrpList", "The names of the measure groups."));
    m.def("getMsrGrpMsrList", inSession(&getMsrGrpMsrList), py::arg("group"),
          apiDoc("getMsrGrpMsrList", "The measures of a group, in order."));
}

}  // namespace

void bindObjects(py::module_& module) {
    bindFilters(module);
    bindLookupTables(module);
    bindSieves(module);
    bindSegments(module);
    bindMeasureGroups(module);
}

}  // namespace korvane_py
