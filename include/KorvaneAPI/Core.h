// Start-up and shut-down of the suite, the library's logger and the suite's memory limit.
#pragma once
#include <KorvaneAPI/KorvaneAPIExport.h>
#include <vantry_util/KrvLogger.h>

// Starts the suite: algorithm library, settings (read from `path`, the plug-in and settings
// folder; null for none), loggers, access library, data, process and proxy services, plug-ins;
// then empties the stores of filters, measure groups and user measures. Call it once before any
// other function. Throws KorvaneAPIException when a service can't be allocated or started
// (the steps already done stay done); exceptions of the suite pass through unchanged.
KORVANEAPI_EXPORT void initKorvaneAPI(const char* path);

// Stops the suite: plug-ins, every registered service, access library, utility and algorithm
// libraries. Calling other functions afterwards, before initKorvaneAPI again (or before the
// first start), is outside the contract and not checked here; the stand-alone suite answers such
// calls from its stopped state (null, 0, empty) with the Error "the suite is not started".
KORVANEAPI_EXPORT void endKorvaneAPI();

// The library's logger, "<base logger>.KorvaneAPI", made on first use; usable before start-up.
KORVANEAPI_EXPORT KrvLogger& getKorvaneAPILogger();

// The suite's maximum amount of memory (bytes, 0 = no limit), cut to its low 32 bits.
KORVANEAPI_EXPORT int getExtraMemUsage();
// Sets the suite's maximum amount of memory; the value is sign-extended, so -1 means no limit
// the suite could reach (18446744073709551615 bytes).
KORVANEAPI_EXPORT void setExtraMemUsage(int value);
