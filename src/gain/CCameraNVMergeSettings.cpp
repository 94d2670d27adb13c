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

/// Reads fields one after the other. Once one is missing so are all that follow, and their targets stay.
class Fields {
 public:
  Fields(const unsigned char* bytes, std::size_t size) : m_reader(bytes, size) {}

  bool whole() const { return m_whole; }
  std::size_t remaining() const { return m_reader.remaining(); }

  void read(unsigned int width, unsigned int& value) {
    std::uint64_t bits = 0;
    m_whole = m_whole && m_reader.readUint(width, bits);
    if (m_whole) value = static_cast<unsigned int>(bits);
  }
  void read(double scale, double& value) {
    unsigned int bits = 0;
    read(4, bits);
    if (m_whole) value = bits / scale;
  }
  void read(int& value) {
    std::int64_t bits = 0;
    m_whole = m_whole && m_reader.readInt(2, bits);
    if (m_whole) value = static_cast<int>(bits);
  }

 private:
  ByteReader m_reader;
  bool m_whole = true;
};

/// Reads a whole record or changes nothing.
bool readRecord(Fields& fields, const RecordLayout& layout, merge_line_offsets_t& target) {
  merge_line_offsets_t record = target;
  if (layout.mappingThreshold) fields.read(2, record.uiMappingThreshold);
  if (layout.mergeThresholds) {
    fields.read(2, record.uiMergeThreshold1);
    fields.read(2, record.uiMergeThreshold2);
  }
  fields.read(2, record.uiHighGainSetting);
  fields.read(2, record.uiLowGainSetting);
  if (layout.gainRatio) fields.read(ratioScale, record.dGainRatio);
  for (int i = 0; i < 3; ++i) {
    int temperature = 0;
    fields.read(temperature);
    fields.read(record.iLineOffset[i]);
    record.dTemperature[i] = temperature / temperatureScale;
  }
  if (fields.whole()) target = record;
  return fields.whole();
}

void readElectrons(Fields& fields, unsigned int count, std::vector<electrons_per_count_t>& list) {
  for (unsigned int i = 0; i < count && fields.whole(); ++i) {
    electrons_per_count_t entry{};
    fields.read(2, entry.uiGain);
    fields.read(electronsScale, entry.dElectronsPerCount);
    if (fields.whole()) list.push_back(entry);
  }
}

/// Lets a free function at the protected members of any settings.
struct Members : CCameraNVMergeSettings {
  static int parse(CCameraNVMergeSettings& settings, const unsigned char* body, unsigned int length,
                   unsigned int version);
};

int Members::parse(CCameraNVMergeSettings& settings, const unsigned char* body, unsigned int length,
                   unsigned int version) try {
  if (body == nullptr) return -1;
  const VersionLayout& layout = layouts[version - 1];
  Fields fields(body, length);
  for (const auto ratio :
       {&Members::m_dRatio1, &Members::m_dRatio2, &Members::m_dGainRatio, &Members::m_dDefaultGainRatio})
    fields.read(ratioScale, settings.*ratio);
  for (const auto count : {&Members::m_uiNumHighEPC, &Members::m_uiNumLowEPC, &Members::m_uiNumLineOffsets,
                           &Members::m_uiNumExtraLineOffsets})
    fields.read(2, settings.*count);
  readElectrons(fields, settings.*&Members::m_uiNumHighEPC, settings.*&Members::m_vHighEPC);
  readElectrons(fields, settings.*&Members::m_uiNumLowEPC, settings.*&Members::m_vLowEPC);

  const unsigned int records = settings.*&Members::m_uiNumLineOffsets;
  std::unique_ptr<merge_line_offsets_t[]>& array = settings.*&Members::m_pLineOffsets;
  if (records > 0) {
    // Also after a failure: the records then hold their defaults.
    array = nullptr;  // before there is more
    array.reset(new (std::nothrow) merge_line_offsets_t[records]);
    if (array == nullptr) return -1;
  }
  if (!fields.whole()) return -1;
  // The documented checks count on from here by their own sizes; a record must be there whole besides.
  std::size_t counted = fields.remaining();
  for (unsigned int i = 0; i < records; ++i, counted -= arrayCheckedSize)
    if (counted < arrayCheckedSize || !readRecord(fields, layout.array, array[i])) return -1;
  const unsigned int extraRecords = settings.*&Members::m_uiNumExtraLineOffsets;
  for (unsigned int i = 0; i < extraRecords; ++i, counted -= layout.extraCheckedSize) {
    merge_line_offsets_t record;
    if (counted < layout.extraCheckedSize || !readRecord(fields, layout.extra, record)) return -1;
    (settings.*&Members::m_vExtraLineOffsets).push_back(record);
  }
  return 0;
} catch (const std::exception&) {
  return -1;
}

}  // namespace

CCameraNVMergeSettings::CCameraNVMergeSettings() : m_pLog(CLog::getInstance()) {
  DoInitialize();
}

CCameraNVMergeSettings::~CCameraNVMergeSettings() = default;

void CCameraNVMergeSettings::DoInitialize() {
  m_ulReserved[0] = m_ulReserved[1] = 0;
  m_uiMagic = m_uiLength = m_uiVersion = 0;
  m_dRatio1 = m_dRatio2 = 1.1;
  m_dGainRatio = m_dDefaultGainRatio = 40.0;
  m_uiNumHighEPC = m_uiNumLowEPC = m_uiNumLineOffsets = m_uiNumExtraLineOffsets = 0;
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
  if (Members::parse(*this, pBuffer + headerSize, m_uiLength - headerSize, m_uiVersion) < 0)
    m_pLog->log(CLOGLEVEL_WARNING, layouts[m_uiVersion - 1].failure, name);
  return 0;
}

int CCameraNVMergeSettings::ParseSettings1(const unsigned char* pBody, unsigned int uiLength) {
  return Members::parse(*this, pBody, uiLength, 1);
}
int CCameraNVMergeSettings::ParseSettings2(const unsigned char* pBody, unsigned int uiLength) {
  return Members::parse(*this, pBody, uiLength, 2);
}
int CCameraNVMergeSettings::ParseSettings3(const unsigned char* pBody, unsigned int uiLength) {
  return Members::parse(*this, pBody, uiLength, 3);
}
int CCameraNVMergeSettings::ParseSettings4(const unsigned char* pBody, unsigned int uiLength) {
  return Members::parse(*this, pBody, uiLength, 4);
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
