// The catalogue of processing commands: each command's description object, and the look-up by
// name that the process service answers.
#pragma once
#include <limits>
#include <string>
#include <unordered_map>
#include <vector>

#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>

struct TAB_LISTCMD;

// One parameter of a command: its name, its type ("image", "int", "float", "bool", "string",
// or the kind of a stored object: "filter", "lut", "sieve", "segment", "group") and its default
// as text (empty: the parameter must be given). An "int" or "float" lies from `minimum` to
// `maximum`; `choices`, when set, lists the values an "int" or "string" may take, separated by
// '|'. An "image" parameter named "output" names the image the command makes; every other names
// stored images.
struct VANTRY_PROCESS_EXPORT CProCmdParam {
    const char* name;
    const char* type;
    const char* defaultValue;
    double minimum = -std::numeric_limits<double>::max();
    double maximum = std::numeric_limits<double>::max();
    const char* choices = nullptr;
};

class VANTRY_PROCESS_EXPORT CProCmd {
public:
    explicit CProCmd(const TAB_LISTCMD& record);

    const CKrvString& GetName() const noexcept { return m_name; }
    const CKrvString& GetCategory() const noexcept { return m_category; }
    const CKrvString& GetDescription() const noexcept { return m_description; }
    const std::vector<CProCmdParam>& GetParams() const noexcept { return m_params; }

private:
    CKrvString m_name;
    CKrvString m_category;
    CKrvString m_description;
    std::vector<CProCmdParam> m_params;
};

// The command object of the process service: one CProCmd per named command of the suite's own
// table, made when the service starts.
class VANTRY_PROCESS_EXPORT CProCmdList {
public:
    CProCmdList();
    virtual ~CProCmdList();
    CProCmdList(const CProCmdList&) = delete;
    CProCmdList& operator=(const CProCmdList&) = delete;

    // The command of that name (exact, byte for byte), owned by the list; null when there is
    // none. "none", the name of the table's separators, is no command.
    virtual CProCmd* GetCmd(const CKrvString& name);

private:
    std::vector<CProCmd> m_commands;
    std::unordered_map<CKrvString, CProCmd*> m_byName;
};

// Suite side, for tests and tools: GetKrvTabListCmd hands out `table` with `count` records from
// now on; a null table restores the suite's own. The look-up by name keeps the suite's own.
VANTRY_PROCESS_EXPORT void SetKrvTabListCmd(TAB_LISTCMD* table, int count);
