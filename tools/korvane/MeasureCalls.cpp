// Calls of the measure families: measure groups, user measures, measure parameters and Feret
// 3-D directions; and the feret listing with its covering radius.
#include <cmath>
#include <iomanip>
#include <sstream>

#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_process/MeasureInfo.h>

#include "Calls.h"
#include "Covering.h"

namespace korvane {

namespace {

eMsrUnitDim unitDim(const Args& args, std::size_t at) {
    return static_cast<eMsrUnitDim>(args.size() > at ? toInt(args[at], "UNITDIM") : 5);
}

Output describe(const Args& args) {
    MeasureInfo info;
    if (!getMsrInfo(args[0], info)) throw CallFailed("getMsrInfo failed: no measure " + args[0]);
    const char* kind = info.isUser ? "user" : "native";
    return {{"name " + info.name, std::string("kind ") + kind, "unitDim " + std::to_string(info.unitDim),
             "dimension " + std::to_string(info.dimension), "params " + std::to_string(info.nbParams),
             "description " + info.description},
            {{"name", info.name},
             {"kind", kind},
             {"unitDim", info.unitDim},
             {"dimension", info.dimension},
             {"params", info.nbParams},
             {"description", info.description}}};
}

Output formula(const Args& args) {
    const std::string text = getUsrMsrFormula(args[0]);
    if (text.empty()) throw CallFailed("getUsrMsrFormula failed: no user measure " + args[0]);
    return said(text);
}

}  // namespace

Output feretListing(int n, bool vectors) {
    const std::vector<float> angles = getUniformFeret3dAngles(n);
    const std::vector<Direction> set = directionsFromDegrees(angles);
    Output output{{}, {{"directions", Json::array()}}};
    const std::size_t m = set.size();
    for (std::size_t i = 0; i < m; ++i) {
        if (vectors) {
            output.lines.push_back(shortest(set[i][0]) + ' ' + shortest(set[i][1]) + ' ' + shortest(set[i][2]));
            output.value["directions"].push_back({set[i][0], set[i][1], set[i][2]});
        } else {
            output.lines.push_back(shortest(angles[i]) + ' ' + shortest(angles[m + i]));
            output.value["directions"].push_back({jsonNumber(angles[i]), jsonNumber(angles[m + i])});
        }
    }
    // The summary line is for reading, to four digits; the JSON object has the values exact.
    const double radius = coveringRadius(set);
    const double worstError = 1.0 - std::cos(radius);
    const double kappa = static_cast<double>(m) * worstError;
    std::ostringstream summary;
    summary << std::setprecision(4) << "covering radius " << radius * 180.0 / M_PI << " degrees, worst Feret error "
            << 100.0 * worstError << "%, kappa " << kappa;
    output.lines.push_back(summary.str());
    output.value["covering_radius_degrees"] = radius * 180.0 / M_PI;
    output.value["worst_feret_error"] = worstError;
    output.value["kappa"] = kappa;
    return output;
}

void addMeasureCalls(CallTable& table) {
    table.add("addMsrGrp", {"addMsrGrp GROUP", "makes an empty measure group (empties an existing one)", 1, 1,
                            [](const Args& a) { addMsrGrp(a[0]); return Output{}; }});
    table.add("addMsrToMsrGrp", {"addMsrToMsrGrp GROUP MEASURE", "appends a measure to a group", 2, 2,
                                 [](const Args& a) { return succeeded(addMsrToMsrGrp(a[0], a[1]), "addMsrToMsrGrp"); }});
    table.add("removeMsrFromMsrGrp", {"removeMsrFromMsrGrp GROUP MEASURE", "takes a measure out of a group", 2, 2,
                                      [](const Args& a) { removeMsrFromMsrGrp(a[0], a[1]); return Output{}; }});
    table.add("removeMsrGrp", {"removeMsrGrp GROUP", "removes a measure group", 1, 1,
                               [](const Args& a) { removeMsrGrp(a[0]); return Output{}; }});
    table.add("removeAllMsrGrp", {"removeAllMsrGrp", "removes every measure group", 0, 0,
                                  [](const Args&) { removeAllMsrGrp(); return Output{}; }});
    table.add("getMsrGrpList", {"getMsrGrpList", "the measure groups, one per line", 0, 0,
                                [](const Args&) { return said(getMsrGrpList()); }});
    table.add("getMsrGrpMsrList", {"getMsrGrpMsrList GROUP", "the measures of a group, one per line", 1, 1,
                                   [](const Args& a) { return said(getMsrGrpMsrList(a[0])); }});
    table.add("createUsrMsrByFormula",
              {"createUsrMsrByFormula NAME FORMULA [UNITDIM]", "defines a user measure by a formula over measures "
               "(UNITDIM 0-7, stored as 5 - UNITDIM; default 5)", 2, 3,
               [](const Args& a) { return succeeded(createUsrMsrByFormula(a[0], a[1], unitDim(a, 2)), "createUsrMsrByFormula"); }});
    table.add("createUsrMsrByIPFunction",
              {"createUsrMsrByIPFunction NAME FUNCTION [UNITDIM]", "binds a user measure to an IP function of the suite",
               2, 3, [](const Args& a) {
                   return succeeded(createUsrMsrByIPFunction(a[0], a[1], unitDim(a, 2)), "createUsrMsrByIPFunction");
               }});
    table.add("getUsrMsrFormula", {"getUsrMsrFormula NAME", "the formula or IP function of a user measure", 1, 1, formula});
    table.add("getUsrMsrList", {"getUsrMsrList", "the user measures, one per line (the reserved ones hidden)", 0, 0,
                                [](const Args&) { return said(getUsrMsrList()); }});
    table.add("removeUsrMsr", {"removeUsrMsr NAME", "removes a user measure", 1, 1,
                               [](const Args& a) { removeUsrMsr(a[0]); return Output{}; }});
    table.add("removeAllUsrMsr", {"removeAllUsrMsr", "removes every user measure but the reserved ones", 0, 0,
                                  [](const Args&) { removeAllUsrMsr(); return Output{}; }});
    table.add("getMsrInfo", {"getMsrInfo NAME", "the suite's description of a measure", 1, 1, describe});
    table.add("getMsrParams", {"getMsrParams NAME", "a native measure's parameter values, one per line", 1, 1,
                               [](const Args& a) { return said(getMsrParams(a[0])); }});
    table.add("setMsrParams", {"setMsrParams NAME VALUE...", "gives a native measure new parameter values", 1, kAnyNumber,
                               [](const Args& a) { return succeeded(setMsrParams(a[0], toFloats(a, 1, "VALUE")), "setMsrParams"); }});
    table.add("getNatMsrList", {"getNatMsrList", "the native measures, one per line", 0, 0,
                                [](const Args&) { return said(getNatMsrList()); }});
    table.add("getUniformFeret3dAngles",
              {"getUniformFeret3dAngles N", "N uniform directions in degrees: the polar angles, then the azimuths", 1, 1,
               [](const Args& a) { return said(getUniformFeret3dAngles(toInt(a[0], "N"))); }});
    table.add("setFeret3dMsrParams", {"setFeret3dMsrParams N", "makes N uniform directions the parameters of Length3d",
                                      1, 1, [](const Args& a) {
                                          return succeeded(setFeret3dMsrParams(toInt(a[0], "N")), "setFeret3dMsrParams");
                                      }});
    table.add("feretSvg", {"feretSvg N FILE", "draws N uniform directions as an SVG picture (korvane feret N --svg FILE)",
                           2, 2, [](const Args& a) {
                               writeFeretSvg(toInt(a[0], "N"), a[1]);
                               return Output{{"wrote " + a[1]}, {{"file", a[1]}}};
                           }});
    table.add("feret", {"feret N [vectors]", "N uniform directions (polar angle and azimuth in degrees, or unit "
                        "vectors), then their covering radius and worst-case Feret error", 1, 2,
                        [](const Args& a) {
                            if (a.size() > 1 && a[1] != "vectors") throw ScriptError("feret: the second argument is \"vectors\"");
                            return feretListing(toInt(a[0], "N"), a.size() > 1);
                        }});
}

}  // namespace korvane
