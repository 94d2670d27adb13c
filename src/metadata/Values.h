#ifndef ORVACAM_SRC_METADATA_VALUES_H
#define ORVACAM_SRC_METADATA_VALUES_H

#include <orvacam/metadata/CFrameMetaData.h>

#include <cstring>
#include <string_view>

/// Short ways to what a header holds, or is to say. Nothing here takes memory.
namespace orvacam {

inline unsigned int numberOf(const CFrameMetaData& header, ORVA_META_KEYS key) {
  return header.Value(key).GetValueUint();
}

/// A stored text up to its first zero byte; it stays the value's. "" for what is no text.
inline std::string_view textOf(const CMetaValues& value) {
  int length = 0;
  const auto* const bytes = reinterpret_cast<const char*>(value.GetValue(nullptr, length));
  if (bytes == nullptr || length <= 0) return {};
  return {bytes, strnlen(bytes, static_cast<unsigned int>(length))};
}

/// What processed headers say of every plane: 16 bits a pixel, no HDR pair, whether its bytes are swapped.
inline void describePlane(CFrameMetaData& header, bool swapped) {
  header.SetBitsPerPixel(16);
  header.SetHDRFrame(false);
  header.SetPixelEndianFormat(!swapped);
}

}  // namespace orvacam

#endif  // ORVACAM_SRC_METADATA_VALUES_H
