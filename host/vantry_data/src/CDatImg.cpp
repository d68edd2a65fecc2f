// The image store.
#include <vantry_data/CDatImg.h>

#include <vantry_data/CDatService.h>
#include <vantry_util/KrvFault.h>

CDatImgHandler* CDatImgHandler::m_pInstance = krvStoppedHandler<CDatImgHandler>();

namespace {

const KrvHandlerRegistration registration{krvSingletonLifetime<CDatImgHandler>()};

}  // namespace

CDatImg::CDatImg(const CKrvString& name, KrvImage&& image) : CKrvObject(name), m_image(std::move(image)) {}

CDatImg::~CDatImg() = default;

CDatImg* CDatImgHandler::AddImg(const CKrvString& name, KrvImage&& image) {
    KRV_FAULT_RETURN(CDatImg*, "CDatImgHandler::AddImg");
    // Checked before the image moves, so that a refusal leaves it with the caller.
    if (RefusedWhenStopped() || image.IsEmpty() || !IsValidName(name) || CKrvHandler::FindObj(name) != nullptr) return nullptr;
    return static_cast<CDatImg*>(InsertObj(std::make_unique<CDatImg>(name, std::move(image))));
}

CDatImg* CDatImgHandler::AddImg(const CKrvString& name, int nx, int ny, int nz, KrvVoxelType type) {
    KRV_FAULT_RETURN(CDatImg*, "CDatImgHandler::AddImg");
    // Refused before allocating, so that a stopped store takes no budget.
    if (RefusedWhenStopped() || !IsValidName(name) || CKrvHandler::FindObj(name) != nullptr) return nullptr;
    KrvImage image;
    if (!image.Allocate(nx, ny, nz, type, "image")) return nullptr;
    return static_cast<CDatImg*>(InsertObj(std::make_unique<CDatImg>(name, std::move(image))));
}

int CDatImgHandler::RemoveImg(const CKrvString& name) {
    KRV_FAULT_RETURN(int, "CDatImgHandler::RemoveImg");
    return EraseObj(name) ? 1 : 0;
}

int CDatImgHandler::RemoveAll() {
    KRV_FAULT_RETURN(int, "CDatImgHandler::RemoveAll");
    const int count = static_cast<int>(GetObjCount());
    return ClearObj() ? count : 0;
}

CDatImg* CDatImgHandler::FindObj(const CKrvString& name) const {
    return static_cast<CDatImg*>(CKrvHandler::FindObj(name));
}
