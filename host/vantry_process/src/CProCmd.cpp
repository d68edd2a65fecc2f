// The suite's command table: its processing commands by category, each with a description and
// its parameters. Record 0 and the separator before each category are named "none".
#include <vantry_process/CProCmd.h>
#include <vantry_process/CProService.h>

#include <atomic>

#include <vantry_util/KrvFault.h>

namespace {

using P = CProCmdParam;
constexpr P kEnd{nullptr, nullptr, nullptr};

constexpr double kIntMax = 2147483647.0;
constexpr double kFloatMax = 3.4e38;
constexpr const char* kConnectivities = "4|6|8|26";

const P kOneImage[] = {{"input", "image", ""}, {"output", "image", ""}, kEnd};
const P kTwoImages[] = {{"first", "image", ""}, {"second", "image", ""}, {"output", "image", ""}, kEnd};
const P kKernel[] = {{"input", "image", ""}, {"output", "image", ""}, {"size", "int", "3", 1, 31}, kEnd};
const P kGauss[] = {{"input", "image", ""}, {"output", "image", ""}, {"sigma", "float", "1.0", 0.01, 100}, kEnd};
const P kMorpho[] = {{"input", "image", ""},
                     {"output", "image", ""},
                     {"size", "int", "1", 1, 100},
                     {"connectivity", "int", "8", 4, 26, kConnectivities},
                     kEnd};
const P kMorphoLut[] = {{"input", "image", ""}, {"output", "image", ""}, {"lut", "lut", ""},
                        {"iterations", "int", "-1", -1, kIntMax}, kEnd};  // -1: the table's flag1
const P kThreshold[] = {{"input", "image", ""}, {"output", "image", ""}, {"low", "float", "128", -kFloatMax, kFloatMax},
                        {"high", "float", "255", -kFloatMax, kFloatMax}, kEnd};
const P kAutoThreshold[] = {{"input", "image", ""},
                            {"output", "image", ""},
                            {"method", "string", "otsu", 0, 0, "otsu|isodata"},
                            kEnd};
const P kLabel[] = {{"input", "image", ""}, {"output", "image", ""}, {"connectivity", "int", "8", 4, 26, kConnectivities},
                    kEnd};
const P kMinSize[] = {{"input", "image", ""},
                      {"output", "image", ""},
                      {"minimum", "int", "10", 1, kIntMax},
                      {"connectivity", "int", "8", 4, 26, kConnectivities},
                      kEnd};
const P kFilter[] = {{"output", "image", ""}, {"filter", "filter", ""}, {"inputs", "image", ""}, kEnd};
const P kLut[] = {{"input", "image", ""}, {"output", "image", ""}, {"lut", "lut", ""}, kEnd};
const P kResample[] = {{"input", "image", ""}, {"output", "image", ""}, {"factor", "float", "0.5", 0.01, 100},
                       {"interpolate", "bool", "true"}, kEnd};
const P kCrop[] = {{"input", "image", ""},         {"output", "image", ""},       {"x", "int", "0", 0, kIntMax},
                   {"y", "int", "0", 0, kIntMax},  {"width", "int", "", 1, kIntMax}, {"height", "int", "", 1, kIntMax},
                   {"z", "int", "0", 0, kIntMax},  {"depth", "int", "0", 0, kIntMax}, kEnd};
const P kMeasure[] = {{"labels", "image", ""}, {"group", "group", ""}, {"result", "string", "Results"},
                      {"grey", "string", "none"}, kEnd};
const P kHistogram[] = {{"input", "image", ""}, {"bins", "int", "256", 1, 65536}, {"result", "string", "Histogram"},
                        kEnd};
const P kSieve[] = {{"table", "string", "Results"}, {"measure", "string", "Area"}, {"sieve", "sieve", ""},
                    {"result", "string", "Classes"}, kEnd};
const P kContours[] = {{"labels", "image", ""}, {"segment", "segment", ""}, kEnd};
const P kLines[] = {{"input", "image", ""}, {"segment", "segment", ""}, {"threshold", "int", "50", 1, kIntMax}, kEnd};

enum Category { kNone, kFilters, kMorphology, kSegmentation, kArithmetic, kGeometry, kAnalysis };

TAB_LISTCMD g_suiteTable[] = {
    {0, kNone, "", "none", "", nullptr},
    {1, kFilters, "Filters", "SmoothGauss", "Gaussian smoothing of the given width", kGauss},
    {2, kFilters, "Filters", "Median", "Median of each pixel's square neighbourhood", kKernel},
    {3, kFilters, "Filters", "Mean", "Mean of each pixel's square neighbourhood", kKernel},
    {4, kFilters, "Filters", "Sharpen", "Unsharp masking: the image plus its difference to its mean", kKernel},
    {5, kFilters, "Filters", "GradientSobel", "Magnitude of the Sobel gradient", kOneImage},
    {6, kFilters, "Filters", "Laplacian", "Discrete Laplacian", kOneImage},
    {7, kFilters, "Filters", "UserFilter", "Evaluates a stored user filter's formula on its input images", kFilter},
    {0, kNone, "", "none", "", nullptr},
    {8, kMorphology, "Morphology", "Erode", "Erosion by a square or cross element", kMorpho},
    {9, kMorphology, "Morphology", "Dilate", "Dilation by a square or cross element", kMorpho},
    {10, kMorphology, "Morphology", "Open", "Erosion, then dilation of the same size", kMorpho},
    {11, kMorphology, "Morphology", "Close", "Dilation, then erosion of the same size", kMorpho},
    {12, kMorphology, "Morphology", "TopHat", "The image minus its opening", kMorpho},
    {13, kMorphology, "Morphology", "Skeleton", "Thinning of a 2-D binary image to a one-pixel skeleton", kOneImage},
    {14, kMorphology, "Morphology", "FillHoles", "Fills the holes of binary objects", kOneImage},
    {15, kMorphology, "Morphology", "MorphoLut", "Each pixel from its 3x3 neighbourhood by a morphological lookup table",
     kMorphoLut},
    {0, kNone, "", "none", "", nullptr},
    {16, kSegmentation, "Segmentation", "Threshold", "Binary image of the pixels from low to high", kThreshold},
    {17, kSegmentation, "Segmentation", "AutoThreshold", "Threshold chosen from the histogram (otsu, isodata)",
     kAutoThreshold},
    {18, kSegmentation, "Segmentation", "Watershed",
     "Splits the touching objects of a binary image into labels, flooding its distance map from the maxima", kLabel},
    {19, kSegmentation, "Segmentation", "Label", "Numbers the connected objects of a binary image", kLabel},
    {20, kSegmentation, "Segmentation", "RemoveSmall", "Removes objects of fewer pixels than the minimum",
     kMinSize},
    {35, kSegmentation, "Segmentation", "DistanceTransform",
     "Each object pixel's Euclidean distance to the background, in the voxel size's unit", kOneImage},
    {0, kNone, "", "none", "", nullptr},
    {21, kArithmetic, "Arithmetic", "Add", "Pixel-wise sum of two images", kTwoImages},
    {22, kArithmetic, "Arithmetic", "Subtract", "Pixel-wise difference of two images", kTwoImages},
    {23, kArithmetic, "Arithmetic", "Multiply", "Pixel-wise product of two images", kTwoImages},
    {24, kArithmetic, "Arithmetic", "Invert", "Each pixel's value subtracted from the type's maximum (float images: negated)", kOneImage},
    {25, kArithmetic, "Arithmetic", "ApplyLut", "Replaces each grey value by its lookup-table entry", kLut},
    {0, kNone, "", "none", "", nullptr},
    {26, kGeometry, "Geometry", "Resample", "Resizes the image by a factor", kResample},
    {27, kGeometry, "Geometry", "Crop", "Keeps a box of the image (depth 0: every plane from z on)", kCrop},
    {28, kGeometry, "Geometry", "FlipHorizontal", "Mirrors the image left to right", kOneImage},
    {29, kGeometry, "Geometry", "Rotate90", "Turns the image a quarter turn counter-clockwise", kOneImage},
    {0, kNone, "", "none", "", nullptr},
    {30, kAnalysis, "Analysis", "Measure", "Measures each labelled object with a measure group", kMeasure},
    {31, kAnalysis, "Analysis", "Histogram", "Grey-value histogram as a result table", kHistogram},
    {32, kAnalysis, "Analysis", "SieveClasses", "Size classes of a result table's objects by a measure and a sieve's limits",
     kSieve},
    {33, kAnalysis, "Analysis", "Contours", "Object outlines as chains of a segment object", kContours},
    {34, kAnalysis, "Analysis", "HoughLines", "Straight lines found by the Hough transform, as segments",
     kLines},
};
constexpr int kSuiteCount = static_cast<int>(sizeof g_suiteTable / sizeof g_suiteTable[0]);

std::atomic<TAB_LISTCMD*> g_table{g_suiteTable};
std::atomic<int> g_count{kSuiteCount};

}  // namespace

TAB_LISTCMD* GetKrvTabListCmd(int* count) {
    KRV_FAULT_RETURN(TAB_LISTCMD*, "GetKrvTabListCmd");
    if (count) *count = g_count.load();
    return g_table.load();
}

void SetKrvTabListCmd(TAB_LISTCMD* table, int count) {
    g_table.store(table ? table : g_suiteTable);
    g_count.store(table ? count : kSuiteCount);
}

CProCmd::CProCmd(const TAB_LISTCMD& record)
    : m_name(record.name), m_category(record.group), m_description(record.description) {
    for (const CProCmdParam* p = record.params; p && p->name; ++p) m_params.push_back(*p);
}

CProCmdList::CProCmdList() {
    m_commands.reserve(kSuiteCount);
    for (const TAB_LISTCMD& record : g_suiteTable)
        if (record.category != kNone) m_commands.emplace_back(record);
    for (CProCmd& command : m_commands) m_byName.emplace(command.GetName(), &command);
}

CProCmdList::~CProCmdList() = default;

CProCmd* CProCmdList::GetCmd(const CKrvString& name) {
    const auto found = m_byName.find(name);
    return found == m_byName.end() ? nullptr : found->second;
}
