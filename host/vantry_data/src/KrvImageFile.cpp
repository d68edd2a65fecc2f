// TIFF through libtiff and PNG through libpng. A file is mapped and read from memory, the same
// path the fuzzer drives. Everything a file claims is checked before the image is allocated:
// page formats, sizes against what the file can hold and against the memory budget.
#include <vantry_data/KrvImageFile.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include <png.h>
#include <tiffio.h>

namespace {

[[noreturn]] void fail(const std::string& label, const std::string& reason, int line) {
    throw KrvBaseException(label + ": " + reason, __FILE__, static_cast<std::uint64_t>(line));
}

// The pages [first, first + count) of `total`, count <= 0 meaning to the last.
struct Range {
    int first;
    int count;
};

Range resolveRange(const std::string& label, int first, int count, int total, const char* what) {
    if (first < 0 || first >= total)
        fail(label, std::string(what) + " " + std::to_string(first) + " asked, the image holds " +
                        std::to_string(total),
             __LINE__);
    if (count <= 0) count = total - first;
    if (count > total - first)
        fail(label, std::to_string(count) + " " + what + "s from " + std::to_string(first) + " asked, the image holds " +
                        std::to_string(total),
             __LINE__);
    return {first, count};
}

// Checks the claimed size against the file and the budget, then allocates.
KrvImage allocateFor(const std::string& label, std::size_t fileBytes, std::uint32_t nx, std::uint32_t ny, int nz,
                     KrvVoxelType type) {
    if (nx == 0 || ny == 0 || nx > INT_MAX || ny > INT_MAX)
        fail(label, "invalid size " + std::to_string(nx) + "x" + std::to_string(ny), __LINE__);
    std::size_t bytes = krvVoxelBytes(type);
    for (const std::size_t n : {std::size_t(nx), std::size_t(ny), std::size_t(nz)})
        if (__builtin_mul_overflow(bytes, n, &bytes)) fail(label, "the image's size overflows", __LINE__);
    std::size_t most = 0;
    if (__builtin_mul_overflow(fileBytes, KrvImageFile::kMaxExpansion, &most)) most = SIZE_MAX;
    if (bytes > most)
        fail(label, "claims " + std::to_string(bytes) + " bytes of voxels, more than a file of " +
                        std::to_string(fileBytes) + " bytes can hold",
             __LINE__);
    KrvImage image;
    if (!image.Allocate(static_cast<int>(nx), static_cast<int>(ny), nz, type, "image"))
        fail(label, "can't allocate " + std::to_string(bytes) + " bytes (memory budget or memory exhausted)", __LINE__);
    return image;
}

// ---- TIFF ----

struct MemoryFile {
    const std::uint8_t* data;
    std::size_t size;
    std::uint64_t position;
};

tmsize_t tiffRead(thandle_t handle, void* out, tmsize_t n) {
    auto* file = static_cast<MemoryFile*>(handle);
    if (n <= 0 || file->position >= file->size) return 0;
    const std::size_t count = std::min<std::uint64_t>(static_cast<std::uint64_t>(n), file->size - file->position);
    std::memcpy(out, file->data + file->position, count);
    file->position += count;
    return static_cast<tmsize_t>(count);
}

tmsize_t tiffWrite(thandle_t, void*, tmsize_t) { return -1; }

toff_t tiffSeek(thandle_t handle, toff_t offset, int whence) {
    auto* file = static_cast<MemoryFile*>(handle);
    std::uint64_t base = 0;
    if (whence == SEEK_CUR) base = file->position;
    if (whence == SEEK_END) base = file->size;
    if (offset > UINT64_MAX - base) return static_cast<toff_t>(-1);
    file->position = base + offset;
    return file->position;
}

int tiffClose(thandle_t) { return 0; }
toff_t tiffSize(thandle_t handle) { return static_cast<MemoryFile*>(handle)->size; }

int tiffMap(thandle_t handle, void** base, toff_t* size) {
    auto* file = static_cast<MemoryFile*>(handle);
    *base = const_cast<std::uint8_t*>(file->data);
    *size = file->size;
    return 1;
}

void tiffUnmap(thandle_t, void*, toff_t) {}

// libtiff's messages go to the handle's own handlers: the first error is kept as the reason,
// warnings are dropped, nothing reaches standard error.
int tiffError(TIFF*, void* user, const char* module, const char* format, va_list args) {
    auto* reason = static_cast<std::string*>(user);
    if (reason->empty()) {
        char text[512];
        std::vsnprintf(text, sizeof text, format, args);
        *reason = (module != nullptr && *module != '\0') ? std::string(module) + ": " + text : text;
    }
    return 1;
}

int tiffWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct TiffOptions {
    explicit TiffOptions(std::string* reason) : options(TIFFOpenOptionsAlloc()) {
        TIFFOpenOptionsSetErrorHandlerExtR(options, tiffError, reason);
        TIFFOpenOptionsSetWarningHandlerExtR(options, tiffWarning, nullptr);
        // Voxels go straight into the image; libtiff itself needs room for tags and codecs only.
        TIFFOpenOptionsSetMaxSingleMemAlloc(options, tmsize_t(256) << 20);
    }
    ~TiffOptions() { TIFFOpenOptionsFree(options); }
    TiffOptions(const TiffOptions&) = delete;
    TiffOptions& operator=(const TiffOptions&) = delete;
    TIFFOpenOptions* options;
};

struct TiffCloser {
    void operator()(TIFF* tiff) const noexcept { TIFFClose(tiff); }
};
using TiffHandle = std::unique_ptr<TIFF, TiffCloser>;

struct PageFormat {
    std::uint32_t nx = 0, ny = 0;
    KrvVoxelType type = KrvVoxelType::UInt8;
    bool operator==(const PageFormat& o) const { return nx == o.nx && ny == o.ny && type == o.type; }
    std::string describe() const {
        return std::to_string(nx) + "x" + std::to_string(ny) + " " + krvVoxelTypeName(type);
    }
};

std::string why(const std::string& reason, const char* otherwise) { return reason.empty() ? otherwise : reason; }

PageFormat readPageFormat(TIFF* tiff, const std::string& label, int page) {
    const std::string where = "page " + std::to_string(page) + ": ";
    PageFormat format;
    std::uint16_t samples = 1, bits = 1, sampleFormat = SAMPLEFORMAT_UINT, photometric = PHOTOMETRIC_MINISBLACK;
    if (!TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &format.nx) || !TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &format.ny))
        fail(label, where + "no image size", __LINE__);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &sampleFormat);
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    if (samples != 1)
        fail(label, where + std::to_string(samples) + " samples per pixel; only grey images are read", __LINE__);
    if (photometric != PHOTOMETRIC_MINISBLACK && photometric != PHOTOMETRIC_MINISWHITE)
        fail(label, where + "photometric interpretation " + std::to_string(photometric) + "; only grey images are read",
             __LINE__);
    if (TIFFIsTiled(tiff)) fail(label, where + "tiled images are not read", __LINE__);
    if (bits == 8 && sampleFormat == SAMPLEFORMAT_UINT)
        format.type = KrvVoxelType::UInt8;
    else if (bits == 16 && sampleFormat == SAMPLEFORMAT_UINT)
        format.type = KrvVoxelType::UInt16;
    else if (bits == 32 && sampleFormat == SAMPLEFORMAT_INT)
        format.type = KrvVoxelType::Int32;
    else if (bits == 32 && sampleFormat == SAMPLEFORMAT_IEEEFP)
        format.type = KrvVoxelType::Float32;
    else
        fail(label, where + "unsupported voxels: " + std::to_string(bits) + " bits of sample format " +
                        std::to_string(sampleFormat),
             __LINE__);
    return format;
}

void readPageVoxels(TIFF* tiff, const std::string& label, int page, std::uint8_t* out, const PageFormat& format,
                    const std::string& reason) {
    std::uint32_t rowsPerStrip = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    if (rowsPerStrip == 0 || rowsPerStrip > format.ny) rowsPerStrip = format.ny;
    const std::size_t rowBytes = std::size_t(format.nx) * krvVoxelBytes(format.type);
    const tstrip_t strips = TIFFNumberOfStrips(tiff);
    tstrip_t strip = 0;
    for (std::uint32_t row = 0; row < format.ny; row += rowsPerStrip, ++strip) {
        const std::size_t want = std::min(rowsPerStrip, format.ny - row) * rowBytes;
        if (strip >= strips)
            fail(label, "page " + std::to_string(page) + ": " + std::to_string(strips) + " strips, too few for " +
                            std::to_string(format.ny) + " rows",
                 __LINE__);
        const tmsize_t got = TIFFReadEncodedStrip(tiff, strip, out + row * rowBytes, static_cast<tmsize_t>(want));
        if (got != static_cast<tmsize_t>(want))
            fail(label, "page " + std::to_string(page) + ", strip " + std::to_string(strip) + ": " +
                            why(reason, "the strip is truncated"),
                 __LINE__);
    }
}

double parseDouble(const char*& text, const char* end) {
    while (text < end && *text == ' ') ++text;
    double value = 0;
    const auto parsed = std::from_chars(text, end, value);
    if (parsed.ec != std::errc()) return std::nan("");
    text = parsed.ptr;
    return value;
}

bool isPositive(double value) { return std::isfinite(value) && value > 0; }

// The voxel size: the three values of a "voxel_size=X Y Z" line of the description when it
// has one, else x and y from the resolution (micrometres when the file gives a unit).
KrvVoxelSize readVoxelSize(TIFF* tiff) {
    KrvVoxelSize size;
    float xres = 0, yres = 0;
    std::uint16_t unit = RESUNIT_NONE;
    TIFFGetField(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
    const double scale = unit == RESUNIT_INCH ? 25400.0 : unit == RESUNIT_CENTIMETER ? 10000.0 : 1.0;
    if (TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &xres) && isPositive(scale / xres)) size.x = scale / xres;
    if (TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &yres) && isPositive(scale / yres)) size.y = scale / yres;
    const char* description = nullptr;
    if (!TIFFGetField(tiff, TIFFTAG_IMAGEDESCRIPTION, &description) || description == nullptr) return size;
    static const char key[] = "voxel_size=";
    for (const char* line = description; *line != '\0';) {
        const char* end = line + std::strcspn(line, "\n");
        if (std::strncmp(line, key, sizeof key - 1) == 0) {
            const char* text = line + sizeof key - 1;
            const KrvVoxelSize parsed{parseDouble(text, end), parseDouble(text, end), parseDouble(text, end)};
            if (isPositive(parsed.x) && isPositive(parsed.y) && isPositive(parsed.z)) return parsed;
        }
        line = *end == '\0' ? end : end + 1;
    }
    return size;
}

KrvImage readTiff(const std::uint8_t* bytes, std::size_t size, const std::string& label, int first, int count) {
    std::string reason;
    MemoryFile file{bytes, size, 0};
    TiffOptions options(&reason);
    TiffHandle tiff(TIFFClientOpenExt(label.c_str(), "r", &file, tiffRead, tiffWrite, tiffSeek, tiffClose, tiffSize,
                                      tiffMap, tiffUnmap, options.options));
    if (!tiff) fail(label, "not a readable TIFF: " + why(reason, "unknown error"), __LINE__);
    const tdir_t pages = TIFFNumberOfDirectories(tiff.get());
    // libtiff counts the pages it can reach; a loop or a broken chain of pages is an error.
    if (!reason.empty()) fail(label, "the chain of pages is damaged: " + reason, __LINE__);
    if (pages < 1 || pages > static_cast<tdir_t>(INT_MAX)) fail(label, "no readable page", __LINE__);
    const Range range = resolveRange(label, first, count, static_cast<int>(pages), "page");

    // Every page's format first, so that nothing is allocated for a file that will be refused.
    PageFormat format;
    for (int page = range.first; page < range.first + range.count; ++page) {
        if (!TIFFSetDirectory(tiff.get(), static_cast<tdir_t>(page)))
            fail(label, "page " + std::to_string(page) + ": " + why(reason, "can't be read"), __LINE__);
        const PageFormat pageFormat = readPageFormat(tiff.get(), label, page);
        if (page == range.first)
            format = pageFormat;
        else if (!(pageFormat == format))
            fail(label, "page " + std::to_string(page) + " is " + pageFormat.describe() + ", page " +
                            std::to_string(range.first) + " is " + format.describe() +
                            ": pages of differing sizes or types are not read",
                 __LINE__);
    }
    KrvImage image = allocateFor(label, size, format.nx, format.ny, range.count, format.type);
    for (int page = range.first; page < range.first + range.count; ++page) {
        if (!TIFFSetDirectory(tiff.get(), static_cast<tdir_t>(page)))
            fail(label, "page " + std::to_string(page) + ": " + why(reason, "can't be read"), __LINE__);
        if (page == range.first) image.SetVoxelSize(readVoxelSize(tiff.get()));
        readPageVoxels(tiff.get(), label, page, image.GetPlane(page - range.first), format, reason);
    }
    return image;
}

// ---- PNG ----
// libpng reports errors by longjmp: the functions that call it hold no C++ object whose
// destructor a jump would skip, and keep the reason in a plain buffer.

struct PngSource {
    const std::uint8_t* data;
    std::size_t size;
    std::size_t position;
    char reason[256];
};

struct PngHeader {
    png_uint_32 nx, ny;
    int depth, colour;
};

void pngRead(png_structp png, png_bytep out, png_size_t n) {
    auto* source = static_cast<PngSource*>(png_get_io_ptr(png));
    if (n > source->size - source->position) png_error(png, "the file ends early");
    std::memcpy(out, source->data + source->position, n);
    source->position += n;
}

void pngError(png_structp png, png_const_charp message) {
    auto* reason = static_cast<char*>(png_get_error_ptr(png));
    std::snprintf(reason, 256, "%s", message);
    png_longjmp(png, 1);
}

void pngWarning(png_structp, png_const_charp) {}

// Reads the header, and the rows too when `rows` is given; false with the reason kept.
bool pngDecode(PngSource* source, PngHeader* header, png_bytep* rows) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, source->reason, pngError, pngWarning);
    if (png == nullptr) return false;
    png_infop info = png_create_info_struct(png);
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_set_read_fn(png, source, pngRead);
    png_set_user_limits(png, 0x7fffffff, 0x7fffffff);
    png_read_info(png, info);
    png_get_IHDR(png, info, &header->nx, &header->ny, &header->depth, &header->colour, nullptr, nullptr, nullptr);
    if (rows != nullptr) {
        if (header->depth < 8) png_set_expand_gray_1_2_4_to_8(png);
        if (header->depth == 16) png_set_swap(png);
        png_set_interlace_handling(png);
        png_read_update_info(png, info);
        png_read_image(png, rows);
        png_read_end(png, nullptr);
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

KrvImage readPng(const std::uint8_t* bytes, std::size_t size, const std::string& label, int first, int count) {
    PngSource source{bytes, size, 0, {}};
    PngHeader header{};
    if (!pngDecode(&source, &header, nullptr)) fail(label, std::string("not a readable PNG: ") + source.reason, __LINE__);
    resolveRange(label, first, count, 1, "page");
    if (header.colour != PNG_COLOR_TYPE_GRAY)
        fail(label, "colour type " + std::to_string(header.colour) + "; only grey PNG images are read", __LINE__);
    KrvImage image = allocateFor(label, size, header.nx, header.ny, 1,
                                 header.depth == 16 ? KrvVoxelType::UInt16 : KrvVoxelType::UInt8);
    std::vector<png_bytep> rows(header.ny);
    const std::size_t rowBytes = std::size_t(header.nx) * krvVoxelBytes(image.GetType());
    for (std::size_t y = 0; y < rows.size(); ++y) rows[y] = image.GetPlane(0) + y * rowBytes;
    source.position = 0;
    if (!pngDecode(&source, &header, rows.data())) fail(label, std::string("PNG data: ") + source.reason, __LINE__);
    return image;
}

bool pngEncode(std::FILE* out, const PngHeader* header, png_bytep* rows, char* reason) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, reason, pngError, pngWarning);
    if (png == nullptr) return false;
    png_infop info = png_create_info_struct(png);
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, out);
    png_set_IHDR(png, info, header->nx, header->ny, header->depth, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (header->depth == 16) png_set_swap(png);
    png_write_image(png, rows);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

void writePng(const KrvImage& image, const std::string& file, Range planes) {
    if (planes.count != 1) fail(file, "a PNG holds one plane, " + std::to_string(planes.count) + " asked", __LINE__);
    if (image.GetType() != KrvVoxelType::UInt8 && image.GetType() != KrvVoxelType::UInt16)
        fail(file, std::string("a PNG holds uint8 or uint16 voxels, not ") + krvVoxelTypeName(image.GetType()),
             __LINE__);
    std::FILE* out = std::fopen(file.c_str(), "wb");
    if (out == nullptr) fail(file, std::string("can't be created: ") + std::strerror(errno), __LINE__);
    const PngHeader header{static_cast<png_uint_32>(image.GetSizeX()), static_cast<png_uint_32>(image.GetSizeY()),
                           image.GetType() == KrvVoxelType::UInt16 ? 16 : 8, PNG_COLOR_TYPE_GRAY};
    std::vector<png_bytep> rows(header.ny);
    const std::size_t rowBytes = std::size_t(header.nx) * krvVoxelBytes(image.GetType());
    const std::uint8_t* plane = image.GetPlane(planes.first);
    for (std::size_t y = 0; y < rows.size(); ++y) rows[y] = const_cast<std::uint8_t*>(plane + y * rowBytes);
    char reason[256] = "write error";
    const bool written = pngEncode(out, &header, rows.data(), reason);
    if (std::fclose(out) != 0 || !written) {
        std::remove(file.c_str());
        fail(file, std::string("can't be written: ") + reason, __LINE__);
    }
}

// ---- TIFF writing ----

std::string describeVoxelSize(const KrvVoxelSize& size) {
    std::string text = "voxel_size=";
    for (const double v : {size.x, size.y, size.z}) {
        char number[32];
        const auto written = std::to_chars(number, number + sizeof number, v);
        if (text.back() != '=') text += ' ';
        text.append(number, written.ptr);
    }
    return text;
}

std::uint16_t sampleFormatOf(KrvVoxelType type) {
    if (type == KrvVoxelType::Float32) return SAMPLEFORMAT_IEEEFP;
    if (type == KrvVoxelType::Int32) return SAMPLEFORMAT_INT;
    return SAMPLEFORMAT_UINT;
}

bool writeTiffPage(TIFF* tiff, const KrvImage& image, int plane, int page, int pages) {
    const auto nx = static_cast<std::uint32_t>(image.GetSizeX());
    const auto ny = static_cast<std::uint32_t>(image.GetSizeY());
    const KrvVoxelSize& size = image.GetVoxelSize();
    const std::string description = describeVoxelSize(size);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, nx);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, ny);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, static_cast<int>(8 * krvVoxelBytes(image.GetType())));
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, sampleFormatOf(image.GetType()));
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_NONE);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, static_cast<float>(1.0 / size.x));
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, static_cast<float>(1.0 / size.y));
    TIFFSetField(tiff, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
    if (pages > 1) {
        TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
        TIFFSetField(tiff, TIFFTAG_PAGENUMBER, page, pages);
    }
    const std::uint32_t rowsPerStrip = TIFFDefaultStripSize(tiff, 0);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
    const std::size_t rowBytes = std::size_t(nx) * krvVoxelBytes(image.GetType());
    auto* voxels = const_cast<std::uint8_t*>(image.GetPlane(plane));
    tstrip_t strip = 0;
    for (std::uint32_t row = 0; row < ny; row += rowsPerStrip, ++strip) {
        const std::size_t bytes = std::min(rowsPerStrip, ny - row) * rowBytes;
        if (TIFFWriteEncodedStrip(tiff, strip, voxels + row * rowBytes, static_cast<tmsize_t>(bytes)) < 0) return false;
    }
    return TIFFWriteDirectory(tiff) != 0;
}

void writeTiff(const KrvImage& image, const std::string& file, Range planes) {
    std::string reason;
    TiffOptions options(&reason);
    const bool big = image.GetPlaneBytes() * std::size_t(planes.count) > (std::size_t(1) << 31);
    TiffHandle tiff(TIFFOpenExt(file.c_str(), big ? "w8" : "w", options.options));
    if (!tiff) fail(file, "can't be created: " + why(reason, std::strerror(errno)), __LINE__);
    for (int page = 0; page < planes.count; ++page) {
        if (!writeTiffPage(tiff.get(), image, planes.first + page, page, planes.count)) {
            tiff.reset();
            std::remove(file.c_str());
            fail(file, "can't be written: " + why(reason, "write error"), __LINE__);
        }
    }
}

bool endsWithPng(const std::string& file) {
    if (file.size() < 4) return false;
    std::string tail = file.substr(file.size() - 4);
    std::transform(tail.begin(), tail.end(), tail.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return tail == ".png";
}

// A read-only mapping of a whole file.
class MappedFile {
public:
    explicit MappedFile(const std::string& file) {
        const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) fail(file, std::string("can't be opened: ") + std::strerror(errno), __LINE__);
        struct stat status {};
        if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
            ::close(fd);
            fail(file, "not a regular file", __LINE__);
        }
        m_size = static_cast<std::size_t>(status.st_size);
        if (m_size > 0) m_data = ::mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, fd, 0);
        ::close(fd);
        if (m_data == MAP_FAILED) fail(file, std::string("can't be mapped: ") + std::strerror(errno), __LINE__);
    }
    ~MappedFile() {
        if (m_data != nullptr) ::munmap(m_data, m_size);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    const void* data() const { return m_data; }
    std::size_t size() const { return m_size; }

private:
    void* m_data = nullptr;
    std::size_t m_size = 0;
};

}  // namespace

namespace KrvImageFile {

KrvImage Read(const std::string& file, int first, int count) {
    const MappedFile mapped(file);
    return ReadMemory(mapped.data(), mapped.size(), file, first, count);
}

KrvImage ReadMemory(const void* bytes, std::size_t size, const std::string& label, int first, int count) {
    const auto* data = static_cast<const std::uint8_t*>(bytes);
    if (size == 0) fail(label, "the file is empty", __LINE__);
    static const std::uint8_t png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (size >= 8 && std::memcmp(data, png, 8) == 0) return readPng(data, size, label, first, count);
    if (size >= 4 && ((data[0] == 'I' && data[1] == 'I') || (data[0] == 'M' && data[1] == 'M')))
        return readTiff(data, size, label, first, count);
    fail(label, "neither a TIFF nor a PNG file", __LINE__);
}

void Write(const KrvImage& image, const std::string& file, int first, int count) {
    if (image.IsEmpty()) fail(file, "the image is empty", __LINE__);
    const Range planes = resolveRange(file, first, count, image.GetSizeZ(), "plane");
    if (endsWithPng(file))
        writePng(image, file, planes);
    else
        writeTiff(image, file, planes);
}

}  // namespace KrvImageFile
