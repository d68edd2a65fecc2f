// A message parameter of the service registry: a text, a whole number or a pointer.
#pragma once
#include <variant>

#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>

class VANTRY_UTIL_EXPORT KrvVariant {
public:
    KrvVariant() = default;
    KrvVariant(const char* text) : m_value(CKrvString(text)) {}   // NOLINT
    KrvVariant(const CKrvString& text) : m_value(text) {}         // NOLINT
    KrvVariant(long value) : m_value(value) {}                    // NOLINT
    KrvVariant(int value) : m_value(static_cast<long>(value)) {}  // NOLINT
    KrvVariant(void* pointer) : m_value(pointer) {}               // NOLINT

    // Each accessor answers a neutral value (empty, 0, null) when the variant holds another kind.
    CKrvString asString() const;
    int asLong() const;
    void* getVoidPtr() const;

private:
    std::variant<std::monostate, CKrvString, long, void*> m_value;
};
