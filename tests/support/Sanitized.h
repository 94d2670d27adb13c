#ifndef ORVACAM_TESTS_SUPPORT_SANITIZED_H
#define ORVACAM_TESTS_SUPPORT_SANITIZED_H

/// Whether this is a build with sanitizers. They keep memory of their own and hold freed memory back, so that
/// what a process takes means nothing, and programs are slow to start.
inline constexpr bool sanitized = ORVACAM_SANITIZED != 0;

#endif  // ORVACAM_TESTS_SUPPORT_SANITIZED_H
