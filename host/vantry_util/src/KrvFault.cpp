// The registry of fault points.
#include <vantry_util/KrvFault.h>

#include <map>
#include <memory>
#include <mutex>

#include <vantry_util/KrvBaseException.h>

namespace KrvFault {
namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<Point>, std::less<>> points;  // keys own the names
};

Registry& registry() {
    static Registry* instance = new Registry;  // outlives every static that may still fire
    return *instance;
}

}  // namespace

Point::Point(const char* pointName) : name(pointName) {}

Point& point(const char* name) {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto found = r.points.find(name);
    if (found != r.points.end()) return *found->second;
    auto added = r.points.emplace(name, nullptr).first;
    added->second = std::make_unique<Point>(added->first.c_str());
    return *added->second;
}

bool Point::fireArmed(std::uint64_t n) {
    if (n < first.load()) return false;
    long long left = remaining.load();
    do {
        if (left == 0) return false;
        if (left < 0) break;  // every call from `first` on
    } while (!remaining.compare_exchange_weak(left, left - 1));
    if (answer() == Answer::Throw)
        throw KrvBaseException(std::string("Injected fault in ") + name, __FILE__, __LINE__);
    return true;
}

void arm(const std::string& name, Answer answer, int nth, int times, long long value) {
    Point& p = point(name.c_str());
    p.kind.store(static_cast<int>(answer));
    p.value.store(value);
    p.first.store(p.count.load() + static_cast<std::uint64_t>(nth < 1 ? 1 : nth));
    p.remaining.store(times);
    p.armed.store(answer == Answer::None ? 0 : 1, std::memory_order_release);
}

void disarm(const std::string& name) { point(name.c_str()).armed.store(0); }

void reset() {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (auto& entry : r.points) {
        entry.second->armed.store(0);
        entry.second->count.store(0);
    }
}

std::uint64_t calls(const std::string& name) { return point(name.c_str()).count.load(); }

}  // namespace KrvFault
