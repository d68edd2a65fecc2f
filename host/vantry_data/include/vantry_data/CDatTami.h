// Sieves: named, ordered lists of float parameters, kept by the sieve handler.
#pragma once
#include <cstdint>
#include <memory>

#include <vantry_util/CKrvHandler.h>
#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>

class VANTRY_DATA_EXPORT CDatTami : public CKrvObject {
public:
    explicit CDatTami(const CKrvString& name);
    ~CDatTami() override;

    // Replaces the values with a copy of `count` values (none for a count of 0 or less). When
    // the copy would pass the suite's memory budget, the sieve is left empty and a
    // KrvBaseException says so.
    void SetData(float* values, int count);
    // The sieve's values, with their number in `count`; null, `count` untouched, when the sieve
    // holds none. The pointer stays valid until the next SetData or the sieve's removal.
    float* GetData(int& count);

private:
    void Release() noexcept;
    std::unique_ptr<float[]> m_values;
    int m_count = 0;
};

class VANTRY_DATA_EXPORT CDatTamiHandler : public CKrvHandler {
public:
    // The running store while the data service runs; the stopped handler otherwise.
    static CDatTamiHandler* m_pInstance;

    // A new, empty sieve; null (nothing changed) when the name is invalid or already used.
    CDatTami* AddTami(CKrvString name);
    // 1 when the sieve was removed, 0 when there is none of that name.
    int RemoveTami(CKrvString name);
    CDatTami* FindObj(const CKrvString& name) const override;
};
