// Replaces the global operator new with one that counts, so that a benchmark can report heap
// allocations per call. Include it in exactly one source file of a benchmark program.
#pragma once
#include <atomic>
#include <cstdlib>
#include <new>

namespace kbench {

inline std::atomic<long> g_allocations{0};

}  // namespace kbench

void* operator new(std::size_t size) {
    kbench::g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
