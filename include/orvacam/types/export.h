#ifndef ORVACAM_TYPES_EXPORT_H
#define ORVACAM_TYPES_EXPORT_H

/// \file
/// Marks what the shared library exports. Symbols are hidden unless they carry this mark.

#define ORVACAM_API __attribute__((visibility("default")))

#endif  // ORVACAM_TYPES_EXPORT_H
