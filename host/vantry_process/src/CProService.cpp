// The process service, its command table and the spreadsheet conversion.
#include <vantry_process/CProService.h>
#include <vantry_process/KrvImageCommands.h>
#include <vantry_process/KrvMeasureCommands.h>
#include <vantry_process/OrlanSpreadsheet.h>

#include <vantry_data/KrvResultTable.h>
#include <vantry_util/KrvFault.h>

#include "KrvObjectCommands.h"

CProService::CProService() : CService(eServiceProcess) {}
CProService::~CProService() = default;

void CProService::AllocService() { new CProService(); }  // the registry owns it

bool CProService::InitService() {
    KRV_FAULT_RETURN(bool, "CProService::InitService");
    krvRegisterImageCommands();
    krvRegisterMeasureCommands();
    krvRegisterObjectCommands();
    return true;
}

bool krvToOrlanData(const std::string& name, int type, COrlanSpreadsheet* sheet) {
    KRV_FAULT_RETURN(bool, "krvToOrlanData");
    const KrvResultTable* table = KrvResultTables::Find(name);
    if (!table || !sheet || type != kKrvDataResultTable) return false;
    sheet->clear();
    sheet->setTitle(name);
    for (std::size_t i = 0; i < table->measures.size() && i < table->columns.size(); ++i)
        sheet->addColumn({table->measures[i], table->columns[i]});
    return true;
}
