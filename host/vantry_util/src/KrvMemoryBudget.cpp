#include <vantry_util/KrvMemoryBudget.h>

#include <atomic>
#include <string>

#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvLogger.h>

namespace KrvMemoryBudget {
namespace {
std::atomic<std::uint64_t> g_used{0};
}

bool reserve(std::uint64_t bytes, const char* what) {
    const std::uint64_t limit = CKrvSettingDoc::getInstance().getMaximumAmountMemory();
    std::uint64_t used = g_used.load();
    do {
        const bool fits = limit == 0 || (bytes <= limit && used <= limit - bytes);
        if (!fits) {
            static KrvLogger log("Korvane.Memory");
            if (log.isEnabledFor(KrvLoggerLevel::Warn))
                log.forcedLog(KrvLoggerLevel::Warn,
                              std::string("Memory budget exceeded: ") + what + " needs " + std::to_string(bytes) +
                                  " bytes, " + std::to_string(used) + " of " + std::to_string(limit) + " in use",
                              __FILE__, __LINE__);
            return false;
        }
    } while (!g_used.compare_exchange_weak(used, used + bytes));
    return true;
}

void release(std::uint64_t bytes) noexcept { g_used.fetch_sub(bytes); }

std::uint64_t used() noexcept { return g_used.load(); }

}  // namespace KrvMemoryBudget
