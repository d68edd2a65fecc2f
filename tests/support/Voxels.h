// What the tests of the stand-alone suite's kernels and measurements share: a voxel grid that owns
// its voxels, and the message a call refuses with.
#pragma once
#include <cstddef>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvVoxel.h>

namespace kapitest {

template <class T>
struct Voxels {
    int nx, ny, nz;
    KrvVoxelSize size;
    std::vector<T> voxels;
    Voxels(int x, int y, int z = 1, KrvVoxelSize s = {}, T fill = T{})
        : nx(x), ny(y), nz(z), size(s), voxels(static_cast<std::size_t>(x) * y * z, fill) {}
    Voxels(int x, int y, std::vector<T> values) : nx(x), ny(y), nz(1), voxels(std::move(values)) {}

    T& at(int x, int y, int z = 0) { return voxels[(static_cast<std::size_t>(z) * ny + y) * nx + x]; }
    KrvVoxelView view() { return {voxels.data(), nx, ny, nz, KrvVoxelTypeOf<T>::value, size}; }
    std::vector<double> values() const { return {voxels.begin(), voxels.end()}; }
    // Sets to `value` every voxel whose centre (physical units) passes `inside`.
    template <class Inside>
    Voxels& draw(T value, Inside inside) {
        for (int z = 0; z < nz; ++z)
            for (int y = 0; y < ny; ++y)
                for (int x = 0; x < nx; ++x)
                    if (inside(x * size.x, y * size.y, z * size.z)) at(x, y, z) = value;
        return *this;
    }
};

template <class T>
KrvVoxelView viewOf(std::vector<T>& voxels, int nx, int ny, int nz = 1) {
    return {voxels.data(), nx, ny, nz, KrvVoxelTypeOf<T>::value, {}};
}

// The whole of a file of raw voxels.
template <class T>
std::vector<T> readRaw(const std::string& file) {
    std::ifstream in(file, std::ios::binary | std::ios::ate);
    std::vector<T> values(in ? static_cast<std::size_t>(in.tellg()) / sizeof(T) : 0);
    in.seekg(0);
    in.read(reinterpret_cast<char*>(values.data()), static_cast<std::streamsize>(values.size() * sizeof(T)));
    return values;
}

// The message `run` refuses with, "(no refusal)" when it returns.
inline std::string refusal(const std::function<void()>& run) {
    try {
        run();
    } catch (const KrvBaseException& error) {
        return error.getMessage();
    }
    return "(no refusal)";
}

}  // namespace kapitest
