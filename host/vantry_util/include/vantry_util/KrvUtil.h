// Shut-down of the utility library: closes the log files and forgets the logging configuration,
// so that a later start-up configures the loggers afresh.
#pragma once

#pragma GCC visibility push(default)
namespace KrvUtil {
void finish();
}
#pragma GCC visibility pop
