// The data service (service 6): owns the suite's object handlers between InitService() and its
// destruction.
#pragma once
#include <vantry_service_handler/CService.h>

#pragma GCC visibility push(default)

class CDatService : public CService {
public:
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

#pragma GCC visibility pop
