#include "metadata/FrameGeometry.h"

#include "metadata/HeaderFields.h"
#include "metadata/Values.h"
#include "support/CheckedMath.h"

namespace orvacam {

namespace {

/// The keys of one direction.
struct AxisKeys {
  ORVA_META_KEYS start, stop, before, after, binning;
};
constexpr AxisKeys columnKeys = {ORVA_META_KEY_IMAGE_START_COLUMN, ORVA_META_KEY_IMAGE_STOP_COLUMN,
                                 ORVA_META_KEY_PRE_ROW_REF_PIXELS, ORVA_META_KEY_POST_ROW_REF_PIXELS,
                                 ORVA_META_KEY_HORIZONTAL_BINNING};
constexpr AxisKeys rowKeys = {ORVA_META_KEY_IMAGE_START_ROW, ORVA_META_KEY_IMAGE_STOP_ROW,
                              ORVA_META_KEY_PRE_REFERENCE_ROWS, ORVA_META_KEY_POST_REFERENCE_ROWS,
                              ORVA_META_KEY_VERTICAL_BINNING};

std::uint64_t binnedSize(std::uint64_t size, std::uint64_t factor) {
  return factor > 1 ? ceilDivide(size, factor) : size;
}

std::string range(const char* what, std::uint64_t start, std::uint64_t stop) {
  return std::string(what) + " " + std::to_string(start) + " to " + std::to_string(stop);
}

}  // namespace

FrameGeometry::FrameGeometry(const CFrameMetaData& metaData) {
  take(metaData, m_columns, m_binnedColumns, true);
  take(metaData, m_rows, m_binnedRows, false);
  m_headerLength = metaData.GetBinarizeSize();
  if (!m_fault) m_fault = headerLengthFault(metaData);
}

void FrameGeometry::take(const CFrameMetaData& metaData, Axis& axis, Axis& binned, bool columns) {
  const AxisKeys& keys = columns ? columnKeys : rowKeys;
  const auto value = [&](ORVA_META_KEYS key) { return std::uint64_t{numberOf(metaData, key)}; };
  const std::uint64_t start = value(keys.start);
  const std::uint64_t stop = value(keys.stop);
  const std::uint64_t factor = value(keys.binning);
  axis = {value(keys.before), stop >= start ? stop + 1 - start : 0, value(keys.after)};
  binned = {binnedSize(axis.before, factor), binnedSize(axis.image, factor), binnedSize(axis.after, factor)};
  if (m_fault) return;
  if (stop < start)
    m_fault = {GeometryFault::ImageEndsBeforeItStarts, keys.stop, stop, start};
  else if (axis.frame() > longestAxis)
    m_fault = {GeometryFault::FrameTooLarge, keys.stop, axis.frame(), longestAxis};
}

GeometryFault headerLengthFault(const CFrameMetaData& metaData) {
  const std::uint64_t length = metaData.GetBinarizeSize();
  if (length <= longestHeader) return {};
  return {GeometryFault::HeaderTooLong, ORVA_META_KEY_METADATA_LENGTH, length, longestHeader};
}

bool surviveProcessing(const CFrameMetaData& metaData) {
  for (const AxisKeys& axis : {columnKeys, rowKeys})
    for (const ORVA_META_KEYS key : {axis.start, axis.stop, axis.before, axis.after, axis.binning})
      if (std::uint64_t{numberOf(metaData, key)} >> header::writtenBits(key) != 0) return false;
  // A header that starts with something else is none, and gives none of its sizes back.
  return numberOf(metaData, ORVA_META_KEY_MAGIC_NUMBER) == header::magic;
}

std::string GeometryFault::text() const {
  const bool ofColumns = key == ORVA_META_KEY_IMAGE_STOP_COLUMN;
  switch (kind) {
    case ImageEndsBeforeItStarts:
      return "its image ends before it starts: " + range(ofColumns ? "columns" : "rows", limit, value);
    case FrameTooLarge:
      return "its frame has " + std::to_string(value) + (ofColumns ? " columns" : " rows") + ", more than " +
             std::to_string(limit);
    case HeaderTooLong:
      return "its header claims " + std::to_string(value) + " bytes, more than " + std::to_string(limit);
    default:
      return {};
  }
}

}  // namespace orvacam
