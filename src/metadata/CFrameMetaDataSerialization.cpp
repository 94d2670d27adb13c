// Writing a header as bytes: one layout, version 4.

#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/version.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "metadata/HeaderFields.h"
#include "support/ByteWriter.h"

using namespace orvacam::header;
using orvacam::ByteWriter;

namespace {

constexpr unsigned int writtenPadding(unsigned int version) {
  return version == 2 || version == 3 ? paddingOf(setOf(version)) : 0;
}

void putText(ByteWriter& writer, const Field& field, const CMetaValues& value) {
  int length = 0;
  const unsigned char* const bytes = value.GetValue(nullptr, length);
  if (bytes == nullptr) return;
  writer.putBytes(field.offset, bytes, std::min<std::size_t>(static_cast<unsigned int>(length), field.width));
}

void putSignMagnitude(ByteWriter& writer, const Field& field, int value) {
  const auto magnitude = static_cast<unsigned long>(std::abs(static_cast<long>(value)));
  const unsigned long sign = value < 0 ? 0x80UL << (8 * (field.width - 1)) : 0;
  writer.putUint(field.offset, field.width, magnitude | sign);
}

/// The number that a field holds: its key's value, or two neighbouring ones together.
unsigned int numberOf(const Field& field, const CMetaValues* values) {
  switch (field.written()) {
    case Encoding::Signed:
      return static_cast<unsigned int>(values->GetValueInt());
    case Encoding::PixelDepths:
      return ((values[0].GetValueUint() - 1) & 15) | (values[1].GetValueUint() << 4);
    case Encoding::ReferenceRows:
      return values[1].GetValueUint() + (values[0].GetValueUint() << 12);
    default:
      return values->GetValueUint();
  }
}

}  // namespace

int CFrameMetaData::Binarize(unsigned char* pBuffer, unsigned int uiSize) {
  if (pBuffer == nullptr || uiSize < writtenSize) return -1;
  std::memset(pBuffer, 0, uiSize);
  ByteWriter writer(pBuffer, writtenSize);
  writer.putUint(0, 4, m_Values[ORVA_META_KEY_MAGIC_NUMBER].GetValueUint());
  // Intended: always a version 4 header of 384 bytes, whatever the object holds.
  writer.putUint(4, 2, writtenSize);
  writer.putUint(6, 2, writtenVersion);

  const unsigned int version = m_Values[ORVA_META_KEY_METADATA_VERSION].GetValueUint();
  if (version == 1) TimeMetaToString2(m_CaptureTimeText, sizeof m_CaptureTimeText);

  for (const Field& field : fields) {
    if ((field.versions & V34) == 0) continue;
    switch (field.written()) {
      case Encoding::TimeText:
        // Intended: empty when no header was parsed, and then it does not parse again.
        writer.putBytes(field.offset, m_CaptureTimeText, field.width);
        break;
      case Encoding::Padding:
        writer.putBytes(field.offset, m_Padding, writtenPadding(version));
        break;
      case Encoding::LibraryVersion:
        writer.putBytes(field.offset, ORVACAM_VERSION_STRING,
                        std::min<std::size_t>(std::strlen(ORVACAM_VERSION_STRING), field.width));
        break;
      case Encoding::Text:
      case Encoding::OptionalText:
        putText(writer, field, m_Values[field.key]);
        break;
      case Encoding::SignMagnitude:
        putSignMagnitude(writer, field, m_Values[field.key].GetValueInt());
        break;
      case Encoding::Nothing:
        break;
      default:
        writer.putUint(field.offset, field.width, numberOf(field, &m_Values[field.key]));
        break;
    }
  }
  // These lie in the padding and win over it.
  for (const Field& field : version4Fields)
    writer.putUint(field.offset, field.width, m_Values[field.key].GetValueUint());
  return writtenSize;
}

int CFrameMetaData::BinarizeEx(unsigned char* pBuffer, unsigned int uiSize, const unsigned char* pOther,
                               unsigned int uiOtherLength) {
  const bool stored = pOther == nullptr;
  if (stored) {
    pOther = m_OtherMetaData.GetData();
    uiOtherLength = m_OtherMetaData.Binarize();
    m_Values[ORVA_META_KEY_OTHER_TYPE].SetValueUint(m_OtherMetaData.GetType());
  }
  m_Values[ORVA_META_KEY_OTHER_TYPE_LENGTH].SetValueUint(uiOtherLength);
  // Intended: for the room of a given block the caller vouches, whatever the size says. A stored one came
  // with a frame, whose claims never decide how far we write.
  if (stored && (uiSize < writtenSize || uiOtherLength > uiSize - writtenSize)) return -1;
  const int result = Binarize(pBuffer, uiSize);
  if (result > 0 && uiOtherLength > 0) std::memcpy(pBuffer + writtenSize, pOther, uiOtherLength);
  return result;
}

unsigned int CFrameMetaData::GetBinarizeSize() const {
  return m_Values[ORVA_META_KEY_METADATA_LENGTH].GetValueUint();
}

unsigned int CFrameMetaData::GetBinarizeSizeEx() const {
  return GetBinarizeSize() + m_OtherMetaData.GetBinarizeSize();
}

void CFrameMetaData::SetBinarizeVersion(unsigned int uiVersion) {
  if (uiVersion != 3 && uiVersion != 4) return;
  m_Values[ORVA_META_KEY_METADATA_LENGTH].SetValueUint(writtenSize);
  m_Values[ORVA_META_KEY_METADATA_VERSION].SetValueUint(uiVersion);
}

void CFrameMetaData::Uint32ToBuf(unsigned int uiValue, unsigned char* pBuffer, unsigned int n) {
  if (n <= 4) Uint64ToBuf(uiValue, pBuffer, n);
}

void CFrameMetaData::Uint64ToBuf(unsigned long ulValue, unsigned char* pBuffer, unsigned int n) {
  if (n <= 8) ByteWriter(pBuffer, n).putUint(0, n, ulValue);
}
