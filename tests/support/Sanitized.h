#ifndef ORVACAM_TESTS_SUPPORT_SANITIZED_H
#define ORVACAM_TESTS_SUPPORT_SANITIZED_H

/// Whether this is a build with sanitizers. They keep memory of their own and hold freed memory back, so that
/// what a process takes means nothing, and programs are slow to start.
inline constexpr bool sanitized =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    true;
#else
    false;
#endif
#else
    false;
#endif

#endif  // ORVACAM_TESTS_SUPPORT_SANITIZED_H
