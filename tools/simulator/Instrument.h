#ifndef ORVACAM_SIMULATOR_INSTRUMENT_H
#define ORVACAM_SIMULATOR_INSTRUMENT_H

#include <string>
#include <vector>

#include "Scene.h"

namespace orvacam::simulator {

enum class FrameType { Light, Bias, Dark, Flat };

/// A camera to be measured and calibrated, whose properties are known. A pixel collects
///
///     electrons = Poisson(light x response + dark current x exposure)
///
/// and each channel reads them:
///
///     counts = round(offset + column + row + pixel + (electrons / gain) + noise), from 0 to the full scale
///
/// with the channel's gain in electrons per count. Read noise is given for the high-gain channel, or the only
/// one; the low-gain channel has it, too, and half a count of its converter's. Offsets arise behind the
/// amplifiers: they have as many counts in the low-gain channel as in the high-gain one, for which they are
/// given. Reference pixels collect nothing.
struct Instrument {
  unsigned long seed = 1;   ///< the camera
  double readNoise = 4;     ///< electrons, of a frame
  double columnNoise = 2;   ///< electrons, deviation of the columns' fixed offsets
  double rowNoise = 1;      ///< electrons, deviation of the rows' fixed offsets
  double pixelNoise = 2;    ///< electrons, deviation of the pixels' fixed offsets
  double response = 0.01;   ///< relative deviation of the pixels' response
  double darkCurrent = 2;   ///< electrons per second
  double darkSpread = 0.2;  ///< its relative deviation from pixel to pixel
  unsigned hotPixels = 0;   ///< pixels whose dark current is 500 to 4000 electrons per second higher
  unsigned blinking = 0;    ///< pixels that read 40 times the read noise more in every other frame or so
  unsigned deadPixels = 0;  ///< pixels with a tenth of the response
};

/// The planes of a frame. The header's exposure sets the dark current, its frame number the noise and the
/// state of blinking pixels; everything else is the same in all frames of a seed. `level` are the electrons
/// that a flat collects on average; a light frame shows the sky.
std::vector<Plane> exposeFrame(const Camera& camera, const HeaderFields& fields, const Instrument& instrument,
                               FrameType type, double level, const Sky& sky);

/// What the image pixels of each plane would read on average, row by row, in counts without rounding: the
/// fixed pattern. `level` is that of a flat; 0 for the others. Blinking pixels as in their lower state.
std::vector<std::vector<double>> fixedPattern(const Camera& camera, const HeaderFields& fields,
                                              const Instrument& instrument, double level);

/// Half of what the (high-gain) channel holds: electrons of a good flat.
double usualLevel(const Camera& camera, const HeaderFields& fields);

/// A header that tells the gains of its channels, as the camera's maker measured them.
HeaderFields withGains(const Camera& camera, HeaderFields fields);

struct Place {
  unsigned int x, y;
};

/// What is true of a channel. Deviations are those of the image region's own pixels, columns and rows, hot,
/// dead and blinking pixels aside.
struct PlaneTruth {
  std::string name;                          ///< "low", "high" or "image"
  double offset;                             ///< counts: the mean without light and dark current
  double gain;                               ///< electrons per count
  double readNoise;                          ///< electrons, without the noise of rounding to counts
  double darkCurrent;                        ///< electrons per second, mean
  double columnNoise, rowNoise, pixelNoise;  ///< electrons
  double responsePercent;                    ///< deviation of the response
  double fullScale;                          ///< counts
};

struct Truth {
  double ratio;  ///< low to high electrons per count; 0 with one channel
  std::vector<PlaneTruth> planes;
  std::vector<Place> hot, blinking, dead;  ///< positions in a plane, in the order of rows
};

Truth truthOf(const Camera& camera, const HeaderFields& fields, const Instrument& instrument);

}  // namespace orvacam::simulator

#endif  // ORVACAM_SIMULATOR_INSTRUMENT_H
