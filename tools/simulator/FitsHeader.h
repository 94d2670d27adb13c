#ifndef ORVACAM_SIMULATOR_FITS_HEADER_H
#define ORVACAM_SIMULATOR_FITS_HEADER_H

#include <string>
#include <utility>
#include <vector>

#include "simulator/Header.h"

namespace orvacam::simulator {

/// Keywords and their values, as they stand on the cards.
using Cards = std::vector<std::pair<std::string, std::string>>;

/// Cards as a FITS header: "SIMPLE" ahead of them, "END" behind them, blanks up to whole blocks of 2880
/// bytes.
std::vector<unsigned char> writeCards(const Cards& cards);

/// The header of a frame in FITS form: what decides how its pixels are read, and MDLENGTH, which is the
/// header's own length, so that the pixels follow. Unlike the fields of a binary header, its numbers have no
/// width.
Cards cardsOf(const HeaderFields& fields);

/// A raw frame (encodeFrame, version 3 or 4 without a block) with its header in FITS form.
std::vector<unsigned char> inFitsForm(const HeaderFields& fields, const std::vector<unsigned char>& frame);

}  // namespace orvacam::simulator

#endif  // ORVACAM_SIMULATOR_FITS_HEADER_H
