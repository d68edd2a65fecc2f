// The fault loop: every exported function of the object families is run once on a known set of
// objects to learn which host operations it calls and how often; then each of those calls in turn
// (the 1st, the 2nd, ...) is failed with every answer the fault points give (null, zero,
// non-zero, negative, a thrown exception). Each run must give the documented result and the
// documented Warn/Error line, or let the suite's exception through unchanged with no line at all.
// Under the asan preset, LeakSanitizer checks that no run loses memory.
#include <algorithm>
#include <cstdlib>
#include <cctype>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatSeg.h>
#include <vantry_process/MeasureInfo.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvFault.h>

#include "support/EveryCall.h"
#include "support/TestSupport.h"

using Answer = KrvFault::Answer;
using Level = KrvLoggerLevel;

namespace {

using kapitest::Call;
using kapitest::calls;
using kapitest::join;
using kapitest::storeState;
using kapitest::kMorphoValues;

// The lifecycle functions have their own fault tests (core_test, service_test).
const std::set<std::string> kElsewhere{"initKorvaneAPI", "endKorvaneAPI", "getKorvaneAPILogger"};

// Custom is armed with the value 0: a point without an odd answer of its own then answers as Zero.
enum : unsigned { N = 1u << 1, Z = 1u << 2, P = 1u << 3, M = 1u << 4, T = 1u << 5, C = 1u << 6, ALL_BUT_T = N | Z | P | M | C };
const Answer kAnswers[] = {Answer::Null, Answer::Zero, Answer::NonZero, Answer::Negative, Answer::Throw, Answer::Custom};
unsigned bit(Answer a) { return 1u << static_cast<int>(a); }
const char* const kAnswerNames[] = {"None", "Null", "Zero", "NonZero", "Negative", "Throw", "Custom"};

// What a failed host call gives: the result ("throw <message>" for an exception of the API's
// own or of the standard library) and at most one Warn/Error line, written by the statement of
// `file` that holds `snippet`. A run no row matches must give the result of the
// run without faults and no Warn/Error line, and a thrown answer must reach the caller.
struct Outcome {
    const char* call;
    const char* point;
    unsigned answers;
    int nth;  // 0 for every call of the point
    const char* result;
    Level level;
    const char* message;  // empty for no line
    const char* file;
    const char* snippet;
    int after = 0;  // the line is this many lines below the one holding `snippet`
    const char* stores = nullptr;  // what the stores hold after the run; null: as before it
};

const char* const kFlr = "src/FilterInterface.cpp";
const char* const kLut = "src/LutInterface.cpp";
const char* const kSv = "src/SieveInterface.cpp";
const char* const kMg = "src/MeasureGroupInterface.cpp";
const char* const kMs = "src/MeasureInterface.cpp";
const Level E = Level::Error;
const Level W = Level::Warn;

const std::vector<Outcome> kOutcomes{
    {"createFilter", "CDatFlr::checkFilterFormula", N | Z | M | C, 0, "false", E, "Invalid user filter formula I1*2 for user filter f2", kFlr, "\" for user filter \""},
    {"createFilter", "CDatFlrHandler::AddFlr", ALL_BUT_T, 0, "false", E, "Internal error while creating filter f2", kFlr, "\"Internal error while creating filter \""},
    {"createFilter", "CDatFlr::initFilterFormula", N | Z | M | C, 0, "false", E, "Invalid user filter formula I1*2 for filter f2", kFlr, "\" for filter \""},
    {"getFilterFormula", "CDatFlrHandler::FindObj", ALL_BUT_T, 0, "", E, "Can't get formula for filter f1, this filter doesn't exists", kFlr, "\"Can't get formula for filter \""},
    {"removeFilter", "CDatFlrHandler::RemoveFlr", N | Z | C, 0, "-", E, "Can't remove filter f1, this filter doesn't exists", kFlr, "\"Can't remove filter \""},
    {"removeAllFilters", "CDatFlrHandler::RemoveAll", N | Z | C, 0, "-", E, "Failed to remove all filters", kFlr, "\"Failed to remove all filters\""},
    // A list the handler left empty is an empty list, without a complaint.
    {"getFilterList", "CKrvHandler::GetObjList", ALL_BUT_T, 0, "", W, "", kFlr, ""},
    {"getLutList", "CKrvHandler::GetObjList", ALL_BUT_T, 0, "", W, "", kLut, ""},
    {"getMorphoLutList", "CDatMorphoLutHandler::GetLutList", ALL_BUT_T, 0, "", W, "", kLut, ""},
    {"getSieveList", "CKrvHandler::GetObjList", ALL_BUT_T, 0, "", W, "", kSv, ""},
    {"getSegmentList", "CKrvHandler::GetObjList", ALL_BUT_T, 0, "", W, "", kSv, ""},
    {"getUsrMsrList", "CKrvHandler::GetObjList", ALL_BUT_T, 0, "", W, "", kMs, ""},
    {"createLut", "CDatMorphoLutHandler::AddLut", ALL_BUT_T, 0, "false", E, "Internal error, can't create lut l2", kLut, "\"Internal error, can't create lut \""},
    {"getLutValues", "CDatMorphoLutHandler::FindObj", ALL_BUT_T, 0, "", E, "Can't get lut l1, this lut doesn't exists", kLut, "\"Can't get lut \""},
    {"getLutValues", "CDatMorphoLut::GetMorphoLut", N | Z | M | C, 0, "", W, "Empty lut l1, can't get lut values", kLut, "\"Empty lut \""},
    // The size the table tells is the room the values are read into: none, the first one, or an
    // allocation that fails as the standard library's exception.
    {"getLutValues", "CDatMorphoLut::GetSize", N | Z | C, 0, "", W, "Empty lut l1, can't get lut values", kLut, "\"Empty lut \""},
    {"getLutValues", "CDatMorphoLut::GetSize", P, 0, "1", W, "", kLut, ""},
    {"getLutValues", "CDatMorphoLut::GetSize", M, 0, "throw std::bad_array_new_length", W, "", kLut, ""},
    // "1" without the values written: the caller gets zeros, never what the heap held.
    {"getLutValues", "CDatMorphoLut::GetMorphoLut", P, 0, "0,0,0", W, "", kLut, ""},
    {"removeLut", "CDatMorphoLutHandler::RemoveLut", N | Z | C, 0, "-", W, "Failed to remove lut l1", kLut, "\"Failed to remove lut \""},
    // The list asks for each name in turn whether it is a plain table: l1 first, then m1.
    {"getLutList", "CDatMorphoLutHandler::FindObj", ALL_BUT_T, 1, "", W, "", kLut, ""},
    {"createMorphoLut", "CDatMorphoLutHandler::AddLut", ALL_BUT_T, 0, "false", W, "", kLut, ""},
    {"getMorphoLutDataPtr", "CDatMorphoLutHandler::FindObj", ALL_BUT_T, 0, "false 0 null", E, "Can't get 'm1' morphological lut, this morphological lut doesn't exists", kLut, "this morphological lut doesn't exists\""},
    // Only a size of 0 is refused: any other is handed on with the storage.
    {"getMorphoLutDataPtr", "CDatMorphoLut::GetSize", N | Z | C, 0, "false 0 null", W, "Empty 'm1' morphological lut, can't get values", kLut, "\"Empty '\""},
    {"getMorphoLutDataPtr", "CDatMorphoLut::GetSize", P, 0, "true 1 1", W, "", kLut, ""},
    {"getMorphoLutDataPtr", "CDatMorphoLut::GetSize", M, 0, "true -1 1", W, "", kLut, ""},
    {"getMorphoLutDataPtr", "CDatTab::GetField", ALL_BUT_T, 0, "false 2 null", W, "Invalid 'm1' morphological lut, can't get values", kLut, "\"Invalid '\""},
    {"getMorphoLutDataPtr", "CDatIntField::GetData", ALL_BUT_T, 0, "false 2 null", W, "", kLut, ""},
    {"getMorphoLutFlags", "CDatMorphoLutHandler::FindObj", ALL_BUT_T, 0, "false -1,-1", E, "Can't get 'm1' morphological lut, this morphological lut doesn't exist.", kLut, "// flags stay -1"},
    {"setMorphoLutFlags", "CDatMorphoLutHandler::FindObj", ALL_BUT_T, 0, "false", E, "Can't get 'm1' morphological lut, this morphological lut doesn't exist.", kLut, "// nothing written"},
    {"removeMorphoLut", "CDatMorphoLutHandler::FindObj", ALL_BUT_T, 0, "true", W, "The 'm1' morphological lut does not exist.", kLut, "morphological lut does not exist.\""},
    {"removeMorphoLut", "CDatMorphoLutHandler::RemoveLut", N | Z | C, 0, "false", W, "Failed to remove 'm1' morphological lut.", kLut, "\"Failed to remove '\""},
    {"createSieve", "CDatTamiHandler::AddTami", ALL_BUT_T, 0, "false", E, "Internal error, can't create sieve s2", kSv, "\"Internal error, can't create sieve \""},
    {"getSieveParams", "CDatTami::GetData", N | P | C, 0, "", W, "Empty sieve s1, can't get sieve params", kSv, "\"Empty sieve \""},
    {"getSieveParams", "CDatTami::GetData", Z | M, 0, "", W, "", kSv, ""},
    {"removeSieve", "CDatTamiHandler::RemoveTami", N | Z | C, 0, "-", W, "Failed to remove sieve s1", kSv, "\"Failed to remove sieve \""},
    {"getSieveParams", "CDatTamiHandler::FindObj", ALL_BUT_T, 0, "", E, "Can't get sieve s1, this sieve doesn't exists", kSv, "\"Can't get sieve \""},
    {"createSegment", "CDatSegHandler::AddSeg", ALL_BUT_T, 0, "false", W, "", kSv, ""},
    // The segment functions say nothing: an object not found is -1 or false, and the counts are
    // the suite's, -1 included.
    {"getNbChain", "CDatSegHandler::FindObj", ALL_BUT_T, 0, "-1", W, "", kSv, ""},
    {"getNbItems", "CDatSegHandler::FindObj", ALL_BUT_T, 0, "-1", W, "", kSv, ""},
    {"getSegment", "CDatSegHandler::FindObj", ALL_BUT_T, 0, "false 9,9,9,9", W, "", kSv, ""},
    {"getNbChain", "CDatSeg::GetNbChains", N | Z | C, 0, "0", W, "", kSv, ""},
    {"getNbChain", "CDatSeg::GetNbChains", M, 0, "-1", W, "", kSv, ""},
    {"getNbItems", "CDatSeg::GetNbItems", N | Z | C, 0, "0", W, "", kSv, ""},
    {"getNbItems", "CDatSeg::GetNbItems", P, 0, "1", W, "", kSv, ""},
    {"getNbItems", "CDatSeg::GetNbItems", M, 0, "-1", W, "", kSv, ""},
    {"getSegment", "CDatSeg::GetSegment", N | Z | M | C, 0, "false 9,9,9,9", W, "", kSv, ""},
    // A count of items written that the suite did not write: the outputs stay as they were.
    {"getSegment", "CDatSeg::GetSegment", P, 0, "true 9,9,9,9", W, "", kSv, ""},
    {"removeSegment", "CDatSegHandler::RemoveSeg", N | Z | C, 0, "false", W, "", kSv, ""},
    {"getCmdNameColl", "GetKrvTabListCmd", ALL_BUT_T, 0, "0", W, "", kSv, ""},
    {"getCmdInfo", "CService::Get", ALL_BUT_T, 0, "null", W, "", kSv, ""},
    // The small-count sampler reporting a failure: the one exception of the library's own.
    {"getUniformFeret3dAngles", "IpSampleHalfSphereAngle", P | M, 0, "throw IpSampleHalfSphereAngle failed while setting Feret3d parameters", E, "IpSampleHalfSphereAngle failed while setting Feret3d parameters", kMs, "throw KAPI_FAILURE(\"IpSampleHalfSphereAngle"},
    {"setFeret3dMsrParams", "IpSampleHalfSphereAngle", P | M, 0, "throw IpSampleHalfSphereAngle failed while setting Feret3d parameters", E, "IpSampleHalfSphereAngle failed while setting Feret3d parameters", kMs, "throw KAPI_FAILURE(\"IpSampleHalfSphereAngle"},
    // The measurement family: its odd answers as the headers give them (getMsrInfo hands the
    // suite's answer on unchanged, a non-zero one included).
    // No list for the group: it is taken for a new one, holding the one measure.
    {"addMsrToMsrGrp", "CDatAnlHandler::GetGrpMsr", ALL_BUT_T, 0, "true", W, "", kMg, "", 0, "f1|l1|m1|s1|g1|grp:Perimeter|u1"},
    {"addMsrToMsrGrp", "CDatAnlHandler::IsKrvMsr", N | Z | C, 0, "false", E, "Can't add measure to measure group grp, this measure doesn't exists", kMg, "\"Can't add measure to measure group \""},
    {"createUsrMsrByFormula", "CDatAnlHandler::AddUsrMsr", ALL_BUT_T, 0, "false", E, "Invalid user measure name u2, can't create it", kMs, "\"Invalid user measure name \""},
    {"createUsrMsrByFormula", "CDatAnlHandler::IsKrvMsr", N | Z | C, 0, "false", E, "Invalid user measure formula Area * 2 for user measure u2", kMs, "if (measure->initUsrFormula(formula)) return true;", 1},
    {"createUsrMsrByFormula", "CDatUsrMeasure::checkMsrFormula", N | Z | M | C, 0, "false", E, "Invalid user measure formula Area * 2 for user measure u2", kMs, "if (!CDatUsrMeasure::checkMsrFormula(std::string(formula.c_str()))) {", 1},
    {"createUsrMsrByFormula", "CDatUsrMeasure::initUsrFormula", N | Z | M | C, 0, "false", E, "Invalid user measure formula Area * 2 for user measure u2", kMs, "if (measure->initUsrFormula(formula)) return true;", 1},
    {"createUsrMsrByIPFunction", "CDatAnlHandler::AddUsrMsr", ALL_BUT_T, 0, "false", E, "Invalid user measure name u3, can't create it", kMs, "\"Invalid user measure name \""},
    {"createUsrMsrByIPFunction", "CDatUsrMeasure::checkIpFunction", N | Z | M | C, 0, "false", E, "Invalid user measure Ip function MeanIntensity for user measure u3", kMs, "if (!CDatUsrMeasure::checkIpFunction(function)) {", 1},
    {"createUsrMsrByIPFunction", "CDatUsrMeasure::initIpFunction", N | Z | M | C, 0, "false", E, "Invalid user measure Ip function MeanIntensity for user measure u3", kMs, "if (measure->initIpFunction(function)) return true;", 1},
    {"getMsrGrpList", "CDatAnlHandler::GetGrpList", ALL_BUT_T, 0, "", W, "", kMs, ""},
    {"getMsrGrpMsrList", "CDatAnlHandler::GetGrpMsr", ALL_BUT_T, 0, "", E, "Can't get measures from measure group grp, this measure group doesn't exists", kMg, "\"Can't get measures from measure group \""},
    {"getMsrInfo", "findMsrInfo", N | Z | M | C, 0, "false untouched", W, "", kMs, ""},
    {"getMsrInfo", "findMsrInfo", P, 0, "true untouched", W, "", kMs, ""},
    {"getMsrParams", "CDatAnlHandler::IsUserMsr", P | M, 0, "", W, "User measures have no parameters, can't get it, for measure FeretMax", kMs, "\"User measures have no parameters, can't get it, for measure \""},
    {"getMsrParams", "IpIndGetMsrInfo", P | M, 0, "", E, "Can't find measure FeretMax", kMs, "if (IpIndGetMsrInfo(name.c_str(), &info, &values, message) != 0) {", 1},
    // 0 (found) without the description filled: no parameters, as the zeroed description says.
    {"getMsrParams", "IpIndGetMsrInfo", N | Z, 0, "", W, "", kMs, ""},
    {"setMsrParams", "IpIndGetMsrInfo", N | Z, 0, "false", E, "Measure FeretMax has no parameters, can't set it", kMs, "\" has no parameters, can't set it\""},
    {"setFeret3dMsrParams", "IpIndGetMsrInfo", N | Z, 0, "false", E, "Measure Length3d has no parameters, can't set it", kMs, "\" has no parameters, can't set it\""},
    {"getNatMsrList", "CDatAnlHandler::GetNatMsrList", ALL_BUT_T, 0, "0", W, "", kMs, ""},
    {"getUsrMsrFormula", "CDatAnlHandler::GetUsrMsr", ALL_BUT_T, 0, "", E, "Can't get formula for user measure u1, this user measure doesn't exists", kMs, "\", this user measure doesn't exists\""},
    {"getUsrMsrFormula", "CDatUsrMeasure::getUsrMeasureType", M, 0, "", E, "Can't get formula for user measure u1, unsupported user measure type", kMs, "\", unsupported user measure type\""},
    {"getUsrMsrFormula", "CDatUsrMeasure::getUsrMeasureType", P, 0, "", W, "", kMs, ""},
    {"getUsrMsrList", "CDatAnlHandler::GetUsrMsrList", ALL_BUT_T, 0, "", W, "", kMs, ""},
    {"removeAllMsrGrp", "CDatAnlHandler::RemoveGrpMsr", N | Z | C, 0, "-", W, "Can't remove measure group grp, this measure group doesn't exists", kMg, "KAPI_LOG(Warn, \"Can't remove measure group \", name, \", this measure group doesn't exists\");"},
    {"removeAllUsrMsr", "CDatAnlHandler::RemoveUsrMsr", N | Z | C, 0, "-", W, "Can't remove user measure u1", kMs, "\"Removing user measure \"", 2},
    {"removeMsrFromMsrGrp", "CDatAnlHandler::GetGrpMsr", ALL_BUT_T, 0, "-", E, "Can't remove measure Area from measure group grp, this measure group doesn't exists", kMg, "KAPI_LOG(Error, \"Can't remove measure \", measure, \" from measure group \", group, \", this measure group doesn't exists\");"},
    {"removeMsrGrp", "CDatAnlHandler::RemoveGrpMsr", N | Z | C, 0, "-", W, "Can't remove measure group grp, this measure group doesn't exists", kMg, "KAPI_LOG(Warn, \"Can't remove measure group \", group, \", this measure group doesn't exists\");"},
    {"removeUsrMsr", "CDatAnlHandler::RemoveUsrMsr", N | Z | C, 0, "-", W, "Can't remove user measure u1", kMs, "\"Removing user measure \"", 2},
    {"setFeret3dMsrParams", "CDatAnlHandler::IsUserMsr", P | M, 0, "false", E, "User measures have no parameters, can't set it, for measure Length3d", kMs, "\"User measures have no parameters, can't set it, for measure \""},
    {"setFeret3dMsrParams", "IpIndGetMsrInfo", P | M, 0, "false", E, "Can't find measure Length3d", kMs, "if (IpIndGetMsrInfo(name.c_str(), &info, &old, message) != 0) {", 1},
    {"setFeret3dMsrParams", "IpIndSetMsrInfo", P | M, 0, "false", E, "Can't set parameters for measure Length3d", kMs, "\"Can't set parameters for measure \""},
    {"setFeret3dMsrParams", "IpSampleHalfSphereAngle", C, 0, "false", E, "Can't set parameters for measure Length3d", kMs, "\"Can't set parameters for measure \""},
    {"setMsrParams", "CDatAnlHandler::IsUserMsr", P | M, 0, "false", E, "User measures have no parameters, can't set it, for measure FeretMax", kMs, "\"User measures have no parameters, can't set it, for measure \""},
    {"setMsrParams", "IpIndGetMsrInfo", P | M, 0, "false", E, "Can't find measure FeretMax", kMs, "if (IpIndGetMsrInfo(name.c_str(), &info, &old, message) != 0) {", 1},
    {"setMsrParams", "IpIndSetMsrInfo", P | M, 0, "false", E, "Can't set parameters for measure FeretMax", kMs, "\"Can't set parameters for measure \""},
};

const Outcome* outcomeOf(const std::string& call, const std::string& point, Answer answer, int nth) {
    for (const Outcome& o : kOutcomes)
        if (call == o.call && point == o.point && (o.answers & bit(answer)) && (o.nth == 0 || o.nth == nth)) return &o;
    return nullptr;
}

// Every fault point of the stand-alone suite, read from its sources: the first quoted text after
// each use of the fault macros or of KrvFault::point.
std::vector<std::string> faultPoints() {
    std::vector<std::string> points;
    for (const auto& entry :
         boost::filesystem::recursive_directory_iterator(std::string(KORVANE_SOURCE_DIR) + "/host")) {
        if (entry.path().extension() != ".cpp") continue;
        std::ifstream in(entry.path().string());
        for (std::string line; std::getline(in, line);) {
            std::size_t use = std::string::npos;
            for (const char* marker : {"KRV_FAULT_RETURN(", "KRV_FAULT_COUNT(", "KrvFault::point("})
                use = std::min(use, line.find(marker));
            const std::size_t open = use == std::string::npos ? use : line.find('"', use);
            if (open == std::string::npos) continue;
            points.push_back(line.substr(open + 1, line.find('"', open + 1) - open - 1));
        }
    }
    std::sort(points.begin(), points.end());
    points.erase(std::unique(points.begin(), points.end()), points.end());
    return points;
}

class FaultLoopTest : public kapitest::SuiteTest {
protected:
    // The same objects before every run: one of each kind.
    void populate() {
        KrvFault::reset();
        removeAllFilters();
        for (const std::string& name : getLutList()) removeLut(name);
        for (const std::string& name : getMorphoLutList()) removeLut(name);
        for (const std::string& name : getSieveList()) removeSieve(name);
        for (const std::string& name : getSegmentList()) removeSegment(name);
        ASSERT_TRUE(createFilter("f1", "I1+1"));
        ASSERT_TRUE(createLut("l1", {1, 2, 3}));
        ASSERT_TRUE(createMorphoLut("m1", kMorphoValues, 2, 1, 2));
        ASSERT_TRUE(createSieve("s1", {1.5f, 2.5f}));
        ASSERT_TRUE(createSegment("g1"));
        ASSERT_EQ(CDatSegHandler::m_pInstance->FindObj(CKrvString("g1"))->AppendChain({{1, 2, 3, 4}, {5, 6, 7, 8}}), 0);
        removeAllMsrGrp();
        removeAllUsrMsr();
        addMsrGrp("grp");
        ASSERT_TRUE(addMsrToMsrGrp("grp", "Area"));
        ASSERT_TRUE(createUsrMsrByFormula("u1", "Area + 1", eMsrUnitDim5));
        KrvFault::reset();
        log->clear();
    }

    // The library's lines of the run without faults, in their order (their levels and places are
    // the tear-down's to check).
    void expectCleanLines(const Call& call) const {
        std::string lines;
        for (const kapitest::LogLine& line : log->lines())
            if (line.logger == "Korvane.KorvaneAPI") lines += (lines.empty() ? "" : "|") + line.message;
        const std::string expected = call.lines;
        const std::size_t open = expected.find("...");
        EXPECT_EQ(open == std::string::npos ? lines : lines.substr(0, open), expected.substr(0, open)) << call.name;
        if (open != std::string::npos) { EXPECT_GT(lines.size(), open) << call.name; }
    }

    std::vector<kapitest::LogLine> complaints() const {
        std::vector<kapitest::LogLine> found;
        for (const kapitest::LogLine& line : log->lines())
            if (line.level >= Level::Warn) found.push_back(line);
        return found;
    }
};

TEST_F(FaultLoopTest, EveryFunctionIsInTheLoop) {
    std::ifstream in(std::string(KORVANE_SOURCE_DIR) + "/tests/exported_symbols.txt");
    std::set<std::string> looped(kElsewhere);
    int functions = 0;
    for (const Call& call : calls()) looped.insert(call.name);
    for (std::string line; std::getline(in, line);) {
        // "name(arguments)" or "name[abi:cxx11]()": a function; anything else is a class member.
        const std::size_t end = line.find_first_of("([");
        if (line.empty() || !std::islower(static_cast<unsigned char>(line[0])) || end == std::string::npos ||
            line.find_first_of(" :") < end)
            continue;
        EXPECT_EQ(looped.count(line.substr(0, end)), 1u) << line.substr(0, end) << " is exported but not in the fault loop";
        ++functions;
    }
    EXPECT_GE(functions, 38);
}

TEST_F(FaultLoopTest, EachHostCallFailsInTurnWithEveryAnswer) {
    const std::vector<std::string> points = faultPoints();
    ASSERT_GE(points.size(), 20u);
    int runs = 0;
    std::set<const Outcome*> used;
    populate();
    const std::string populated = storeState();
    // A failed call leaves the stores as they were. Any other run leaves them as they were or as
    // the run without faults does (an injected answer stands for the host's work): nothing half-made.
    const auto expectStores = [&populated](const std::string& either) {
        KrvFault::reset();
        const std::string stores = storeState();
        EXPECT_TRUE(stores == populated || stores == either) << "the objects left behind: " << stores;
    };
    for (const Call& call : calls()) {
        populate();
        const std::string clean = call.run();
        ASSERT_TRUE(complaints().empty()) << call.name << " complains without a fault";
        expectCleanLines(call);
        std::map<std::string, std::uint64_t> hits;
        for (const std::string& point : points)
            if (KrvFault::calls(point) > 0) hits[point] = KrvFault::calls(point);
        const std::string cleanStores = storeState();

        for (const auto& [point, count] : hits) {
            for (int nth = 1; nth <= static_cast<int>(count); ++nth) {
                for (Answer answer : kAnswers) {
                    SCOPED_TRACE(std::string(call.name) + ": call " + std::to_string(nth) + " of " + point +
                                 " answers " + kAnswerNames[static_cast<int>(answer)]);
                    populate();
                    KrvFault::arm(point, answer, nth);
                    ++runs;
                    const Outcome* expected = outcomeOf(call.name, point, answer, nth);
                    if (expected) used.insert(expected);
                    std::string result;
                    try {
                        result = call.run();
                    } catch (const std::exception& e) {
                        const auto* fromSuite = dynamic_cast<const KrvBaseException*>(&e);
                        result = "throw " + (fromSuite ? fromSuite->getMessage() : std::string(e.what()));
                        if (expected == nullptr || std::string(expected->result).rfind("throw ", 0) != 0) {
                            EXPECT_EQ(answer, Answer::Throw);
                            EXPECT_EQ(result, "throw Injected fault in " + point);
                            EXPECT_TRUE(complaints().empty());
                            expectStores(cleanStores);
                            continue;
                        }
                    }
                    EXPECT_NE(answer, Answer::Throw) << "the suite's exception was swallowed: " << result;
                    const std::vector<kapitest::LogLine> lines = complaints();
                    if (expected == nullptr) {
                        EXPECT_EQ(result, clean);
                        EXPECT_TRUE(lines.empty()) << lines.front().message;
                        expectStores(cleanStores);
                        continue;
                    }
                    EXPECT_EQ(result, expected->result);
                    expectStores(expected->stores ? expected->stores : populated);
                    if (*expected->message == '\0') {
                        EXPECT_TRUE(lines.empty()) << lines.front().message;
                    } else {
                        ASSERT_EQ(lines.size(), 1u);
                        kapitest::expectLogLine(*log, expected->level, expected->message, expected->file,
                                                kapitest::sourceLine(expected->file, expected->snippet) + expected->after);
                    }
                }
            }
        }
    }
    for (const Outcome& o : kOutcomes) EXPECT_EQ(used.count(&o), 1u) << o.call << " / " << o.point << " never ran";
    RecordProperty("runs", runs);
    std::cout << "fault loop: " << runs << " runs over " << calls().size() << " functions\n";
}

}  // namespace
