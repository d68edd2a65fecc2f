// Measure groups: named, ordered lists of measure names kept by the analysis handler. Every
// change reads the group's list, copies it, changes the copy and writes the whole copy back.
#include <KorvaneAPI/MeasureGroups.h>

#include <vantry_data/CDatAnlHandler.h>

#include "AnalysisMsr.h"
#include "CallFrame.h"
#include "ObjectList.h"

void addMsrGrp(const std::string& group)
{
    KAPI_LOG(Debug, "Creating measure group ", group);
    // The handler replaces the list of an existing group: the group is left empty.
    CDatAnlHandler::m_pInstance->AddGrpMsr(CKrvString(group), std::vector<CKrvString>());
}

bool addMsrToMsrGrp(const std::string& group, const std::string& measure)
{
    KAPI_LOG(Debug, "Adding measure ", measure, " to measure group ", group);
    CDatAnlHandler* handler = CDatAnlHandler::m_pInstance;
    if (handler->IsKrvMsr(CKrvString(measure)) == 0 && handler->IsUserMsr(CKrvString(measure)) == 0) {
        KAPI_LOG(Error, "Can't add measure to measure group ", group, ", this measure doesn't exists");
        return false;
    }
    const CKrvString groupName(group);
    std::vector<CKrvString> measures;
    if (const std::vector<CKrvString>* current = handler->GetGrpMsr(groupName)) measures = *current;
    measures.push_back(CKrvString(measure));  // duplicates are kept on purpose
    handler->AddGrpMsr(groupName, measures);
    return true;
}

void removeMsrFromMsrGrp(const std::string& group, const std::string& measure)
{
    KAPI_LOG(Debug, "Removing measure ", measure, " from measure group ", group);
    CDatAnlHandler* handler = CDatAnlHandler::m_pInstance;
    const CKrvString groupName(group);
    const std::vector<CKrvString>* current = handler->GetGrpMsr(groupName);
    if (current == nullptr) {
        KAPI_LOG(Error, "Can't remove measure ", measure, " from measure group ", group, ", this measure group doesn't exists");
        return;
    }
    std::vector<CKrvString> measures = *current;
    for (auto it = measures.begin(); it != measures.end(); ++it) {
        if (it->m_str == measure) {  // exact: same length, same bytes
            measures.erase(it);
            handler->AddGrpMsr(groupName, measures);
            return;
        }
    }
    KAPI_LOG(Error, "Can't remove measure ", measure, " from measure group ", group, ", this measure doesn't exists");
}

void removeMsrGrp(const std::string& group)
{
    KAPI_LOG(Debug, "Removing measure group ", group);
    if (CDatAnlHandler::m_pInstance->RemoveGrpMsr(CKrvString(group)) == 0)
        KAPI_LOG(Warn, "Can't remove measure group ", group, ", this measure group doesn't exists");
}

void removeAllMsrGrp()
{
    KAPI_LOG(Debug, "Removing all measure groups");
    CDatAnlHandler* handler = CDatAnlHandler::m_pInstance;
    std::vector<CKrvString> groups;
    handler->GetGrpList(groups);
    // Straight to the handler, so no per-group "Removing measure group" line.
    for (const CKrvString& name : groups)
        if (handler->RemoveGrpMsr(name) == 0)
            KAPI_LOG(Warn, "Can't remove measure group ", name, ", this measure group doesn't exists");
}

std::vector<std::string> getMsrGrpList()
{
    KAPI_LOG(Debug, "Retrieving measure group list :");
    std::vector<CKrvString> groups;
    CDatAnlHandler::m_pInstance->GetGrpList(groups);
    return KAPI_COPY_NAMES(groups);
}

std::vector<std::string> getMsrGrpMsrList(const std::string& group)
{
    KAPI_LOG(Debug, "Retrieving measure list for group ", group);
    // The handler keeps its list: read, never freed.
    const std::vector<CKrvString>* measures = CDatAnlHandler::m_pInstance->GetGrpMsr(CKrvString(group));
    if (measures == nullptr) {
        KAPI_LOG(Error, "Can't get measures from measure group ", group, ", this measure group doesn't exists");
        return {};
    }
    return KAPI_COPY_NAMES(*measures);
}
