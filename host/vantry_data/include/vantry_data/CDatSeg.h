// Segment objects: named sets of chains, each chain an ordered list of items, each item one
// segment from (x1, y1) to (x2, y2) in the image's pixel coordinates. Chains and items are
// numbered from 0 in the order they were appended.
#pragma once
#include <cstdint>
#include <vector>

#include <vantry_util/CKrvHandler.h>
#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>

struct VANTRY_DATA_EXPORT CDatSegItem {
    float x1, y1, x2, y2;
};

// The chain view of an object made of chains.
class VANTRY_DATA_EXPORT CDatChn {
public:
    virtual ~CDatChn();
    virtual int GetNbChains() const = 0;
    // The number of items of `chain`; -1 when there is no such chain.
    virtual int GetNbItems(int chain) = 0;
};

class VANTRY_DATA_EXPORT CDatSeg : public CKrvObject, public CDatChn {
public:
    explicit CDatSeg(const CKrvString& name);
    ~CDatSeg() override;

    int GetNbChains() const override;
    int GetNbItems(int chain) override;
    // Fills the four outputs with item `item` of chain `chain` and answers 1; answers 0 for an
    // item out of range and -1 for a chain out of range, the outputs untouched.
    int GetSegment(int chain, int item, float& x1, float& y1, float& x2, float& y2);

    // Suite side. Appends a chain holding a copy of `items`; its index, or -1 when the items
    // would pass the memory budget (nothing appended).
    int AppendChain(const std::vector<CDatSegItem>& items);
    // Puts `chains` in place of every chain; false, the object unchanged, when the new items
    // would pass the memory budget (counted beside the old ones until they go).
    bool ReplaceChains(std::vector<std::vector<CDatSegItem>> chains);
    // Appends one item to `chain`; false when there is no such chain or the budget is spent.
    bool AppendItem(int chain, const CDatSegItem& item);
    // Appends `rings` closed regular polygons of `sides` items each, centred on (cx, cy), the
    // k-th of radius (k + 1) * `spacing`: a test pattern and the suite's example of long work.
    // Reports "Building rings k/n" as it goes and stops early when the client's flush answers
    // false. The number of rings appended.
    int AppendRings(int rings, int sides, float cx, float cy, float spacing);

private:
    std::vector<std::vector<CDatSegItem>> m_chains;
    std::uint64_t m_bytes = 0;
};

class VANTRY_DATA_EXPORT CDatSegHandler : public CKrvHandler {
public:
    // The running store while the data service runs; the stopped handler otherwise.
    static CDatSegHandler* m_pInstance;

    // A new object without chains; null (nothing changed) when the name is invalid or used.
    CDatSeg* AddSeg(const CKrvString& name);
    // 1 when the object was removed, 0 when there is none of that name.
    int RemoveSeg(const CKrvString& name);
    CDatSeg* FindObj(const CKrvString& name) const override;
};
