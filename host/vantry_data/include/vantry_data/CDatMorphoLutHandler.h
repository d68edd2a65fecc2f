// Lookup tables, plain (type code 16) and morphological (type code 32), in one store and one
// name space. A table's values are its integer field "Grey".
#pragma once
#include <cstdint>
#include <vector>

#include <vantry_data/CDatTab.h>
#include <vantry_util/KrvExport.h>

class VANTRY_DATA_EXPORT CDatMorphoLut : public CDatTab {
public:
    static constexpr int kPlain = 16;
    static constexpr int kMorphological = 32;

    CDatMorphoLut(const CKrvString& name, std::vector<int> values, int type, int firstFlag, int secondFlag,
                  const CKrvString& text);
    ~CDatMorphoLut() override;

    // The number of values.
    int GetSize() const;
    // Copies the values into `out`, which has room for as many as GetSize() last told: 1, or 0
    // for an empty table (or a room of none), -1 for a null `out`.
    int GetMorphoLut(int* out);
    const CKrvString& GetText() const noexcept { return m_text; }

    // Read and written directly by clients, in this order.
    int lutType;
    int flag1;
    int flag2;

private:
    friend class CDatMorphoLutHandler;
    int m_size;
    mutable int m_told;  // the size GetSize() last answered: the room GetMorphoLut may fill
    CKrvString m_text;
    std::uint64_t m_heldBytes = 0;  // of the memory budget, released with the table
};

class VANTRY_DATA_EXPORT CDatMorphoLutHandler : public CKrvHandler {
public:
    static CDatMorphoLutHandler* m_pInstance;

    CKrvObject* FindObj(const CKrvString& name) const override;

    // A table of `size` values copied from `values`, of type `typeCode`, flags 0. Null, and
    // nothing made, when the name is invalid or taken, `size` is negative, `values` is null with
    // a positive size, or the values would pass the memory budget.
    CDatMorphoLut* AddLut(const CKrvString& name, int size, int* values, int typeCode, CKrvString text);
    // The same for a morphological table (type 32) with its two flags.
    CDatMorphoLut* AddLut(const CKrvString& name, int size, int* values, int flag1, int flag2, CKrvString text);

    // 1 when a table of either kind was removed, 0 when there is none of that name.
    int RemoveLut(const CKrvString& name);
    // Appends the names of the tables of that type code, in creation order.
    void GetLutList(std::vector<CKrvString>& out, int typeCode) const;

private:
    CDatMorphoLut* Add(const CKrvString& name, int size, const int* values, int type, int flag1, int flag2,
                       const CKrvString& text);
};
