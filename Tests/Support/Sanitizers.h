#pragma once

namespace zav::test {

/// Whether this build watches addresses or threads, for which it takes most of the address space, and counts
/// what a forked process leaves behind of its parent as leaked.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool isSanitized = true;
#elif defined(__has_feature)
inline constexpr bool isSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool isSanitized = false;
#endif

}  // namespace zav::test
