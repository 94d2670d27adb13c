#ifndef ORVACAM_SCIENCE_LIKENESS_H
#define ORVACAM_SCIENCE_LIKENESS_H

#include <orvacam.hpp>
#include <string>

namespace orvacam::science {

/// Which field makes a frame unlike the first of a measurement, with both values; "" for frames that may be
/// measured together: the same sensor, size, mode, gains, black levels, binning and region, and a sensor that
/// is not more than 1 degree warmer or colder. The exposure counts when it is asked for. Fields that a
/// header's version lacks are alike.
std::string unlikeness(const Header& first, const Header& frame, bool withExposure);

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_LIKENESS_H
