// The ordered object store shared by every handler of the suite.
#include <vantry_util/CKrvHandler.h>

#include <vantry_util/KrvFault.h>

CKrvObject::~CKrvObject() = default;
CKrvHandler::~CKrvHandler() = default;

CKrvObject* CKrvHandler::FindObj(const CKrvString& name) const {
    const auto found = m_index.find(std::string_view(name.m_str));
    return found == m_index.end() ? nullptr : found->second->get();
}

void CKrvHandler::GetObjList(std::vector<CKrvString>& out) const {
    KRV_FAULT_COUNT("CKrvHandler::GetObjList");
    out.reserve(out.size() + m_order.size());
    for (const auto& object : m_order) out.push_back(object->GetName());
}

bool CKrvHandler::IsValidName(const CKrvString& name) noexcept {
    if (name.m_str.empty() || name.m_str.size() > 255) return false;
    for (const unsigned char c : name.m_str)
        if (c < 0x20 || c == 0x7f) return false;
    return true;
}

CKrvObject* CKrvHandler::InsertObj(std::unique_ptr<CKrvObject> object) {
    if (!object || !IsValidName(object->GetName())) return nullptr;
    const std::string_view key(object->GetName().m_str);
    if (m_index.count(key) != 0) return nullptr;
    m_order.push_back(std::move(object));
    auto last = std::prev(m_order.end());
    m_index.emplace(key, last);
    return last->get();
}

bool CKrvHandler::EraseObj(const CKrvString& name) {
    const auto found = m_index.find(std::string_view(name.m_str));
    if (found == m_index.end()) return false;
    const auto position = found->second;
    m_index.erase(found);  // before the object, whose name the key views
    m_order.erase(position);
    return true;
}

void CKrvHandler::ClearObj() noexcept {
    m_index.clear();
    m_order.clear();
}
