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

// The lifetime of a handler that is a plain singleton behind its static m_pInstance.
template <class Handler>
KrvHandlerLifetime krvSingletonLifetime() {
    return {[] { Handler::m_pInstance = new Handler(); },
            []() noexcept {
                delete Handler::m_pInstance;
                Handler::m_pInstance = nullptr;
            }};
}
