// The base of the suite's object handlers: named objects kept in insertion order (the order of
// every list) with O(1) look-up by name. Removing a name keeps the order of the others.
//
// While the data service is not running, each handler's m_pInstance points to a stopped handler:
// it holds nothing and refuses every operation (null, 0, nothing listed) with the Error line
// "the suite is not started".
#pragma once
#include <cstddef>
#include <list>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <vantry_util/CKrvString.h>
#include <vantry_util/KrvExport.h>

// The Error line "the suite is not started" (logger "Korvane"), written by every part of the suite
// that is asked to work while it is stopped.
VANTRY_UTIL_EXPORT void logKrvNotStarted();

class VANTRY_UTIL_EXPORT CKrvObject {
public:
    explicit CKrvObject(const CKrvString& name) : m_name(name) {}
    CKrvObject(const CKrvObject&) = delete;
    CKrvObject& operator=(const CKrvObject&) = delete;
    virtual ~CKrvObject();

    const CKrvString& GetName() const noexcept { return m_name; }

private:
    CKrvString m_name;
};

class VANTRY_UTIL_EXPORT CKrvHandler {
public:
    CKrvHandler() = default;
    CKrvHandler(const CKrvHandler&) = delete;
    CKrvHandler& operator=(const CKrvHandler&) = delete;
    virtual ~CKrvHandler();

    // The object of that name, or null.
    virtual CKrvObject* FindObj(const CKrvString& name) const;
    // Appends the names of all objects, in insertion order.
    void GetObjList(std::vector<CKrvString>& out) const;
    std::size_t GetObjCount() const noexcept { return m_order.size(); }

    // A name is valid when it is 1 to 255 bytes long and holds no control character.
    static bool IsValidName(const CKrvString& name) noexcept;

    // For the data service: makes this empty handler the stopped stand-in.
    void SetStopped() noexcept { m_stopped = true; }
    bool IsStopped() const noexcept { return m_stopped; }

protected:
    // True, after the Error line, when this is the stopped handler: the operation then answers
    // null, 0 or nothing.
    bool RefusedWhenStopped() const {
        if (!m_stopped) return false;
        logKrvNotStarted();
        return true;
    }

    // Takes the object; null (and the object destroyed) when its name is invalid or taken.
    CKrvObject* InsertObj(std::unique_ptr<CKrvObject> object);
    // Destroys the object of that name; false when there is none.
    bool EraseObj(const CKrvString& name);
    // Destroys every object; false for the stopped handler.
    bool ClearObj();

    template <class Visit>
    void ForEachObj(Visit visit) const {
        if (RefusedWhenStopped()) return;
        for (const auto& object : m_order) visit(*object);
    }

private:
    bool m_stopped = false;
    using Order = std::list<std::unique_ptr<CKrvObject>>;
    Order m_order;
    std::unordered_map<std::string_view, Order::iterator> m_index;  // views into the objects' names
};
