// A non-owning reference to a callable: what the host's services take for
// callbacks, so that handing a lambda to a service allocates nothing.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace vex {

template <class Signature>
class FunctionRef;

template <class R, class... Args>
class FunctionRef<R(Args...)> {
 public:
  FunctionRef() = default;
  template <class F>
    requires(!std::is_same_v<std::remove_cvref_t<F>, FunctionRef> && std::is_invocable_r_v<R, F&, Args...>)
  FunctionRef(F&& f)  // NOLINT: implicit on purpose, like a function pointer
      : object_(const_cast<void*>(static_cast<const void*>(std::addressof(f)))),
        call_([](void* o, Args... args) -> R {
          return (*static_cast<std::remove_reference_t<F>*>(o))(std::forward<Args>(args)...);
        }) {}

  R operator()(Args... args) const { return call_(object_, std::forward<Args>(args)...); }
  explicit operator bool() const { return call_ != nullptr; }

 private:
  void* object_ = nullptr;
  R (*call_)(void*, Args...) = nullptr;
};

}  // namespace vex
