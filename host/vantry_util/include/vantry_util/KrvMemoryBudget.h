// The memory budget of the object stores: the settings document's maximum amount of memory
// (bytes; 0 = no limit) bounds the bytes of values held by all stores together. A store reserves
// before it copies values in and releases when it lets them go.
#pragma once
#include <cstdint>

#include <vantry_util/KrvExport.h>

namespace KrvMemoryBudget {

// Reserves `bytes` for `what` (a store's name for the log); false, with a Warn line in the
// suite's log ("Korvane.Memory"), when the total would pass the limit.
VANTRY_UTIL_EXPORT bool reserve(std::uint64_t bytes, const char* what);
VANTRY_UTIL_EXPORT void release(std::uint64_t bytes) noexcept;
VANTRY_UTIL_EXPORT std::uint64_t used() noexcept;

}  // namespace KrvMemoryBudget

// A reservation that releases itself unless kept: reserve, build the object, keep() once the
// object holds the values (it then releases them when it goes).
class VANTRY_UTIL_EXPORT KrvMemoryReservation {
public:
    KrvMemoryReservation(std::uint64_t bytes, const char* what)
        : m_bytes(KrvMemoryBudget::reserve(bytes, what) ? bytes : 0), m_ok(m_bytes == bytes) {}
    KrvMemoryReservation(const KrvMemoryReservation&) = delete;
    KrvMemoryReservation& operator=(const KrvMemoryReservation&) = delete;
    ~KrvMemoryReservation() { KrvMemoryBudget::release(m_bytes); }

    explicit operator bool() const noexcept { return m_ok; }
    // The values are now held by an object that releases them itself.
    void keep() noexcept { m_bytes = 0; }

private:
    std::uint64_t m_bytes;
    bool m_ok;
};
