// The service registry and message delivery.
#include <vantry_service_handler/CService.h>

#include <algorithm>
#include <array>
#include <memory>

#include <vantry_util/KrvFault.h>

namespace {

std::vector<CService*>& registry() {
    static std::vector<CService*> services;  // oldest first
    return services;
}

using ParamBlock = std::array<KrvVariant, CService::kParamCount>;

// The blocks of the messages being delivered on this thread, innermost last.
thread_local std::vector<ParamBlock*> t_delivering;

CService* newestWithId(eService id) {
    const auto& services = registry();
    const auto found = std::find_if(services.rbegin(), services.rend(), [id](CService* s) { return s->GetServiceId() == id; });
    return found == services.rend() ? nullptr : *found;
}

}  // namespace

CService::CService(eService id) : m_id(id) {
    auto& services = registry();
    const auto same = std::find_if(services.begin(), services.end(), [id](CService* s) { return s->m_id == id; });
    if (same != services.end()) {
        CService* old = *same;
        old->CloseService();
        delete old;  // unregisters itself
    }
    services.push_back(this);
    m_registered = true;
}

CService::CService(const CService& other) : m_id(other.m_id) {}

CService& CService::operator=(const CService& other) {
    m_id = other.m_id;
    return *this;
}

CService::~CService() {
    if (!m_registered) return;
    auto& services = registry();
    services.erase(std::remove(services.begin(), services.end(), this), services.end());
}

bool CService::InitService() { return true; }
bool CService::InitService2() { return true; }
void CService::CloseService() {}
void CService::MessageToService(const eService&, const CKrvString&, const CKrvString&, const eMessage&) {}
bool CService::KrvLoadString(unsigned int, CKrvString& text) {
    text = CKrvString();
    return false;
}
bool CService::LoadImageA(const CKrvString&, CKrvString&, int, int) { return false; }
bool CService::GetFilterLoadDlg(std::vector<CKrvString>&, std::vector<CKrvString>&) { return false; }
bool CService::SaveImage(const CKrvString&, CKrvString&, int, int) { return false; }
bool CService::GetFilterSaveDlg(std::vector<CKrvString>&, std::vector<CKrvString>&) { return false; }
void CService::InitVbaParam() {}

CService* CService::Get(eService id) {
    KRV_FAULT_RETURN(CService*, "CService::Get");
    return newestWithId(id);
}

bool CService::IsRegistered(eService id) { return newestWithId(id) != nullptr; }

void CService::DeleteAll() {
    auto& services = registry();
    while (!services.empty()) {
        CService* newest = services.back();
        newest->CloseService();
        delete newest;  // unregisters itself
    }
}

KrvVariant& CService::GetParam(int index) {
    static thread_local KrvVariant empty;
    empty = KrvVariant();  // a caller may have written into it
    if (t_delivering.empty() || index < 0 || index >= kParamCount) return empty;
    return (*t_delivering.back())[static_cast<std::size_t>(index)];
}

bool CService::SendMessage(eService to, eService from, const CKrvString& objectType, const CKrvString& objectName,
                           eMessage message, const std::vector<KrvVariant>& params) {
    CService* target = newestWithId(to);
    if (!target) return false;
    ParamBlock block;
    std::copy_n(params.begin(), std::min<std::size_t>(params.size(), block.size()), block.begin());
    t_delivering.push_back(&block);
    struct Pop {
        ~Pop() { t_delivering.pop_back(); }
    } pop;
    target->MessageToService(from, objectType, objectName, message);
    return true;
}
