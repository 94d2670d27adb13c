#ifndef ORVACAM_SRC_GAIN_SENSOR_GAINS_H
#define ORVACAM_SRC_GAIN_SENSOR_GAINS_H

#include <orvacam/types/gain_types.h>

#include <memory>
#include <vector>

namespace orvacam {

/// Where a channel's gain field sits; a mask of 0 for none.
struct GainField {
  unsigned int reg;
  unsigned int shift;
  unsigned int mask;
};

enum class Dne {
  None,
  FromGains,  ///< gain / 1000 until the merge settings are initialized
  Fixed       ///< constants of the sensor, by table position
};

/// What is known of one channel of a sensor.
struct ChannelGains {
  const gain_value_t* table;
  GainField field = {};
  const double* fixedElectrons = nullptr;        ///< for Dne::Fixed
  double defaultElectrons = 0;                   ///< where neither camera nor curve has a value
  const electrons_per_count_t* curve = nullptr;  ///< null where the merge settings are not initialized
  unsigned int curveSize = 0;
};

/// What is known of a sensor. Both channels have the same number of entries.
struct SensorGains {
  unsigned int entries;
  Dne dne;
  double defaultRatio;
  ChannelGains channels[2];
};

/// The electrons-per-count tables of one class. Intended: all its objects share them, so that the next one
/// overwrites what the first one sees.
struct DneTables {
  std::vector<merge_gain_t> channels[2];
};

/// While it lives, the gain tables that this thread makes share their electrons per count with one another
/// alone, not with those that it made before or makes later.
class GainTablesApart {
 public:
  GainTablesApart();
  GainTablesApart(const GainTablesApart&) = delete;
  GainTablesApart& operator=(const GainTablesApart&) = delete;
  ~GainTablesApart();

 private:
  std::shared_ptr<DneTables> m_tables;
};

}  // namespace orvacam

#endif  // ORVACAM_SRC_GAIN_SENSOR_GAINS_H
