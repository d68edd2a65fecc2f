// The sieve store. Values are copied in at SetData and count against the memory budget.
#include <vantry_data/CDatTami.h>

#include <algorithm>

#include <vantry_data/CDatService.h>
#include <vantry_util/KrvBaseException.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvMemoryBudget.h>

CDatTamiHandler* CDatTamiHandler::m_pInstance = nullptr;

namespace {

const KrvHandlerRegistration registration{krvSingletonLifetime<CDatTamiHandler>()};

std::uint64_t bytesOf(int count) { return static_cast<std::uint64_t>(count) * sizeof(float); }

}  // namespace

CDatTami::CDatTami(const CKrvString& name) : CKrvObject(name) {}

CDatTami::~CDatTami() { Release(); }

void CDatTami::Release() noexcept {
    KrvMemoryBudget::release(bytesOf(m_count));
    m_values.reset();
    m_count = 0;
}

void CDatTami::SetData(float* values, int count) {
    KRV_FAULT_COUNT("CDatTami::SetData");
    Release();
    if (count <= 0 || values == nullptr) return;
    KrvMemoryReservation reservation(bytesOf(count), "sieve");
    if (!reservation)
        throw KrvBaseException("Memory budget exceeded: sieve " + GetName().m_str + " can't hold " +
                                   std::to_string(count) + " values",
                               __FILE__, __LINE__);
    m_values.reset(new float[static_cast<std::size_t>(count)]);
    std::copy(values, values + count, m_values.get());
    m_count = count;
    reservation.keep();
}

// Failure injection: Null answers null; Zero and Negative answer a non-null pointer with a
// count of 0, resp. -1 (or the armed negative value).
float* CDatTami::GetData(int& count) {
    static KrvFault::Point& fault = KrvFault::point("CDatTami::GetData");
    if (fault.fire()) {
        const KrvFault::Answer answer = fault.answer();
        if (answer != KrvFault::Answer::Zero && answer != KrvFault::Answer::Negative) return nullptr;
        static float none = 0.0f;
        count = fault.result<int>();
        return m_values ? m_values.get() : &none;
    }
    if (!m_values) return nullptr;
    count = m_count;
    return m_values.get();
}

CDatTami* CDatTamiHandler::AddTami(CKrvString name) {
    KRV_FAULT_RETURN(CDatTami*, "CDatTamiHandler::AddTami");
    return static_cast<CDatTami*>(InsertObj(std::make_unique<CDatTami>(name)));
}

int CDatTamiHandler::RemoveTami(CKrvString name) {
    KRV_FAULT_RETURN(int, "CDatTamiHandler::RemoveTami");
    return EraseObj(name) ? 1 : 0;
}

CDatTami* CDatTamiHandler::FindObj(const CKrvString& name) const {
    KRV_FAULT_RETURN(CDatTami*, "CDatTamiHandler::FindObj");
    return static_cast<CDatTami*>(CKrvHandler::FindObj(name));
}
