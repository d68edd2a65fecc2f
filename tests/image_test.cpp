// Images: the store, reading and writing TIFF and PNG through the data service, and files that
// must be refused with a clear reason and nothing made.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
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

using kapitest::sourceLine;
using Answer = KrvFault::Answer;
using Level = KrvLoggerLevel;
using Bytes = std::vector<unsigned char>;

namespace {

const char* const kService = "host/vantry_data/src/CDatServiceImages.cpp";

// One Error line of the data service with this message, from the statement holding `snippet`.
void expectDataError(const kapitest::LogCapture& log, const std::string& message, const char* snippet) {
    const std::vector<kapitest::LogLine> found = log.find(message);
    std::string logged;
    for (const kapitest::LogLine& line : log.lines()) logged += "\n  " + line.message;
    ASSERT_EQ(found.size(), 1u) << "lines with message \"" << message << "\"; logged:" << logged;
    EXPECT_EQ(found[0].level, Level::Error);
    EXPECT_EQ(found[0].logger, "Korvane.Data");
    EXPECT_NE(found[0].file.find("vantry_data/src/CDatServiceImages.cpp"), std::string::npos) << found[0].file;
    EXPECT_EQ(found[0].line, sourceLine(kService, snippet)) << message;
}

class ImageTest : public kapitest::SuiteTest {
protected:
    void SetUp() override {
        SuiteTest::SetUp();
        service = static_cast<CDatService*>(CService::Get(eServiceData));
        ASSERT_NE(service, nullptr);
        store = CDatImgHandler::m_pInstance;
        ASSERT_NE(store, nullptr);
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
    // A refused load: false, nothing stored, no budget kept, and the Error line.
    void expectRefused(const std::string& file, int first, int count, const std::string& message, const char* snippet,
                       const std::string& name = "t") {
        const std::uint64_t used = KrvMemoryBudget::used();
        const std::size_t stored = store->GetObjCount();
        log->clear();
        EXPECT_FALSE(service->LoadImageA(file, name, first, count)) << message;
        EXPECT_EQ(store->GetObjCount(), stored);
        EXPECT_EQ(KrvMemoryBudget::used(), used);
        expectDataError(*log, message, snippet);
    }
    CDatService* service = nullptr;
    CDatImgHandler* store = nullptr;
};

const char* const kLoadError = "\"Can't load image \" + name.m_str + \": \" + error";

// Distinct values of each type over the image, extremes included.
void fill(KrvImage& image) {
    for (std::size_t i = 0; i < image.GetVoxelCount(); ++i) {
        const auto n = static_cast<long long>(i);
        switch (image.GetType()) {
        case KrvVoxelType::UInt8: image.Voxels<std::uint8_t>()[i] = std::uint8_t(i == 0 ? 255 : n * 7); break;
        case KrvVoxelType::UInt16: image.Voxels<std::uint16_t>()[i] = std::uint16_t(i == 0 ? 65535 : n * 977); break;
        case KrvVoxelType::Int32: image.Voxels<std::int32_t>()[i] = i == 0 ? INT32_MIN : std::int32_t(n * -40009); break;
        case KrvVoxelType::Float32: image.Voxels<float>()[i] = i == 0 ? -1.5e30f : float(n) / 3.0f; break;
        }
    }
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
            SCOPED_TRACE(std::string(krvVoxelTypeName(type)) + " z " + std::to_string(nz));
            const std::string name = std::string("in_") + krvVoxelTypeName(type) + std::to_string(nz);
            CDatImg* made = store->AddImg(name, 37, 5, nz, type);  // odd width: rows not aligned
            ASSERT_NE(made, nullptr);
            fill(made->GetImage());
            made->GetImage().SetVoxelSize({0.1, 1.0 / 3.0, 2.5e-7});
            const std::string file = path(name + ".tif");
            ASSERT_TRUE(service->SaveImage(name, file));
            ASSERT_TRUE(service->LoadImageA(file, name + "_back"));
            const KrvImage& back = store->FindObj(name + "_back")->GetImage();
            EXPECT_EQ(back.GetSizeZ(), nz);
            expectSameVoxels(made->GetImage(), back);
            EXPECT_EQ(back.GetVoxelSize().x, 0.1);
            EXPECT_EQ(back.GetVoxelSize().y, 1.0 / 3.0);
            EXPECT_EQ(back.GetVoxelSize().z, 2.5e-7);
        }
    // PNG: one plane of 8 or 16 bits, no voxel size.
    for (const KrvVoxelType type : {KrvVoxelType::UInt8, KrvVoxelType::UInt16}) {
        KrvImage& image = store->FindObj(std::string("in_") + krvVoxelTypeName(type) + "1")->GetImage();
        const std::string file = path(std::string(krvVoxelTypeName(type)) + ".PNG");
        ASSERT_TRUE(service->SaveImage(std::string("in_") + krvVoxelTypeName(type) + "1", file));
        ASSERT_TRUE(service->LoadImageA(file, file));
        const KrvImage& back = store->FindObj(file)->GetImage();
        expectSameVoxels(image, back);
        EXPECT_EQ(back.GetVoxelSize().x, 1.0);
        EXPECT_EQ(read(std::string(krvVoxelTypeName(type)) + ".PNG").at(1), 'P');
    }
    // A stored image counts its bytes.
    std::size_t bytes = 0;
    std::vector<CKrvString> names;
    store->GetObjList(names);
    for (const CKrvString& name : names) bytes += store->FindObj(name)->GetImage().GetByteCount();
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

    ASSERT_TRUE(service->LoadImageA(file, "middle", 1, 2));
    EXPECT_EQ(store->FindObj("middle")->GetImage().GetSizeZ(), 2);
    expectSameVoxels(store->FindObj("middle")->GetImage(), made->GetImage(), 1);
    ASSERT_TRUE(service->LoadImageA(file, "tail", 3, 0));  // 0 and below: to the last page
    ASSERT_TRUE(service->LoadImageA(file, "last", 4, -7));
    EXPECT_EQ(store->FindObj("tail")->GetImage().GetSizeZ(), 2);
    EXPECT_EQ(store->FindObj("last")->GetImage().GetSizeZ(), 1);
    expectSameVoxels(store->FindObj("tail")->GetImage(), made->GetImage(), 3);

    expectRefused(file, 5, 1, "Can't load image t: " + file + ": page 5 asked, the image holds 5", kLoadError);
    expectRefused(file, -1, 1, "Can't load image t: " + file + ": page -1 asked, the image holds 5", kLoadError);
    expectRefused(file, 2, 4, "Can't load image t: " + file + ": 4 pages from 2 asked, the image holds 5", kLoadError);

    // Saving a range writes those planes only; a PNG takes exactly one.
    ASSERT_TRUE(service->SaveImage("stack", path("two.tif"), 2, 2));
    ASSERT_TRUE(service->LoadImageA(path("two.tif"), "two"));
    expectSameVoxels(store->FindObj("two")->GetImage(), made->GetImage(), 2);
    ASSERT_TRUE(service->SaveImage("stack", path("plane.png"), 4, 1));
    const char* const saveError = "\"Can't save image \" + name.m_str + \": \" + error";
    log->clear();
    EXPECT_FALSE(service->SaveImage("stack", path("planes.png"), 0, 2));
    expectDataError(*log, "Can't save image stack: " + path("planes.png") + ": a PNG holds one plane, 2 asked", saveError);
    EXPECT_FALSE(std::ifstream(path("planes.png")).good());
    EXPECT_FALSE(service->SaveImage("stack", path("x.tif"), 0, 6));
    expectDataError(*log, "Can't save image stack: " + path("x.tif") + ": 6 planes from 0 asked, the image holds 5", saveError);
    EXPECT_FALSE(service->SaveImage("stack", folder + "/no/such/folder.tif"));
    EXPECT_FALSE(service->SaveImage("nothing", path("n.tif")));
    expectDataError(*log, "Can't save image nothing to " + path("n.tif") + ": no such image", "\": no such image\"");
}

TEST_F(ImageTest, StoreKeepsNameRulesBudgetAndFaultPoints) {
    ASSERT_NE(store->AddImg("a", 10, 10, 10, KrvVoxelType::UInt8), nullptr);
    for (const std::string& bad : {std::string(), std::string(256, 'n'), std::string("tab\there"), std::string("a")})
        EXPECT_EQ(store->AddImg(bad, 1, 1, 1, KrvVoxelType::UInt8), nullptr) << bad;
    EXPECT_NE(store->AddImg(std::string(255, 'n'), 1, 1, 1, KrvVoxelType::UInt8), nullptr);
    for (const int size : {0, -1}) EXPECT_EQ(store->AddImg("zero", size, 1, 1, KrvVoxelType::UInt8), nullptr);
    EXPECT_EQ(store->AddImg("huge", 1 << 30, 1 << 30, 1 << 30, KrvVoxelType::Float32), nullptr);
    KrvImage empty;
    EXPECT_EQ(store->AddImg("empty", std::move(empty)), nullptr);
    KrvImage kept;
    ASSERT_TRUE(kept.Allocate(2, 2, 1, KrvVoxelType::Int32));
    EXPECT_EQ(store->AddImg("a", std::move(kept)), nullptr);
    EXPECT_FALSE(kept.IsEmpty());  // a refusal leaves the image with the caller
    EXPECT_THROW(kept.Voxels<float>(), KrvBaseException);
    EXPECT_THROW(kept.SetVoxelSize({1, 0, 1}), KrvBaseException);
    ASSERT_NE(store->AddImg("b", std::move(kept)), nullptr);
    std::vector<CKrvString> names;
    store->GetObjList(names);
    EXPECT_EQ(names, (std::vector<CKrvString>{"a", std::string(255, 'n'), "b"}));

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
    ASSERT_TRUE(service->SaveImage("fits", path("fits.tif")));
    expectRefused(path("fits.tif"), 0, 0,
                  "Can't load image t: " + path("fits.tif") + ": can't allocate 1000 bytes (memory budget or memory exhausted)",
                  kLoadError);

    // Fault points: each answer leaves the store as it was.
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(0);
    KrvFault::arm("CDatImgHandler::AddImg", Answer::Null, 1, 2);
    EXPECT_EQ(store->AddImg("f", 1, 1, 1, KrvVoxelType::UInt8), nullptr);
    expectRefused(path("fits.tif"), 0, 0, "Can't load image t from " + path("fits.tif") + ": the store refused it",
                  "\"the store refused it\"");
    KrvFault::arm("CDatImgHandler::RemoveImg", Answer::Zero);
    EXPECT_EQ(store->RemoveImg("fits"), 0);
    KrvFault::arm("CDatImgHandler::RemoveAll", Answer::Negative);
    EXPECT_EQ(store->RemoveAll(), -1);
    EXPECT_EQ(store->GetObjCount(), 4u);
    KrvFault::arm("CDatService::LoadImageA", Answer::Zero);
    EXPECT_FALSE(service->LoadImageA(path("fits.tif"), "f"));
    KrvFault::arm("CDatService::SaveImage", Answer::Throw);
    EXPECT_THROW(service->SaveImage("fits", path("g.tif")), KrvBaseException);
    EXPECT_EQ(store->GetObjCount(), 4u);
    EXPECT_FALSE(std::ifstream(path("g.tif")).good());

    expectRefused(path("fits.tif"), 0, 0, "Can't load image fits from " + path("fits.tif") + ": the name is invalid or already used",
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
    const auto refused = [&](const std::string& name, const Bytes& bytes, const std::string& reason) {
        SCOPED_TRACE(name);
        const std::string file = write(name, bytes);
        expectRefused(file, 0, 0, "Can't load image t: " + file + ": " + reason, kLoadError);
    };
    const TiffPage grey{4, 3, 8, 1, 1, 12};
    ASSERT_TRUE(service->LoadImageA(write("fine.tif", tiff({grey, grey})), "fine"));
    EXPECT_EQ(store->FindObj("fine")->GetImage().Describe(), "4x3x2 uint8");

    refused("empty.tif", {}, "the file is empty");
    refused("text.tif", {'h', 'e', 'l', 'l', 'o'}, "neither a TIFF nor a PNG file");
    refused("rgb.tif", tiff({{4, 3, 8, 1, 3, 36}}), "page 0: 3 samples per pixel; only grey images are read");
    refused("u32.tif", tiff({{4, 3, 32, 1, 1, 48}}), "page 0: unsupported voxels: 32 bits of sample format 1");
    refused("s8.tif", tiff({{4, 3, 8, 2, 1, 12}}), "page 0: unsupported voxels: 8 bits of sample format 2");
    refused("sizes.tif", tiff({grey, {4, 4, 8, 1, 1, 16}}),
            "page 1 is 4x4 uint8, page 0 is 4x3 uint8: pages of differing sizes or types are not read");
    refused("types.tif", tiff({grey, {4, 3, 16, 1, 1, 24}}),
            "page 1 is 4x3 uint16, page 0 is 4x3 uint8: pages of differing sizes or types are not read");
    const Bytes hostile = tiff({{100000, 100000, 8, 1, 1, 0}});
    refused("hostile.tif", hostile,
            "claims 10000000000 bytes of voxels, more than a file of " + std::to_string(hostile.size()) +
                " bytes can hold");
    // Where libtiff finds the fault its own words follow our prefix.
    const auto refusedByLibtiff = [&](const std::string& name, const Bytes& bytes, const std::string& prefix) {
        SCOPED_TRACE(name);
        const std::string file = write(name, bytes);
        log->clear();
        EXPECT_FALSE(service->LoadImageA(file, "t"));
        EXPECT_EQ(store->FindObj("t"), nullptr);
        ASSERT_EQ(log->lines().size(), 1u);
        const kapitest::LogLine line = log->lines()[0];
        EXPECT_EQ(line.message.rfind("Can't load image t: " + file + ": " + prefix, 0), 0u) << line.message;
        EXPECT_GT(line.message.size(), ("Can't load image t: " + file + ": " + prefix).size() + 5) << line.message;
        EXPECT_EQ(line.level, Level::Error);
        EXPECT_EQ(line.line, sourceLine(kService, kLoadError));
    };
    refusedByLibtiff("zero.tif", tiff({{0, 3, 8, 1, 1, 0}}), "not a readable TIFF: ");
    Bytes truncated = tiff({{64, 64, 8, 1, 1, 4096}});
    truncated.resize(truncated.size() - 100);
    refusedByLibtiff("truncated.tif", truncated, "page 0, strip 0: ");
    refusedByLibtiff("cut.tif", Bytes(truncated.begin(), truncated.begin() + 6), "not a readable TIFF: ");
    Bytes broken = tiff({grey, grey});
    broken[broken.size() - 12 - 2] = 0x10;  // the second page's next page: past the end
    refusedByLibtiff("broken.tif", broken, "the chain of pages is damaged: ");
    Bytes loop = tiff({grey, grey});
    loop[loop.size() - 12 - 4] = 8;  // the second page's next page: the first again
    ASSERT_TRUE(service->LoadImageA(write("loop.tif", loop), "loop"));  // libtiff stops at the repeat
    EXPECT_EQ(store->FindObj("loop")->GetImage().GetSizeZ(), 2);
    const std::string missing = path("missing.tif");
    expectRefused(missing, 0, 0, "Can't load image t: " + missing + ": can't be opened: No such file or directory", kLoadError);
    expectRefused(folder, 0, 0, "Can't load image t: " + folder + ": not a regular file", kLoadError);

    // PNG: colour refused before any data is read; a cut file refused while decoding.
    ASSERT_NE(store->AddImg("g", 16, 16, 1, KrvVoxelType::UInt8), nullptr);
    ASSERT_TRUE(service->SaveImage("g", path("g.png")));
    const Bytes png = read("g.png");
    ASSERT_TRUE(service->LoadImageA(path("g.png"), "g_back"));
    expectRefused(path("g.png"), 1, 1, "Can't load image t: " + path("g.png") + ": page 1 asked, the image holds 1",
                  kLoadError);
    Bytes colour = png;
    colour[25] = 2;
    refused("colour.png", fixPngHeaderCrc(colour), "colour type 2; only grey PNG images are read");
    Bytes wide = png;
    for (const int at : {16, 20}) wide[at + 1] = 0x01, wide[at + 2] = 0x86, wide[at + 3] = 0xa0;  // 100000
    refused("wide.png", fixPngHeaderCrc(wide),
            "claims 10000000000 bytes of voxels, more than a file of " + std::to_string(png.size()) + " bytes can hold");
    refused("cut.png", Bytes(png.begin(), png.end() - 20), "PNG data: the file ends early");
    refused("header.png", Bytes(png.begin(), png.begin() + 20), "not a readable PNG: the file ends early");
}

// The sample images of the reference library: sizes and voxels as it reads them.
TEST_F(ImageTest, SamplePngMatchesTheReference) {
    const std::string script =
        "import os, skimage.io, skimage.data\n"
        "for n in ('coins.png', 'cell.png'):\n"
        "    f = os.path.join(skimage.data.data_dir, n); a = skimage.io.imread(f)\n"
        "    print(f, a.shape[1], a.shape[0], a.dtype, a[0, 0], a[10, 20], a[-1, -1], int(a.sum()))\n";
    std::FILE* python = popen(("/usr/bin/python3 -c \"" + script + "\" 2>/dev/null").c_str(), "r");
    ASSERT_NE(python, nullptr);
    char line[1024];
    int compared = 0;
    while (std::fgets(line, sizeof line, python) != nullptr) {
        char file[900], type[16];
        int nx = 0, ny = 0, first = 0, inner = 0, last = 0;
        long long sum = 0;
        ASSERT_EQ(std::sscanf(line, "%899s %d %d %15s %d %d %d %lld", file, &nx, &ny, type, &first, &inner, &last, &sum), 8);
        SCOPED_TRACE(file);
        ASSERT_TRUE(service->LoadImageA(file, file));
        const KrvImage& image = store->FindObj(file)->GetImage();
        EXPECT_EQ(image.Describe(), std::to_string(nx) + "x" + std::to_string(ny) + "x1 uint8");
        EXPECT_EQ(std::string(type), "uint8");
        EXPECT_EQ(image.At<std::uint8_t>(0, 0), first);
        EXPECT_EQ(image.At<std::uint8_t>(20, 10), inner);
        EXPECT_EQ(image.At<std::uint8_t>(nx - 1, ny - 1), last);
        long long ours = 0;
        for (std::size_t i = 0; i < image.GetVoxelCount(); ++i) ours += image.Voxels<std::uint8_t>()[i];
        EXPECT_EQ(ours, sum);
        ++compared;
    }
    pclose(python);
    if (compared == 0) GTEST_SKIP() << "python3-skimage is not installed";
}

// A resolution with a unit gives micrometres; without a description z stays 1.
TEST_F(ImageTest, ResolutionUnitsGiveMicrometres) {
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
    const KrvVoxelSize size = store->FindObj("cm")->GetImage().GetVoxelSize();
    EXPECT_DOUBLE_EQ(size.x, 10.0);
    EXPECT_DOUBLE_EQ(size.y, 4.0);
    EXPECT_EQ(size.z, 1.0);
    EXPECT_EQ(store->FindObj("cm")->GetImage().At<std::uint8_t>(1, 0), 2);
}

// The fuzzer's seeds (fuzz/make_image_corpus.py): every type, both byte orders, all readable.
TEST_F(ImageTest, SeedCorpusReadsWhole) {
    const std::string seeds = std::string(KORVANE_SOURCE_DIR) + "/fuzz/corpus/image/";
    for (const char* type : {"uint8", "uint16", "int32", "float32"}) {
        ASSERT_TRUE(service->LoadImageA(seeds + type + "_3d.tif", type));
        const KrvImage& image = store->FindObj(type)->GetImage();
        EXPECT_EQ(image.Describe(), std::string("3x2x3 ") + type);
        EXPECT_EQ(image.GetVoxelSize().z, 2.0);
        EXPECT_EQ(image.GetVoxelSize().x, 0.5);
        const std::size_t last = image.Index(2, 1, 2);  // (2 + 3 + 14) % 100
        switch (image.GetType()) {
        case KrvVoxelType::UInt8: EXPECT_EQ(image.Voxels<std::uint8_t>()[last], 19); break;
        case KrvVoxelType::UInt16: EXPECT_EQ(image.Voxels<std::uint16_t>()[last], 19); break;
        case KrvVoxelType::Int32: EXPECT_EQ(image.Voxels<std::int32_t>()[last], 19); break;
        case KrvVoxelType::Float32: EXPECT_EQ(image.Voxels<float>()[last], 19.0f); break;
        }
    }
    ASSERT_TRUE(service->LoadImageA(seeds + "grey16.png", "png"));
    EXPECT_EQ(store->FindObj("png")->GetImage().At<std::uint16_t>(3, 1), 121);  // 3 * 40 + 1
}

}  // namespace
