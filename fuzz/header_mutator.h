#ifndef ORVACAM_FUZZ_HEADER_MUTATOR_H
#define ORVACAM_FUZZ_HEADER_MUTATOR_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Changes single fields of the headers that lie anywhere in an input, binary ("Meta") or FITS text
/// ("SIMPLE"), to values at which sizes turn. Bytes flipped at random hardly ever make one of those, least of
/// all in text.
namespace fuzz {

/// A value at which something turns, cut to so many bits (1 to 64): 0, 1, all ones, and for each k the
/// numbers 2^k - 1, 2^k and 2^k + 1. Any choice is one of them.
std::uint64_t edgeValue(unsigned int choice, unsigned int bits);

/// How many choices differ before they come again.
constexpr unsigned int edgeValues = 2 + 3 * 65;

/// Writes a value on the card of a keyword of the FITS header at a position: on its card, or on a new one
/// ahead of END. False, with nothing changed, where there is no header or no room: the bytes never grow
/// beyond the capacity.
bool setFitsCard(std::vector<std::uint8_t>& bytes, std::size_t header, std::string_view keyword,
                 const std::string& value, std::size_t capacity);

/// Where headers begin.
std::vector<std::size_t> binaryHeaders(const std::vector<std::uint8_t>& bytes);
std::vector<std::size_t> fitsHeaders(const std::vector<std::uint8_t>& bytes);

/// Sets one field, or a pair whose sum or product wraps, of one header. The same for the same seed. False,
/// with nothing changed, where there is no header.
bool mutateHeader(std::vector<std::uint8_t>& bytes, std::size_t capacity, unsigned int seed);

}  // namespace fuzz

#endif  // ORVACAM_FUZZ_HEADER_MUTATOR_H
