#ifndef ORVACAM_SRC_METADATA_FITS_CARDS_H
#define ORVACAM_SRC_METADATA_FITS_CARDS_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

class CFrameMetaData;

/// The header of a FITS file (FITS Standard 4.0) as far as frame metadata lives in it: cards of 80 characters
/// in blocks of 2880, and which keyword belongs to which metadata key.
namespace orvacam::fits {

constexpr unsigned int cardSize = 80;
constexpr unsigned int blockSize = 2880;
constexpr unsigned int keywordSize = 8;

/// Whether the bytes start with "SIMPLE", whatever the case.
bool isFitsFrame(const unsigned char* bytes, std::size_t length);

/// Splits one card of at least 80 bytes. 0 for a card with a value, for "COMMENT" and for a card with nothing
/// behind its keyword ("END", a blank card): keyword or value are then empty where there is none. -1 for
/// every other card and for too few bytes. May throw std::bad_alloc.
int parseNextKey(const unsigned char* card, std::size_t length, std::string& keyword, std::string& value);

/// The first place of a keyword in the keyword table, whatever the case, or -1.
int findKeyIndex(std::string_view keyword);

/// Stores the value under the metadata key that the keyword stands for. Unknown keywords, and those that are
/// no metadata, are ignored. May throw std::bad_alloc.
void processKeyValue(std::string_view keyword, const std::string& value, CFrameMetaData& meta);

/// Reads cards into the metadata until "END" (then end is true), until a card that does not parse, or until
/// fewer than 80 bytes remain. The result of the last card; -1 when there was none or memory ran out.
int parseMetaData(const unsigned char* bytes, unsigned int length, CFrameMetaData& meta, bool& end);

/// The same from the start of a stream, which stays the caller's. -1 for null, for a stream that cannot be
/// positioned and for one that ends before "END"; what was read until then is kept.
int parseMetaData(std::FILE* stream, CFrameMetaData& meta);

}  // namespace orvacam::fits

#endif  // ORVACAM_SRC_METADATA_FITS_CARDS_H
