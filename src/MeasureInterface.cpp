// User measures, measure parameters and Feret 3-D directions.
#include <KorvaneAPI/Measures.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include <vantry_access_korlib/IpMeasure.h>
#include <vantry_data/CDatAnlHandler.h>
#include <vantry_process/MeasureInfo.h>
#include <vantry_zel/SphereSampling.h>

#include "AnalysisMsr.h"
#include "CallFrame.h"
#include "ObjectList.h"

namespace {

// Hidden from every list a client sees, and so kept by removeAllUsrMsr.
bool isClientMeasure(const CKrvString& name)
{
    static const char* const reserved[] = {"BlobClassDist", "ClassId", "ClassIdConfidence", "ComputedClassId",
                                           "Validate"};
    for (const char* text : reserved)
        if (name.m_str == text) return false;
    return true;
}

// Makes the measure and stores its unit dimension: the caller's 0..7 as 5 - value, anything
// else reported and stored as 0 (the creation goes on). Null, after the Error line, when the
// handler refuses the name.
CDatUsrMeasure* newUsrMsr(const std::string& name, eMsrUnitDim unitDim)
{
    CDatUsrMeasure* measure = CDatAnlHandler::m_pInstance->AddUsrMsr(CKrvString(name.c_str()));
    if (measure == nullptr) {
        KAPI_LOG(Error, "Invalid user measure name ", name, ", can't create it");
        return nullptr;
    }
    if (static_cast<std::uint32_t>(unitDim) > 7u) {
        KAPI_LOG(Error, "Error, invalid user measure unit dimension value for measure ", name);
        measure->m_unitDim = 0;
    } else {
        measure->m_unitDim = 5 - static_cast<std::int32_t>(unitDim);
    }
    return measure;
}

// A definition the measure refused: the half-made measure goes again.
void undoCreation(const std::string& name)
{
    if (CDatAnlHandler::m_pInstance->RemoveUsrMsr(CKrvString(name.c_str())) == 0)
        KAPI_LOG(Warn, "Can't remove user measure ", name);
}

constexpr int kSmallSamplerMax = 100;

float toDegrees(float radians) { return static_cast<float>(static_cast<double>(radians) * 180.0 / 3.141592653589793); }

}  // namespace

bool createUsrMsrByFormula(const std::string& name, const std::string& formula, eMsrUnitDim unitDim)
{
    KAPI_LOG(Debug, "Creating user measure ", name, " associated to formula ", formula);
    if (!CDatUsrMeasure::checkMsrFormula(std::string(formula.c_str()))) {
        KAPI_LOG(Error, "Invalid user measure formula ", formula, " for user measure ", name);
        return false;
    }
    CDatUsrMeasure* measure = newUsrMsr(name, unitDim);
    if (measure == nullptr) return false;
    if (measure->initUsrFormula(formula)) return true;
    KAPI_LOG(Error, "Invalid user measure formula ", formula, " for user measure ", name);
    undoCreation(name);
    return false;
}

bool createUsrMsrByIPFunction(const std::string& name, const std::string& function, eMsrUnitDim unitDim)
{
    KAPI_LOG(Debug, "Creating user measure ", name, " associated to ip function ", function);
    if (!CDatUsrMeasure::checkIpFunction(function)) {
        KAPI_LOG(Error, "Invalid user measure Ip function ", function, " for user measure ", name);
        return false;
    }
    CDatUsrMeasure* measure = newUsrMsr(name, unitDim);
    if (measure == nullptr) return false;
    if (measure->initIpFunction(function)) return true;
    KAPI_LOG(Error, "Invalid user measure Ip function ", function, " for user measure ", name);
    undoCreation(name);
    return false;
}

std::string getUsrMsrFormula(const std::string& name)
{
    KAPI_LOG(Debug, "Retrieving formula for user measure ", name);
    const CDatUsrMeasure* measure = CDatAnlHandler::m_pInstance->GetUsrMsr(CKrvString(name));
    if (measure == nullptr) {
        KAPI_LOG(Error, "Can't get formula for user measure ", name, ", this user measure doesn't exists");
        return std::string();
    }
    switch (measure->getUsrMeasureType()) {
        case 0: {
            const std::string& formula = measure->getFormulaStr();
            KAPI_LOG(Debug, "Formula = ", formula);
            return formula;
        }
        case 1: {
            const std::string& function = measure->getIpFunctionName();
            KAPI_LOG(Debug, "IpFunction = ", function);
            return function;
        }
        default:
            KAPI_LOG(Error, "Can't get formula for user measure ", name, ", unsupported user measure type");
            return std::string();
    }
}

std::vector<std::string> getUsrMsrList()
{
    KAPI_LOG(Debug, "Retrieving user measure list :");
    std::vector<CKrvString> measures;
    CDatAnlHandler::m_pInstance->GetUsrMsrList(measures);
    return KAPI_COPY_NAMES(measures, kapi::NameLines::Logged, &isClientMeasure);
}

void removeUsrMsr(const std::string& name)
{
    KAPI_LOG(Debug, "Removing user measure ", name);
    if (CDatAnlHandler::m_pInstance->RemoveUsrMsr(CKrvString(name.c_str())) == 0)
        KAPI_LOG(Warn, "Can't remove user measure ", name);
}

void removeAllUsrMsr()
{
    KAPI_LOG(Debug, "Removing all user measures");
    // Through the exported functions: the reserved measures are not in the list, so they stay.
    for (const std::string& name : getUsrMsrList()) removeUsrMsr(name);
}

bool getMsrInfo(const std::string& name, MeasureInfo& info) { return findMsrInfo(name, info); }

std::vector<float> getMsrParams(const std::string& name)
{
    KAPI_LOG(Debug, "Getting params for user measure ", name);
    std::vector<float> params;
    if (CDatAnlHandler::m_pInstance->IsUserMsr(CKrvString(name)) != 0) {
        KAPI_LOG(Warn, "User measures have no parameters, can't get it, for measure ", name);
        return params;
    }
    MsrInfo info{};  // zeroed: a suite that answers 0 without filling it gives no parameters
    float* values = nullptr;
    char message[256];
    if (IpIndGetMsrInfo(name.c_str(), &info, &values, message) != 0) {
        KAPI_LOG(Error, "Can't find measure ", name);
        return params;
    }
    // The host's array is ours to free from here on.
    const std::unique_ptr<float, decltype(&std::free)> owned(values, &std::free);
    const std::int32_t count = info.nbParams;
    if (values == nullptr && count != 0) {
        KAPI_LOG(Error, "Internal error, measure info size mismatch with pointer value for measure ", name);
        return params;
    }
    for (std::int32_t i = 0; i < count; ++i) {
        params.push_back(values[i]);
        KAPI_LOG(Debug, values[i]);
    }
    return params;
}

bool setMsrParams(const std::string& name, const std::vector<float>& params)
{
    KAPI_LOG(Debug, "Setting params for user measure ", name);
    if (CDatAnlHandler::m_pInstance->IsUserMsr(CKrvString(name)) != 0) {
        KAPI_LOG(Error, "User measures have no parameters, can't set it, for measure ", name);
        return false;
    }
    MsrInfo info{};  // zeroed: a suite that answers 0 without filling it gives no parameters
    float* old = nullptr;
    char message[256];
    if (IpIndGetMsrInfo(name.c_str(), &info, &old, message) != 0) {
        KAPI_LOG(Error, "Can't find measure ", name);
        return false;
    }
    std::free(old);  // the current values are never used
    if (info.hasParams == 0) {
        KAPI_LOG(Error, "Measure ", name, " has no parameters, can't set it");
        return false;
    }
    const std::int32_t count = static_cast<std::int32_t>(params.size());
    info.nbParams = count;
    // A negative count (more than 2^31 values) asks for the largest size, which fails as such.
    const std::size_t elements = count < 0 ? static_cast<std::size_t>(-1) / sizeof(float) : static_cast<std::size_t>(count);
    const std::unique_ptr<float[]> values(new float[elements]);
    for (std::int32_t i = 0; i < count; ++i) {
        values[i] = params[i];
        KAPI_LOG(Debug, values[i]);
    }
    if (IpIndSetMsrInfo(name.c_str(), &info, values.get()) == 0) return true;
    KAPI_LOG(Error, "Can't set parameters for measure ", name);
    return false;
}

std::vector<std::string> getNatMsrList()
{
    KAPI_LOG(Debug, "Retrieving native measure list :");
    std::vector<CKrvString> measures;
    CDatAnlHandler::m_pInstance->GetNatMsrList(measures);
    return KAPI_COPY_NAMES(measures);
}

std::vector<float> getUniformFeret3dAngles(int n)
{
    if (n < 1) throw KAPI_FAILURE("Number of angles for Feret3d measures must be strictly positive");
    std::vector<float> angles;
    if (n <= kSmallSamplerMax) {
        std::vector<float> first(static_cast<std::size_t>(n));
        std::vector<float> second(static_cast<std::size_t>(n));
        if (IpSampleHalfSphereAngle(n, first.data(), second.data()) != 0)
            throw KAPI_FAILURE("IpSampleHalfSphereAngle failed while setting Feret3d parameters");
        angles.reserve(2 * static_cast<std::size_t>(n));
        angles.insert(angles.end(), second.begin(), second.end());
        angles.insert(angles.end(), first.begin(), first.end());
    } else {
        zel::container::Vector<zel::math::Vector2<double>> directions;
        const zel::RefImpl<zel::geometry::SphereSampling> sampler = zel::geometry::SphereSampling::New(nullptr);
        sampler->directionCount = static_cast<unsigned int>(n);
        sampler->method = 1;
        sampler->output = &directions;
        sampler->run(nullptr);
        const std::size_t m = directions.size();  // the sampler's count, whatever was asked
        angles.resize(2 * m);
        // One pass, in the order and roundings of the small path: radians to float, then degrees.
        const zel::math::Vector2<double>* direction = directions.data();
        for (std::size_t i = 0; i < m; ++i) {
            angles[i] = toDegrees(static_cast<float>(direction[i][1]));
            angles[m + i] = toDegrees(static_cast<float>(direction[i][0]));
        }
        return angles;
    }
    for (float& angle : angles) angle = toDegrees(angle);
    return angles;
}

bool setFeret3dMsrParams(int n) { return setMsrParams("Length3d", getUniformFeret3dAngles(n)); }
