// ByRef<T>: an argument passed by reference, as Basic passes arguments by default.
//
// A ByRef binds to the caller's variable when given an lvalue of exactly T, so the callee's changes are
// seen by the caller. Given anything else (a literal, a temporary, a value of another type that
// converts to T) it holds its own copy, as Basic does when a caller passes an expression.
#pragma once

#include <optional>
#include <type_traits>
#include <utility>

namespace quorbex {

template <class T>
class ByRef {
 public:
  ByRef(T& variable) : ptr_(&variable) {}  // NOLINT: implicit on purpose, like Basic's ByRef
  template <class U>
    requires(!std::is_same_v<std::remove_cvref_t<U>, ByRef> &&
             !(std::is_lvalue_reference_v<U> && std::is_same_v<std::remove_cvref_t<U>, T> &&
               !std::is_const_v<std::remove_reference_t<U>>) &&
             std::is_constructible_v<T, U &&>)
  ByRef(U&& value) : own_(std::in_place, std::forward<U>(value)), ptr_(&*own_) {}  // NOLINT
  ByRef() : own_(std::in_place), ptr_(&*own_) {}

  ByRef(const ByRef& other) : own_(other.own_), ptr_(other.own_ ? &*own_ : other.ptr_) {}
  ByRef& operator=(const ByRef&) = delete;

  T& get() const { return *ptr_; }
  T& operator*() const { return *ptr_; }
  T* operator->() const { return ptr_; }
  operator T&() const { return *ptr_; }  // NOLINT
  ByRef& operator=(const T& value) {
    *ptr_ = value;
    return *this;
  }

 private:
  std::optional<T> own_;
  T* ptr_;
};

}  // namespace quorbex
