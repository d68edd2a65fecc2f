// The algorithm library's minimal framework: reference-counted objects held through
// zel::RefImpl, algorithms with typed properties run synchronously by BaseAlgorithm::run, and
// the containers their properties point to.
#pragma once
#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <vantry_util/KrvExport.h>

namespace zel {

// Counted by the references that hold it; deleted when the last one goes.
class VANTRY_ZEL_EXPORT RefCounted {
public:
    RefCounted() = default;
    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;
    virtual ~RefCounted();
    void addRef() const noexcept { m_refs.fetch_add(1, std::memory_order_relaxed); }
    void release() const noexcept {
        if (m_refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

private:
    mutable std::atomic<int> m_refs{0};
};

template <class T>
class RefImpl {
public:
    RefImpl() = default;
    explicit RefImpl(T* object) : m_object(object) {
        if (m_object) m_object->addRef();
    }
    RefImpl(const RefImpl& other) : RefImpl(other.m_object) {}
    RefImpl& operator=(RefImpl other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~RefImpl() {
        if (m_object) m_object->release();
    }
    // Throws a std::logic_error "Null dereference of a zel reference".
    [[noreturn]] static void nullDereferenceError();
    T* operator->() const {
        if (!m_object) nullDereferenceError();
        return m_object;
    }
    T& operator*() const { return *operator->(); }
    T* get() const noexcept { return m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

[[noreturn]] VANTRY_ZEL_EXPORT void throwNullDereference();
template <class T>
void RefImpl<T>::nullDereferenceError() {
    throwNullDereference();
}

template <class T>
class Property {
public:
    explicit Property(T value = T()) : m_value(std::move(value)) {}
    Property& operator=(const T& value) {
        m_value = value;
        return *this;
    }
    const T& get() const noexcept { return m_value; }
    operator const T&() const noexcept { return m_value; }  // NOLINT: reads as its value

private:
    T m_value;
};

// One choice among named ones, by index; an index out of range throws std::out_of_range.
class VANTRY_ZEL_EXPORT PropertySingleChoice {
public:
    PropertySingleChoice(std::vector<std::string> choices, unsigned int index);
    PropertySingleChoice& operator=(unsigned int index);
    unsigned int get() const noexcept { return m_index; }
    const std::vector<std::string>& choices() const noexcept { return m_choices; }

private:
    std::vector<std::string> m_choices;
    unsigned int m_index;
};

// What an algorithm may ask its caller while it runs; null means no interaction.
class VANTRY_ZEL_EXPORT InteractionInterface {
public:
    virtual ~InteractionInterface();
    virtual bool cancelled() const = 0;
};

class VANTRY_ZEL_EXPORT BaseAlgorithm : public RefCounted {
public:
    // Runs the algorithm on its current properties, synchronously.
    void run(InteractionInterface* interaction);

protected:
    virtual void doRun(InteractionInterface* interaction) = 0;
};

namespace container {

// Leaves a new element of a trivial type uninitialised where std::allocator would zero it: an
// algorithm writes every element of its output, and zeroing a large one first cost a pass over
// memory.
template <class T>
struct DefaultInitAllocator : std::allocator<T> {
    template <class U>
    struct rebind {
        using other = DefaultInitAllocator<U>;
    };
    DefaultInitAllocator() noexcept = default;
    template <class U>
    DefaultInitAllocator(const DefaultInitAllocator<U>&) noexcept {}
    template <class U>
    void construct(U* at) noexcept(std::is_nothrow_default_constructible_v<U>) {
        ::new (static_cast<void*>(at)) U;
    }
    template <class U, class... Args>
    void construct(U* at, Args&&... args) {
        ::new (static_cast<void*>(at)) U(std::forward<Args>(args)...);
    }
};

template <class T>
class Vector {
public:
    std::size_t size() const noexcept { return m_items.size(); }
    T& operator[](std::size_t i) { return m_items[i]; }
    const T& operator[](std::size_t i) const { return m_items[i]; }
    void resize(std::size_t n) { m_items.resize(n); }
    void clear() noexcept { m_items.clear(); }
    T* data() noexcept { return m_items.data(); }

private:
    std::vector<T, DefaultInitAllocator<T>> m_items;
};
}  // namespace container

namespace math {
template <class T>
struct Vector2 {
    T v[2];
    T& operator[](std::size_t i) { return v[i]; }
    const T& operator[](std::size_t i) const { return v[i]; }
};
}  // namespace math

}  // namespace zel
