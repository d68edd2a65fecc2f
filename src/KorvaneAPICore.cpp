// Start-up and shut-down of the suite, the library's logger, and the suite's memory limit.
//
// Clients filter the suite's log by source file and line, and the exceptions of start-up carry
// their line: the log statements and throws of this file therefore stand on fixed lines, held
// there by tests/core_test.cpp. When you edit this file, keep each of them on its line.

#include <KorvaneAPI/Core.h>

#include <atomic>
#include <cstdint>

#include <boost/filesystem/path.hpp>

#include <KorvaneAPI/Filters.h>
#include <KorvaneAPI/KorvaneAPIService.h>
#include <KorvaneAPI/MeasureGroups.h>
#include <KorvaneAPI/Measures.h>
#include <vantry_access_korlib/CAccess.h>
#include <vantry_data/CDatService.h>
#include <vantry_process/CProService.h>
#include <vantry_service_handler/CService.h>
#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvExternalFunction.h>
#include <vantry_util/KrvUtil.h>
#include <vantry_zel/zel.h>

#include "CallFrame.h"

namespace {

// The application name under which the suite reads its settings.
const char* const kApplicationName = "Tarsel";

// The host's option bits for a suite driven by a client program, set one at a time in this
// order. Their meaning is the suite's; the repeated 0x80 is part of the sequence it expects.
const std::uint32_t kClientOptionBits[] = {0x200, 0x80, 0x80, 0x80000, 0x20};

// One integer that the suite keeps in the library and reaches through two hooks; the library
// itself never reads it.
std::atomic<int> g_sharedInt{0};

void setSharedInt(int value) { g_sharedInt.store(value); }
int getSharedInt() { return g_sharedInt.load(); }

void adjustSettingsForClient(CKrvSettingDoc& settings) {
    settings.setOptionFlags(0);
    for (const std::uint32_t bit : kClientOptionBits) settings.setOptionFlag(bit);
}

// The main log file is opened only when no one has configured the base logger yet, so that a
// client that set up the suite's logging itself keeps its own configuration.
void initLoggers() {
    if (!isMainLogFileCreated() && getKrvBaseLogger().getLogLevel() == -1) initKrvMainLogger("");
    const KrvSettingApp& app = KrvSettingApp::getInstance();
    initKrvLoggers(app.getLoggerConfigFile(), app.getLogFolder(), app.getDefaultLogLevel());
}

}  // namespace

// Start-up. Each step logs a pair of lines around its host call, so that a log that stops
// between the two names the step that did not come back. The steps run in the order the
// suite depends on them; none is skipped when an earlier run already did it, so calling
// this twice starts everything twice.

void initKorvaneAPI(const char* path)
{
    boost::filesystem::path settingsPath;
    if (path != nullptr) settingsPath = boost::filesystem::path(path);

    KAPI_LOG(Info, "Initializing KorvaneAPI");
    KAPI_LOG(Info, "-----------------------");

    // The algorithm library first: settings, services and plug-ins build on it.
    KAPI_LOG(Debug, "Initialization of the ZEL library...");
    zel::init();
    KAPI_LOG(Debug, "Initialization of the ZEL library done");

    // The client application's settings, read from the start-up folder.
    KAPI_LOG(Debug, "Settings initialization...");
    CKrvSettingDoc::getInstance().init(CKrvString(kApplicationName), true, settingsPath);
    KAPI_LOG(Debug, "Settings initialization done");

    CKrvSettingDoc& settings = CKrvSettingDoc::getInstance();
    adjustSettingsForClient(settings);

    // Loggers: the main log file when needed, then the levels and sinks the settings name.
    initLoggers();

    // From here on the suite knows that it runs inside a client program.
    settings.setEmbedded(true);

    // The hooks of the shared integer. The progress and flush hooks are installed later, when
    // the client registers its callbacks.
    KrvExternalFunction& hooks = KrvExternalFunction::getInstance();
    hooks.setSetIntValueFunction(&setSharedInt);
    hooks.setGetIntValueFunction(&getSharedInt);

    // The access layer opens on the same folder as the settings, as narrow text (the empty
    // string when no folder was given).
    //
    // The services follow in the order the suite needs them: data first (it owns the object
    // handlers), then process (its commands work on data), then the library's own proxy,
    // through which the suite reaches the client application. Each is allocated, then looked
    // up again in the registry by its number: the registry, not the allocation, decides which
    // object the suite will talk to, so a service that did not register is caught here.
    //
    // A failed service throws; the steps already done stay done. endKorvaneAPI() undoes
    // them, so a client that catches the exception can still shut the suite down cleanly.
    //
    // Why a thrown exception and not a result: a suite without its data or process service
    // can do nothing a client asks of it, and a client that goes on regardless would meet
    // missing handlers at its first call. Stopping here, with the message in the log and in
    // the exception, is the one place where the failure is still easy to read.
    //
    // The line numbers of these messages are part of what clients see; they stay put.

    KAPI_LOG(Debug, "Access library initialization...");
    CAccess::Init(settingsPath.string());
    KAPI_LOG(Debug, "Access library initialization done");

    // Data service (6).
    KAPI_LOG(Debug, "Data service initialization...");
    CDatService::AllocService();
    CService* dataService = CService::Get(eServiceData);
    if (dataService == nullptr) throw KAPI_FAILURE("Can't allocate data service");
    if (!dataService->InitService()) throw KAPI_FAILURE("Can't initialize data service");
    KAPI_LOG(Debug, "Data service initialization done");

    // Process service (3).
    KAPI_LOG(Debug, "Process service initialization...");
    CProService::AllocService();
    CService* processService = CService::Get(eServiceProcess);
    if (processService == nullptr) throw KAPI_FAILURE("Can't allocate process service");
    if (!processService->InitService()) throw KAPI_FAILURE("Can't initialize process service");
    KAPI_LOG(Debug, "Process service initialization done");

    // Proxy service (9): registered only; it needs no further start.
    KAPI_LOG(Debug, "Proxy service initialization...");
    KorvaneAPIService::AllocService();
    CService* proxyService = CService::Get(eServiceProxy);
    if (proxyService == nullptr) throw KAPI_FAILURE("Can't allocate proxy service");
    KAPI_LOG(Debug, "Proxy service initialization done");

    // Plug-ins receive the caller's own text: null stays null.
    KAPI_LOG(Debug, "Initialization of the plugins of the ZEL library...");
    zel::initPlugins(path);
    KAPI_LOG(Debug, "Initialization of the plugins of the ZEL library done");

    // A client starts from empty stores of the library's kinds, whatever an earlier session
    // left in them. The user measures go through the exported function, so the suite's
    // reserved measures stay.
    removeAllFilters();
    removeAllMsrGrp();
    removeAllUsrMsr();

    // Reading the command table once makes the process library build it now, not in the
    // middle of the client's first command look-up. Neither the table nor the count is kept.
    int commandCount = 0;
    GetKrvTabListCmd(&commandCount);

    // Everything is up: the client may now define and query objects.

    KAPI_LOG(Info, "KorvaneAPI initialization done");
}

void endKorvaneAPI()
{
    // Shut-down runs the start-up backwards. Nothing here throws on its own; an exception of
    // the suite passes through and leaves the later steps undone.
    //
    // The services go before the access layer, because closing a service may still write
    // through it; the utility library goes last, since it owns the log files.

    KAPI_LOG(Info, "Terminating KorvaneAPI");
    KAPI_LOG(Info, "----------------------");

    // Plug-ins first, while the services they may use still exist.
    KAPI_LOG(Debug, "Finalizes the plugins of the ZEL library...");
    zel::finishPlugins();
    KAPI_LOG(Debug, "Finalizes the plugins of the ZEL library done");

    // Every registered service, the proxy service included.
    KAPI_LOG(Debug, "Deleting all services...");
    CService::DeleteAll();
    KAPI_LOG(Debug, "Services deletion done");

    // The access layer.
    KAPI_LOG(Debug, "Terminating access library...");
    CAccess::End();
    KAPI_LOG(Debug, "Access library termination done");

    // The utility library closes the log files: this is the last line logged.
    KAPI_LOG(Info, "KorvaneAPI termination done");
    KrvUtil::finish();
    zel::finish();
}

KrvLogger& getKorvaneAPILogger()
{
    // Built on first use, thread-safely; destroyed at process exit.
    static KrvLogger logger(getKrvBaseLogger().getName() + ".KorvaneAPI");
    return logger;
}

int getExtraMemUsage()
{
    // The low 32 bits of the suite's unsigned 64-bit amount, as the interface has always given it.
    return static_cast<int>(static_cast<std::uint32_t>(CKrvSettingDoc::getInstance().getMaximumAmountMemory()));
}

void setExtraMemUsage(int value)
{
    // Sign-extended, without a range check: -1 becomes the largest amount the suite can hold.
    CKrvSettingDoc::getInstance().setMaximumAmountMemory(static_cast<std::uint64_t>(static_cast<std::int64_t>(value)));
}
