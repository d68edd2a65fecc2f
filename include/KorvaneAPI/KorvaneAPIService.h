// The library's own service in the suite's registry (service 9). The suite sends it status-bar
// texts, which it forwards to the client's status-bar hook, and named data to convert for the
// Tarsel application: message 4301 designates a spreadsheet and 4306 an object model; the next
// conversion (4300 with a data type, 4303 for a result table) fills them, then forgets both.
// A conversion with no target writes a Warn line and converts nothing. A target the suite refuses
// gets a Warn line of its own, and the conversion goes on: a refused spreadsheet still leaves the
// object model to convert. Both designations are forgotten after every conversion.
#pragma once
#include <KorvaneAPI/KorvaneAPIExport.h>
#include <vantry_service_handler/CService.h>

class COrlanSpreadsheet;
namespace data {
class DictionaryPrivate;
}

class KORVANEAPI_EXPORT KorvaneAPIService : public CService {
public:
    KorvaneAPIService();
    // Copies share the targets; neither copy owns them.
    KorvaneAPIService(const KorvaneAPIService& other);
    KorvaneAPIService& operator=(const KorvaneAPIService& other);
    ~KorvaneAPIService() override;

    // Creates the service; the registry owns it and deletes it in CService::DeleteAll().
    static void AllocService();

    void CloseService() override;
    void MessageToService(const eService& from, const CKrvString& objectType, const CKrvString& objectName,
                          const eMessage& message) override;

private:
    COrlanSpreadsheet* m_spreadsheet = nullptr;
    data::DictionaryPrivate* m_objectModel = nullptr;
};
