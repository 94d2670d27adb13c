#ifndef ORVACAM_FILES_FITS_READER_H
#define ORVACAM_FILES_FITS_READER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "files/KeywordTable.h"

namespace orvacam::files {

/// A header-data unit of a FITS file, as far as its header says.
struct FitsUnit {
  std::vector<Card> cards;  ///< without COMMENT, END and blank ones; texts whole
  // In bytes from the start of the file.
  std::uint64_t headerStart = 0, dataStart = 0;
  std::uint64_t dataBytes = 0;  ///< without padding
  bool isSized = true;          ///< the header states a size that a file could have

  /// Where the next one begins: units are filled up to blocks.
  std::uint64_t end() const;

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

/// The same, handed over one by one, any number of them, until the answer is false or the file ends. Gives
/// the byte that no unit was found at.
std::uint64_t visitFitsUnits(const std::string& path, const std::function<bool(FitsUnit&&)>& visit);

/// The sum (wordSum) of whole blocks of a file, which is read a piece at a time. Throws std::runtime_error
/// where it ends before that.
std::uint32_t fileSum(std::istream& file, std::uint64_t from, std::uint64_t to);

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_FITS_READER_H
