#pragma once

#include <memory>
#include <type_traits>

namespace zav {

/// A unit of work for `ZAVEventRepository::attemptBlock`: something to call, without arguments, that answers
/// whether it succeeded; or nothing. It refers to the callable that it is made from and owns nothing, so it
/// is for passing down a call, not for keeping.
class ZAVUnitOfWork {
public:
    /// An absent unit of work.
    ZAVUnitOfWork(std::nullptr_t) noexcept {}

    /// An empty `std::function` or a null function pointer makes an absent unit of work.
    template <class Callable>
    requires(std::is_invocable_r_v<bool, Callable&> &&
             !std::is_same_v<std::remove_cvref_t<Callable>, ZAVUnitOfWork>) ZAVUnitOfWork(Callable&& callable)
    noexcept {
        using Target = std::remove_reference_t<Callable>;
        if constexpr (std::is_function_v<Target>) {
            callable_ = reinterpret_cast<void*>(&callable);
            call_ = [](void* target) -> bool { return reinterpret_cast<Target*>(target)(); };
        } else {
            // A lambda without captures converts to a function pointer, and so to bool: it is present all the
            // same.
            if constexpr (std::is_pointer_v<std::remove_cv_t<Target>> ||
                          (std::is_constructible_v<bool, Callable&> &&
                           !std::is_convertible_v<Callable&, bool (*)()>)) {
                if (!static_cast<bool>(callable)) {
                    return;
                }
            }
            callable_ = const_cast<void*>(static_cast<const void*>(std::addressof(callable)));
            call_ = [](void* target) -> bool { return (*static_cast<Target*>(target))(); };
        }
    }

    /// Whether it is present.
    explicit operator bool() const noexcept { return call_ != nullptr; }

    /// Calls it; it must be present.
    bool operator()() const { return call_(callable_); }

private:
    void* callable_ = nullptr;
    bool (*call_)(void*) = nullptr;
};

}  // namespace zav
