// One object of every family, made between a start and an end of the suite, and the check that a
// fresh start holds none of them. Shared by the cycle test and the 1,000-cycle program.
#pragma once
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPI.h>

namespace kapitest {

inline bool progressIgnored() { return true; }
inline void messageIgnored(const std::string&) {}
inline void ratioIgnored(float) {}

// Makes a filter, a plain and a morphological table, a sieve, a segment object, a measure group
// holding a native measure and a user measure, named after `cycle`, and sets every callback;
// true when each was made.
inline bool makeOneOfEach(int cycle) {
    const std::string tag = std::to_string(cycle);
    static const int morpho[] = {0, 1, 1, 0};
    bool ok = createFilter("filter" + tag, "I1*2+X");
    ok = createLut("lut" + tag, std::vector<int>(256, cycle)) && ok;
    ok = createMorphoLut("morpho" + tag, morpho, 4, 1, cycle) && ok;
    ok = createSieve("sieve" + tag, std::vector<float>(64, 0.5f)) && ok;
    ok = createSegment("segment" + tag) && ok;
    addMsrGrp("group" + tag);
    ok = addMsrToMsrGrp("group" + tag, "Area") && ok;
    ok = createUsrMsrByFormula("measure" + tag, "Area * 2", eMsrUnitDim5) && ok;
    setFlushEventsCB(&progressIgnored);
    setProgressMsgCB(&messageIgnored);
    setProgressRatioCB(&ratioIgnored);
    return ok;
}

// True when every store is empty.
inline bool storesEmpty() {
    return getFilterList().empty() && getLutList().empty() && getMorphoLutList().empty() && getSieveList().empty() &&
           getSegmentList().empty() && getMsrGrpList().empty() && getUsrMsrList().empty();
}

}  // namespace kapitest
