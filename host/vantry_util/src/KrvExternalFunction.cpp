// The suite's hook table.
#include <vantry_util/KrvExternalFunction.h>

KrvExternalFunction& KrvExternalFunction::getInstance() {
    static KrvExternalFunction instance;
    return instance;
}

bool KrvExternalFunction::CallFlushEventsFunction() const {
    const FlushEventsFunction f = m_flush.load();
    return f ? f() : true;
}

void KrvExternalFunction::CallProgressMsgFunction(const char* text) const {
    if (const ProgressMsgFunction f = m_progress.load()) f(text);
}

void KrvExternalFunction::CallUpdStatusBarFunction(const char* text) const {
    if (const StatusBarFunction f = m_statusBar.load()) f(text);
}

void KrvExternalFunction::CallSetIntValueFunction(int value) const {
    if (const SetIntFunction f = m_setInt.load()) f(value);
}

int KrvExternalFunction::CallGetIntValueFunction() const {
    const GetIntFunction f = m_getInt.load();
    return f ? f() : 0;
}

void KrvExternalFunction::clear() noexcept {
    m_flush.store(nullptr);
    m_progress.store(nullptr);
    m_statusBar.store(nullptr);
    m_setInt.store(nullptr);
    m_getInt.store(nullptr);
}
