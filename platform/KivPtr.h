// Counted references and the root of every framework object.
//
// A PtrInterface is counted: it lives as long as some Kiv::Ptr refers to it. It can be observed when its
// class keeps a notifiee list, and it knows its type record (KivType.h), through which its attributes are
// reached by name. KivNotifiee.h holds the observing side.
//
// Threading: everything runs on the agent's event thread. Counting is atomic only while
// Kiv::System::threadSafePtr() is on; otherwise it costs a plain increment.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace Kiv {

class NotifieeList;
class Type;

namespace detail {
// True while reference counts are changed with atomic read-modify-write operations.
extern bool threadSafePtrMode;
}  // namespace detail

// Root of counted objects. Invariant P1: the object is alive while its count is above zero, and
// zeroReferencesIs(true) runs exactly once, when the last reference goes.
class PtrInterface {
 public:
  PtrInterface() = default;
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  // The order of these declarations is the order of the slots in the virtual table; classes built elsewhere
  // rely on it (tests/unit/platform/SlotOrderTest.cpp).

  // The list of those who watch this object; null for classes that cannot be watched.
  virtual NotifieeList* notifieeList() const;
  // Switches this object's own reacting on or off. Objects start inactive; factories activate them.
  virtual void hasNotificationActiveIs(bool active);
  // Called when the last reference goes. The base deletes the object.
  virtual void zeroReferencesIs(bool zero);
  virtual const Type& fwkType() const = 0;
  virtual ~PtrInterface();

  bool hasNotificationActive() const { return notificationActive_; }
  // References held now; for tests and displays.
  std::uint32_t references() const {
    return std::atomic_ref<std::uint32_t>(references_).load(std::memory_order_relaxed);
  }

  void referenceAdd() const {
    std::atomic_ref<std::uint32_t> count(references_);
    if (detail::threadSafePtrMode) {
      count.fetch_add(1, std::memory_order_relaxed);
    } else {
      count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }

  void referenceRemove() const {
    std::atomic_ref<std::uint32_t> count(references_);
    std::uint32_t left = 0;
    if (detail::threadSafePtrMode) {
      left = count.fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = count.load(std::memory_order_relaxed) - 1;
      count.store(left, std::memory_order_relaxed);
    }
    if (left == 0) const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
  }

  class NotifieeConst;  // KivNotifiee.h

 protected:
  void notificationActiveStore(bool active) { notificationActive_ = active; }

 private:
  alignas(std::atomic_ref<std::uint32_t>::required_alignment) mutable std::uint32_t references_ = 0;
  bool notificationActive_ = false;
};

// Counted reference to an entity. An empty reference is an ordinary value that each user tests.
template <class T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {
  }  // NOLINT(google-explicit-constructor): nullptr is the empty reference
  Ptr(T* object) noexcept
      : object_(object) {  // NOLINT(google-explicit-constructor): counted where it is made
    if (object_ != nullptr) object_->referenceAdd();
  }
  Ptr(const Ptr& other) noexcept : Ptr(other.object_) {}
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
  noexcept : Ptr(other.get()) {}  // NOLINT(google-explicit-constructor): as raw pointers do
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept
      : object_(std::exchange(other.object_, nullptr)) {}  // NOLINT(google-explicit-constructor): as above
  ~Ptr() { reset(); }

  Ptr& operator=(Ptr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  void reset() noexcept {
    if (T* old = std::exchange(object_, nullptr)) old->referenceRemove();
  }

  T* get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  template <class U>
  bool operator==(const Ptr<U>& other) const noexcept {
    return object_ == other.get();
  }
  bool operator==(std::nullptr_t) const noexcept { return object_ == nullptr; }

 private:
  template <class U>
  friend class Ptr;
  T* object_ = nullptr;
};

// The same object as another type, or empty when it is not one.
template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& from) {
  return Ptr<T>(dynamic_cast<T*>(from.get()));
}

template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Kiv

template <class T>
struct std::hash<Kiv::Ptr<T>> {
  std::size_t operator()(const Kiv::Ptr<T>& ptr) const noexcept { return std::hash<T*>{}(ptr.get()); }
};
