#ifndef ORVACAM_FILES_FITS_READER_H
#define ORVACAM_FILES_FITS_READER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "files/KeywordTable.h"

namespace orvacam::files {

/// A header-data unit of a FITS file, as far as its header says.
struct FitsUnit {
  std::vector<Card> cards;      ///< without COMMENT, END and blank ones; texts whole
  std::uint64_t dataStart = 0;  ///< in bytes from the start of the file
  std::uint64_t dataBytes = 0;  ///< without padding

  const Value* find(std::string_view keyword) const;
  double number(std::string_view keyword, double otherwise) const;
  std::string text(std::string_view keyword) const;
};

/// One card of 80 bytes; none for COMMENT, CONTINUE, END, blank and broken ones.
std::optional<Card> cardOf(std::string_view bytes);

/// The units of a file, 16 at most, each header 1 MiB at most; fewer where the file ends. Reads headers
/// alone, so that files whose pixels are cut off can be looked at. Throws std::runtime_error for what is no
/// FITS file.
std::vector<FitsUnit> readFitsUnits(const std::string& path);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_FITS_READER_H
