// Calls of the image family: user filters and image formulas, plain and morphological lookup
// tables (a table's values print on one line, flags by name), and the suite's image store, which
// the tool reaches through the data service as the suite's commands do.
#include <KorvaneAPI/KorvaneAPI.h>
#include <vantry_data/CDatImg.h>
#include <vantry_data/CDatService.h>

#include "Calls.h"
#include "SuiteLog.h"

namespace korvane {

namespace {

Output morphoLutData(const Args& args) {
    int* values = nullptr;
    int size = 0;
    const bool ok = getMorphoLutDataPtr(args[0], values, size);
    succeeded(ok, "getMorphoLutDataPtr", "size " + std::to_string(size));
    const Output listed = saidOnOneLine(std::vector<int>(values, values + size));
    return {{std::to_string(size) + " values: " + listed.lines[0]}, {{"count", size}, {"values", listed.value}}};
}

Output morphoLutFlags(const Args& args) {
    int flag1 = 0;
    int flag2 = 0;
    succeeded(getMorphoLutFlags(args[0], flag1, flag2), "getMorphoLutFlags");
    return {{"flag1 " + std::to_string(flag1) + ", flag2 " + std::to_string(flag2)}, {{"flag1", flag1}, {"flag2", flag2}}};
}

Output createMorpho(const Args& args) {
    const std::vector<int> values = toInts(args, 3, "VALUE");
    return succeeded(createMorphoLut(args[0], values.data(), static_cast<int>(values.size()), toInt(args[1], "FLAG1"),
                                     toInt(args[2], "FLAG2")),
                     "createMorphoLut");
}

template <class Visit>
void krvVisitVoxels(const KrvImage& image, Visit visit) {
    switch (image.GetType()) {
    case KrvVoxelType::UInt8: return visit(image.Voxels<std::uint8_t>());
    case KrvVoxelType::UInt16: return visit(image.Voxels<std::uint16_t>());
    case KrvVoxelType::Int32: return visit(image.Voxels<std::int32_t>());
    case KrvVoxelType::Float32: return visit(image.Voxels<float>());
    }
}

CDatService& dataService() {
    auto* service = dynamic_cast<CDatService*>(CService::Get(eServiceData));
    if (service == nullptr) throw CallFailed("the suite's data service is not running");
    return *service;
}

CDatImgHandler& imageStore() { return *CDatImgHandler::m_pInstance; }

// A file operation of the data service: its Error line is the failure's reason.
Output imageFile(bool (CDatService::*operation)(const CKrvString&, const CKrvString&, int, int), const char* call,
                 const std::string& first, const std::string& second) {
    forgetDataError();
    if (!(dataService().*operation)(first, second, 0, 0)) throw CallFailed(std::string(call) + " failed: " + dataError());
    return {};
}

// "64x48x1 uint8, voxel size 0.5 0.5 1, 3072 bytes", and the same as a record.
Output imageInfo(const Args& args) {
    const CDatImg* stored = imageStore().FindObj(args[0]);
    if (stored == nullptr) throw CallFailed("imageInfo failed: no image " + args[0]);
    const KrvImage& image = stored->GetImage();
    const KrvVoxelSize& size = image.GetVoxelSize();
    const std::string sizes = shortest(size.x) + " " + shortest(size.y) + " " + shortest(size.z);
    return {{image.Describe() + ", voxel size " + sizes + ", " + std::to_string(image.GetByteCount()) + " bytes"},
            {{"nx", image.GetSizeX()},
             {"ny", image.GetSizeY()},
             {"nz", image.GetSizeZ()},
             {"type", krvVoxelTypeName(image.GetType())},
             {"voxel_size", {size.x, size.y, size.z}},
             {"bytes", image.GetByteCount()}}};
}

// The voxels of a (small) image, one row a line, the planes one after another.
Output imageVoxels(const Args& args) {
    const CDatImg* stored = imageStore().FindObj(args[0]);
    if (stored == nullptr) throw CallFailed("imageVoxels failed: no image " + args[0]);
    const KrvImage& image = stored->GetImage();
    Output output{{}, Json::array()};
    krvVisitVoxels(image, [&](const auto* voxels) {
        for (std::size_t row = 0; row < image.GetVoxelCount() / image.GetSizeX(); ++row) {
            std::vector<double> values(voxels + row * image.GetSizeX(), voxels + (row + 1) * image.GetSizeX());
            std::string line;
            for (const double value : values) line += (line.empty() ? "" : " ") + shortest(value);
            output.lines.push_back(line);
            output.value.push_back(values);
        }
    });
    return output;
}

std::vector<std::string> imageNames() {
    std::vector<CKrvString> names;
    imageStore().GetObjList(names);
    std::vector<std::string> texts;
    for (const CKrvString& name : names) texts.push_back(name.m_str);
    return texts;
}

void addImageStoreCalls(CallTable& table) {
    table.add("loadImage", {"loadImage NAME FILE", "(suite) reads a TIFF or PNG file into the image store", 2, 2,
                            [](const Args& a) { return imageFile(&CDatService::LoadImageA, "loadImage", a[1], a[0]); }});
    table.add("saveImage", {"saveImage NAME FILE", "(suite) writes a stored image (PNG for FILE.png, else TIFF)", 2, 2,
                            [](const Args& a) { return imageFile(&CDatService::SaveImage, "saveImage", a[0], a[1]); }});
    table.add("getImageList", {"getImageList", "(suite) the stored images' names, one a line", 0, 0,
                               [](const Args&) { return said(imageNames()); }});
    table.add("imageInfo", {"imageInfo NAME", "(suite) an image's size, voxel type, voxel size and bytes", 1, 1,
                            imageInfo});
    table.add("imageVoxels", {"imageVoxels NAME", "(suite) a small image's voxels, one row a line, plane after plane",
                              1, 1, imageVoxels});
    table.add("removeImage", {"removeImage NAME", "(suite) removes a stored image", 1, 1, [](const Args& a) {
                                  if (imageStore().RemoveImg(a[0]) != 1) throw CallFailed("removeImage failed: no image " + a[0]);
                                  return Output{};
                              }});
    table.add("removeAllImages", {"removeAllImages", "(suite) removes every image; prints how many", 0, 0,
                                  [](const Args&) { return said(static_cast<long long>(imageStore().RemoveAll())); }});
}

}  // namespace

void addImageCalls(CallTable& table) {
    addImageStoreCalls(table);
    table.add("createFilter", {"createFilter NAME FORMULA", "creates a user filter from an image formula", 2, 2,
                               [](const Args& a) { return succeeded(createFilter(a[0], a[1]), "createFilter"); }});
    table.add("getFilterFormula", {"getFilterFormula NAME", "the formula of a filter (empty when unknown)", 1, 1,
                                   [](const Args& a) { return said(getFilterFormula(a[0])); }});
    table.add("removeFilter", {"removeFilter NAME", "removes a filter", 1, 1, [](const Args& a) {
                                   removeFilter(a[0]);
                                   return Output{};
                               }});
    table.add("removeAllFilters", {"removeAllFilters", "removes every filter", 0, 0, [](const Args&) {
                                       removeAllFilters();
                                       return Output{};
                                   }});
    table.add("isValidImageFormula", {"isValidImageFormula FORMULA", "whether the text is a valid image formula", 1, 1,
                                      [](const Args& a) { return said(isValidImageFormula(a[0].c_str())); }});
    table.add("getFilterList", {"getFilterList", "the filter names, one a line", 0, 0,
                                [](const Args&) { return said(getFilterList()); }});

    table.add("createLut", {"createLut NAME VALUE...", "creates a plain lookup table", 1, kAnyNumber,
                            [](const Args& a) { return succeeded(createLut(a[0], toInts(a, 1, "VALUE")), "createLut"); }});
    table.add("getLutValues", {"getLutValues NAME", "a table's values on one line (empty when unknown)", 1, 1,
                               [](const Args& a) {
                                   return saidOnOneLine(getLutValues(a[0]));
                               }});
    table.add("removeLut", {"removeLut NAME", "removes a lookup table of either kind", 1, 1, [](const Args& a) {
                                removeLut(a[0]);
                                return Output{};
                            }});
    table.add("getLutList", {"getLutList", "the plain lookup table names, one a line", 0, 0,
                             [](const Args&) { return said(getLutList()); }});
    table.add("createMorphoLut", {"createMorphoLut NAME FLAG1 FLAG2 VALUE...",
                                  "creates a morphological lookup table with its two flags", 3, kAnyNumber,
                                  createMorpho});
    table.add("getMorphoLutDataPtr", {"getMorphoLutDataPtr NAME", "the count and values the suite holds for a table", 1,
                                      1, morphoLutData});
    table.add("getMorphoLutFlags", {"getMorphoLutFlags NAME", "a table's two flags, by name", 1, 1, morphoLutFlags});
    table.add("setMorphoLutFlags", {"setMorphoLutFlags NAME FLAG1 FLAG2", "writes a table's two flags", 3, 3,
                                    [](const Args& a) {
                                        return succeeded(setMorphoLutFlags(a[0], toInt(a[1], "FLAG1"), toInt(a[2], "FLAG2")),
                                                         "setMorphoLutFlags");
                                    }});
    table.add("removeMorphoLut", {"removeMorphoLut NAME", "removes a morphological table (not a plain one)", 1, 1,
                                  [](const Args& a) { return succeeded(removeMorphoLut(a[0]), "removeMorphoLut"); }});
    table.add("getMorphoLutList", {"getMorphoLutList", "the morphological lookup table names, one a line", 0, 0,
                                   [](const Args&) { return said(getMorphoLutList()); }});
}

}  // namespace korvane
