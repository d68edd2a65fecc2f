// Calls of the segment family, and two of the suite's own operations that fill segment
// objects (as the suite's processing would): appendChain and appendRings.
#include <KorvaneAPI/Segments.h>
#include <vantry_data/CDatSeg.h>

#include "Calls.h"
#include "ProgressBar.h"

namespace korvane {

namespace {

CDatSeg& suiteSegment(const std::string& name) {
    CDatSeg* segment = CDatSegHandler::m_pInstance->FindObj(CKrvString(name));
    if (segment == nullptr) throw CallFailed("no segment object " + name);
    return *segment;
}

Output appendChain(const Args& args) {
    const std::vector<float> values = toFloats(args, 1, "X1 Y1 X2 Y2");
    if (values.size() % 4 != 0) throw ScriptError("appendChain: the values come in fours (x1 y1 x2 y2)");
    std::vector<CDatSegItem> items;
    for (std::size_t i = 0; i < values.size(); i += 4)
        items.push_back({values[i], values[i + 1], values[i + 2], values[i + 3]});
    const int chain = suiteSegment(args[0]).AppendChain(items);
    if (chain < 0) throw CallFailed("appendChain failed: memory budget exceeded");
    return said(static_cast<long long>(chain));
}

Output appendRings(const Args& args) {
    CDatSeg& segment = suiteSegment(args[0]);
    const int rings = toInt(args[1], "RINGS");
    const int sides = toInt(args[2], "SIDES");
    const float spacing = args.size() > 3 ? toFloat(args[3], "SPACING") : 1.0f;
    resetProgressSeen();
    const int appended = segment.AppendRings(rings, sides, 0.0f, 0.0f, spacing);
    endProgressBar();
    return said(static_cast<long long>(appended));
}

Output segmentItem(const Args& args) {
    float x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    succeeded(getSegment(args[0], toInt(args[1], "CHAIN"), toInt(args[2], "ITEM"), x1, y1, x2, y2), "getSegment");
    const std::string line = shortest(x1) + " " + shortest(y1) + " " + shortest(x2) + " " + shortest(y2);
    return {{line}, {{"x1", jsonNumber(x1)}, {"y1", jsonNumber(y1)}, {"x2", jsonNumber(x2)}, {"y2", jsonNumber(y2)}}};
}

}  // namespace

void addSegmentCalls(CallTable& table) {
    table.add("createSegment", {"createSegment NAME", "creates a segment object without chains", 1, 1,
                                [](const Args& args) { return succeeded(createSegment(args[0]), "createSegment"); }});
    table.add("getNbChain", {"getNbChain NAME", "the number of chains (-1: no such object)", 1, 1,
                             [](const Args& args) { return said(static_cast<long long>(getNbChain(args[0]))); }});
    table.add("getNbItems", {"getNbItems NAME CHAIN", "the number of items of a chain (-1: no such object or chain)",
                             2, 2, [](const Args& args) {
                                 return said(static_cast<long long>(getNbItems(args[0], toInt(args[1], "CHAIN"))));
                             }});
    table.add("getSegment", {"getSegment NAME CHAIN ITEM", "one item: x1 y1 x2 y2", 3, 3, segmentItem});
    table.add("removeSegment", {"removeSegment NAME", "removes a segment object", 1, 1,
                                [](const Args& args) { return succeeded(removeSegment(args[0]), "removeSegment"); }});
    table.add("getSegmentList", {"getSegmentList", "the names of the segment objects", 0, 0,
                                 [](const Args&) { return said(getSegmentList()); }});
    table.add("appendChain", {"appendChain NAME [X1 Y1 X2 Y2]...",
                              "(suite) appends a chain of items to a segment object; prints its index", 1, kAnyNumber,
                              appendChain});
    table.add("appendRings", {"appendRings NAME RINGS SIDES [SPACING]",
                              "(suite) appends rings of SIDES items, reporting progress; prints how many", 3, 4,
                              appendRings});
}

}  // namespace korvane
