// A user filter's formula over whole images: the voxels go to the formula engine a block at a
// time as columns of doubles (only the slots the formula reads), and come back as float32.
#include <vantry_access_korlib/KrvObjectKernels.h>

#include <algorithm>
#include <array>
#include <string>

#include <vantry_util/KrvImageFormulaManager.h>

#include "KrvVoxelDispatch.h"

namespace {

using Names = KrvImageFormulaNames;
constexpr std::size_t kBlock = 256;  // the engine's own block: columns, stack and values stay in the first-level cache

[[noreturn]] void refuse(const std::string& reason, int line) { throw KrvBaseException(reason, __FILE__, line); }

void checkImages(const KrvFormula& formula, const std::vector<KrvVoxelView>& inputs, const KrvVoxelView& out) {
    if (inputs.empty() || inputs.size() > Names::kImageCount) refuse("a user filter takes 1 to 9 input images", __LINE__);
    for (const KrvVoxelView& input : inputs)
        if (!input.SameGrid(inputs[0])) refuse("the input images differ in size", __LINE__);
    if (!out.SameGrid(inputs[0]) || out.type != KrvVoxelType::Float32)
        refuse("the output must be a float32 image of the inputs' size", __LINE__);
    // Slots 0..8 are I1..I9: the highest image slot read must have an image.
    std::string why;
    for (const std::string& name : formula.names()) {
        const int slot = Names::instance().resolve(name, why);
        if (slot >= Names::kFirstImage && slot < Names::kImageCount && static_cast<std::size_t>(slot) >= inputs.size())
            refuse("the formula reads " + name + "; " + std::to_string(inputs.size()) + " input image" +
                       (inputs.size() == 1 ? " is" : "s are") + " given",
                   __LINE__);
    }
}

// The engine's columns for one block: each slot the formula reads gets a column of its own.
class Columns {
public:
    Columns(const KrvFormula& formula, const std::vector<KrvVoxelView>& inputs) : m_inputs(inputs) {
        std::string why;
        for (const std::string& name : formula.names()) {
            const int slot = Names::instance().resolve(name, why);
            m_storage[slot].resize(kBlock);
            m_pointers[slot] = m_storage[slot].data();
        }
    }

    // Fills the columns for voxels [first, first + count) of the grid.
    void fill(std::size_t first, std::size_t count) {
        for (std::size_t image = 0; image < m_inputs.size(); ++image) {
            double* column = m_storage[image].empty() ? nullptr : m_storage[image].data();
            if (column == nullptr) continue;
            krvWithVoxels(m_inputs[image], [&](const auto* voxels) {
                std::copy(voxels + first, voxels + first + count, column);
            });
        }
        if (!m_storage[Names::kX].empty() || !m_storage[Names::kY].empty() || !m_storage[Names::kZ].empty())
            fillCoordinates(first, count);
    }

    const double* const* pointers() const noexcept { return m_pointers.data(); }

private:
    void fillCoordinates(std::size_t first, std::size_t count) {
        const KrvVoxelView& grid = m_inputs[0];
        const auto nx = static_cast<std::size_t>(grid.nx), ny = static_cast<std::size_t>(grid.ny);
        std::size_t x = first % nx, y = (first / nx) % ny, z = first / (nx * ny);
        double* xs = column(Names::kX);
        double* ys = column(Names::kY);
        double* zs = column(Names::kZ);
        for (std::size_t i = 0; i < count; ++i) {
            xs[i] = static_cast<double>(x);
            ys[i] = static_cast<double>(y);
            zs[i] = static_cast<double>(z);
            if (++x == nx) {
                x = 0;
                if (++y == ny) y = 0, ++z;
            }
        }
    }
    // A slot's column, or scratch room for a coordinate the formula does not read.
    double* column(int slot) {
        if (m_storage[slot].empty()) {
            m_scratch.resize(kBlock);
            return m_scratch.data();
        }
        return m_storage[slot].data();
    }

    const std::vector<KrvVoxelView>& m_inputs;
    std::array<std::vector<double>, Names::kSlotCount> m_storage;
    std::array<const double*, Names::kSlotCount> m_pointers{};
    std::vector<double> m_scratch;
};

}  // namespace

void krvApplyImageFormula(const KrvFormula& formula, const std::vector<KrvVoxelView>& inputs, const KrvVoxelView& out,
                          const KrvKernelProgress& progress) {
    checkImages(formula, inputs, out);
    Columns columns(formula, inputs);
    std::vector<double> values(kBlock);
    float* result = out.As<float>();
    // Steps: z planes, or rows of a 2-D image, so that a large plane reports too.
    const std::size_t stepVoxels = static_cast<std::size_t>(out.nx) * (out.Is3D() ? static_cast<std::size_t>(out.ny) : 1);
    const long steps = out.Is3D() ? out.nz : out.ny;
    for (long step = 0; step < steps; ++step) {
        const std::size_t end = (static_cast<std::size_t>(step) + 1) * stepVoxels;
        for (std::size_t first = static_cast<std::size_t>(step) * stepVoxels; first < end; first += kBlock) {
            const std::size_t count = std::min(kBlock, end - first);
            columns.fill(first, count);
            // The engine reads each column from the block's start.
            formula.evaluate(columns.pointers(), count, values.data());
            std::transform(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(count), result + first,
                           [](double v) { return static_cast<float>(v); });
        }
        if (progress) progress(step + 1, steps);
    }
}
