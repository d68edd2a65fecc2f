// The image reader over arbitrary bytes: TIFF and PNG from memory, every page. A file is
// either read whole or refused with a KrvBaseException; nothing else may happen.
//   korvane_image_fuzz fuzz/corpus/image -max_total_time=20
#include <cstddef>
#include <cstdint>

#include <vantry_data/KrvImageFile.h>
#include <vantry_util/CKrvSettingDoc.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // A budget keeps a claimed size from passing the fuzzer's memory limit.
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(std::uint64_t(256) << 20);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const KrvImage image = KrvImageFile::ReadMemory(data, size, "input");
        // Touch every voxel byte, so that a buffer shorter than claimed is found.
        const auto* bytes = static_cast<const std::uint8_t*>(image.GetData());
        unsigned sum = 0;
        for (std::size_t i = 0; i < image.GetByteCount(); ++i) sum += bytes[i];
        if (image.GetByteCount() != image.GetPlaneBytes() * std::size_t(image.GetSizeZ())) __builtin_trap();
        (void)sum;
    } catch (const KrvBaseException&) {
    }
    return 0;
}
