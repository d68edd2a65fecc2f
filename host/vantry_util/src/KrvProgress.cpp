#include <vantry_util/KrvProgress.h>

#include <vantry_util/CKrvSettingDoc.h>
#include <vantry_util/KrvExternalFunction.h>

KrvProgress::KrvProgress(std::string what, std::uint64_t total)
    : m_what(std::move(what)), m_total(total), m_every(total / 100 == 0 ? 1 : total / 100), m_next(m_every) {}

bool KrvProgress::step(std::uint64_t done) {
    const KrvExternalFunction& hooks = KrvExternalFunction::getInstance();
    if (done >= m_next || done == m_total) {
        while (m_next <= done) m_next += m_every;
        if (CKrvSettingDoc::getInstance().getProgress() != 0) {
            const std::string message = m_what + ' ' + std::to_string(done) + '/' + std::to_string(m_total);
            hooks.CallProgressMsgFunction(message.c_str());
        }
    }
    return hooks.CallFlushEventsFunction();
}
