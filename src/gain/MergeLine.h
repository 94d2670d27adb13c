#ifndef ORVACAM_SRC_GAIN_MERGE_LINE_H
#define ORVACAM_SRC_GAIN_MERGE_LINE_H

#include <vector>

class CMergeSettings;

namespace orvacam {

/// A mapping array without its repetitions: every row below mergeRow has one value throughout, and all others
/// are alike.
struct MergeLine {
  unsigned int size = 0;      ///< rows and columns of the array
  unsigned int mergeRow = 0;  ///< from 1 to size
  std::vector<unsigned short>
      values;  ///< the rows' own, size of them, 0 for row 0; then one row from mergeRow on
};

/// That of CMergeSettings::GenerateMergeMappingArrays. False where the array would be null; may throw
/// std::bad_alloc.
bool makeMergeLine(CMergeSettings& settings, unsigned int bits, unsigned int low, unsigned int high,
                   double temperature, MergeLine& line);

}  // namespace orvacam

#endif  // ORVACAM_SRC_GAIN_MERGE_LINE_H
