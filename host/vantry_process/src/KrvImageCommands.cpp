// The bodies of the catalogue's image commands: each takes its images from the store, allocates
// its output (counted against the memory budget) and hands the views to the processing library.
#include <vantry_process/KrvImageCommands.h>

#include <cmath>
#include <limits>

#include <vantry_access_korlib/KrvKernels.h>
#include <vantry_data/CDatImg.h>
#include <vantry_data/CDatSeg.h>
#include <vantry_data/KrvImage.h>
#include <vantry_data/KrvResultTable.h>
#include <vantry_process/KrvCommandRunner.h>
#include <vantry_util/CKrvHandler.h>
#include <vantry_util/KrvBaseException.h>

namespace {

[[noreturn]] void fail(const std::string& reason, int line) {
    throw KrvBaseException(reason, __FILE__, static_cast<std::uint64_t>(line));
}

// A new image of zeros with `like`'s voxel size.
KrvImage newImage(const KrvImage& like, int nx, int ny, int nz, KrvVoxelType type) {
    KrvImage image;
    if (!image.Allocate(nx, ny, nz, type, "command output"))
        fail("not enough memory for a " + std::to_string(nx) + "x" + std::to_string(ny) + "x" + std::to_string(nz) +
                 " " + krvVoxelTypeName(type) + " image",
             __LINE__);
    image.SetVoxelSize(like.GetVoxelSize());
    return image;
}

KrvImage newImage(const KrvImage& like, KrvVoxelType type) {
    return newImage(like, like.GetSizeX(), like.GetSizeY(), like.GetSizeZ(), type);
}

KrvKernelProgress progressOf(KrvCommandCall& call) {
    return [&call](long done, long total) { call.Step(call.Command().c_str(), done, total); };
}

// The output type of a one-image command: the input's own, or a fixed one.
constexpr int kSameType = -1;

using ImageKernel = std::function<void(KrvCommandCall&, const KrvVoxelView&, const KrvVoxelView&)>;

// input -> output of the same grid.
KrvCommandBody oneImage(int outputType, ImageKernel kernel) {
    return [outputType, kernel](KrvCommandCall& call) {
        const KrvImage& input = call.Image("input");
        KrvImage output = newImage(input, outputType == kSameType ? input.GetType() : static_cast<KrvVoxelType>(outputType));
        kernel(call, input.View(), output.View());
        call.SetOutput("output", std::move(output));
    };
}

KrvCommandBody morphology(KrvMorphology operation) {
    return oneImage(kSameType, [operation](KrvCommandCall& call, const KrvVoxelView& in, const KrvVoxelView& out) {
        KrvKernels::Morphology(operation, in, out, static_cast<int>(call.Int("size")),
                               static_cast<int>(call.Int("connectivity")), progressOf(call));
    });
}

KrvCommandBody arithmetic(KrvArithmetic operation) {
    return [operation](KrvCommandCall& call) {
        const KrvImage& first = call.Image("first");
        const KrvImage& second = call.Image("second");
        KrvImage output = newImage(first, KrvKernels::WiderType(first.GetType(), second.GetType()));
        KrvKernels::Arithmetic(operation, first.View(), second.View(), output.View());
        call.SetOutput("output", std::move(output));
    };
}

void autoThreshold(KrvCommandCall& call, const KrvVoxelView& in, const KrvVoxelView& out) {
    const KrvThresholdMethod method =
        call.Text("method") == "isodata" ? KrvThresholdMethod::Isodata : KrvThresholdMethod::Otsu;
    const double threshold = KrvKernels::AutoThresholdValue(in, method);
    // Foreground above the threshold.
    KrvKernels::Threshold(in, out, std::nextafter(threshold, std::numeric_limits<double>::infinity()),
                          std::numeric_limits<double>::infinity());
}

void resample(KrvCommandCall& call) {
    const KrvImage& input = call.Image("input");
    const double factor = call.Float("factor");
    auto scaled = [factor](int n) { return static_cast<int>(std::max(1.0, std::round(n * factor))); };
    const int nx = scaled(input.GetSizeX()), ny = scaled(input.GetSizeY());
    const int nz = input.Is3D() ? scaled(input.GetSizeZ()) : 1;
    KrvImage output = newImage(input, nx, ny, nz, input.GetType());
    const KrvVoxelSize& size = input.GetVoxelSize();
    output.SetVoxelSize({size.x * input.GetSizeX() / nx, size.y * input.GetSizeY() / ny, size.z * input.GetSizeZ() / nz});
    KrvKernels::Resample(input.View(), output.View(), call.Bool("interpolate"), progressOf(call));
    call.SetOutput("output", std::move(output));
}

void crop(KrvCommandCall& call) {
    const KrvImage& input = call.Image("input");
    const long x = call.Int("x"), y = call.Int("y"), z = call.Int("z");
    const long width = call.Int("width"), height = call.Int("height");
    const long depth = call.Int("depth") == 0 ? input.GetSizeZ() - z : call.Int("depth");
    if (x + width > input.GetSizeX() || y + height > input.GetSizeY() || depth < 1 || z + depth > input.GetSizeZ())
        fail("the box " + std::to_string(x) + "," + std::to_string(y) + "," + std::to_string(z) + " " +
                 std::to_string(width) + "x" + std::to_string(height) + "x" + std::to_string(depth) +
                 " passes the image's " + input.Describe(),
             __LINE__);
    KrvImage output =
        newImage(input, static_cast<int>(width), static_cast<int>(height), static_cast<int>(depth), input.GetType());
    KrvKernels::Crop(input.View(), output.View(), static_cast<int>(x), static_cast<int>(y), static_cast<int>(z));
    call.SetOutput("output", std::move(output));
}

void rotate90(KrvCommandCall& call) {
    const KrvImage& input = call.Image("input");
    KrvImage output = newImage(input, input.GetSizeY(), input.GetSizeX(), input.GetSizeZ(), input.GetType());
    const KrvVoxelSize& size = input.GetVoxelSize();
    output.SetVoxelSize({size.y, size.x, size.z});
    KrvKernels::Rotate90(input.View(), output.View());
    call.SetOutput("output", std::move(output));
}

const std::string& resultName(KrvCommandCall& call) {
    const std::string& name = call.Text("result");
    if (!CKrvHandler::IsValidName(CKrvString(name))) fail("\"" + name + "\" is no valid table name", __LINE__);
    return name;
}

void histogram(KrvCommandCall& call) {
    const std::string name = resultName(call);
    KrvResultTable table;
    table.measures = {"Low", "Count"};
    table.columns.resize(2);
    KrvKernels::Histogram(call.Image("input").View(), static_cast<int>(call.Int("bins")), table.columns[0],
                          table.columns[1]);
    call.Step("Histogram", 1, 1);
    call.OnSuccess([name, table = std::move(table)]() mutable { KrvResultTables::Store(name, std::move(table)); });
}

void houghLines(KrvCommandCall& call) {
    const std::vector<KrvLineSegment> lines = KrvKernels::HoughLines(call.Image("input").View(), call.Int("threshold"));
    const std::string segment = call.Text("segment");
    call.Step("HoughLines", 1, 1);
    call.OnSuccess([segment, lines] {
        CDatSeg* target = CDatSegHandler::m_pInstance->FindObj(CKrvString(segment));
        if (target == nullptr) return;
        for (const KrvLineSegment& line : lines)
            if (target->AppendChain({{line.x1, line.y1, line.x2, line.y2}}) < 0)
                fail("the lines pass the memory budget", __LINE__);
    });
}

}  // namespace

void krvRegisterImageCommands() {
    using K = KrvCommandCall;
    using V = const KrvVoxelView;
    constexpr int kFloat = static_cast<int>(KrvVoxelType::Float32);
    constexpr int kUInt8 = static_cast<int>(KrvVoxelType::UInt8);
    constexpr int kInt32 = static_cast<int>(KrvVoxelType::Int32);
    const auto size = [](K& call) { return static_cast<int>(call.Int("size")); };
    const auto connectivity = [](K& call) { return static_cast<int>(call.Int("connectivity")); };

    krvRegisterCommandBody("SmoothGauss", oneImage(kSameType, [](K& c, V& in, V& out) {
                               KrvKernels::Gaussian(in, out, c.Float("sigma"), progressOf(c));
                           }));
    krvRegisterCommandBody("Median", oneImage(kSameType, [size](K& c, V& in, V& out) {
                               KrvKernels::Median(in, out, size(c), progressOf(c));
                           }));
    krvRegisterCommandBody("Mean", oneImage(kSameType, [size](K& c, V& in, V& out) {
                               KrvKernels::Mean(in, out, size(c), progressOf(c));
                           }));
    krvRegisterCommandBody("Sharpen", oneImage(kSameType, [size](K& c, V& in, V& out) {
                               KrvKernels::Sharpen(in, out, size(c), progressOf(c));
                           }));
    krvRegisterCommandBody("GradientSobel", oneImage(kFloat, [](K& c, V& in, V& out) {
                               KrvKernels::GradientSobel(in, out, progressOf(c));
                           }));
    krvRegisterCommandBody("Laplacian", oneImage(kFloat, [](K& c, V& in, V& out) {
                               KrvKernels::Laplacian(in, out, progressOf(c));
                           }));
    krvRegisterCommandBody("Erode", morphology(KrvMorphology::Erode));
    krvRegisterCommandBody("Dilate", morphology(KrvMorphology::Dilate));
    krvRegisterCommandBody("Open", morphology(KrvMorphology::Open));
    krvRegisterCommandBody("Close", morphology(KrvMorphology::Close));
    krvRegisterCommandBody("TopHat", morphology(KrvMorphology::TopHat));
    krvRegisterCommandBody("Skeleton", oneImage(kUInt8, [](K& c, V& in, V& out) {
                               KrvKernels::Skeleton(in, out, progressOf(c));
                           }));
    krvRegisterCommandBody("FillHoles", oneImage(kUInt8, [](K& c, V& in, V& out) {
                               KrvKernels::FillHoles(in, out, progressOf(c));
                           }));
    krvRegisterCommandBody("Threshold", oneImage(kUInt8, [](K& c, V& in, V& out) {
                               KrvKernels::Threshold(in, out, c.Float("low"), c.Float("high"));
                           }));
    krvRegisterCommandBody("AutoThreshold", oneImage(kUInt8, autoThreshold));
    krvRegisterCommandBody("Watershed", oneImage(kInt32, [connectivity](K& c, V& in, V& out) {
                               KrvKernels::Watershed(in, out, connectivity(c), progressOf(c));
                           }));
    krvRegisterCommandBody("Label", oneImage(kInt32, [connectivity](K& c, V& in, V& out) {
                               KrvKernels::Label(in, out, connectivity(c), progressOf(c));
                           }));
    krvRegisterCommandBody("RemoveSmall", oneImage(kSameType, [connectivity](K& c, V& in, V& out) {
                               KrvKernels::RemoveSmall(in, out, c.Int("minimum"), connectivity(c), progressOf(c));
                           }));
    krvRegisterCommandBody("DistanceTransform", oneImage(kFloat, [](K& c, V& in, V& out) {
                               KrvKernels::DistanceTransform(in, out, progressOf(c));
                           }));
    krvRegisterCommandBody("Add", arithmetic(KrvArithmetic::Add));
    krvRegisterCommandBody("Subtract", arithmetic(KrvArithmetic::Subtract));
    krvRegisterCommandBody("Multiply", arithmetic(KrvArithmetic::Multiply));
    krvRegisterCommandBody("Invert", oneImage(kSameType, [](K&, V& in, V& out) { KrvKernels::Invert(in, out); }));
    krvRegisterCommandBody("Resample", resample);
    krvRegisterCommandBody("Crop", crop);
    krvRegisterCommandBody("FlipHorizontal",
                           oneImage(kSameType, [](K&, V& in, V& out) { KrvKernels::FlipHorizontal(in, out); }));
    krvRegisterCommandBody("Rotate90", rotate90);
    krvRegisterCommandBody("Histogram", histogram);
    krvRegisterCommandBody("HoughLines", houghLines);
}
