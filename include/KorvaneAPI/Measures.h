// User measures, measure parameters and Feret 3-D directions. Failures are logged (source file
// src/MeasureInterface) and reported by the result; only getUniformFeret3dAngles throws.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include <KorvaneAPI/KorvaneAPIExport.h>

// The unit dimension of a new user measure: value v (0 to 7) is stored in the measure as 5 - v,
// so 0 stores 5, 5 stores 0 and 7 stores -2. Other values are reported and stored as 0.
enum eMsrUnitDim : std::int32_t {
    eMsrUnitDim0 = 0, eMsrUnitDim1, eMsrUnitDim2, eMsrUnitDim3,
    eMsrUnitDim4, eMsrUnitDim5, eMsrUnitDim6, eMsrUnitDim7
};

// The suite's description of a measure, MeasureInfo: name, isUser, unitDim, dimension (2 or 3;
// 0 for a user measure), nbParams and description (a user measure's formula or IP function).
#include <vantry_process/MeasureInfo.h>

// Defines the user measure `name` by a formula over native and other user measures. False when
// the formula is refused (Error "Invalid user measure formula <formula> for user measure <name>";
// a measure already made is removed again, with a Warn "Can't remove user measure <name>" if that
// fails) or the name is refused (Error "Invalid user measure name <name>, can't create it").
KORVANEAPI_EXPORT bool createUsrMsrByFormula(const std::string& name, const std::string& formula, eMsrUnitDim unitDim);

// The same, binding the measure to an IP function of the suite; the refusal reads "Invalid user
// measure Ip function <function> for user measure <name>".
KORVANEAPI_EXPORT bool createUsrMsrByIPFunction(const std::string& name, const std::string& function,
                                                eMsrUnitDim unitDim);

// The formula or IP function name of the user measure; empty, with an Error line, when there is
// no such measure or its kind is unknown.
KORVANEAPI_EXPORT std::string getUsrMsrFormula(const std::string& name);

// The user measures' names in the suite's order, without the five reserved ones ("BlobClassDist",
// "ClassId", "ClassIdConfidence", "ComputedClassId", "Validate").
KORVANEAPI_EXPORT std::vector<std::string> getUsrMsrList();

// Removes the user measure; a Warn "Can't remove user measure <name>" when the suite refuses.
KORVANEAPI_EXPORT void removeUsrMsr(const std::string& name);

// Removes every user measure the client can see; the suite's five reserved measures stay.
KORVANEAPI_EXPORT void removeAllUsrMsr();

// Fills `info` from the suite; its answer, unchanged (false for an unknown measure). No log.
KORVANEAPI_EXPORT bool getMsrInfo(const std::string& name, MeasureInfo& info);

// The current parameter values of a native measure; empty on any failure (Warn for a user
// measure, Error for an unknown one or an inconsistent answer of the suite).
KORVANEAPI_EXPORT std::vector<float> getMsrParams(const std::string& name);

// Gives a native measure new parameter values; false, with an Error line, for a user measure, an
// unknown measure, a measure without parameters, or values the suite refuses.
KORVANEAPI_EXPORT bool setMsrParams(const std::string& name, const std::vector<float>& params);

// The native measures' names, in the suite's order.
KORVANEAPI_EXPORT std::vector<std::string> getNatMsrList();

// n directions spread evenly over the half sphere, in degrees: the n polar angles, then the n
// azimuths (for n > 100, as many as the large-count sampler gave). Throws KorvaneAPIException,
// after an Error line, for n < 1 ("Number of angles for Feret3d measures must be strictly
// positive") and when the small-count sampler fails ("IpSampleHalfSphereAngle failed while
// setting Feret3d parameters").
KORVANEAPI_EXPORT std::vector<float> getUniformFeret3dAngles(int n);

// Makes n uniform directions the parameters of "Length3d"; the result of setMsrParams. Throws as
// getUniformFeret3dAngles does.
KORVANEAPI_EXPORT bool setFeret3dMsrParams(int n);
