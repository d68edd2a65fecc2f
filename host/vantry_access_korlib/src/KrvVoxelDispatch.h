// Calls a generic function with a view's voxels as their own type, so that one template serves
// every voxel type.
#pragma once
#include <cstdint>
#include <string>

#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvVoxel.h>

template <class Visit>
decltype(auto) krvWithVoxels(const KrvVoxelView& view, Visit&& visit) {
    switch (view.type) {
    case KrvVoxelType::UInt8: return visit(view.As<std::uint8_t>());
    case KrvVoxelType::UInt16: return visit(view.As<std::uint16_t>());
    case KrvVoxelType::Int32: return visit(view.As<std::int32_t>());
    case KrvVoxelType::Float32: break;
    }
    return visit(view.As<float>());
}

// The same for an integer image; a float image is refused with `what` ("the labels image").
template <class Visit>
decltype(auto) krvWithIntegerVoxels(const KrvVoxelView& view, const char* what, Visit&& visit) {
    switch (view.type) {
    case KrvVoxelType::UInt8: return visit(view.As<std::uint8_t>());
    case KrvVoxelType::UInt16: return visit(view.As<std::uint16_t>());
    case KrvVoxelType::Int32: break;
    case KrvVoxelType::Float32:
        throw KrvBaseException(std::string(what) + " is float32; it must hold whole numbers (uint8, uint16 or int32)",
                               __FILE__, __LINE__);
    }
    return visit(view.As<std::int32_t>());
}
