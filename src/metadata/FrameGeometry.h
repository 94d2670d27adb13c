#ifndef ORVACAM_SRC_METADATA_FRAME_GEOMETRY_H
#define ORVACAM_SRC_METADATA_FRAME_GEOMETRY_H

#include <orvacam/metadata/CFrameMetaData.h>

#include <cstdint>
#include <string>

namespace orvacam {

/// The longest header. Raw frames of every version state the length in 16 bits, and so does each header that
/// is written; only a FITS text can say more, and then it describes no frame that a camera or this library
/// made.
constexpr std::uint64_t longestHeader = 0xFFFF;

/// The most columns or rows of a frame. Sensors have a few thousand. With this limit, four bytes for each
/// pixel of a frame fit 64 bits, and the rows of both gains together fit 32.
constexpr std::uint64_t longestAxis = 0x7FFFFFFF;

/// Why metadata describe no frame, with the numbers that say so.
struct GeometryFault {
  enum Kind : unsigned char {
    None,
    ImageEndsBeforeItStarts,  ///< value is the stop, limit the start
    FrameTooLarge,            ///< value is the number of columns or rows, limit the most
    HeaderTooLong             ///< value and limit are bytes
  };
  Kind kind = None;
  unsigned int key = 0;  ///< the metadata key that is to blame; of an axis, its stop
  std::uint64_t value = 0;
  std::uint64_t limit = 0;

  explicit operator bool() const { return kind != None; }
  /// A clause such as "its image ends before it starts: columns 5 to 4"; empty for None. May throw
  /// std::bad_alloc.
  std::string text() const;
};

/// Where a frame's pixels lie, worked out once, in 64 bits, whatever filled the metadata: a raw frame's
/// header, FITS text, or setters. Whatever takes room, or is walked through, takes its size from here. The
/// documented queries of CFrameMetaData wrap at 32 bits and size nothing.
///
///   FrameGeometry geometry(metaData);
///   if (geometry.fault()) return -1;
///   planeBytes = 2 * geometry.planePixels();
///
/// All sizes of a frame without a fault are bounded: its frame has 1 to longestAxis columns and rows, its
/// header at most longestHeader bytes. With a fault, there are no pixels; the axes then hold what could be
/// worked out.
class FrameGeometry {
 public:
  /// One direction: reference pixels (or rows) ahead of the image, the image, those behind it.
  struct Axis {
    std::uint64_t before = 0, image = 0, after = 0;
    std::uint64_t frame() const { return before + image + after; }
  };

  /// Takes no memory, and never fails.
  explicit FrameGeometry(const CFrameMetaData& metaData);

  const GeometryFault& fault() const { return m_fault; }

  /// As the sensor has them.
  const Axis& columns() const { return m_columns; }
  const Axis& rows() const { return m_rows; }
  /// As planes have them: each part divided by the binning factor, rounded up.
  const Axis& binnedColumns() const { return m_binnedColumns; }
  const Axis& binnedRows() const { return m_binnedRows; }

  /// Pixels of the image and of the whole frame; 0 with a fault.
  std::uint64_t imagePixels() const { return product(m_columns.image, m_rows.image); }
  std::uint64_t framePixels() const { return product(m_columns.frame(), m_rows.frame()); }
  std::uint64_t binnedImagePixels() const { return product(m_binnedColumns.image, m_binnedRows.image); }
  /// Pixels of a plane.
  std::uint64_t planePixels() const { return product(m_binnedColumns.frame(), m_binnedRows.frame()); }

  /// Bytes of the header ahead of the raw pixels; 0 with a fault.
  std::uint64_t headerLength() const { return m_fault ? 0 : m_headerLength; }

 private:
  void take(const CFrameMetaData& metaData, Axis& axis, Axis& binned, bool columns);
  std::uint64_t product(std::uint64_t a, std::uint64_t b) const { return m_fault ? 0 : a * b; }

  Axis m_columns, m_rows, m_binnedColumns, m_binnedRows;
  std::uint64_t m_headerLength = 0;
  GeometryFault m_fault;
};

/// Whether a header's stated length is one that a header can have. What needs no pixels asks this alone.
GeometryFault headerLengthFault(const CFrameMetaData& metaData);

/// Whether the sizes are the same once the metadata are written as a processed header and read back, whose
/// fields are narrower than those of a FITS text.
bool surviveProcessing(const CFrameMetaData& metaData);

}  // namespace orvacam

#endif  // ORVACAM_SRC_METADATA_FRAME_GEOMETRY_H
