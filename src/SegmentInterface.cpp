// Segment objects: the thinnest functions of the library. Each converts the name, makes one or
// two calls on the segment handler and maps the answer to its result; only the list logs.
#include <KorvaneAPI/Segments.h>

#include <vantry_data/CDatSeg.h>

#include "CallFrame.h"
#include "ObjectList.h"

bool createSegment(const std::string& name) {
    return CDatSegHandler::m_pInstance->AddSeg(CKrvString(name)) != nullptr;
}

int getNbChain(const std::string& name) {
    const CDatSeg* segment = CDatSegHandler::m_pInstance->FindObj(CKrvString(name));
    if (segment == nullptr) return -1;
    return segment->GetNbChains();
}

int getNbItems(const std::string& name, int chain) {
    CDatSeg* segment = CDatSegHandler::m_pInstance->FindObj(CKrvString(name));
    if (segment == nullptr) return -1;
    return segment->GetNbItems(chain);
}

bool getSegment(const std::string& name, int chain, int item, float& x1, float& y1, float& x2, float& y2) {
    CDatSeg* segment = CDatSegHandler::m_pInstance->FindObj(CKrvString(name));
    if (segment == nullptr) return false;
    return segment->GetSegment(chain, item, x1, y1, x2, y2) > 0;
}

bool removeSegment(const std::string& name) { return CDatSegHandler::m_pInstance->RemoveSeg(CKrvString(name)) != 0; }

std::vector<std::string> getSegmentList() {
    KAPI_LOG(Debug, "Retrieving segment list :");
    std::vector<CKrvString> hostNames;
    CDatSegHandler::m_pInstance->GetObjList(hostNames);
    return KAPI_COPY_NAMES(hostNames, kapi::NameLines::Silent);
}
