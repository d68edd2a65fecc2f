// Voxel-wise arithmetic.
#include <vantry_access_korlib/KrvKernels.h>

#include "KrvKernelSupport.h"

using namespace KrvKernelSupport;

namespace KrvKernels {

KrvVoxelType WiderType(KrvVoxelType a, KrvVoxelType b) noexcept {
    return static_cast<int>(a) > static_cast<int>(b) ? a : b;
}

void Arithmetic(KrvArithmetic operation, const KrvVoxelView& first, const KrvVoxelView& second,
                const KrvVoxelView& out) {
    if (!first.SameGrid(second)) fail("the two images differ in size", __LINE__);
    requireSameGrid(first, out);
    requireType(out, WiderType(first.type, second.type), "output");
    const std::vector<double> a = toDoubles(first);
    std::vector<double> result = toDoubles(second);
    for (std::size_t i = 0; i < a.size(); ++i) {
        switch (operation) {
        case KrvArithmetic::Add: result[i] = a[i] + result[i]; break;
        case KrvArithmetic::Subtract: result[i] = a[i] - result[i]; break;
        case KrvArithmetic::Multiply: result[i] = a[i] * result[i]; break;
        }
    }
    storeDoubles(result, out);
}

void Invert(const KrvVoxelView& in, const KrvVoxelView& out) {
    requireSameGrid(in, out);
    requireType(out, in.type, "output");
    dispatch(in.type, [&](auto t) {
        using T = decltype(t);
        const T* src = in.As<T>();
        T* dst = out.As<T>();
        for (std::size_t i = 0; i < in.Count(); ++i) {
            if constexpr (std::is_floating_point_v<T>)
                dst[i] = -src[i];
            else
                dst[i] = static_cast<T>(std::numeric_limits<T>::max() - src[i]);
        }
    });
}

}  // namespace KrvKernels
