// Every exported function of the object families once, on the objects the fault loop makes
// (f1, l1, m1, s1, g1, grp, u1), its result as text: the fault loop fails its host calls in turn,
// the stopped-suite test calls it outside a start and an end of the suite.
#pragma once
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_process/MeasureInfo.h>

namespace kapitest {

template <class T>
std::string join(const std::vector<T>& items) {
    std::ostringstream out;
    for (std::size_t i = 0; i < items.size(); ++i) out << (i ? "," : "") << items[i];
    return out.str();
}

inline std::string text(bool value) { return value ? "true" : "false"; }

inline int kMorphoValues[] = {0, 1};
inline int kNewMorphoValues[] = {7, 8};

// The objects of every store, as text: what a run leaves behind.
inline std::string storeState() {
    return join(getFilterList()) + "|" + join(getLutList()) + "|" + join(getMorphoLutList()) + "|" + join(getSieveList()) +
           "|" + join(getSegmentList()) + "|" + join(getMsrGrpList()) + ":" + join(getMsrGrpMsrList("grp")) + "|" +
           join(getUsrMsrList());
}

// One exported function, called on the objects that the fault loop makes; its result as text.
struct Call {
    const char* name;
    std::function<std::string()> run;
    const char* stopped;  // its result outside a start and an end of the suite (null: not checked)
    int refusals;         // the suite's "not started" lines it causes then
    // The library's lines of a run without faults, "|" between them ("..." for any that follow;
    // null: not checked).
    const char* lines = nullptr;
};

inline const std::vector<Call>& calls() {
    static const std::vector<Call> table{
        {"createFilter", [] { return text(createFilter("f2", "I1*2")); }, "false", 1, "Creating filter f2 with formula I1*2"},
        {"getFilterFormula", [] { return getFilterFormula("f1"); }, "", 1, "Retrieving formula for filter f1|I1+1"},
        {"removeFilter", [] { return removeFilter("f1"), std::string("-"); }, "-", 1, "Removing filter f1"},
        {"removeAllFilters", [] { return removeAllFilters(), std::string("-"); }, "-", 1, "Removing all filters"},
        {"isValidImageFormula", [] { return text(isValidImageFormula("I1+X")); }, "true", 0, ""},
        {"getFilterList", [] { return join(getFilterList()); }, "", 1, "Retrieving filter list :|f1"},
        {"createLut", [] { return text(createLut("l2", {4, 5})); }, "false", 1, "Creating lut l2 with 2 values"},
        {"getLutValues", [] { return join(getLutValues("l1")); }, "", 1, ""},
        {"removeLut", [] { return removeLut("l1"), std::string("-"); }, "-", 1, "Removing lut l1"},
        {"getLutList", [] { return join(getLutList()); }, "", 1, "Retrieving lut list :|l1"},
        {"createMorphoLut", [] { return text(createMorphoLut("m2", kNewMorphoValues, 2, 3, 4)); }, "false", 1, "Creating 'm2' morphological lut."},
        {"getMorphoLutDataPtr", [] {
             int* values = kNewMorphoValues;
             int size = 99;
             const std::string ok = text(getMorphoLutDataPtr("m1", values, size));
             return ok + " " + std::to_string(size) + " " + (values ? std::to_string(values[1]) : "null");
         }, "false 0 null", 1, ""},
        {"getMorphoLutFlags", [] {
             int flag1 = 9, flag2 = 9;
             const std::string ok = text(getMorphoLutFlags("m1", flag1, flag2));
             return ok + " " + std::to_string(flag1) + "," + std::to_string(flag2);
         }, "false -1,-1", 1, ""},
        {"setMorphoLutFlags", [] { return text(setMorphoLutFlags("m1", 5, 6)); }, "false", 1, ""},
        {"removeMorphoLut", [] { return text(removeMorphoLut("m1")); }, "true", 1, "Removing 'm1' morphological lut."},
        {"getMorphoLutList", [] { return join(getMorphoLutList()); }, "", 1, "Retrieving morphological lut list :|m1"},
        {"createSieve", [] { return text(createSieve("s2", {1.0f, 2.0f})); }, "false", 1, "Creating sieve s2 with 2 parameters"},
        {"getSieveParams", [] { return join(getSieveParams("s1")); }, "", 1, ""},
        {"removeSieve", [] { return removeSieve("s1"), std::string("-"); }, "-", 1, "Removing sieve s1"},
        {"getSieveList", [] { return join(getSieveList()); }, "", 1, "Retrieving sieve list :|s1"},
        {"createSegment", [] { return text(createSegment("g2")); }, "false", 1, ""},
        {"getNbChain", [] { return std::to_string(getNbChain("g1")); }, "-1", 1, ""},
        {"getNbItems", [] { return std::to_string(getNbItems("g1", 0)); }, "-1", 1, ""},
        {"getSegment", [] {
             float x1 = 9, y1 = 9, x2 = 9, y2 = 9;
             const std::string ok = text(getSegment("g1", 0, 0, x1, y1, x2, y2));
             return ok + " " + join(std::vector<float>{x1, y1, x2, y2});
         }, "false 9,9,9,9", 1, ""},
        {"removeSegment", [] { return text(removeSegment("g1")); }, "false", 1, ""},
        {"getSegmentList", [] { return join(getSegmentList()); }, "", 1, "Retrieving segment list :"},
        {"getCmdNameColl", [] { return std::to_string(getCmdNameColl().size()); }, nullptr, 0, ""},
        {"getCmdInfo", [] { return std::string(getCmdInfo("Erode") ? "found" : "null"); }, "null", 0, ""},
        {"getExtraMemUsage", [] { return std::to_string(getExtraMemUsage()); }, nullptr, 0, ""},
        {"setExtraMemUsage", [] { return setExtraMemUsage(0), std::string("-"); }, "-", 0, ""},
        {"setFlushEventsCB", [] { return setFlushEventsCB(nullptr), std::string("-"); }, "-", 0, ""},
        {"setProgressMsgCB", [] { return setProgressMsgCB(nullptr), std::string("-"); }, "-", 0, ""},
        {"setProgressRatioCB", [] { return setProgressRatioCB(nullptr), std::string("-"); }, "-", 0, ""},
        {"addMsrGrp", [] { return addMsrGrp("grp2"), std::string("-"); }, "-", 1, "Creating measure group grp2"},
        {"addMsrToMsrGrp", [] { return text(addMsrToMsrGrp("grp", "Perimeter")); }, "false", 2, "Adding measure Perimeter to measure group grp"},
        {"removeMsrFromMsrGrp", [] { return removeMsrFromMsrGrp("grp", "Area"), std::string("-"); }, "-", 1, "Removing measure Area from measure group grp"},
        {"removeMsrGrp", [] { return removeMsrGrp("grp"), std::string("-"); }, "-", 1, "Removing measure group grp"},
        {"removeAllMsrGrp", [] { return removeAllMsrGrp(), std::string("-"); }, "-", 1, "Removing all measure groups"},
        {"getMsrGrpList", [] { return join(getMsrGrpList()); }, "", 1, "Retrieving measure group list :|grp"},
        {"getMsrGrpMsrList", [] { return join(getMsrGrpMsrList("grp")); }, "", 1, "Retrieving measure list for group grp|Area"},
        {"createUsrMsrByFormula", [] { return text(createUsrMsrByFormula("u2", "Area * 2", eMsrUnitDim3)); }, "false", 1, "Creating user measure u2 associated to formula Area * 2"},
        {"createUsrMsrByIPFunction", [] { return text(createUsrMsrByIPFunction("u3", "MeanIntensity", eMsrUnitDim5)); }, "false", 1, "Creating user measure u3 associated to ip function MeanIntensity"},
        {"getUsrMsrFormula", [] { return getUsrMsrFormula("u1"); }, "", 1, "Retrieving formula for user measure u1|Formula = Area + 1"},
        {"getUsrMsrList", [] { return join(getUsrMsrList()); }, "", 1, "Retrieving user measure list :|u1"},
        {"removeUsrMsr", [] { return removeUsrMsr("u1"), std::string("-"); }, "-", 1, "Removing user measure u1"},
        {"removeAllUsrMsr", [] { return removeAllUsrMsr(), std::string("-"); }, "-", 1, "Removing all user measures|Retrieving user measure list :|u1|Removing user measure u1"},
        {"getMsrInfo", [] {
             MeasureInfo info;
             info.name = "untouched";
             return text(getMsrInfo("Length3d", info)) + " " + info.name;
         }, "false untouched", 1, ""},
        {"getMsrParams", [] { return join(getMsrParams("FeretMax")); }, "", 2, "Getting params for user measure FeretMax|..."},
        {"setMsrParams", [] { return text(setMsrParams("FeretMax", {10.f, 20.f})); }, "false", 2, "Setting params for user measure FeretMax|10|20"},
        {"getNatMsrList", [] { return std::to_string(getNatMsrList().size()); }, "0", 1, "Retrieving native measure list :|..."},
        {"getUniformFeret3dAngles", [] { return std::to_string(getUniformFeret3dAngles(4).size()); }, "8", 0, ""},
        {"setFeret3dMsrParams", [] { return text(setFeret3dMsrParams(4)); }, "false", 2, "Setting params for user measure Length3d|..."},
    };
    return table;
}

}  // namespace kapitest
