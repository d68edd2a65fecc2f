// What each call prints and when it fails, as "help CALL" shows it. The failure results are the
// library's own (see docs/api.md): the tool turns a false or -1 result into a failed line, and
// reports an empty answer as printing nothing.
#include "Calls.h"

namespace korvane {

namespace {

struct Results {
    const char* name;
    const char* prints;
    const char* fails;
};

constexpr Results kResults[] = {
    // Core
    {"getExtraMemUsage", "the limit in bytes, cut to its low 32 bits (0: no limit)", "never"},
    {"setExtraMemUsage", "nothing", "never; -1 means no limit"},
    {"sendStatus", "the status text, as [status] TEXT", "never"},
    // Filters and image formulas
    {"createFilter", "nothing",
     "when the formula fails the syntax check (Error \"Invalid user filter formula ...\"), when the name is "
     "empty, too long or taken (Error \"Internal error while creating filter NAME\"), or when the filter "
     "refuses the formula (the filter is removed again)"},
    {"getFilterFormula", "the formula",
     "never; prints an empty line for an unknown filter (Error \"Can't get formula for filter NAME, this "
     "filter doesn't exists\")"},
    {"removeFilter", "nothing",
     "never; an unknown filter logs Error \"Can't remove filter NAME, this filter doesn't exists\""},
    {"removeAllFilters", "nothing", "never; a refusal logs Error \"Failed to remove all filters\""},
    {"isValidImageFormula", "true or false", "never"},
    {"getFilterList", "the filter names, one a line, in creation order", "never"},
    // Lookup tables
    {"createLut", "nothing",
     "when the name is empty, too long or taken, or the values pass the memory budget (Error \"Internal "
     "error, can't create lut NAME\")"},
    {"getLutValues", "the values on one line",
     "never; an empty line for an unknown or empty table (Error \"Can't get lut NAME, this lut doesn't "
     "exists\" or Warn \"Empty lut NAME, can't get lut values\")"},
    {"removeLut", "nothing", "never; when nothing is removed, Warn \"Failed to remove lut NAME\""},
    {"getLutList", "the plain table names, one a line", "never"},
    {"createMorphoLut", "nothing", "when the name is refused or the values pass the memory budget"},
    {"getMorphoLutDataPtr", "COUNT values: V1 V2 ...",
     "for an unknown name (size 0), an empty table, values that are not a \"Grey\" integer field, or no "
     "storage; the message gives the size"},
    {"getMorphoLutFlags", "flag1 F1, flag2 F2", "for an unknown name (both flags -1)"},
    {"setMorphoLutFlags", "nothing", "for an unknown name"},
    {"removeMorphoLut", "nothing",
     "only when the suite refuses to remove the table; an unknown name or a plain table is a Warn line and "
     "no failure (a plain table stays)"},
    {"getMorphoLutList", "the morphological table names, one a line", "never"},
    // The image store
    {"loadImage", "nothing",
     "when the name is invalid or used or the file can't be read; the suite's reason follows (\"Can't load image "
     "NAME: FILE: REASON\"); nothing is stored"},
    {"saveImage", "nothing", "for an unknown image or a file that can't be written (the suite's reason follows)"},
    {"getImageList", "the image names, one a line, in the order stored", "never"},
    {"imageInfo", "NXxNYxNZ TYPE, voxel size X Y Z, BYTES bytes", "for an unknown image"},
    {"imageVoxels", "the voxel values, one row a line, the planes one after another", "for an unknown image"},
    {"removeImage", "nothing", "for an unknown image"},
    {"removeAllImages", "the number of images removed", "never"},
    // Result tables
    {"showTable", "the header label,MEASURE,... then one row per object, values in their shortest exact form",
     "for an unknown table"},
    {"storeTable", "nothing; a table of that name is replaced", "when the values do not fill whole rows"},
    {"exportTable", "nothing; FILE holds the table as CSV (the lines showTable prints) or as JSON {name, columns, rows}",
     "for an unknown table, a FILE ending in neither .csv nor .json, or a file that can't be written"},
    {"showSheet", "the tool's spreadsheet as showTable prints a table: what the suite's last delivery put in it",
     "before the suite has delivered a table"},
    {"exportSheet", "nothing; FILE holds the tool's spreadsheet as exportTable writes a table",
     "before the suite has delivered a table, for a FILE ending in neither .csv nor .json, or a file that can't be written"},
    // Sieves
    {"createSieve", "nothing",
     "when the name is invalid or taken (Error \"Internal error, can't create sieve NAME\"); values past "
     "the memory budget throw the suite's exception and leave the sieve empty"},
    {"getSieveParams", "the values, one a line",
     "never; nothing for an unknown sieve (Error \"Can't get sieve NAME, this sieve doesn't exists\") or an "
     "empty one (Warn \"Empty sieve NAME, can't get sieve params\")"},
    {"removeSieve", "nothing", "never; when nothing is removed, Warn \"Failed to remove sieve NAME\""},
    {"getSieveList", "the sieve names, one a line", "never"},
    // Segments
    {"createSegment", "nothing", "when the name is invalid or taken"},
    {"getNbChain", "the number of chains", "never; prints -1 for an unknown object"},
    {"getNbItems", "the number of items of the chain", "never; prints -1 for an unknown object or chain"},
    {"getSegment", "X1 Y1 X2 Y2 on one line", "for an unknown object, or a chain or item out of range"},
    {"removeSegment", "nothing", "when nothing was removed"},
    {"getSegmentList", "the segment object names, one a line", "never"},
    {"appendChain", "the index of the new chain", "for an unknown object, or items past the memory budget"},
    {"appendRings", "how many rings were appended", "for an unknown object"},
    // Command catalogue and progress
    {"getCmdNameColl", "the command names, one a line, in the suite's order", "never"},
    {"getCmdInfo", "NAME [CATEGORY], the description, and the parameters on a line",
     "when the suite knows no such command (exact spelling)"},
    {"runCommand", "nothing; its images and result tables are stored under their output names",
     "for an unknown command, an unknown, repeated, missing or ill-typed parameter, a missing image or object, a "
     "refusal of the command (\"runCommand failed: COMMAND: REASON\"; nothing stored), or when stopped"},
    {"lastProgress", "the last progress message and its ratio, or nothing", "never"},
    {"setProgress", "nothing", "when ON is not true/false/1/0"},
    // Measure groups
    {"addMsrGrp", "nothing", "never; an existing group of that name is emptied"},
    {"addMsrToMsrGrp", "nothing",
     "when the suite knows no such measure (Error \"Can't add measure to measure group GROUP, this measure "
     "doesn't exists\"); a missing group is made"},
    {"removeMsrFromMsrGrp", "nothing", "never; a missing group or measure logs an Error line and changes nothing"},
    {"removeMsrGrp", "nothing",
     "never; a missing group logs Warn \"Can't remove measure group GROUP, this measure group doesn't exists\""},
    {"removeAllMsrGrp", "nothing", "never; a Warn line for each group the suite refuses to remove"},
    {"getMsrGrpList", "the group names, one a line", "never"},
    {"getMsrGrpMsrList", "the group's measures, one a line, duplicates included",
     "never; nothing for an unknown group (Error \"Can't get measures from measure group GROUP, this measure "
     "group doesn't exists\")"},
    // User measures, measure parameters, Feret directions
    {"createUsrMsrByFormula", "nothing",
     "when the formula is refused (Error \"Invalid user measure formula FORMULA for user measure NAME\") or the "
     "name is (Error \"Invalid user measure name NAME, can't create it\")"},
    {"createUsrMsrByIPFunction", "nothing",
     "when the function is refused (Error \"Invalid user measure Ip function FUNCTION for user measure NAME\") or "
     "the name is"},
    {"getUsrMsrFormula", "the formula or IP function name", "for an unknown user measure (and an Error line)"},
    {"getUsrMsrList", "the user measure names, one a line, the five reserved ones hidden", "never"},
    {"removeUsrMsr", "nothing", "never; a refusal logs Warn \"Can't remove user measure NAME\""},
    {"removeAllUsrMsr", "nothing", "never; the suite's five reserved measures stay"},
    {"getMsrInfo", "name, kind, unitDim, dimension, params and description, one a line",
     "for a measure the suite does not know (no log line)"},
    {"getMsrParams", "the parameter values, one a line",
     "never; nothing for a user measure (Warn), an unknown one or an inconsistent answer (Error)"},
    {"setMsrParams", "nothing",
     "for a user measure, an unknown measure, a measure without parameters or refused values (an Error line)"},
    {"getNatMsrList", "the native measure names, one a line", "never"},
    {"getUniformFeret3dAngles", "the N polar angles, then the N azimuths, in degrees, one a line",
     "for N < 1 (KorvaneAPIException after Error \"Number of angles for Feret3d measures must be strictly "
     "positive\") or when the sampler fails"},
    {"setFeret3dMsrParams", "nothing", "as getUniformFeret3dAngles, or when setMsrParams of Length3d fails"},
    {"feret", "the N directions, one a line, then the covering radius, worst Feret error and kappa",
     "as getUniformFeret3dAngles"},
    {"feretSvg", "wrote FILE", "as getUniformFeret3dAngles, for more than 20000 directions, or when FILE cannot be written"},
};

}  // namespace

void describeResults(CallTable& table) {
    for (const Results& entry : kResults)
        table.describe(entry.name, std::string("prints: ") + entry.prints + "\nfails:  " + entry.fails);
}

}  // namespace korvane
