#include <orvacam/gain/CCameraNVMergeSettings.h>
#include <orvacam/support/CLog.h>
#include <orvacam/support/util.h>

#include <exception>
#include <iterator>
#include <new>

#include "gain/CalibrationBlock.h"
#include "support/ByteReader.h"

using namespace orvacam::calibration;

namespace {

using orvacam::ByteReader;

constexpr unsigned int magic = 0x4D657461;  // "Meta"

constexpr double temperatureScale = 100.0;
constexpr double ratioScale = 1000.0;
constexpr double electronsScale = 10000.0;

constexpr unsigned int electronsEntrySize = 6;

/// What a merge-line record carries in each version, in the order of its bytes.
struct RecordLayout {
  bool mappingThreshold;
  bool mergeThresholds;
  bool gainRatio;
};

struct VersionLayout {
  RecordLayout array;
  RecordLayout extra;
  unsigned int extraCheckedSize;
  const wchar_t* failure;
};

// Intended: every array record is checked and deducted as 16 bytes, the size that it has in version 1, and a
// version 4 extra record as 24.
constexpr unsigned int arrayCheckedSize = 16;
constexpr VersionLayout layouts[] = {
    {{false, false, false}, {false, false, false}, 16, L"%s: Version 1 NV settings failed to parse\n"},
    {{false, false, false}, {false, false, true}, 20, L"%s: Version 2 NV settings failed to parse\n"},
    {{false, true, true}, {false, true, true}, 24, L"%s: Version 3 NV settings failed to parse\n"},
    {{true, true, true}, {true, true, true}, 24, L"%s: Version 4 NV settings failed to parse\n"},
};
static_assert(std::size(layouts) == newestVersion);

bool readUint(ByteReader& reader, unsigned int width, unsigned int& value) {
  std::uint64_t bits = 0;
  if (!reader.readUint(width, bits)) return false;
  value = static_cast<unsigned int>(bits);
  return true;
}

bool readScaled(ByteReader& reader, double scale, double& value) {
  unsigned int bits = 0;
  if (!readUint(reader, 4, bits)) return false;
  value = bits / scale;
  return true;
}

bool readInt16(ByteReader& reader, int& value) {
  std::int64_t bits = 0;
  if (!reader.readInt(2, bits)) return false;
  value = static_cast<int>(bits);
  return true;
}

/// Reads a whole record or changes nothing.
bool readRecord(ByteReader& reader, const RecordLayout& layout, merge_line_offsets_t& target) {
  ByteReader ahead = reader;
  merge_line_offsets_t record = target;
  bool whole = true;
  if (layout.mappingThreshold) whole = readUint(ahead, 2, record.uiMappingThreshold);
  if (layout.mergeThresholds)
    whole =
        whole && readUint(ahead, 2, record.uiMergeThreshold1) && readUint(ahead, 2, record.uiMergeThreshold2);
  whole =
      whole && readUint(ahead, 2, record.uiHighGainSetting) && readUint(ahead, 2, record.uiLowGainSetting);
  if (layout.gainRatio) whole = whole && readScaled(ahead, ratioScale, record.dGainRatio);
  for (int i = 0; i < 3 && whole; ++i) {
    int temperature = 0;
    whole = readInt16(ahead, temperature) && readInt16(ahead, record.iLineOffset[i]);
    record.dTemperature[i] = temperature / temperatureScale;
  }
  if (!whole) return false;
  target = record;
  reader = ahead;
  return true;
}

bool readElectrons(ByteReader& reader, unsigned int count, std::vector<electrons_per_count_t>& list) {
  for (unsigned int i = 0; i < count; ++i) {
    if (reader.remaining() < electronsEntrySize) return false;
    electrons_per_count_t entry{};
    if (!readUint(reader, 2, entry.uiGain) || !readScaled(reader, electronsScale, entry.dElectronsPerCount))
      return false;
    list.push_back(entry);
  }
  return true;
}

}  // namespace

CCameraNVMergeSettings::CCameraNVMergeSettings() : m_pLineOffsets(nullptr), m_pLog(CLog::getInstance()) {
  DoInitialize();
}

CCameraNVMergeSettings::~CCameraNVMergeSettings() {
  delete[] m_pLineOffsets;
}

void CCameraNVMergeSettings::DoInitialize() {
  m_ulReserved[0] = m_ulReserved[1] = 0;
  m_uiMagic = m_uiLength = m_uiVersion = 0;
  m_dRatio1 = m_dRatio2 = 1.1;
  m_dGainRatio = m_dDefaultGainRatio = 40.0;
  m_uiNumHighEPC = m_uiNumLowEPC = m_uiNumLineOffsets = m_uiNumExtraLineOffsets = 0;
  delete[] m_pLineOffsets;
  m_pLineOffsets = nullptr;
  m_vExtraLineOffsets.clear();
  m_vHighEPC.clear();
  m_vLowEPC.clear();
}

int CCameraNVMergeSettings::Initialize(const unsigned char* pBuffer, unsigned int uiLength) {
  DoInitialize();
  return DoParseSettings(pBuffer, uiLength);
}

/// Intended: 0, also when nothing is found.
int CCameraNVMergeSettings::DoParseSettings(const unsigned char* pBuffer, unsigned int uiLength) {
  constexpr const char* name = "DoParseSettings";
  if (pBuffer == nullptr || uiLength < smallestBlock) return 0;
  m_uiMagic = utilBufToUint32(pBuffer, false);
  m_uiLength = utilBufToUint16(pBuffer + 4, false);
  m_uiVersion = utilBufToUint16(pBuffer + 6, false);

  if (m_uiMagic != magic || m_uiVersion < 1 || m_uiVersion > newestVersion || m_uiLength < smallestBlock ||
      m_uiLength > largestBlock) {
    m_pLog->log(CLOGLEVEL_WARNING, L"%s: No NV Merge Settings detected on camera!\n", name);
    m_pLog->log(CLOGLEVEL_WARNING, L"%s:     magic= 0x%x, vers= 0x%x, length= 0x%x\n", name, m_uiMagic,
                m_uiVersion, m_uiLength);
    return 0;
  }
  m_pLog->log(CLOGLEVEL_TRACE, L"%s: NV Data: magic= 0x%x, vers= 0x%x, length= 0x%x\n", name, m_uiMagic,
              m_uiVersion, m_uiLength);
  if (uiLength < m_uiLength) return 0;
  if (DoParseBody(pBuffer + headerSize, m_uiLength - headerSize, m_uiVersion) < 0)
    m_pLog->log(CLOGLEVEL_WARNING, layouts[m_uiVersion - 1].failure, name);
  return 0;
}

int CCameraNVMergeSettings::ParseSettings1(const unsigned char* pBody, unsigned int uiLength) {
  return DoParseBody(pBody, uiLength, 1);
}
int CCameraNVMergeSettings::ParseSettings2(const unsigned char* pBody, unsigned int uiLength) {
  return DoParseBody(pBody, uiLength, 2);
}
int CCameraNVMergeSettings::ParseSettings3(const unsigned char* pBody, unsigned int uiLength) {
  return DoParseBody(pBody, uiLength, 3);
}
int CCameraNVMergeSettings::ParseSettings4(const unsigned char* pBody, unsigned int uiLength) {
  return DoParseBody(pBody, uiLength, 4);
}

int CCameraNVMergeSettings::DoParseBody(const unsigned char* pBody, unsigned int uiLength,
                                        unsigned int uiVersion) try {
  if (pBody == nullptr) return -1;
  const VersionLayout& layout = layouts[uiVersion - 1];
  ByteReader reader(pBody, uiLength);

  bool whole = readScaled(reader, ratioScale, m_dRatio1) && readScaled(reader, ratioScale, m_dRatio2) &&
               readScaled(reader, ratioScale, m_dGainRatio) &&
               readScaled(reader, ratioScale, m_dDefaultGainRatio) && readUint(reader, 2, m_uiNumHighEPC) &&
               readUint(reader, 2, m_uiNumLowEPC) && readUint(reader, 2, m_uiNumLineOffsets) &&
               readUint(reader, 2, m_uiNumExtraLineOffsets);
  whole = whole && readElectrons(reader, m_uiNumHighEPC, m_vHighEPC) &&
          readElectrons(reader, m_uiNumLowEPC, m_vLowEPC);

  if (m_uiNumLineOffsets > 0) {
    // Also after a failure: the records then hold their defaults.
    delete[] m_pLineOffsets;
    m_pLineOffsets = new (std::nothrow) merge_line_offsets_t[m_uiNumLineOffsets];
    if (m_pLineOffsets == nullptr || !whole) return -1;
  }
  // The documented checks count on from here by their own sizes; a record must be there whole besides.
  std::size_t counted = reader.remaining();
  for (unsigned int i = 0; i < m_uiNumLineOffsets; ++i, counted -= arrayCheckedSize)
    if (counted < arrayCheckedSize || !readRecord(reader, layout.array, m_pLineOffsets[i])) return -1;
  if (!whole) return -1;

  for (unsigned int i = 0; i < m_uiNumExtraLineOffsets; ++i, counted -= layout.extraCheckedSize) {
    merge_line_offsets_t record;
    if (counted < layout.extraCheckedSize || !readRecord(reader, layout.extra, record)) return -1;
    m_vExtraLineOffsets.push_back(record);
  }
  return 0;
} catch (const std::exception&) {
  return -1;
}

bool CCameraNVMergeSettings::GetNVElectronsPerCount(unsigned int uiGain, bool bHighGain,
                                                    double& dValue) const {
  return DoGetNVElectronsPerCount(uiGain, bHighGain ? m_vHighEPC : m_vLowEPC, dValue);
}

bool CCameraNVMergeSettings::DoGetNVElectronsPerCount(unsigned int uiGain,
                                                      const std::vector<electrons_per_count_t>& list,
                                                      double& dValue) const {
  for (const electrons_per_count_t& entry : list) {
    if (entry.uiGain != uiGain) continue;
    dValue = entry.dElectronsPerCount;
    return true;
  }
  return false;
}
