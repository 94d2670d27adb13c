#ifndef ORVACAM_METADATA_CFRAMEOTHERMETADATA_H
#define ORVACAM_METADATA_CFRAMEOTHERMETADATA_H

#include <orvacam/types/export.h>

#include <memory>

/// The block of other data that can follow a version 4 header: a type and an owned copy of its bytes. Copies
/// are deep and may throw std::bad_alloc.
/// One object is used by one thread at a time.
class ORVACAM_API CFrameOtherMetaData {
 public:
  CFrameOtherMetaData();
  CFrameOtherMetaData(const CFrameOtherMetaData& other);
  CFrameOtherMetaData& operator=(const CFrameOtherMetaData& other);
  ~CFrameOtherMetaData();

  /// Replaces the block by a copy of uiLength bytes. A null source leaves the block as it is.
  void SetData(const void* pBytes, unsigned int uiLength, unsigned char ucType);

  unsigned int GetType() const { return m_uiType; }
  /// The block's bytes, which stay the object's; null when there is none.
  const unsigned char* GetData() const { return m_pData.get(); }

  /// Both yield the block's length in bytes.
  unsigned int GetBinarizeSize() const { return m_uiLength; }
  unsigned int Binarize() const { return m_uiLength; }

 protected:
  unsigned int m_uiType;
  unsigned int m_uiLength;
  std::unique_ptr<unsigned char[]> m_pData;
};

#endif  // ORVACAM_METADATA_CFRAMEOTHERMETADATA_H
