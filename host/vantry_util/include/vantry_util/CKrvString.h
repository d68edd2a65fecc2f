// The suite's string type: a narrow std::string as its first member, compared byte for byte.
#pragma once
#include <cstddef>
#include <functional>
#include <string>

#include <vantry_util/KrvExport.h>

class VANTRY_UTIL_EXPORT CKrvString {
public:
    std::string m_str;  // the text; kept first, callers rely on the layout

    CKrvString() = default;
    CKrvString(const char* text) : m_str(text ? text : "") {}  // NOLINT: implicit on purpose
    CKrvString(const std::string& text) : m_str(text) {}       // NOLINT
    CKrvString(std::string&& text) noexcept : m_str(std::move(text)) {}  // NOLINT

    const char* c_str() const noexcept { return m_str.c_str(); }
    const std::string& str() const noexcept { return m_str; }
    std::size_t size() const noexcept { return m_str.size(); }
    bool empty() const noexcept { return m_str.empty(); }

    friend bool operator==(const CKrvString& a, const CKrvString& b) noexcept { return a.m_str == b.m_str; }
    friend bool operator!=(const CKrvString& a, const CKrvString& b) noexcept { return a.m_str != b.m_str; }
    friend bool operator<(const CKrvString& a, const CKrvString& b) noexcept { return a.m_str < b.m_str; }
};

template <>
struct std::hash<CKrvString> {
    std::size_t operator()(const CKrvString& s) const noexcept { return std::hash<std::string>()(s.m_str); }
};
