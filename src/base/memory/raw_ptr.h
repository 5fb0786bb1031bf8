// A pointer member that does not own what it points to.
//
// A plain pointer does not say who owns its target, and keeps its value when
// the object around it is destroyed. raw_ptr says that somebody else owns the
// target. It is null from the start, after it was moved from, and after its
// destruction, so that nobody finds a stale address in it.
//
//   class Stream {
//     raw_ptr<Service> service_;  // Outlives the stream.
//   };
//
// It converts to and from T*, also to T's base classes, and is compared through
// that conversion. To forget the target, assign nullptr. It points to one
// object, so there is no arithmetic.
//
// Ownership: none. The target must outlive every use of the pointer. This
// stand-in does not check that; the browser's own raw_ptr, which replaces it
// there, does.
//
// Sequence: as for a plain pointer.

#ifndef BASE_MEMORY_RAW_PTR_H_
#define BASE_MEMORY_RAW_PTR_H_

#include <concepts>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace base {

// T may be const and may be incomplete.
template <typename T>
class raw_ptr {
  static_assert(!std::is_function_v<T>);

 public:
  constexpr raw_ptr() noexcept = default;
  constexpr raw_ptr(std::nullptr_t) noexcept {}
  constexpr raw_ptr(T* target) noexcept : target_(target) {}

  constexpr raw_ptr(const raw_ptr&) noexcept = default;
  constexpr raw_ptr(raw_ptr&& other) noexcept
      : target_(std::exchange(other.target_, nullptr)) {}

  template <typename U>
  requires std::convertible_to<U*, T*>
  constexpr raw_ptr(const raw_ptr<U>& other) noexcept : target_(other.get()) {}
  template <typename U>
  requires std::convertible_to<U*, T*>
  constexpr raw_ptr(raw_ptr<U>&& other) noexcept : target_(other.get()) {
    other = nullptr;
  }

  // A compiler may remove this store, since the object's lifetime ends here;
  // GCC keeps it only with -fno-lifetime-dse.
  constexpr ~raw_ptr() { target_ = nullptr; }

  constexpr raw_ptr& operator=(const raw_ptr&) noexcept = default;
  constexpr raw_ptr& operator=(raw_ptr&& other) noexcept {
    target_ = std::exchange(other.target_, nullptr);
    return *this;
  }

  constexpr T* get() const noexcept { return target_; }
  constexpr T& operator*() const noexcept { return *target_; }
  constexpr T* operator->() const noexcept { return target_; }
  constexpr operator T*() const noexcept { return target_; }

  // Deleted, since they would otherwise compile through the conversion.
  template <typename I>
  void operator[](I) const = delete;
  template <typename I>
  friend void operator+(const raw_ptr&, I) = delete;
  template <typename I>
  friend void operator+(I, const raw_ptr&) = delete;
  template <typename I>
  friend void operator-(const raw_ptr&, I) = delete;
  friend void operator-(T*, const raw_ptr&) = delete;

 private:
  T* target_ = nullptr;
};

}  // namespace base

using base::raw_ptr;

#endif  // BASE_MEMORY_RAW_PTR_H_
