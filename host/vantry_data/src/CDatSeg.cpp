// The segment store. Items count against the memory budget, 16 bytes each.
#include <vantry_data/CDatSeg.h>

#include <cmath>

#include <vantry_data/CDatService.h>
#include <vantry_util/KrvFault.h>
#include <vantry_util/KrvMemoryBudget.h>
#include <vantry_util/KrvProgress.h>

CDatSegHandler* CDatSegHandler::m_pInstance = krvStoppedHandler<CDatSegHandler>();

namespace {

const KrvHandlerRegistration registration{krvSingletonLifetime<CDatSegHandler>()};

std::uint64_t bytesOf(std::size_t items) { return static_cast<std::uint64_t>(items) * sizeof(CDatSegItem); }

}  // namespace

CDatChn::~CDatChn() = default;

CDatSeg::CDatSeg(const CKrvString& name) : CKrvObject(name) {}

CDatSeg::~CDatSeg() { KrvMemoryBudget::release(m_bytes); }

int CDatSeg::GetNbChains() const {
    KRV_FAULT_RETURN(int, "CDatSeg::GetNbChains");
    return static_cast<int>(m_chains.size());
}

int CDatSeg::GetNbItems(int chain) {
    KRV_FAULT_RETURN(int, "CDatSeg::GetNbItems");
    if (chain < 0 || static_cast<std::size_t>(chain) >= m_chains.size()) return -1;
    return static_cast<int>(m_chains[static_cast<std::size_t>(chain)].size());
}

int CDatSeg::GetSegment(int chain, int item, float& x1, float& y1, float& x2, float& y2) {
    KRV_FAULT_RETURN(int, "CDatSeg::GetSegment");
    if (chain < 0 || static_cast<std::size_t>(chain) >= m_chains.size()) return -1;
    const std::vector<CDatSegItem>& items = m_chains[static_cast<std::size_t>(chain)];
    if (item < 0 || static_cast<std::size_t>(item) >= items.size()) return 0;
    const CDatSegItem& found = items[static_cast<std::size_t>(item)];
    x1 = found.x1;
    y1 = found.y1;
    x2 = found.x2;
    y2 = found.y2;
    return 1;
}

int CDatSeg::AppendChain(const std::vector<CDatSegItem>& items) {
    KrvMemoryReservation reservation(bytesOf(items.size()), "segment chain");
    if (!reservation) return -1;
    m_chains.push_back(items);
    m_bytes += bytesOf(items.size());
    reservation.keep();
    return static_cast<int>(m_chains.size() - 1);
}

bool CDatSeg::ReplaceChains(std::vector<std::vector<CDatSegItem>> chains) {
    std::size_t items = 0;
    for (const auto& chain : chains) items += chain.size();
    // The old items still count while the new ones are reserved: the budget must hold both.
    KrvMemoryReservation reservation(bytesOf(items), "segment chains");
    if (!reservation) return false;
    KrvMemoryBudget::release(m_bytes);
    m_chains = std::move(chains);
    m_bytes = bytesOf(items);
    reservation.keep();
    return true;
}

bool CDatSeg::AppendItem(int chain, const CDatSegItem& item) {
    if (chain < 0 || static_cast<std::size_t>(chain) >= m_chains.size()) return false;
    KrvMemoryReservation reservation(bytesOf(1), "segment item");
    if (!reservation) return false;
    m_chains[static_cast<std::size_t>(chain)].push_back(item);
    m_bytes += bytesOf(1);
    reservation.keep();
    return true;
}

int CDatSeg::AppendRings(int rings, int sides, float cx, float cy, float spacing) {
    if (rings <= 0 || sides < 3) return 0;
    KrvProgress progress("Building rings", static_cast<std::uint64_t>(rings));
    const double step = 2.0 * M_PI / sides;
    std::vector<CDatSegItem> ring(static_cast<std::size_t>(sides));
    for (int k = 0; k < rings; ++k) {
        const double radius = (k + 1) * static_cast<double>(spacing);
        for (int s = 0; s < sides; ++s) {
            const double a = s * step;
            const double b = (s + 1 == sides) ? 0.0 : (s + 1) * step;  // closes exactly
            ring[static_cast<std::size_t>(s)] = {static_cast<float>(cx + radius * std::cos(a)),
                                                 static_cast<float>(cy + radius * std::sin(a)),
                                                 static_cast<float>(cx + radius * std::cos(b)),
                                                 static_cast<float>(cy + radius * std::sin(b))};
        }
        if (AppendChain(ring) < 0) return k;
        if (!progress.step(static_cast<std::uint64_t>(k) + 1)) return k + 1;
    }
    return rings;
}

CDatSeg* CDatSegHandler::AddSeg(const CKrvString& name) {
    KRV_FAULT_RETURN(CDatSeg*, "CDatSegHandler::AddSeg");
    return static_cast<CDatSeg*>(InsertObj(std::make_unique<CDatSeg>(name)));
}

int CDatSegHandler::RemoveSeg(const CKrvString& name) {
    KRV_FAULT_RETURN(int, "CDatSegHandler::RemoveSeg");
    return EraseObj(name) ? 1 : 0;
}

CDatSeg* CDatSegHandler::FindObj(const CKrvString& name) const {
    KRV_FAULT_RETURN(CDatSeg*, "CDatSegHandler::FindObj");
    return static_cast<CDatSeg*>(CKrvHandler::FindObj(name));
}
