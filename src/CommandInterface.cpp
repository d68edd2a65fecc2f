// The command catalogue: the names of the process library's commands, read from its command
// table, and the description of one command, from the process service's command object.
#include <KorvaneAPI/Commands.h>

#include <vantry_process/CProService.h>

std::vector<std::string> getCmdNameColl() {
    int count = 0;
    const TAB_LISTCMD* table = GetKrvTabListCmd(&count);
    std::vector<std::string> names;
    if (count < 2) return names;
    for (int i = 1; i < count; ++i) {  // record 0 is never a command
        const CKrvString name(table[i].name);
        if (name.m_str == "none") continue;  // a separator
        names.push_back(name.m_str);
    }
    return names;
}

CProCmd* getCmdInfo(const std::string& name) {
    CProService* service = static_cast<CProService*>(CService::Get(eServiceProcess));
    if (service == nullptr) return nullptr;  // no process service: no command to describe
    return service->GetCmdList().GetCmd(CKrvString(name));
}
