// Images: the store, reading and writing TIFF and PNG through the data service, and files that
// must be refused with a clear reason and nothing made.
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tiffio.h>
#include <zlib.h>

#include <vantry_data/CDatImg.h>
#include <vantry_data/CDatService.h>
#include <vantry_data/KrvImageFile.h>
#include <vantry_service_handler/CService.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvMemoryBudget.h>

#include "support/TestSupport.h"
#include "support/Voxels.h"

using kapitest::sourceLine;
using Answer = KrvFault::Answer;
using Level = KrvLoggerLevel;
using Bytes = std::vector<unsigned char>;

namespace {

const char* const kService = "host/vantry_data/src/CDatServiceImages.cpp";
const char* const kLoadError = "\"Can't load image \" + name.m_str + \": \" + error";
const char* const kSaveError = "\"Can't save image \" + name.m_str + \": \" + error";

class ImageTest : public kapitest::SuiteTest {
protected:
    void SetUp() override {
        SuiteTest::SetUp();
        service = static_cast<CDatService*>(CService::Get(eServiceData));
        store = CDatImgHandler::m_pInstance;
        ASSERT_NE(service, nullptr);
    }
    void TearDown() override {
        CKrvSettingDoc::getInstance().setMaximumAmountMemory(0);
        SuiteTest::TearDown();
    }
    std::string path(const std::string& name) const { return folder + "/" + name; }
    std::string write(const std::string& name, const Bytes& bytes) const {
        std::ofstream(path(name), std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                          static_cast<std::streamsize>(bytes.size()));
        return path(name);
    }
    Bytes read(const std::string& name) const {
        std::ifstream in(path(name), std::ios::binary);
        return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }
    // The one Error line logged since the last check: the data service's, starting with `message`
    // (holding it whole unless `prefix`), from the statement holding `snippet`.
    void expectError(const std::string& message, const char* snippet, bool prefix = false) {
        std::vector<kapitest::LogLine> errors;
        std::string logged;
        for (const kapitest::LogLine& line : log->lines()) {
            logged += "\n  " + line.message;
            if (line.level == Level::Error) errors.push_back(line);
        }
        log->clear();
        ASSERT_EQ(errors.size(), 1u) << "logged:" << logged;
        const kapitest::LogLine& line = errors[0];
        EXPECT_EQ(prefix ? line.message.substr(0, message.size()) : line.message, message);
        if (prefix) { EXPECT_GT(line.message.size(), message.size() + 5) << line.message; }  // the library's own words
        EXPECT_EQ(line.logger, "Korvane.Data");
        EXPECT_NE(line.file.find("vantry_data/src/CDatServiceImages.cpp"), std::string::npos) << line.file;
        EXPECT_EQ(line.line, sourceLine(kService, snippet)) << message;
    }
    // A refused load: false, nothing stored, no budget kept, and the Error line.
    void expectRefused(const std::string& file, int first, int count, const std::string& message,
                       const char* snippet = kLoadError, const std::string& name = "t", bool prefix = false) {
        const std::uint64_t used = KrvMemoryBudget::used();
        const std::size_t stored = store->GetObjCount();
        log->clear();
        EXPECT_FALSE(service->LoadImageA(file, name, first, count)) << message;
        EXPECT_EQ(store->GetObjCount(), stored);
        EXPECT_EQ(KrvMemoryBudget::used(), used);
        expectError(message, snippet, prefix);
    }
    void expectSaveRefused(const std::string& name, const std::string& file, int first, int count, const std::string& reason) {
        log->clear();
        EXPECT_FALSE(service->SaveImage(name, file, first, count));
        EXPECT_FALSE(std::ifstream(file).good());
        expectError("Can't save image " + name + ": " + file + ": " + reason, kSaveError);
    }
    const KrvImage& image(const CKrvString& name) const { return store->FindObj(name)->GetImage(); }
    std::vector<CKrvString> names() const {
        std::vector<CKrvString> all;
        store->GetObjList(all);
        return all;
    }
    CDatService* service = nullptr;
    CDatImgHandler* store = nullptr;
};

// Random bytes: values of every sign and size, whose byte order shows.
void fill(KrvImage& image) {
    std::mt19937 random(7);
    for (std::size_t i = 0; i < image.GetByteCount(); ++i) static_cast<std::uint8_t*>(image.GetData())[i] = std::uint8_t(random());
}

void expectSameVoxels(const KrvImage& a, const KrvImage& b, int planeOfB = 0) {
    ASSERT_EQ(a.GetSizeX(), b.GetSizeX());
    ASSERT_EQ(a.GetSizeY(), b.GetSizeY());
    ASSERT_EQ(a.GetType(), b.GetType());
    for (int z = 0; z < a.GetSizeZ(); ++z)
        EXPECT_EQ(std::memcmp(a.GetPlane(z), b.GetPlane(z + planeOfB), a.GetPlaneBytes()), 0) << "plane " << z;
}

TEST_F(ImageTest, EveryTypeComesBackFromTiffWithItsVoxelSize) {
    for (const KrvVoxelType type : {KrvVoxelType::UInt8, KrvVoxelType::UInt16, KrvVoxelType::Int32, KrvVoxelType::Float32})
        for (const int nz : {1, 3}) {
            const std::string name = std::string("in_") + krvVoxelTypeName(type) + std::to_string(nz);
            SCOPED_TRACE(name);
            CDatImg* made = store->AddImg(name, 37, 5, nz, type);  // odd width: rows not aligned
            ASSERT_NE(made, nullptr);
            fill(made->GetImage());
            made->GetImage().SetVoxelSize({0.1, 1.0 / 3.0, 2.5e-7});
            ASSERT_TRUE(service->SaveImage(name, path(name + ".tif")));
            ASSERT_TRUE(service->LoadImageA(path(name + ".tif"), name + "_back"));
            EXPECT_EQ(image(name + "_back").GetSizeZ(), nz);
            expectSameVoxels(made->GetImage(), image(name + "_back"));
            const KrvVoxelSize size = image(name + "_back").GetVoxelSize();
            EXPECT_EQ(std::vector<double>({size.x, size.y, size.z}), std::vector<double>({0.1, 1.0 / 3.0, 2.5e-7}));
        }
    // PNG: one plane of 8 or 16 bits, no voxel size.
    for (const std::string type : {"uint8", "uint16"}) {
        ASSERT_TRUE(service->SaveImage("in_" + type + "1", path(type + ".PNG")));
        ASSERT_TRUE(service->LoadImageA(path(type + ".PNG"), type));
        expectSameVoxels(image("in_" + type + "1"), image(type));
        EXPECT_EQ(image(type).GetVoxelSize().x, 1.0);
        EXPECT_EQ(read(type + ".PNG").at(1), 'P');
    }
    // A stored image counts its bytes.
    std::size_t bytes = 0;
    for (const CKrvString& name : names()) bytes += image(name).GetByteCount();
    EXPECT_EQ(bytes, 2 * 37 * 5 * 4 * (1 + 2 + 4 + 4) + 37 * 5 * (1 + 2));
    EXPECT_EQ(KrvMemoryBudget::used(), bytes);
    EXPECT_EQ(store->RemoveAll(), 18);
    EXPECT_EQ(KrvMemoryBudget::used(), 0u);
}

TEST_F(ImageTest, PageRangesPickPlanesAndRefuseWhatIsNotThere) {
    CDatImg* made = store->AddImg("stack", 4, 3, 5, KrvVoxelType::UInt16);
    ASSERT_NE(made, nullptr);
    fill(made->GetImage());
    const std::string file = path("stack.tif");
    ASSERT_TRUE(service->SaveImage("stack", file));
    // From a page, a count of them; 0 and below: to the last page.
    for (const auto& [name, first, count, planes] : {std::tuple<const char*, int, int, int>{"middle", 1, 2, 2}, {"tail", 3, 0, 2}, {"last", 4, -7, 1}}) {
        ASSERT_TRUE(service->LoadImageA(file, name, first, count));
        EXPECT_EQ(image(name).GetSizeZ(), planes);
        expectSameVoxels(image(name), made->GetImage(), first);
    }
    expectRefused(file, 5, 1, "Can't load image t: " + file + ": page 5 asked, the image holds 5");
    expectRefused(file, -1, 1, "Can't load image t: " + file + ": page -1 asked, the image holds 5");
    expectRefused(file, 2, 4, "Can't load image t: " + file + ": 4 pages from 2 asked, the image holds 5");

    // Saving a range writes those planes only; a PNG takes exactly one.
    ASSERT_TRUE(service->SaveImage("stack", path("two.tif"), 2, 2));
    ASSERT_TRUE(service->LoadImageA(path("two.tif"), "two"));
    expectSameVoxels(image("two"), made->GetImage(), 2);
    ASSERT_TRUE(service->SaveImage("stack", path("plane.png"), 4, 1));
    expectSaveRefused("stack", path("planes.png"), 0, 2, "a PNG holds one plane, 2 asked");
    expectSaveRefused("stack", path("x.tif"), 0, 6, "6 planes from 0 asked, the image holds 5");
    EXPECT_FALSE(service->SaveImage("stack", folder + "/no/such/folder.tif"));
    log->clear();
    EXPECT_FALSE(service->SaveImage("nothing", path("n.tif")));
    expectError("Can't save image nothing to " + path("n.tif") + ": no such image", "\": no such image\"");
}

TEST_F(ImageTest, StoreKeepsNameRulesBudgetAndFaultPoints) {
    ASSERT_NE(store->AddImg("a", 10, 10, 10, KrvVoxelType::UInt8), nullptr);
    for (const std::string& bad : {std::string(), std::string(256, 'n'), std::string("tab\there"), std::string("a")})
        EXPECT_EQ(store->AddImg(bad, 1, 1, 1, KrvVoxelType::UInt8), nullptr) << bad;
    EXPECT_NE(store->AddImg(std::string(255, 'n'), 1, 1, 1, KrvVoxelType::UInt8), nullptr);
    for (const int size : {0, -1}) EXPECT_EQ(store->AddImg("zero", size, 1, 1, KrvVoxelType::UInt8), nullptr);
    EXPECT_EQ(store->AddImg("huge", 1 << 30, 1 << 30, 1 << 30, KrvVoxelType::Float32), nullptr);
    KrvImage empty, kept;
    ASSERT_TRUE(empty.Allocate(3, 1, 1, KrvVoxelType::UInt8));
    EXPECT_FALSE(empty.Allocate(0, 1, 1, KrvVoxelType::UInt8));  // a refused size leaves no voxels
    EXPECT_EQ(empty.GetByteCount(), 0u);
    EXPECT_EQ(store->AddImg("empty", std::move(empty)), nullptr);
    ASSERT_TRUE(kept.Allocate(2, 2, 1, KrvVoxelType::Int32));
    EXPECT_EQ(store->AddImg("a", std::move(kept)), nullptr);
    EXPECT_FALSE(kept.IsEmpty());  // a refusal leaves the image with the caller
    EXPECT_THROW(kept.Voxels<float>(), KrvBaseException);
    EXPECT_THROW(kept.SetVoxelSize({1, 0, 1}), KrvBaseException);
    ASSERT_NE(store->AddImg("b", std::move(kept)), nullptr);
    EXPECT_EQ(kept.GetByteCount(), 0u);  // moved away
    EXPECT_EQ(names(), (std::vector<CKrvString>{"a", std::string(255, 'n'), "b"}));

    // The budget counts voxel bytes: 1000 + 1 + 16 in use.
    EXPECT_EQ(KrvMemoryBudget::used(), 1017u);
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(2017);
    log->clear();
    EXPECT_NE(store->AddImg("fits", 1000, 1, 1, KrvVoxelType::UInt8), nullptr);
    EXPECT_EQ(store->AddImg("over", 1, 1, 1, KrvVoxelType::UInt8), nullptr);
    EXPECT_EQ(log->find("Memory budget exceeded: image needs 1 bytes, 2017 of 2017 in use").size(), 1u);
    EXPECT_EQ(store->RemoveImg("a"), 1);
    EXPECT_EQ(store->RemoveImg("a"), 0);
    EXPECT_NE(store->AddImg("over", 1, 1, 1, KrvVoxelType::UInt8), nullptr);
    const std::string fits = path("fits.tif");
    ASSERT_TRUE(service->SaveImage("fits", fits));
    expectRefused(fits, 0, 0, "Can't load image t: " + fits + ": can't allocate 1000 bytes (memory budget or memory exhausted)");

    // Fault points: each answer leaves the store as it was.
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(0);
    KrvFault::arm("CDatImgHandler::AddImg", Answer::Null, 1, 2);
    EXPECT_EQ(store->AddImg("f", 1, 1, 1, KrvVoxelType::UInt8), nullptr);
    expectRefused(fits, 0, 0, "Can't load image t from " + fits + ": the store refused it", "\"the store refused it\"");
    KrvFault::arm("CDatImgHandler::RemoveImg", Answer::Zero);
    EXPECT_EQ(store->RemoveImg("fits"), 0);
    KrvFault::arm("CDatImgHandler::RemoveAll", Answer::Negative);
    EXPECT_EQ(store->RemoveAll(), -1);
    KrvFault::arm("CDatService::LoadImageA", Answer::Zero);
    EXPECT_FALSE(service->LoadImageA(fits, "f"));
    KrvFault::arm("CDatService::SaveImage", Answer::Throw);
    EXPECT_THROW(service->SaveImage("fits", path("g.tif")), KrvBaseException);
    EXPECT_EQ(store->GetObjCount(), 4u);
    EXPECT_FALSE(std::ifstream(path("g.tif")).good());

    expectRefused(fits, 0, 0, "Can't load image fits from " + fits + ": the name is invalid or already used",
                  "\"the name is invalid or already used\"", "fits");
    EXPECT_EQ(store->RemoveAll(), 4);
    EXPECT_EQ(KrvMemoryBudget::used(), 0u);
}

// ---- files built byte by byte ----

void put16(Bytes& b, unsigned v) { b.insert(b.end(), {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8)}); }
void put32(Bytes& b, std::uint32_t v) { put16(b, v & 0xffff), put16(b, v >> 16); }

struct TiffPage {
    std::uint32_t nx, ny;
    unsigned bits, format, samples;
    std::uint32_t dataBytes;  // bytes of voxels actually in the file
};

// A little-endian TIFF, each page one uncompressed strip of zeros followed by its directory.
Bytes tiff(const std::vector<TiffPage>& pages) {
    Bytes b{'I', 'I', 42, 0};
    put32(b, 8);
    for (std::size_t p = 0; p < pages.size(); ++p) {
        const TiffPage& page = pages[p];
        const std::uint32_t data = static_cast<std::uint32_t>(b.size()) + 2 + 9 * 12 + 4;
        const std::pair<unsigned, std::uint32_t> entries[] = {
            {256, page.nx}, {257, page.ny}, {258, page.bits}, {259, 1}, {262, 1},
            {273, data}, {277, page.samples}, {279, page.nx * page.ny * page.bits / 8 * page.samples}, {339, page.format}};
        put16(b, 9);
        for (const auto& [tag, value] : entries) {
            put16(b, tag);
            put16(b, tag == 256 || tag == 257 || tag == 273 || tag == 279 ? 4 : 3);
            put32(b, 1);
            put32(b, value);
        }
        const std::uint32_t next = p + 1 < pages.size() ? data + page.dataBytes : 0;
        put32(b, next);
        b.resize(b.size() + page.dataBytes);
    }
    return b;
}

Bytes fixPngHeaderCrc(Bytes png) {
    const uLong crc = crc32(0, png.data() + 12, 17);
    for (int i = 0; i < 4; ++i) png[29 + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
    return png;
}

TEST_F(ImageTest, MalformedTruncatedAndHostileFilesAreRefusedWithTheirReason) {
    // Where libtiff or libpng find the fault (`theirs`), their own words follow our reason.
    const auto refused = [&](const std::string& name, const Bytes& bytes, const std::string& reason, bool theirs = false) {
        SCOPED_TRACE(name);
        expectRefused(write(name, bytes), 0, 0, "Can't load image t: " + path(name) + ": " + reason, kLoadError, "t", theirs);
    };
    const TiffPage grey{4, 3, 8, 1, 1, 12};
    ASSERT_TRUE(service->LoadImageA(write("fine.tif", tiff({grey, grey})), "fine"));
    EXPECT_EQ(image("fine").Describe(), "4x3x2 uint8");

    refused("empty.tif", {}, "the file is empty");
    refused("text.tif", {'h', 'e', 'l', 'l', 'o'}, "neither a TIFF nor a PNG file");
    refused("rgb.tif", tiff({{4, 3, 8, 1, 3, 36}}), "page 0: 3 samples per pixel; only grey images are read");
    refused("u32.tif", tiff({{4, 3, 32, 1, 1, 48}}), "page 0: unsupported voxels: 32 bits of sample format 1");
    refused("s8.tif", tiff({{4, 3, 8, 2, 1, 12}}), "page 0: unsupported voxels: 8 bits of sample format 2");
    const std::string differ = ", page 0 is 4x3 uint8: pages of differing sizes or types are not read";
    refused("sizes.tif", tiff({grey, {4, 4, 8, 1, 1, 16}}), "page 1 is 4x4 uint8" + differ);
    refused("types.tif", tiff({grey, {4, 3, 16, 1, 1, 24}}), "page 1 is 4x3 uint16" + differ);
    const Bytes hostile = tiff({{100000, 100000, 8, 1, 1, 0}});
    const std::string claims = "claims 10000000000 bytes of voxels, more than a file of ";
    refused("hostile.tif", hostile, claims + std::to_string(hostile.size()) + " bytes can hold");
    refused("zero.tif", tiff({{0, 3, 8, 1, 1, 0}}), "not a readable TIFF: ", true);
    Bytes truncated = tiff({{64, 64, 8, 1, 1, 4096}});
    truncated.resize(truncated.size() - 100);
    refused("truncated.tif", truncated, "page 0, strip 0: ", true);
    refused("cut.tif", Bytes(truncated.begin(), truncated.begin() + 6), "not a readable TIFF: ", true);
    Bytes broken = tiff({grey, grey});
    broken[broken.size() - 12 - 2] = 0x10;  // the second page's next page: past the end
    refused("broken.tif", broken, "the chain of pages is damaged: ", true);
    Bytes loop = tiff({grey, grey});
    loop[loop.size() - 12 - 4] = 8;  // the second page's next page: the first again
    ASSERT_TRUE(service->LoadImageA(write("loop.tif", loop), "loop"));  // libtiff stops at the repeat
    EXPECT_EQ(image("loop").GetSizeZ(), 2);
    expectRefused(path("missing.tif"), 0, 0, "Can't load image t: " + path("missing.tif") + ": can't be opened: No such file or directory");
    expectRefused(folder, 0, 0, "Can't load image t: " + folder + ": not a regular file");

    // PNG: colour refused before any data is read; a cut file refused while decoding.
    ASSERT_NE(store->AddImg("g", 16, 16, 1, KrvVoxelType::UInt8), nullptr);
    ASSERT_TRUE(service->SaveImage("g", path("g.png")));
    const Bytes png = read("g.png");
    ASSERT_TRUE(service->LoadImageA(path("g.png"), "g_back"));
    expectRefused(path("g.png"), 1, 1, "Can't load image t: " + path("g.png") + ": page 1 asked, the image holds 1");
    Bytes colour = png, wide = png;
    colour[25] = 2;
    refused("colour.png", fixPngHeaderCrc(colour), "colour type 2; only grey PNG images are read");
    for (const int at : {16, 20}) wide[at + 1] = 0x01, wide[at + 2] = 0x86, wide[at + 3] = 0xa0;  // 100000
    refused("wide.png", fixPngHeaderCrc(wide), claims + std::to_string(png.size()) + " bytes can hold");
    refused("cut.png", Bytes(png.begin(), png.end() - 20), "PNG data: the file ends early");
    refused("header.png", Bytes(png.begin(), png.begin() + 20), "not a readable PNG: the file ends early");
}

// Known files: a resolution with a unit gives micrometres (without a description z stays 1), the
// fuzzer's seeds read whole, the reference library's samples read as it reads them.
TEST_F(ImageTest, KnownFilesReadAsWritten) {
    const std::string file = path("cm.tif");
    TIFF* tiff = TIFFOpen(file.c_str(), "w");
    ASSERT_NE(tiff, nullptr);
    std::uint8_t row[2] = {1, 2};
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 2);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 1);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 1000.0f);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 2500.0f);
    TIFFSetField(tiff, TIFFTAG_IMAGEDESCRIPTION, "made by hand\nvoxel_size=1 nonsense 2");
    ASSERT_EQ(TIFFWriteEncodedStrip(tiff, 0, row, 2), 2);
    TIFFClose(tiff);
    ASSERT_TRUE(service->LoadImageA(file, "cm"));
    const KrvVoxelSize size = image("cm").GetVoxelSize();
    EXPECT_DOUBLE_EQ(size.x, 10.0);
    EXPECT_DOUBLE_EQ(size.y, 4.0);
    EXPECT_EQ(size.z, 1.0);
    EXPECT_EQ(image("cm").At<std::uint8_t>(1, 0), 2);

    // The fuzzer's seeds (fuzz/make_image_corpus.py): every type, both byte orders, all readable.
    const std::string seeds = std::string(KORVANE_SOURCE_DIR) + "/fuzz/corpus/image/";
    for (const char* type : {"uint8", "uint16", "int32", "float32"}) {
        ASSERT_TRUE(service->LoadImageA(seeds + type + "_3d.tif", type));
        const KrvImage& read = image(type);
        EXPECT_EQ(read.Describe(), std::string("3x2x3 ") + type);
        EXPECT_EQ(read.GetVoxelSize().z, 2.0);
        EXPECT_EQ(read.GetVoxelSize().x, 0.5);
        const std::string t = type;
        const auto at = [&](auto zero) { return double(read.Voxels<decltype(zero)>()[read.Index(2, 1, 2)]); };
        EXPECT_EQ(t == "uint8" ? at(std::uint8_t{}) : t == "uint16" ? at(std::uint16_t{}) : t == "int32" ? at(0) : at(0.f),
                  19.0);  // (2 + 3 + 14) % 100
    }
    ASSERT_TRUE(service->LoadImageA(seeds + "grey16.png", "png"));
    EXPECT_EQ(image("png").At<std::uint16_t>(3, 1), 121);  // 3 * 40 + 1

    // The reference library's sample images, every voxel as it reads them (tests/measure_reference.py
    // writes them raw, and where they are).
    const std::string reference = folder + "/reference";
    const std::string script = "/usr/bin/python3 " KORVANE_SOURCE_DIR "/tests/measure_reference.py " + reference + " samples";
    if (std::system(("mkdir -p " + reference + " && " + script + " 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "python3-skimage is not installed";
    std::string samples;
    std::getline(std::ifstream(reference + "/data_dir"), samples);
    for (const std::string name : {"coins", "cell"}) {
        ASSERT_TRUE(service->LoadImageA(samples + "/" + name + ".png", name));
        const std::uint8_t* voxels = image(name).Voxels<std::uint8_t>();
        EXPECT_EQ(std::vector<std::uint8_t>(voxels, voxels + image(name).GetVoxelCount()),
                  kapitest::readRaw<std::uint8_t>(reference + "/" + name + ".grey")) << name;
    }
}

}  // namespace
