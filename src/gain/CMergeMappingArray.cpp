#include <orvacam/gain/CMergeMappingArray.h>

#include <algorithm>
#include <cstdint>
#include <new>

CMergeMappingArray::CMergeMappingArray() : m_uiWidth(0), m_uiHeight(0), m_pData(nullptr) {}

CMergeMappingArray::~CMergeMappingArray() {
  FreeAll();
}

void CMergeMappingArray::Create(unsigned int uiWidth, unsigned int uiHeight) {
  if (m_pData != nullptr && m_uiWidth == uiWidth && m_uiHeight == uiHeight) return;
  FreeAll();
  const unsigned long entries = static_cast<unsigned long>(uiWidth) * uiHeight;
  if (entries > PTRDIFF_MAX / sizeof(unsigned short)) return;  // new would throw rather than fail
  m_pData = new (std::nothrow) unsigned short[entries];
  if (m_pData == nullptr) return;
  m_uiWidth = uiWidth;
  m_uiHeight = uiHeight;
}

void CMergeMappingArray::CopyRow(unsigned int uiSource, unsigned int uiDestination) {
  if (m_pData == nullptr || std::max(uiSource, uiDestination) >= m_uiHeight || uiSource == uiDestination)
    return;
  const unsigned long width = m_uiWidth;
  std::copy_n(m_pData + uiSource * width, width, m_pData + uiDestination * width);
}

void CMergeMappingArray::FreeAll() {
  delete[] m_pData;
  m_pData = nullptr;
  m_uiWidth = 0;
  m_uiHeight = 0;
}
