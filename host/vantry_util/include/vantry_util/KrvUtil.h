// Shut-down of the utility library: closes the log files and forgets the logging configuration,
// so that a later start-up configures the loggers afresh.
#pragma once
#include <vantry_util/KrvExport.h>

namespace KrvUtil {
VANTRY_UTIL_EXPORT void finish();
}
