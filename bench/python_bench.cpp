// The Python module's cost against the same work in C++, in one process: this program embeds the
// interpreter, gives it the C++ side as the module korvane_bench and runs python_bench.py, which
// times both sides and prints the ratios. Both sides use the same library, suite and volume.
//
//   python_bench   (release build; the korvane module is found in the build tree)
#include <time.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <pybind11/embed.h>

#include <KorvaneAPI/Core.h>
#include <KorvaneAPI/Segments.h>
#include <vantry_access_korlib/KrvKernels.h>
#include <vantry_data/CDatImg.h>
#include <vantry_process/KrvMeasure.h>

#include "BallVolume.h"

namespace py = pybind11;

namespace {

// The process's CPU time, as python_bench.py's time.process_time: on a machine shared with
// other work, wall time measures the scheduler as much as the code.
double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// CPU seconds per call of `call` over `calls` calls.
template <class Call>
double secondsPerCall(long calls, Call call) {
    const double start = cpuSeconds();
    for (long i = 0; i < calls; ++i) benchmark::DoNotOptimize(call());
    return (cpuSeconds() - start) / static_cast<double>(calls);
}

const KrvImage& storedImage(const std::string& name) {
    const CDatImg* stored = CDatImgHandler::m_pInstance->FindObj(CKrvString(name));
    if (stored == nullptr) throw std::runtime_error("no image named " + name);
    return stored->GetImage();
}

void store(const std::string& name, KrvImage image) {
    if (CDatImgHandler::m_pInstance->AddImg(CKrvString(name), std::move(image)) == nullptr)
        throw std::runtime_error("the suite refused the image " + name);
}

// The shared ball volume, labelled (6-connected, the Label command's kernel), stored as the int32
// image `labels` and its grey values as the uint8 image `grey`.
void storeBallVolume(const std::string& labels, const std::string& grey) {
    std::vector<std::uint8_t> maskVoxels(kbench::kBallVolumeVoxels, 0), greyVoxels(kbench::kBallVolumeVoxels, 0);
    kbench::makeBallVolume(maskVoxels, greyVoxels);
    constexpr int side = kbench::kBallVolumeSide;
    KrvImage labelImage, greyImage;
    if (!labelImage.Allocate(side, side, side, KrvVoxelType::Int32) ||
        !greyImage.Allocate(side, side, side, KrvVoxelType::UInt8))
        throw std::runtime_error("the suite refused the volume's memory");
    std::memcpy(greyImage.GetData(), greyVoxels.data(), greyVoxels.size());
    const KrvVoxelView mask{maskVoxels.data(), side, side, side, KrvVoxelType::UInt8, {}};
    KrvKernels::Label(mask, labelImage.View(), 6);
    store(labels, std::move(labelImage));
    store(grey, std::move(greyImage));
}

// CPU seconds of one measurement of the stored images with `group`, as a C++ client of the suite
// makes it; the number of objects in `objects`.
double measureSeconds(const std::string& labels, const std::string& grey, const std::string& group, long& objects) {
    const double start = cpuSeconds();
    KrvImage widened;
    const KrvVoxelView labelView = krvLabelView(storedImage(labels), widened);
    const KrvVoxelView greyView = storedImage(grey).View();
    objects = static_cast<long>(krvMeasureWithGroup(labelView, &greyView, group).columns.at(0).size());
    return cpuSeconds() - start;
}

}  // namespace

PYBIND11_EMBEDDED_MODULE(korvane_bench, m) {
    m.def("getExtraMemUsage_seconds", [](long calls) { return secondsPerCall(calls, [] { return getExtraMemUsage(); }); });
    m.def("getNbChain_seconds", [](const std::string& name, long calls) {
        return secondsPerCall(calls, [&name] { return getNbChain(name); });
    });
    m.def("store_ball_volume", &storeBallVolume);
    m.def("measure_seconds", [](const std::string& labels, const std::string& grey, const std::string& group) {
        long objects = 0;
        const double seconds = measureSeconds(labels, grey, group, objects);
        return py::make_tuple(seconds, objects);
    });
}

int main() {
    const py::scoped_interpreter interpreter;
    py::module_::import("sys").attr("path").attr("insert")(0, KORVANE_PYTHON_DIR);
    py::dict globals = py::globals();
    globals["__file__"] = KORVANE_BENCH_SCRIPT;
    try {
        py::eval_file(KORVANE_BENCH_SCRIPT, globals);
    } catch (const py::error_already_set& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
