#ifndef ORVACAM_SRC_METADATA_VALUES_H
#define ORVACAM_SRC_METADATA_VALUES_H

#include <orvacam/metadata/CFrameMetaData.h>

#include <cstring>
#include <string_view>

/// Short ways to what a header holds. Nothing here takes memory.
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

}  // namespace orvacam

#endif  // ORVACAM_SRC_METADATA_VALUES_H
