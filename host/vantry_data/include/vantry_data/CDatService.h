// The data service (service 6): owns the suite's object handlers between InitService() and its
// destruction.
#pragma once
#include <vantry_service_handler/CService.h>
#include <vantry_util/CKrvString.h>
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

    // Reads pages [first, first + count) of a TIFF or PNG file (count <= 0: to the last page)
    // into the image store under `name`. False, nothing stored, when the name is invalid or
    // used or the file can't be read: an Error line in "Korvane.Data" names the file and the
    // reason. (CDatServiceImages.cpp)
    bool LoadImageA(const CKrvString& file, const CKrvString& name, int first = 0, int count = 0);
    // Writes z planes [first, first + count) of the stored image `name` (count <= 0: to the
    // last plane) as a TIFF, or as a PNG when the file name ends in ".png". False, with an
    // Error line as above, when there is no such image or the file can't be written.
    bool SaveImage(const CKrvString& name, const CKrvString& file, int first = 0, int count = 0);

private:
    void DestroyHandlers() noexcept;
    bool m_started = false;
};

struct VANTRY_DATA_EXPORT KrvHandlerRegistration {
    explicit KrvHandlerRegistration(KrvHandlerLifetime lifetime) { CDatService::RegisterHandler(lifetime); }
};

// The handler m_pInstance points to while the data service is not running: empty, refusing every
// operation; made on first use and never destroyed, so that a call at any time finds it.
template <class Handler>
Handler* krvStoppedHandler() {
    static Handler* const stopped = [] {
        auto* handler = new Handler();
        handler->SetStopped();
        return handler;
    }();
    return stopped;
}

// The lifetime of a handler that is a singleton behind its static m_pInstance: a new handler
// while the service runs (`Fill` prepares it), the stopped one otherwise.
template <class Handler, void (*Fill)(Handler&) = nullptr>
KrvHandlerLifetime krvSingletonLifetime() {
    return {[] {
                auto* handler = new Handler();
                Handler::m_pInstance = handler;
                if constexpr (Fill != nullptr) Fill(*handler);
            },
            []() noexcept {
                if (!Handler::m_pInstance->IsStopped()) delete Handler::m_pInstance;
                Handler::m_pInstance = krvStoppedHandler<Handler>();
            }};
}
