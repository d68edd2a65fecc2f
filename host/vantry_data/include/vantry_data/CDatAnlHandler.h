// The analysis handler: the native measure catalogue, the measure groups and the user
// measures (defined by a formula over other measures, or bound to an IP function of the suite).
#pragma once
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include <vantry_util/CKrvHandler.h>
#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>
#include <vantry_util/KrvFormula.h>
#include <vantry_data/CDatUsrMeasure.h>

class VANTRY_DATA_EXPORT CDatAnlHandler : public CKrvHandler {
public:
    static CDatAnlHandler* m_pInstance;

    // The suite's own classification measures, made when the data service starts.
    static const char* const kReservedUsrMsr[5];

    CDatAnlHandler();

    // Native measures.
    int IsKrvMsr(const CKrvString& name) const;
    void GetNatMsrList(std::vector<CKrvString>& out) const;

    // Measure groups: the given list becomes the group's whole list (the group is made when
    // missing); the stored list is returned.
    std::vector<CKrvString>* AddGrpMsr(const CKrvString& group, const std::vector<CKrvString>& measures);
    // The group's list, kept by the handler, or null.
    std::vector<CKrvString>* GetGrpMsr(const CKrvString& group);
    int RemoveGrpMsr(const CKrvString& group);
    void GetGrpList(std::vector<CKrvString>& out) const;

    // User measures.
    CDatUsrMeasure* AddUsrMsr(const CKrvString& name);
    CDatUsrMeasure* GetUsrMsr(const CKrvString& name) const;
    int RemoveUsrMsr(const CKrvString& name);
    int IsUserMsr(const CKrvString& name) const;
    void GetUsrMsrList(std::vector<CKrvString>& out) const;

private:
    using Groups = std::list<std::pair<CKrvString, std::vector<CKrvString>>>;
    Groups m_groups;
    std::unordered_map<CKrvString, Groups::iterator> m_groupIndex;
};
