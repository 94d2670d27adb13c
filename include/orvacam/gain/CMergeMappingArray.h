#ifndef ORVACAM_GAIN_CMERGEMAPPINGARRAY_H
#define ORVACAM_GAIN_CMERGEMAPPINGARRAY_H

#include <orvacam/types/export.h>

/// The lookup table of the legacy merge: the merged 16-bit value for every pair of a high-gain value (row)
/// and a low-gain value (column).
/// One object is used by one thread at a time.
class ORVACAM_API CMergeMappingArray {
 public:
  CMergeMappingArray();
  CMergeMappingArray(const CMergeMappingArray&) = delete;
  CMergeMappingArray& operator=(const CMergeMappingArray&) = delete;
  virtual ~CMergeMappingArray();

  /// Makes room for uiWidth columns and uiHeight rows, not initialized. Data of exactly this size is kept as
  /// it is. Without memory for it the array is empty afterwards.
  void Create(unsigned int uiWidth, unsigned int uiHeight);
  /// Copies a row over another; nothing when either does not exist.
  void CopyRow(unsigned int uiSource, unsigned int uiDestination);
  /// Frees the data; the array is empty afterwards.
  void FreeAll();

  unsigned int GetWidth() const { return m_uiWidth; }
  unsigned int GetHeight() const { return m_uiHeight; }
  /// Entry (row r, column c) is at r x width + c; null when empty. Stays the object's.
  unsigned short* GetData() const { return m_pData; }

 protected:
  unsigned int m_uiWidth;
  unsigned int m_uiHeight;
  unsigned short* m_pData;
};

#endif  // ORVACAM_GAIN_CMERGEMAPPINGARRAY_H
