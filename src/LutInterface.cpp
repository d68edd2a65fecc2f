// Lookup tables and morphological lookup tables, and their lists.
#include <KorvaneAPI/LookupTables.h>

#include <algorithm>
#include <memory>

#include <vantry_data/CDatMorphoLutHandler.h>
#include <vantry_data/CDatTab.h>
#include <vantry_util/CKrvString.h>

#include "CallFrame.h"
#include "ObjectList.h"

namespace {

constexpr int kPlainLut = 16;
constexpr int kMorphoLut = 32;

CDatMorphoLut* findLut(const std::string& name) {
    return static_cast<CDatMorphoLut*>(CDatMorphoLutHandler::m_pInstance->FindObj(CKrvString(name)));
}

}  // namespace

bool createLut(const std::string& name, const std::vector<int>& values) {
    KAPI_LOG(Debug, "Creating lut ", name, " with ", values.size(), " values");
    std::unique_ptr<int[]> copy(new int[values.size()]);
    std::copy(values.begin(), values.end(), copy.get());
    const CDatMorphoLut* lut = CDatMorphoLutHandler::m_pInstance->AddLut(
        CKrvString(name), static_cast<int>(values.size()), copy.get(), kPlainLut, CKrvString(" "));
    if (lut == nullptr) KAPI_LOG(Error, "Internal error, can't create lut ", name);
    return lut != nullptr;
}

std::vector<int> getLutValues(const std::string& name) {
    CDatMorphoLut* lut = findLut(name);
    if (lut == nullptr) {
        KAPI_LOG(Error, "Can't get lut ", name, ", this lut doesn't exists");
        return std::vector<int>();
    }
    const int size = lut->GetSize();
    // Zeroed: a suite that reports success without writing gives zeros, not the heap's old bytes.
    // A negative size fails here, as any allocation would.
    std::unique_ptr<int[]> values(new int[size]());
    if (lut->GetMorphoLut(values.get()) != 1) {
        KAPI_LOG(Warn, "Empty lut ", name, ", can't get lut values");
        return std::vector<int>();
    }
    std::vector<int> result;
    result.insert(result.end(), values.get(), values.get() + size);  // in index order
    return result;
}

void removeLut(const std::string& name) {
    KAPI_LOG(Debug, "Removing lut ", name);
    if (CDatMorphoLutHandler::m_pInstance->RemoveLut(CKrvString(name)) == 0) KAPI_LOG(Warn, "Failed to remove lut ", name);
}

std::vector<std::string> getLutList() {
    KAPI_LOG(Debug, "Retrieving lut list :");
    std::vector<CKrvString> hostNames;
    CDatMorphoLutHandler::m_pInstance->GetObjList(hostNames);
    const auto plain = [](const CKrvString& name) {
        const auto* lut = static_cast<const CDatMorphoLut*>(CDatMorphoLutHandler::m_pInstance->FindObj(name));
        return lut != nullptr && lut->lutType == kPlainLut;
    };
    return KAPI_COPY_NAMES(hostNames, kapi::NameLines::Logged, plain);
}

bool createMorphoLut(const std::string& name, const int* values, int size, int flag1, int flag2) {
    KAPI_LOG(Debug, "Creating '", name, "' morphological lut.");
    // The caller's pointer itself: the suite copies the values.
    return CDatMorphoLutHandler::m_pInstance->AddLut(CKrvString(name), size, const_cast<int*>(values), flag1, flag2,
                                                     CKrvString(" ")) != nullptr;
}

bool getMorphoLutDataPtr(const std::string& name, int*& values, int& size) {
    size = 0;
    values = nullptr;
    CDatMorphoLut* lut = findLut(name);
    if (lut == nullptr) {
        KAPI_LOG(Error, "Can't get '", name, "' morphological lut, this morphological lut doesn't exists");
        return false;
    }
    size = lut->GetSize();
    if (size == 0) {
        KAPI_LOG(Warn, "Empty '", name, "' morphological lut, can't get values");
        return false;
    }
    auto* grey = dynamic_cast<CDatIntField*>(lut->GetField(CKrvString("Grey")));
    if (grey == nullptr) {
        values = nullptr;
        KAPI_LOG(Warn, "Invalid '", name, "' morphological lut, can't get values");
        return false;
    }
    values = grey->GetData();
    return values != nullptr;
}

bool getMorphoLutFlags(const std::string& name, int& flag1, int& flag2) {
    flag1 = -1;
    flag2 = -1;
    const CDatMorphoLut* lut = findLut(name);
    if (lut == nullptr) {
        KAPI_LOG(Error, "Can't get '", name, "' morphological lut, this morphological lut doesn't exist.");  // flags stay -1
        return false;
    }
    flag1 = lut->flag1;
    flag2 = lut->flag2;
    return true;
}

bool setMorphoLutFlags(const std::string& name, int flag1, int flag2) {
    CDatMorphoLut* lut = findLut(name);
    if (lut == nullptr) {
        KAPI_LOG(Error, "Can't get '", name, "' morphological lut, this morphological lut doesn't exist.");  // nothing written
        return false;
    }
    lut->flag1 = flag1;
    lut->flag2 = flag2;
    return true;
}

bool removeMorphoLut(const std::string& name) {
    KAPI_LOG(Debug, "Removing '", name, "' morphological lut.");
    const CDatMorphoLut* lut = findLut(name);
    if (lut == nullptr) {
        KAPI_LOG(Warn, "The '", name, "' morphological lut does not exist.");
        return true;
    }
    if (lut->lutType != kMorphoLut) {
        KAPI_LOG(Warn, "The '", name, "' lut does not a morphological lut.");
        return true;
    }
    if (CDatMorphoLutHandler::m_pInstance->RemoveLut(CKrvString(name)) == 0) {
        KAPI_LOG(Warn, "Failed to remove '", name, "' morphological lut.");
        return false;
    }
    return true;
}

std::vector<std::string> getMorphoLutList() {
    KAPI_LOG(Debug, "Retrieving morphological lut list :");
    std::vector<CKrvString> hostNames;
    CDatMorphoLutHandler::m_pInstance->GetLutList(hostNames, kMorphoLut);
    return KAPI_COPY_NAMES(hostNames);
}
