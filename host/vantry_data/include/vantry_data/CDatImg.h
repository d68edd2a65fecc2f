// The image store: named images kept by the image handler under the common name rules. An
// image's voxel bytes count against the memory budget while it is stored, and after its removal
// while a share of its voxels lives (KrvImage::ShareVoxels).
#pragma once
#include <vantry_data/KrvImage.h>
#include <vantry_util/CKrvHandler.h>
#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>

class VANTRY_DATA_EXPORT CDatImg : public CKrvObject {
public:
    CDatImg(const CKrvString& name, KrvImage&& image);
    ~CDatImg() override;

    KrvImage& GetImage() noexcept { return m_image; }
    const KrvImage& GetImage() const noexcept { return m_image; }

private:
    KrvImage m_image;
};

class VANTRY_DATA_EXPORT CDatImgHandler : public CKrvHandler {
public:
    // The running store while the data service runs; the stopped handler otherwise.
    static CDatImgHandler* m_pInstance;

    // Stores `image` (which must hold voxels) under `name`; null, the image left with the
    // caller, when the name is invalid or already used or the image is empty.
    CDatImg* AddImg(const CKrvString& name, KrvImage&& image);
    // A new image of zeros; null (nothing changed) when the name is invalid or used, a size is
    // below 1, or the memory budget refuses its bytes (a Warn line in "Korvane.Memory").
    CDatImg* AddImg(const CKrvString& name, int nx, int ny, int nz, KrvVoxelType type);
    // 1 when the image was removed, 0 when there is none of that name.
    int RemoveImg(const CKrvString& name);
    // Removes every image; the number removed.
    int RemoveAll();
    CDatImg* FindObj(const CKrvString& name) const override;
};
