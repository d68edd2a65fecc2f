// The commands that use the client's stored objects. Each finds its object, checks what the
// kernel cannot know (the kind of a table, a formula that compiled), runs the kernel of the
// processing library on the images' views, and stages its output; a segment object is filled
// only after the whole tracing, so that a stopped command changes nothing.
#include "KrvObjectCommands.h"

#include <algorithm>

#include <vantry_access_korlib/KrvObjectKernels.h>
#include <vantry_data/CDatFlrHandler.h>
#include <vantry_data/CDatImg.h>
#include <vantry_data/CDatMorphoLutHandler.h>
#include <vantry_data/CDatSeg.h>
#include <vantry_process/KrvCommandRunner.h>
#include <vantry_util/KrvBaseException.h>

namespace {

[[noreturn]] void refuse(const std::string& reason, int line) { throw KrvBaseException(reason, __FILE__, line); }

// An image of `type` on `like`'s grid and voxel size, or a refusal of the memory budget.
KrvImage imageLike(const KrvImage& like, KrvVoxelType type) {
    KrvImage image;
    if (!image.Allocate(like.GetSizeX(), like.GetSizeY(), like.GetSizeZ(), type, "image"))
        refuse("the memory budget can't hold a " + like.Describe() + " output", __LINE__);
    image.SetVoxelSize(like.GetVoxelSize());
    return image;
}

KrvKernelProgress stepsOf(KrvCommandCall& call, const std::string& what) {
    return [&call, what](long done, long total) { call.Step(what.c_str(), done, total); };
}

// The values of the lookup table the parameter "lut" names, which must be of `kind`.
CDatMorphoLut& lookupTable(const KrvCommandCall& call, int kind) {
    const std::string& name = call.Text("lut");
    auto* table = static_cast<CDatMorphoLut*>(CDatMorphoLutHandler::m_pInstance->FindObj(CKrvString(name)));
    if (table == nullptr) refuse("no lookup table " + name, __LINE__);
    if (table->lutType != kind)
        refuse(name + (kind == CDatMorphoLut::kPlain ? " is a morphological table; a plain one is needed"
                                                     : " is a plain table; a morphological one is needed"),
               __LINE__);
    return *table;
}

std::vector<int> valuesOf(CDatMorphoLut& table) {
    std::vector<int> values(static_cast<std::size_t>(std::max(table.GetSize(), 0)));
    if (values.empty() || table.GetMorphoLut(values.data()) != 1) refuse("table " + table.GetName().m_str + " is empty", __LINE__);
    return values;
}

void userFilter(KrvCommandCall& call) {
    const std::string& name = call.Text("filter");
    const auto* filter = static_cast<const CDatFlr*>(CDatFlrHandler::m_pInstance->FindObj(CKrvString(name)));
    if (filter == nullptr) refuse("no filter " + name, __LINE__);
    if (filter->GetFormula().empty()) refuse("filter " + name + " holds no valid image formula", __LINE__);
    const std::vector<const KrvImage*> inputs = call.Images("inputs");
    std::vector<KrvVoxelView> views;
    for (const KrvImage* input : inputs) views.push_back(input->View());
    KrvImage output = imageLike(*inputs[0], KrvVoxelType::Float32);
    krvApplyImageFormula(filter->GetFormula(), views, output.View(), stepsOf(call, "Applying filter " + name));
    call.SetOutput("output", std::move(output));
}

void applyLut(KrvCommandCall& call) {
    const std::vector<int> table = valuesOf(lookupTable(call, CDatMorphoLut::kPlain));
    const KrvImage& input = call.Image("input");
    if (input.GetType() == KrvVoxelType::Float32) refuse("the input image is float32; a table maps whole numbers", __LINE__);
    KrvImage output = imageLike(input, krvLutOutputType(input.GetType(), table));
    krvApplyLut(input.View(), table, output.View());
    call.SetOutput("output", std::move(output));
}

void morphoLut(KrvCommandCall& call) {
    CDatMorphoLut& table = lookupTable(call, CDatMorphoLut::kMorphological);
    const std::vector<int> values = valuesOf(table);
    const long iterations = call.Int("iterations");
    const int passes = iterations < 0 ? table.flag1 : static_cast<int>(std::min(iterations, 1L << 30));
    const KrvImage& input = call.Image("input");
    KrvImage output = imageLike(input, KrvVoxelType::UInt8);
    krvApplyMorphoLut(input.View(), values, passes, table.flag2, output.View(),
                      stepsOf(call, "Applying table " + table.GetName().m_str));
    call.SetOutput("output", std::move(output));
}

void contours(KrvCommandCall& call) {
    const std::string& name = call.Text("segment");
    CDatSeg* segment = CDatSegHandler::m_pInstance->FindObj(CKrvString(name));
    if (segment == nullptr) refuse("no segment object " + name, __LINE__);
    const std::vector<KrvContour> traced = krvTraceContours(call.Image("labels").View(), stepsOf(call, "Tracing contours"));
    std::vector<std::vector<CDatSegItem>> chains;
    std::size_t items = 0;
    for (const KrvContour& contour : traced) {
        std::vector<CDatSegItem>& chain = chains.emplace_back();
        const std::size_t n = contour.points.size();
        for (std::size_t i = 0; i < n; ++i) {
            const KrvContourPoint& a = contour.points[i];
            const KrvContourPoint& b = contour.points[(i + 1) % n];
            chain.push_back({static_cast<float>(a.x), static_cast<float>(a.y), static_cast<float>(b.x), static_cast<float>(b.y)});
        }
        items += n;
    }
    if (!segment->ReplaceChains(std::move(chains)))
        refuse("the memory budget can't hold " + std::to_string(items) + " items in segment object " + name, __LINE__);
}

}  // namespace

void krvRegisterObjectCommands() {
    krvRegisterCommandBody("UserFilter", userFilter);
    krvRegisterCommandBody("ApplyLut", applyLut);
    krvRegisterCommandBody("MorphoLut", morphoLut);
    krvRegisterCommandBody("Contours", contours);
}
