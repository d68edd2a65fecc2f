// The data service (service 6): owns the suite's object handlers between InitService() and its
// destruction.
#pragma once
#include <vantry_service_handler/CService.h>
#include <vantry_util/KrvExport.h>

// How one handler singleton is made and unmade. Each handler's source file registers its own
// (a static KrvHandlerRegistration), so the data service needs no list of its handlers.
struct VANTRY_DATA_EXPORT KrvHandlerLifetime {
    void (*create)();
    void (*destroy)() noexcept;
};

class VANTRY_DATA_EXPORT CDatService : public CService {
public:
    // Called by the static registrations, before main.
    static void RegisterHandler(KrvHandlerLifetime lifetime);

    CDatService();
    ~CDatService() override;

    // Builds one data service; it registers itself under service 6.
    static void AllocService();

    // Creates the handler singletons; false when the service can't start.
    bool InitService() override;
    void CloseService() override;

private:
    void DestroyHandlers() noexcept;
    bool m_started = false;
};

struct VANTRY_DATA_EXPORT KrvHandlerRegistration {
    explicit KrvHandlerRegistration(KrvHandlerLifetime lifetime) { CDatService::RegisterHandler(lifetime); }
};

// The lifetime of a handler that is a plain singleton behind its static m_pInstance.
template <class Handler>
KrvHandlerLifetime krvSingletonLifetime() {
    return {[] { Handler::m_pInstance = new Handler(); },
            []() noexcept {
                delete Handler::m_pInstance;
                Handler::m_pInstance = nullptr;
            }};
}
