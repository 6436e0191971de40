// Intrusive reference counting. An object derived from PtrInterface starts with
// a count of zero; each Ptr holding it adds one, and the last Ptr to let go
// deletes it. Single-threaded: every count lives on the agent's event-loop
// thread, so the counts are plain integers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace Kiv {

class PtrInterface {
 public:
  PtrInterface() = default;
  PtrInterface(const PtrInterface&) : refs_(0) {}
  PtrInterface& operator=(const PtrInterface&) { return *this; }

  std::uint32_t references() const { return refs_; }
  void newRef() const { ++refs_; }
  void deleteRef() const {
    if (--refs_ == 0) delete this;
  }

 protected:
  virtual ~PtrInterface() = default;

 private:
  mutable std::uint32_t refs_ = 0;
};

template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}
  Ptr(T* p) : p_(p) { acquire(); }
  Ptr(const Ptr& o) : p_(o.p_) { acquire(); }
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  Ptr(const Ptr<U>& o) : p_(o.ptr()) {
    acquire();
  }
  ~Ptr() { release(); }

  Ptr& operator=(const Ptr& o) {
    Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }
  Ptr& operator=(T* p) {
    Ptr(p).swap(*this);
    return *this;
  }

  T* ptr() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  bool operator!() const { return p_ == nullptr; }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

  template <class U>
  bool operator==(const Ptr<U>& o) const {
    return p_ == o.ptr();
  }
  bool operator==(std::nullptr_t) const { return p_ == nullptr; }

 private:
  void acquire() const {
    if (p_) p_->newRef();
  }
  void release() {
    if (p_) std::exchange(p_, nullptr)->deleteRef();
  }
  T* p_ = nullptr;
};

template <class T, class U>
Ptr<T> ptr_cast(const Ptr<U>& p) {
  return Ptr<T>(dynamic_cast<T*>(p.ptr()));
}

}  // namespace Kiv

template <class T>
struct std::hash<Kiv::Ptr<T>> {
  std::size_t operator()(const Kiv::Ptr<T>& p) const { return std::hash<T*>()(p.ptr()); }
};
