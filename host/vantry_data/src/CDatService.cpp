// The data service and the lifetime of the handler singletons.
#include <vantry_data/CDatService.h>

#include <vantry_util/KrvFault.h>

CDatService::CDatService() : CService(eServiceData) {}

CDatService::~CDatService() { DestroyHandlers(); }

void CDatService::AllocService() { new CDatService(); }  // the registry owns it

bool CDatService::InitService() {
    KRV_FAULT_RETURN(bool, "CDatService::InitService");
    DestroyHandlers();
    m_started = true;
    return true;
}

void CDatService::CloseService() { DestroyHandlers(); }

void CDatService::DestroyHandlers() noexcept { m_started = false; }
