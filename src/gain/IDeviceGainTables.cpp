#include <orvacam/gain/IDeviceGainTables.h>

#include <algorithm>

namespace {

constexpr unsigned int noValue = 0xFFFFFFFFu;
constexpr unsigned int unityGain = 1000;

bool isChannel(ORVAGAINTABLE eTable) {
  return eTable <= ORVA_GAIN_TABLE_HIGH_CHANNEL;
}

/// The first of n entries whose field is the wanted one; n when there is none.
template <typename Entry>
unsigned int findEntry(const Entry* pTable, unsigned int n, unsigned int Entry::*field, unsigned int wanted) {
  if (pTable == nullptr) return n;
  const auto fits = [&](const Entry& entry) { return entry.*field == wanted; };
  return static_cast<unsigned int>(std::find_if(pTable, pTable + n, fits) - pTable);
}

}  // namespace

IDeviceGainTables::IDeviceGainTables()
    : m_dDefaultGainRatio(40.0),
      m_pMappedTables{},
      m_pSortedTables{},
      m_uiNumEntries{},
      m_pDNETables{},
      m_uiDNENumEntries{} {}

IDeviceGainTables::~IDeviceGainTables() {
  FreeTables();
}

unsigned int IDeviceGainTables::GetDeviceValueFromTableIndex(ORVAGAINTABLE eTable, unsigned int uiIndex) {
  if (!isChannel(eTable) || m_pMappedTables[eTable] == nullptr || uiIndex >= m_uiNumEntries[eTable])
    return unityGain;
  return m_pMappedTables[eTable][uiIndex].uiValue;
}

unsigned int IDeviceGainTables::GetNumEntries(ORVAGAINTABLE eTable) {
  return isChannel(eTable) ? m_uiNumEntries[eTable] : noValue;
}

int IDeviceGainTables::GetTable(ORVAGAINTABLE eTable, gain_value_t* pTable, unsigned int uiCapacity,
                                bool bSorted) {
  if (!isChannel(eTable) || m_uiNumEntries[eTable] > uiCapacity || pTable == nullptr) return -1;
  CopyTable(bSorted ? m_pSortedTables[eTable] : m_pMappedTables[eTable], pTable, m_uiNumEntries[eTable]);
  return 0;
}

unsigned int IDeviceGainTables::GetTableIndexFromDeviceIndex(ORVAGAINTABLE eTable,
                                                             unsigned int uiDeviceIndex) {
  if (!isChannel(eTable)) return uiDeviceIndex;
  const unsigned int count = m_uiNumEntries[eTable];
  const unsigned int found =
      findEntry(m_pMappedTables[eTable], count, &gain_value_t::uiDeviceIndex, uiDeviceIndex);
  if (found < count) return found;
  return uiDeviceIndex < count ? uiDeviceIndex : count - 1;
}

unsigned int IDeviceGainTables::GetTableIndexFromDeviceValue(ORVAGAINTABLE eTable, unsigned int uiValue) {
  if (!isChannel(eTable)) return 0;
  const unsigned int count = m_uiNumEntries[eTable];
  const unsigned int found = findEntry(m_pMappedTables[eTable], count, &gain_value_t::uiValue, uiValue);
  return found < count ? found : 0;
}

double IDeviceGainTables::GetDNETableGainRatio(unsigned int uiLowIndex, unsigned int uiHighIndex) {
  const unsigned int wanted[2] = {uiLowIndex, uiHighIndex};
  double values[2] = {};
  for (unsigned int t = 0; t < 2; ++t) {
    const unsigned int count = m_uiDNENumEntries[t];
    const unsigned int found = findEntry(m_pDNETables[t], count, &merge_gain_t::uiDeviceIndex, wanted[t]);
    if (found == count) return m_dDefaultGainRatio;
    values[t] = m_pDNETables[t][found].dValue;
  }
  return values[0] >= 0.0 && values[1] > 0.0 ? values[0] / values[1] : m_dDefaultGainRatio;
}

double IDeviceGainTables::GetDNETableValue(ORVAGAINTABLE eTable, unsigned int uiDeviceIndex) {
  if (!isChannel(eTable)) return 1.0;
  const unsigned int count = m_uiDNENumEntries[eTable];
  const unsigned int found =
      findEntry(m_pDNETables[eTable], count, &merge_gain_t::uiDeviceIndex, uiDeviceIndex);
  return found < count ? m_pDNETables[eTable][found].dValue : 1.0;
}

unsigned int IDeviceGainTables::GetDNETableDeviceIndex(ORVAGAINTABLE eTable, unsigned int uiIndex) {
  if (!isChannel(eTable) || m_pDNETables[eTable] == nullptr || uiIndex >= m_uiDNENumEntries[eTable])
    return uiIndex;
  return m_pDNETables[eTable][uiIndex].uiDeviceIndex;
}

unsigned int IDeviceGainTables::GetDNETableNumEntries(ORVAGAINTABLE eTable) {
  return isChannel(eTable) ? m_uiDNENumEntries[eTable] : noValue;
}

int IDeviceGainTables::InitializeMergeSettings(CCameraNVMergeSettings* /*pNV*/) {
  return 0;
}

int IDeviceGainTables::MapGainTable(ORVAGAINTABLE eTable, const gain_value_t* pTable,
                                    unsigned int uiEntries) {
  if (pTable == nullptr || !isChannel(eTable)) return -1;
  auto* const sorted = new gain_value_t[uiEntries];
  CopyTable(pTable, sorted, uiEntries);
  std::stable_sort(sorted, sorted + uiEntries,
                   [](const gain_value_t& a, const gain_value_t& b) { return a.uiValue < b.uiValue; });
  m_pMappedTables[eTable] = pTable;
  m_pSortedTables[eTable] = sorted;
  m_uiNumEntries[eTable] = uiEntries;
  return 0;
}

int IDeviceGainTables::MapDNEGainTable(ORVAGAINTABLE eTable, merge_gain_t* pTable, unsigned int uiEntries) {
  if (pTable == nullptr || !isChannel(eTable)) return -1;
  m_pDNETables[eTable] = pTable;
  m_uiDNENumEntries[eTable] = uiEntries;
  return 0;
}

int IDeviceGainTables::SetGainTable(ORVAGAINTABLE eTable, const gain_value_t* pTable,
                                    unsigned int uiEntries) {
  if (pTable == nullptr || !isChannel(eTable)) return -1;
  delete[] m_pSortedTables[eTable];
  m_pSortedTables[eTable] = nullptr;
  m_pMappedTables[eTable] = nullptr;
  m_uiNumEntries[eTable] = 0;
  return MapGainTable(eTable, pTable, uiEntries);
}

void IDeviceGainTables::CopyTable(const gain_value_t* pFrom, gain_value_t* pTo, unsigned int uiEntries) {
  std::copy_n(pFrom, uiEntries, pTo);
}

void IDeviceGainTables::FreeTables() {
  for (unsigned int t = 0; t < 2; ++t) {
    delete[] m_pSortedTables[t];
    m_pSortedTables[t] = nullptr;
    m_pMappedTables[t] = nullptr;
    m_uiNumEntries[t] = 0;
  }
}
