// Message parameters of the service registry.
#include <vantry_util/KrvVariant.h>

CKrvString KrvVariant::asString() const {
    if (const auto* text = std::get_if<CKrvString>(&m_value)) return *text;
    return CKrvString();
}

int KrvVariant::asLong() const {
    if (const auto* number = std::get_if<long>(&m_value)) return static_cast<int>(*number);
    return 0;
}

void* KrvVariant::getVoidPtr() const {
    if (const auto* pointer = std::get_if<void*>(&m_value)) return *pointer;
    return nullptr;
}
