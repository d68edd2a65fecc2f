// Fuzzes the readers of the suite's two INI files: the input becomes both the settings file and
// the logger configuration file. Each must be read or refused with a KrvBaseException that names
// that file and a line of it (a refused value: the very line of its key).
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

#include <unistd.h>

#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvLogger.h>
#include <vantry_util/KrvUtil.h>

namespace {

std::string g_folder;

void removeFolder() {
    for (const char* name : {"/Tarsel.ini", "/logging.ini"}) ::unlink((g_folder + name).c_str());
    ::rmdir(g_folder.c_str());
}

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// A refusal names the file, a line within it, and (for a refused value) the line of its key.
void checkRefusal(const KrvBaseException& e, const std::string& file, std::uint64_t lines) {
    if (e.getFile() != file || e.getLine() > lines) std::abort();
    if ((startsWith(e.getMessage(), "Invalid setting") || startsWith(e.getMessage(), "Invalid log level")) &&
        e.getLine() == 0)
        std::abort();
}

// The text written as the file of that name, then read or refused.
void readAs(const char* name, std::string_view text, void (*read)(const std::string& file)) {
    const std::string file = g_folder + "/" + name;
    std::ofstream(file, std::ios::binary | std::ios::trunc).write(text.data(), static_cast<std::streamsize>(text.size()));
    try {
        read(file);
    } catch (const KrvBaseException& e) {
        checkRefusal(e, file, 1 + std::count(text.begin(), text.end(), '\n'));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char folder[] = "/tmp/korvane-settings-fuzz-XXXXXX";
    if (::mkdtemp(folder) == nullptr) std::abort();
    g_folder = folder;
    std::atexit(&removeFolder);
    setKrvConsoleLevel(static_cast<int>(KrvLoggerLevel::Off));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    readAs("Tarsel.ini", text, [](const std::string& file) {
        CKrvSettingDoc::getInstance().init("Tarsel", true, g_folder);
        if (CKrvSettingDoc::getInstance().getFileName() != file) std::abort();
    });
    readAs("logging.ini", text, [](const std::string& file) { initKrvLoggers(file, "", "Info"); });
    KrvUtil::finish();
    return 0;
}
