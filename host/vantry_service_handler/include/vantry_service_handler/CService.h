// The suite's services, registered by number, and the delivery of messages between them with a
// parameter block read through CService::GetParam.
#pragma once
#include <vector>

#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>
#include <vantry_util/KrvVariant.h>

enum eService : int {
    eServiceNone = 0,
    eServiceProcess = 3,
    eServiceData = 6,
    eServiceProxy = 9,
};

// Message numbers are open: services agree on them among themselves.
enum eMessage : int {
    eMessageStatusBar = 1048,
    eMessageConvertData = 4300,
    eMessageSetSpreadsheet = 4301,
    eMessageConvertResults = 4303,
    eMessageSetObjectModel = 4306,
};

class VANTRY_SERVICE_HANDLER_EXPORT CService {
public:
    // Registers the service under `id`; a service already registered under that number is
    // closed and deleted first, so each number names one service.
    explicit CService(eService id);
    // A copy has the same number but is not registered: the registry owns only what it built.
    CService(const CService& other);
    CService& operator=(const CService& other);
    virtual ~CService();

    virtual bool InitService();
    virtual bool InitService2();
    virtual void CloseService();
    virtual void MessageToService(const eService& from, const CKrvString& objectType, const CKrvString& objectName,
                                  const eMessage& message);
    virtual bool KrvLoadString(unsigned int id, CKrvString& text);
    virtual bool LoadImageA(const CKrvString& file, CKrvString& name, int first, int count);
    virtual bool GetFilterLoadDlg(std::vector<CKrvString>& names, std::vector<CKrvString>& patterns);
    virtual bool SaveImage(const CKrvString& name, CKrvString& file, int first, int count);
    virtual bool GetFilterSaveDlg(std::vector<CKrvString>& names, std::vector<CKrvString>& patterns);
    virtual void InitVbaParam();

    eService GetServiceId() const noexcept { return m_id; }

    // The registered service of that number, or null.
    static CService* Get(eService id);
    // Whether a service of that number is registered; unlike Get, never made to fail, so that
    // tests and tools can look without changing what they watch.
    static bool IsRegistered(eService id);
    // Closes, then deletes, every registered service, newest first.
    static void DeleteAll();
    // Parameter `index` of the message being delivered; an empty variant outside 0..7 or when
    // no message is being delivered.
    static KrvVariant& GetParam(int index);

    // Delivers a message to the service registered under `to`, with its parameters; false when
    // no service has that number.
    static bool SendMessage(eService to, eService from, const CKrvString& objectType, const CKrvString& objectName,
                            eMessage message, const std::vector<KrvVariant>& params);

    static constexpr int kParamCount = 8;

private:
    eService m_id;
    bool m_registered = false;
};
