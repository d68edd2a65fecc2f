// Sieves: created from the client's values, read back, removed and listed through the sieve
// handler. Failures are logged and reported by the result.
#include <KorvaneAPI/Sieves.h>

#include <algorithm>
#include <memory>

#include <vantry_data/CDatTami.h>

#include "CallFrame.h"
#include "ObjectList.h"

bool createSieve(const std::string& name, const std::vector<float>& values) {
    KAPI_LOG(Debug, "Creating sieve ", name, " with ", values.size(), " parameters");
    CDatTami* sieve = CDatTamiHandler::m_pInstance->AddTami(CKrvString(name));
    if (sieve == nullptr) {
        KAPI_LOG(Error, "Internal error, can't create sieve ", name);
        return false;
    }
    // The suite copies the values; this array is ours and goes right after the call (also
    // when the suite throws).
    const std::unique_ptr<float[]> data(new float[values.size()]);
    std::copy(values.begin(), values.end(), data.get());
    sieve->SetData(data.get(), static_cast<int>(values.size()));
    return true;
}

std::vector<float> getSieveParams(const std::string& name) {
    std::vector<float> values;
    CDatTami* sieve = CDatTamiHandler::m_pInstance->FindObj(CKrvString(name));
    if (sieve == nullptr) {
        KAPI_LOG(Error, "Can't get sieve ", name, ", this sieve doesn't exists");
        return values;
    }
    int count = 0;
    const float* data = sieve->GetData(count);
    if (data == nullptr) {
        KAPI_LOG(Warn, "Empty sieve ", name, ", can't get sieve params");
        return values;
    }
    if (count <= 0) return values;
    values.insert(values.end(), data, data + count);  // the suite's storage stays the suite's
    return values;
}

void removeSieve(const std::string& name) {
    KAPI_LOG(Debug, "Removing sieve ", name);
    if (CDatTamiHandler::m_pInstance->RemoveTami(CKrvString(name)) == 0) KAPI_LOG(Warn, "Failed to remove sieve ", name);
}

std::vector<std::string> getSieveList() {
    KAPI_LOG(Debug, "Retrieving sieve list :");
    std::vector<CKrvString> hostNames;
    CDatTamiHandler::m_pInstance->GetObjList(hostNames);
    return KAPI_COPY_NAMES(hostNames);
}
