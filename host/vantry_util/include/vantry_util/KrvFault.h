// Failure injection over the stand-alone suite. Every host operation that a client's result
// depends on passes through a named fault point; a test arms a point so that its n-th call (or
// every call from then on) answers null, zero, non-zero, a negative value, or throws, and can
// read how often each point was called. Disarmed, a point costs one counter increment and one
// load.
//
// The points exist only in the test builds of the host libraries (KRV_FAULT_POINTS, with the
// registry in vantry_util's); elsewhere a point is an empty stand-in that never fires, so the
// installed libraries carry neither the points nor the registry.
#pragma once
#include <atomic>
#include <cstdint>
#include <string>
#include <type_traits>

#ifdef KRV_NO_FAULT_POINTS
#error "this source now uses fault points: configure again so that its test build has them"
#endif

#define KRV_FAULT_API __attribute__((visibility("default")))

namespace KrvFault {

enum class Answer : int {
    None = 0,   // not armed
    Null,       // a null pointer (false for bool)
    Zero,       // 0 (false for bool)
    NonZero,    // `value` when non-zero, else 1 (true for bool)
    Negative,   // `value` when negative, else -1
    Throw,      // a KrvBaseException "Injected fault in <point>"
    Custom      // the operation's own documented odd answer (see docs/suite.md)
};

#ifdef KRV_FAULT_POINTS

struct Point;

// Arms `point`: counting from now, its calls `nth`, nth+1, ... (at most `times` of them, -1
// for all) fail with `answer`.
KRV_FAULT_API void arm(const std::string& point, Answer answer, int nth = 1, int times = 1, long long value = 0);
KRV_FAULT_API void disarm(const std::string& point);
// Disarms every point and sets every counter to zero.
KRV_FAULT_API void reset();
KRV_FAULT_API std::uint64_t calls(const std::string& point);

struct KRV_FAULT_API Point {
    explicit Point(const char* name);
    // Counts the call; true when this call must fail (and throws for Answer::Throw).
    bool fire() {
        const std::uint64_t n = ++count;
        if (armed.load(std::memory_order_acquire) == 0) return false;
        return fireArmed(n);
    }
    Answer answer() const noexcept { return static_cast<Answer>(kind.load()); }
    long long answerValue() const noexcept { return value.load(); }

    template <class R>
    R result() const noexcept {
        const Answer a = answer();
        const long long v = value.load();
        if constexpr (std::is_pointer_v<R>) {
            return nullptr;
        } else if constexpr (std::is_same_v<R, bool>) {
            return a == Answer::NonZero;
        } else {
            if (a == Answer::NonZero) return static_cast<R>(v != 0 ? v : 1);
            if (a == Answer::Negative) return static_cast<R>(v < 0 ? v : -1);
            if (a == Answer::Custom) return static_cast<R>(v);
            return static_cast<R>(0);
        }
    }

    const char* name;
    std::atomic<std::uint64_t> count{0};
    std::atomic<int> armed{0};
    std::atomic<int> kind{0};
    std::atomic<long long> value{0};
    std::atomic<std::uint64_t> first{0};
    std::atomic<long long> remaining{0};

private:
    bool fireArmed(std::uint64_t n);
};

KRV_FAULT_API Point& point(const char* name);

}  // namespace KrvFault

// At the top of a host operation returning R: returns the injected answer when armed.
#define KRV_FAULT_RETURN(R, NAME)                                        \
    do {                                                                 \
        static ::KrvFault::Point& krvFaultPoint_ = ::KrvFault::point(NAME); \
        if (krvFaultPoint_.fire()) return krvFaultPoint_.result<R>();    \
    } while (0)

// At the top of an operation without a result: counts, and throws when armed to.
#define KRV_FAULT_COUNT(NAME)                                            \
    do {                                                                 \
        static ::KrvFault::Point& krvFaultPoint_ = ::KrvFault::point(NAME); \
        if (krvFaultPoint_.fire()) return;                               \
    } while (0)

#else

// Never fires; the call sites' dead branches fold away.
struct Point {
    static constexpr bool fire() noexcept { return false; }
    static constexpr Answer answer() noexcept { return Answer::None; }
    static constexpr long long answerValue() noexcept { return 0; }
    template <class R>
    static constexpr R result() noexcept { return R{}; }
};

inline Point disabledPoint;
constexpr Point& point(const char*) noexcept { return disabledPoint; }

}  // namespace KrvFault

#define KRV_FAULT_RETURN(R, NAME) \
    do {                          \
    } while (0)
#define KRV_FAULT_COUNT(NAME) \
    do {                      \
    } while (0)

#endif

