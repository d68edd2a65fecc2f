// The lookup-table store: plain and morphological tables, bounded by the memory budget.
#include <vantry_data/CDatMorphoLutHandler.h>

#include <algorithm>
#include <memory>

#include <vantry_data/CDatService.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvMemoryBudget.h>

CDatMorphoLutHandler* CDatMorphoLutHandler::m_pInstance = nullptr;

namespace {

void create() { CDatMorphoLutHandler::m_pInstance = new CDatMorphoLutHandler(); }
void destroy() noexcept {
    delete CDatMorphoLutHandler::m_pInstance;
    CDatMorphoLutHandler::m_pInstance = nullptr;
}
const KrvHandlerRegistration reg{{&create, &destroy}};

const CKrvString& greyField() {
    static const CKrvString name("Grey");
    return name;
}

}  // namespace

CDatMorphoLut::CDatMorphoLut(const CKrvString& name, std::vector<int> values, int type, int firstFlag, int secondFlag,
                             const CKrvString& text)
    : CDatTab(name),
      lutType(type),
      flag1(firstFlag),
      flag2(secondFlag),
      m_size(static_cast<int>(values.size())),
      m_told(m_size),
      m_text(text) {
    SetField(std::make_unique<CDatIntField>(greyField(), std::move(values)));
}

CDatMorphoLut::~CDatMorphoLut() { KrvMemoryBudget::release(m_heldBytes); }

int CDatMorphoLut::GetSize() const {
    // Failure injection: the armed answer is the size the caller is told, and so the room that
    // GetMorphoLut assumes next.
    static KrvFault::Point& fault = KrvFault::point("CDatMorphoLut::GetSize");
    m_told = fault.fire() ? fault.result<int>() : m_size;
    return m_told;
}

int CDatMorphoLut::GetMorphoLut(int* out) {
    KRV_FAULT_RETURN(int, "CDatMorphoLut::GetMorphoLut");
    if (m_size == 0 || m_told <= 0) return 0;
    if (out == nullptr) return -1;
    const auto* grey = dynamic_cast<const CDatIntField*>(FindField(greyField()));
    if (grey == nullptr || grey->GetSize() != m_size) return 0;
    std::copy_n(grey->Values().begin(), std::min(m_size, m_told), out);
    return 1;
}

CKrvObject* CDatMorphoLutHandler::FindObj(const CKrvString& name) const {
    KRV_FAULT_RETURN(CKrvObject*, "CDatMorphoLutHandler::FindObj");
    return CKrvHandler::FindObj(name);
}

CDatMorphoLut* CDatMorphoLutHandler::AddLut(const CKrvString& name, int size, int* values, int typeCode,
                                            CKrvString text) {
    KRV_FAULT_RETURN(CDatMorphoLut*, "CDatMorphoLutHandler::AddLut");
    return Add(name, size, values, typeCode, 0, 0, text);
}

CDatMorphoLut* CDatMorphoLutHandler::AddLut(const CKrvString& name, int size, int* values, int flag1, int flag2,
                                            CKrvString text) {
    KRV_FAULT_RETURN(CDatMorphoLut*, "CDatMorphoLutHandler::AddLut");
    return Add(name, size, values, CDatMorphoLut::kMorphological, flag1, flag2, text);
}

// Every refusal comes before anything is made; the budget is held only once the table is stored.
CDatMorphoLut* CDatMorphoLutHandler::Add(const CKrvString& name, int size, const int* values, int type, int flag1,
                                         int flag2, const CKrvString& text) {
    if (size < 0 || (size > 0 && values == nullptr)) return nullptr;
    if (!IsValidName(name) || CKrvHandler::FindObj(name) != nullptr) return nullptr;
    const std::uint64_t bytes = static_cast<std::uint64_t>(size) * sizeof(int);
    KrvMemoryReservation reservation(bytes, "a lookup table");
    if (!reservation) return nullptr;
    auto lut = std::make_unique<CDatMorphoLut>(name, std::vector<int>(values, values + size), type, flag1, flag2, text);
    auto* stored = static_cast<CDatMorphoLut*>(InsertObj(std::move(lut)));
    if (stored == nullptr) return nullptr;
    reservation.keep();
    stored->m_heldBytes = bytes;
    return stored;
}

int CDatMorphoLutHandler::RemoveLut(const CKrvString& name) {
    KRV_FAULT_RETURN(int, "CDatMorphoLutHandler::RemoveLut");
    return EraseObj(name) ? 1 : 0;
}

void CDatMorphoLutHandler::GetLutList(std::vector<CKrvString>& out, int typeCode) const {
    KRV_FAULT_COUNT("CDatMorphoLutHandler::GetLutList");
    ForEachObj([&](const CKrvObject& object) {
        if (static_cast<const CDatMorphoLut&>(object).lutType == typeCode) out.push_back(object.GetName());
    });
}
