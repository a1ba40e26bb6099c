// Shared by every family file: the assertion macro, object construction in
// qv_malloc memory, and small RAII owners. Nothing here is exported.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

#include "qvlib.h"
#include "platform/qvplatform.h"

// Always compiled in: a broken precondition stops the process with the
// expression's text, never turns into an error code.
#define QV_ASSERT(expr) \
    ((expr) ? static_cast<void>(0) : ::qv::plat::assert_fail(__FILE__, __LINE__, #expr))

namespace qv {

// Builds a T in qv_malloc memory; null when the allocation fails. Constructors
// used this way must not throw (the library builds with -fno-exceptions).
template <class T, class... Args>
T *make(Args &&...args) noexcept {
    void *p = qv_malloc(sizeof(T));
    if (p == nullptr) return nullptr;
    return ::new (p) T(std::forward<Args>(args)...);
}

// Like make, but the memory is zero-filled before construction.
template <class T>
T *make_zeroed() noexcept {
    void *p = qv_cmalloc(sizeof(T));
    if (p == nullptr) return nullptr;
    return ::new (p) T();
}

template <class T>
void destroy(T *p) noexcept {
    if (p == nullptr) return;
    p->~T();
    qv_free(p);
}

// Owns a qv_malloc block until released; frees it on scope exit otherwise.
template <class T>
class Owned {
public:
    Owned() noexcept = default;
    explicit Owned(T *p) noexcept : p_(p) {}
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    ~Owned() { qv_free(p_); }
    T *get() const noexcept { return p_; }
    T *release() noexcept { T *p = p_; p_ = nullptr; return p; }
    void reset(T *p = nullptr) noexcept { qv_free(p_); p_ = p; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
private:
    T *p_ = nullptr;
};

}  // namespace qv
