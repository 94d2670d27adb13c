#include <orvacam/gain/CCameraNVMergeSettings.h>
#include <orvacam/gain/CDeviceGainTablesFactory.h>
#include <orvacam/gain/CMergeSettings.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <new>

#include "gain/MergeLine.h"
#include "support/CheckedMath.h"

namespace {

using orvacam::truncated;

// Line offsets that are made from a gain ratio, at the three default temperatures.
constexpr double generatedOffsetScale[3] = {120.0, 125.0, 130.0};

/// What a calibrated record gives to a pair. Intended: all but the mapping threshold.
void takeRecord(merge_line_offsets_t& target, const merge_line_offsets_t& record) {
  std::copy_n(record.dTemperature, 3, target.dTemperature);
  target.uiMergeThreshold1 = record.uiMergeThreshold1;
  target.uiMergeThreshold2 = record.uiMergeThreshold2;
  target.dGainRatio = record.dGainRatio;
  std::copy_n(record.iLineOffset, 3, target.iLineOffset);
}

merge_line_offsets_t generatedRecord(double gainRatio) {
  merge_line_offsets_t record;
  record.dGainRatio = gainRatio;
  for (int i = 0; i < 3; ++i)
    record.iLineOffset[i] = truncated<int>(gainRatio * generatedOffsetScale[i]);
  return record;
}

/// How many of the camera's records a search by gain settings has to look at. A short block may claim tens of
/// thousands of records: those that it does not hold are all for the settings 0, and the first stands for
/// all.
unsigned int recordsToSearch(const CCameraNVMergeSettings& nv) {
  const merge_line_offsets_t* const records = nv.GetLineOffsets();
  const unsigned int all = nv.GetNumLineOffsets();
  unsigned int own = all;
  while (own > 0 && records[own - 1].uiLowGainSetting == 0 && records[own - 1].uiHighGainSetting == 0)
    --own;
  return std::min(own + 1, all);
}

/// The record of a pair of table entries: the camera's, its stand-in, or one made of a gain ratio.
void fillPair(merge_line_offsets_t& record, unsigned int low, unsigned int high, IDeviceGainTables& tables,
              const CCameraNVMergeSettings* nv, unsigned int records) {
  if (nv == nullptr) {
    takeRecord(record, generatedRecord(tables.GetDNETableGainRatio(low, high)));
  } else {
    const int found = CMergeSettings::FindCameraMergeLineOffsetIndex(
        nv->GetLineOffsets(), records, tables.GetDNETableDeviceIndex(ORVA_GAIN_TABLE_LOW_CHANNEL, low),
        tables.GetDNETableDeviceIndex(ORVA_GAIN_TABLE_HIGH_CHANNEL, high));
    if (found >= 0)
      takeRecord(record, nv->GetLineOffsets()[found]);
    else if (!nv->GetExtraLineOffsets().empty())
      takeRecord(record, nv->GetExtraLineOffsets().front());  // intended: whatever its gain settings
    else
      takeRecord(record, generatedRecord(nv->GetDefaultGainRatio()));
  }
  // Intended: table indices, not device values.
  record.uiHighGainSetting = high;
  record.uiLowGainSetting = low;
}

/// A point on the line through two points.
int lineOffset(double temperature, double t0, int o0, double t1, int o1) {
  const double slope = (static_cast<double>(o1) - o0) / (t1 - t0);
  return truncated<int>(std::fma(temperature - t0, slope, o0));
}

}  // namespace

CMergeSettings::CMergeSettings() : m_uiNumLowGains(0), m_uiNumHighGains(0) {
  DoInitialize();
}

CMergeSettings::~CMergeSettings() = default;

void CMergeSettings::DoInitialize() {
  m_dADUScale = 1.0;
  m_dGainRatio = 40.0;
  m_pGainTables = nullptr;
  m_DefaultLineOffsets = merge_line_offsets_t();
  m_DefaultLineOffsets.uiMergeThreshold1 = 15750;
  m_DefaultLineOffsets.uiMergeThreshold2 = 15580;
  std::fill_n(m_DefaultLineOffsets.iLineOffset, 3, 3500);
}

int CMergeSettings::Initialize(const gain_type_info_t& info, CCameraNVMergeSettings* pNV) {
  DoInitialize();
  if (pNV != nullptr) m_dGainRatio = pNV->GetGainRatio();
  m_pGainTables.reset(CDeviceGainTablesFactory::IDeviceGainTables_Create(info, pNV));
  if (m_pGainTables == nullptr) return 0;

  const unsigned int lowGains = m_pGainTables->GetDNETableNumEntries(ORVA_GAIN_TABLE_LOW_CHANNEL);
  const unsigned int highGains = m_pGainTables->GetDNETableNumEntries(ORVA_GAIN_TABLE_HIGH_CHANNEL);
  if (lowGains == 0 || highGains == 0 || AllocateGainOffsetPairs(lowGains, highGains) != 0) return 0;
  const unsigned int records = pNV != nullptr ? recordsToSearch(*pNV) : 0;
  for (unsigned int i = 0; i < lowGains; ++i)
    for (unsigned int j = 0; j < highGains; ++j)
      fillPair(m_ppGainOffsetPairs[i][j], i, j, *m_pGainTables, pNV, records);
  return 0;
}

double CMergeSettings::GetGainRatio(unsigned int uiLow, unsigned int uiHigh) const {
  return m_pGainTables != nullptr ? m_pGainTables->GetDNETableGainRatio(uiLow, uiHigh) : m_dGainRatio;
}

merge_line_offsets_t& CMergeSettings::GetGainOffsetPair(unsigned int uiLow, unsigned int uiHigh) {
  if (m_pGainTables == nullptr || m_ppGainOffsetPairs == nullptr) return m_DefaultLineOffsets;
  // Intended: the high gain, too, is looked up in the low-gain table.
  const unsigned int low = m_pGainTables->GetTableIndexFromDeviceIndex(ORVA_GAIN_TABLE_LOW_CHANNEL, uiLow);
  const unsigned int high = m_pGainTables->GetTableIndexFromDeviceIndex(ORVA_GAIN_TABLE_LOW_CHANNEL, uiHigh);
  if (low >= m_uiNumLowGains || high >= m_uiNumHighGains) return m_DefaultLineOffsets;
  return m_ppGainOffsetPairs[low][high];
}

double CMergeSettings::GetGainOffsetPairGainRatio(unsigned int uiLow, unsigned int uiHigh) {
  return GetGainOffsetPair(uiLow, uiHigh).dGainRatio;
}

int CMergeSettings::CalculateMergeParams(unsigned int uiLow, unsigned int uiHigh, double dTemperature,
                                         double& dGainRatio, int& iLineOffset, unsigned int& uiThreshold) {
  const merge_line_offsets_t& record = GetGainOffsetPair(uiLow, uiHigh);
  dGainRatio = record.dGainRatio;
  uiThreshold = record.uiMappingThreshold;
  const double* const t = record.dTemperature;
  const int* const o = record.iLineOffset;
  const bool first = t[2] > t[1] ? dTemperature <= t[1] : dTemperature > t[1];
  iLineOffset = first ? lineOffset(dTemperature, t[0], o[0], t[1], o[1])
                      : lineOffset(dTemperature, t[1], o[1], t[2], o[2]);
  return 0;
}

double CMergeSettings::GetADUValue(unsigned int uiHigh) const {
  if (m_pGainTables == nullptr) return 1.0;
  return m_dADUScale * m_pGainTables->GetDNETableValue(ORVA_GAIN_TABLE_HIGH_CHANNEL, uiHigh);
}

namespace orvacam {

bool makeMergeLine(CMergeSettings& settings, unsigned int bits, unsigned int low, unsigned int high,
                   double temperature, MergeLine& line) {
  constexpr unsigned int mostBits = 14;
  if (!settings.HasGainTables() || !settings.HasGainOffsetPairs() || bits > mostBits) return false;
  const unsigned int size = 1u << bits;
  line.size = size;
  line.values.assign(2UL * size, 0);

  double ratio = 0.0;
  int offset = 0;
  unsigned int threshold = 0;
  settings.CalculateMergeParams(low, high, temperature, ratio, offset, threshold);
  const double adu = settings.GetADUValue(high);
  const auto mapped = [adu](unsigned int row) {
    return static_cast<unsigned short>(truncated<unsigned int>(row * adu));
  };
  for (unsigned int row = 1; row <= threshold && row < size; ++row)
    line.values[row] = mapped(row);

  const unsigned short last = threshold == 0 ? 65535 : mapped(threshold);
  line.mergeRow = threshold == 0 ? std::min(1u, size) : threshold < size ? threshold + 1 : size;
  if (line.mergeRow >= size) return true;
  for (unsigned int column = 0; column < size; ++column) {
    const auto distance = truncated<unsigned int>(std::fabs(column * ratio - offset));
    const int value = truncated<int>(distance * adu);
    line.values[size + column] = static_cast<unsigned short>(std::min(std::max<int>(value, last), 65535));
  }
  return true;
}

}  // namespace orvacam

CMergeMappingArray* CMergeSettings::GenerateMergeMappingArrays(unsigned int uiBits, unsigned int uiLow,
                                                               unsigned int uiHigh, double dTemperature) try {
  orvacam::MergeLine line;
  if (!orvacam::makeMergeLine(*this, uiBits, uiLow, uiHigh, dTemperature, line)) return nullptr;
  m_MappingArray.Create(line.size, line.size);
  unsigned short* const data = m_MappingArray.GetData();
  if (data == nullptr) return nullptr;
  const unsigned long width = line.size;
  for (unsigned int row = 0; row < line.mergeRow; ++row)
    std::fill_n(data + row * width, width, line.values[row]);
  for (unsigned int row = line.mergeRow; row < line.size; ++row)
    std::copy_n(line.values.data() + width, width, data + row * width);
  return &m_MappingArray;
} catch (const std::exception&) {
  return nullptr;
}

int CMergeSettings::FindCameraMergeLineOffsetIndex(const merge_line_offsets_t* pRecords, unsigned int uiCount,
                                                   unsigned int uiLowDevice, unsigned int uiHighDevice) {
  for (unsigned int i = 0; pRecords != nullptr && i < uiCount; ++i)
    if (pRecords[i].uiLowGainSetting == uiLowDevice && pRecords[i].uiHighGainSetting == uiHighDevice)
      return static_cast<int>(i);
  return -1;
}

int CMergeSettings::AllocateGainOffsetPairs(unsigned int uiLowGains, unsigned int uiHighGains) {
  if (m_ppGainOffsetPairs != nullptr && m_uiNumLowGains == uiLowGains && m_uiNumHighGains == uiHighGains)
    return 0;
  FreeGainOffsetPairs();
  m_ppGainOffsetPairs.reset(new (std::nothrow) std::unique_ptr<merge_line_offsets_t[]>[uiLowGains]());
  if (m_ppGainOffsetPairs == nullptr) return -1;
  m_uiNumLowGains = uiLowGains;
  m_uiNumHighGains = uiHighGains;
  for (unsigned int i = 0; i < uiLowGains; ++i) {
    m_ppGainOffsetPairs[i].reset(new (std::nothrow) merge_line_offsets_t[uiHighGains]);
    if (m_ppGainOffsetPairs[i] == nullptr) {
      FreeGainOffsetPairs();
      return -1;
    }
  }
  return 0;
}

void CMergeSettings::FreeGainOffsetPairs() {
  m_ppGainOffsetPairs = nullptr;
  m_uiNumLowGains = 0;
  m_uiNumHighGains = 0;
}

void CMergeSettings::FreeAll() {
  FreeGainOffsetPairs();
  m_pGainTables = nullptr;
}
