// The hook table through which the suite calls back into its client while it works. Each slot
// has a setter for the client and a caller for the suite; calling an empty slot does nothing
// (the flush slot then answers true).
#pragma once
#include <atomic>

#include <vantry_util/KrvExport.h>

class VANTRY_UTIL_EXPORT KrvExternalFunction {
public:
    using FlushEventsFunction = bool (*)();
    using ProgressMsgFunction = void (*)(const char*);
    using StatusBarFunction = void (*)(const char*);
    using SetIntFunction = void (*)(int);
    using GetIntFunction = int (*)();

    static KrvExternalFunction& getInstance();

    void setFlushEventsFunction(FlushEventsFunction f) noexcept { m_flush.store(f); }
    void setProgressMsgFunction(ProgressMsgFunction f) noexcept { m_progress.store(f); }
    void setUpdStatusBarFunction(StatusBarFunction f) noexcept { m_statusBar.store(f); }
    void setSetIntValueFunction(SetIntFunction f) noexcept { m_setInt.store(f); }
    void setGetIntValueFunction(GetIntFunction f) noexcept { m_getInt.store(f); }

    bool CallFlushEventsFunction() const;
    void CallProgressMsgFunction(const char* text) const;
    void CallUpdStatusBarFunction(const char* text) const;
    void CallSetIntValueFunction(int value) const;
    // 0 when no getter is installed.
    int CallGetIntValueFunction() const;

    void clear() noexcept;

private:
    KrvExternalFunction() = default;
    std::atomic<FlushEventsFunction> m_flush{nullptr};
    std::atomic<ProgressMsgFunction> m_progress{nullptr};
    std::atomic<StatusBarFunction> m_statusBar{nullptr};
    std::atomic<SetIntFunction> m_setInt{nullptr};
    std::atomic<GetIntFunction> m_getInt{nullptr};
};
