// The data service's image files: a failure is a false answer with an Error line in
// "Korvane.Data" naming the file and the reason, like every other refusal of the service.
#include <vantry_data/CDatImg.h>
#include <vantry_data/CDatService.h>
#include <vantry_data/KrvImageFile.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvLogger.h>

namespace {

bool refuse(const std::string& message, int line) {
    static KrvLogger log("Korvane.Data");
    if (log.isEnabledFor(KrvLoggerLevel::Error)) log.forcedLog(KrvLoggerLevel::Error, message, __FILE__, line);
    return false;
}

// The image store, or null after the one "not started" line when the data service is stopped.
CDatImgHandler* runningStore() {
    CDatImgHandler* store = CDatImgHandler::m_pInstance;
    if (!store->IsStopped()) return store;
    logKrvNotStarted();
    return nullptr;
}

}  // namespace

bool CDatService::LoadImageA(const CKrvString& file, const CKrvString& name, int first, int count) {
    KRV_FAULT_RETURN(bool, "CDatService::LoadImageA");
    const std::string what = "Can't load image " + name.m_str + " from " + file.m_str + ": ";
    CDatImgHandler* store = runningStore();
    if (store == nullptr) return false;
    if (!CKrvHandler::IsValidName(name) || store->FindObj(name) != nullptr)
        return refuse(what + "the name is invalid or already used", __LINE__);
    try {
        KrvImage image = KrvImageFile::Read(file.m_str, first, count);
        if (store->AddImg(name, std::move(image)) == nullptr) return refuse(what + "the store refused it", __LINE__);
    } catch (const KrvBaseException& error) {
        return refuse("Can't load image " + name.m_str + ": " + error.getMessage(), __LINE__);
    }
    return true;
}

bool CDatService::SaveImage(const CKrvString& name, const CKrvString& file, int first, int count) {
    KRV_FAULT_RETURN(bool, "CDatService::SaveImage");
    const CDatImgHandler* store = runningStore();
    if (store == nullptr) return false;
    const CDatImg* image = store->FindObj(name);
    if (image == nullptr) return refuse("Can't save image " + name.m_str + " to " + file.m_str + ": no such image", __LINE__);
    try {
        KrvImageFile::Write(image->GetImage(), file.m_str, first, count);
    } catch (const KrvBaseException& error) {
        return refuse("Can't save image " + name.m_str + ": " + error.getMessage(), __LINE__);
    }
    return true;
}
