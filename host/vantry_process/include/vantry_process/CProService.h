// The process service (service 3) and the suite's catalogue of processing commands.
#pragma once
#include <cstddef>
#include <vantry_process/CProCmd.h>
#include <vantry_service_handler/CService.h>
#include <vantry_util/KrvExport.h>

class VANTRY_PROCESS_EXPORT CProService : public CService {
public:
    CProService();
    ~CProService() override;

    // Builds one process service; it registers itself under service 3.
    static void AllocService();
    bool InitService() override;

    // The command object: the suite's commands by name.
    CProCmdList& GetCmdList() noexcept { return m_commands; }

private:
    CProCmdList m_commands;
};

// One record of the command table: 40 bytes, the name pointer at bytes 16 to 23. Record 0 and
// the separators between categories are named "none".
struct VANTRY_PROCESS_EXPORT TAB_LISTCMD {
    int id;
    int category;
    const char* group;
    const char* name;
    const char* description;
    const CProCmdParam* params;  // ended by a parameter without name; null for none
};
static_assert(sizeof(TAB_LISTCMD) == 40, "TAB_LISTCMD is exchanged by layout");
static_assert(offsetof(TAB_LISTCMD, name) == 16, "TAB_LISTCMD name at bytes 16 to 23");

// The command table and its number of records; the table belongs to the suite.
VANTRY_PROCESS_EXPORT TAB_LISTCMD* GetKrvTabListCmd(int* count);
