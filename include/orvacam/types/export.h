#ifndef ORVACAM_TYPES_EXPORT_H
#define ORVACAM_TYPES_EXPORT_H

/// \file
/// Marks what the shared library exports. Symbols are hidden unless they carry this mark.

#define ORVACAM_API __attribute__((visibility("default")))
/// On a member of an exported class: not exported, for the library itself.
#define ORVACAM_INTERNAL __attribute__((visibility("hidden")))

#endif  // ORVACAM_TYPES_EXPORT_H
