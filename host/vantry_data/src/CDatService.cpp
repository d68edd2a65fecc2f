// The data service and the lifetime of the handler singletons.
#include <vantry_data/CDatService.h>

#include <vector>

#include <vantry_util/KrvFault.h>

namespace {

std::vector<KrvHandlerLifetime>& lifetimes() {
    static std::vector<KrvHandlerLifetime> registered;
    return registered;
}

}  // namespace

void CDatService::RegisterHandler(KrvHandlerLifetime lifetime) { lifetimes().push_back(lifetime); }

CDatService::CDatService() : CService(eServiceData) {}

CDatService::~CDatService() { DestroyHandlers(); }

void CDatService::AllocService() { new CDatService(); }  // the registry owns it

bool CDatService::InitService() {
    KRV_FAULT_RETURN(bool, "CDatService::InitService");
    DestroyHandlers();
    for (const KrvHandlerLifetime& lifetime : lifetimes()) lifetime.create();
    m_started = true;
    return true;
}

void CDatService::CloseService() { DestroyHandlers(); }

// Newest first, and only once: closing and destroying both come here.
void CDatService::DestroyHandlers() noexcept {
    if (!m_started) return;
    for (auto it = lifetimes().rbegin(); it != lifetimes().rend(); ++it) it->destroy();
    m_started = false;
}
