// The sensors' gain data, and the classes over it.

#include <orvacam/gain/CCameraNVMergeSettings.h>
#include <orvacam/gain/CGainTables.h>

#include <array>

#include "gain/SensorGains.h"

namespace {

using orvacam::ChannelGains;
using orvacam::Dne;
using orvacam::DneTables;
using orvacam::GainField;
using orvacam::SensorGains;

// ---- Tables, as the sensors number their gains

/// Entries 0 to N - 1: value first + step x i, device index i.
template <unsigned int N>
constexpr std::array<gain_value_t, N> steps(unsigned int first, unsigned int step) {
  std::array<gain_value_t, N> table{};
  for (unsigned int i = 0; i < N; ++i)
    table[i] = {first + step * i, i};
  return table;
}

constexpr std::array<gain_value_t, 8> gsense400 = {
    {{660, 0}, {1850, 1}, {2490, 2}, {3680, 3}, {1290, 4}, {3700, 5}, {4950, 6}, {7250, 7}}};
constexpr double gsense400Low[] = {47.8469, 17.3611, 12.6904, 8.6059, 24.9377, 8.8652, 6.5789, 4.8544};
constexpr double gsense400High[] = {7.5988, 2.5661, 1.7492, 1.0896, 3.7979, 1.1004, 0.8109, 0.5549};

constexpr auto gsense2020Bsi = steps<26>(1000, 500);

// Intended: 127 and 1818 break the ascending run, and the channels differ at 41.
constexpr unsigned int gsense2020FsiValues[] = {
    316,   458,   501,   684,   862,   985,   990,   1083,  1228,  127,   1364,  1777,  1943,
    2126,  2454,  2676,  1818,  2990,  3352,  3548,  3806,  3878,  4068,  4320,  4442,  4446,
    4724,  4802,  4842,  4976,  5292,  5334,  6408,  6536,  6892,  6924,  7002,  7060,  7174,
    7418,  7564,  7564,  7686,  7836,  8394,  8662,  9208,  9404,  9910,  10154, 10260, 10300,
    10658, 10816, 11082, 11630, 13558, 14620, 15132, 16180, 19674, 20680, 21180, 22180};
constexpr std::array<gain_value_t, 64> gsense2020Fsi(bool high) {
  std::array<gain_value_t, 64> table{};
  for (unsigned int i = 0; i < 64; ++i)
    table[i] = {gsense2020FsiValues[i], i};
  if (high) table[41].uiValue = 7565;
  return table;
}
constexpr auto gsense2020FsiLow = gsense2020Fsi(false);
constexpr auto gsense2020FsiHigh = gsense2020Fsi(true);

constexpr std::array<gain_value_t, 58> gsense4040Table() {
  std::array<gain_value_t, 58> table{};
  unsigned int count = 0;
  for (unsigned int d = 0; d < 64; ++d) {
    if (d % 10 == 7) continue;  // would repeat a value of the even series
    table[count++] = {d % 2 == 0 ? 1000 + 250 * d : 300 + 100 * d, d};
  }
  return table;
}
constexpr auto gsense4040 = gsense4040Table();
static_assert(gsense4040[9].uiDeviceIndex == 10 && gsense4040[8].uiValue == 1200);
static_assert(gsense4040[56].uiValue == 16500 && gsense4040[57].uiValue == 6600);

/// The same values ascending, numbered anew.
constexpr std::array<gain_value_t, 58> gsense6060Table() {
  std::array<gain_value_t, 58> table = gsense4040;
  for (unsigned int i = 1; i < table.size(); ++i)
    for (unsigned int j = i; j > 0 && table[j].uiValue < table[j - 1].uiValue; --j) {
      const gain_value_t entry = table[j];
      table[j] = table[j - 1];
      table[j - 1] = entry;
    }
  for (unsigned int i = 0; i < table.size(); ++i)
    table[i].uiDeviceIndex = i;
  return table;
}
constexpr auto gsense6060 = gsense6060Table();
static_assert(gsense6060[0].uiValue == 400 && gsense6060[38].uiValue == 7000 &&
              gsense6060[57].uiValue == 16500);

constexpr auto imx183 = steps<4>(0, 6000);
constexpr auto lumora420 = steps<481>(0, 100);
constexpr auto lumora533 = steps<7>(0, 6000);
constexpr auto unity = steps<1>(1000, 0);

// ---- Calibrated electrons per count, by device index

constexpr electrons_per_count_t curve4040[] = {{25, 18.6916}, {49, 10.0}, {63, 8.0},
                                               {50, 1.0},     {52, 4.0},  {62, 0.8194}};
constexpr electrons_per_count_t curve6060Low[] = {{3, 12.5}, {21, 3.226}, {33, 2.174}, {37, 35.714}};
constexpr electrons_per_count_t curve6060High[] = {{3, 12.5}, {21, 3.226}, {33, 2.174}, {37, 2.494}};

// ---- Sensors

constexpr GainField fieldA = {7, 18, 0x1C0000};
constexpr GainField fieldB = {7, 15, 0x38000};
constexpr GainField fieldC = {3, 14, 0xFC000};
constexpr GainField fieldD = {163, 19, 0x1F80000};

template <unsigned int N>
constexpr ChannelGains curved(const gain_value_t* table, GainField field, double electrons,
                              const electrons_per_count_t (&curve)[N]) {
  return {table, field, nullptr, electrons, curve, N};
}

constexpr SensorGains sensor(unsigned int entries, Dne dne, double ratio, ChannelGains low,
                             ChannelGains high) {
  return {entries, dne, ratio, {low, high}};
}

/// A sensor whose channels are alike.
constexpr SensorGains sensor(unsigned int entries, Dne dne, double ratio, ChannelGains both) {
  return sensor(entries, dne, ratio, both, both);
}

constexpr SensorGains sensor400 = sensor(8, Dne::Fixed, 40.0, {gsense400.data(), fieldA, gsense400Low},
                                         {gsense400.data(), fieldB, gsense400High});
constexpr SensorGains sensor2020Bsi =
    sensor(26, Dne::FromGains, 40.0, curved(gsense2020Bsi.data(), fieldC, 18.6916, curve4040),
           curved(gsense2020Bsi.data(), fieldD, 0.8194, curve4040));
constexpr SensorGains sensor2020Fsi =
    sensor(64, Dne::FromGains, 40.0, curved(gsense2020FsiLow.data(), fieldC, 18.6916, curve4040),
           curved(gsense2020FsiHigh.data(), fieldD, 0.8194, curve4040));
constexpr SensorGains sensor4040 =
    sensor(58, Dne::FromGains, 40.0, curved(gsense4040.data(), fieldC, 18.6916, curve4040),
           curved(gsense4040.data(), fieldD, 0.8194, curve4040));
constexpr SensorGains sensor6060 =
    sensor(58, Dne::FromGains, 14.32, curved(gsense6060.data(), fieldC, 12.5, curve6060Low),
           curved(gsense6060.data(), fieldD, 2.494, curve6060High));
constexpr SensorGains sensorImx183 = sensor(4, Dne::None, 1.0, {imx183.data(), {17, 24, 0x3000000}});
constexpr SensorGains sensorLumora420 =
    sensor(481, Dne::FromGains, 40.0, {lumora420.data(), {20, 0, 0xFFFFFFFF}});
constexpr SensorGains sensorLumora533 =
    sensor(7, Dne::FromGains, 40.0, {lumora533.data(), {62, 0, 0xFFFFFFFF}});
constexpr SensorGains sensorLumora571 =
    sensor(7, Dne::FromGains, 40.0, {lumora533.data(), {64, 0, 0xFFFFFFFF}});
constexpr SensorGains sensorLsgen = sensor(1, Dne::None, 1.0, {unity.data()});
constexpr SensorGains sensorGeneric =
    sensor(1, Dne::None, 1.0, {unity.data(), fieldA}, {unity.data(), fieldB});

/// The tables of what lives apart in this thread; null where nothing does.
thread_local std::shared_ptr<DneTables>* t_apart = nullptr;

/// The tables that the objects of a class share. One set per thread, so that cameras in different threads do
/// not disturb each other; an object keeps its set alive wherever it goes.
template <typename Class>
std::shared_ptr<DneTables>& tablesOf() {
  thread_local std::shared_ptr<DneTables> tables;
  return t_apart != nullptr ? *t_apart : tables;
}

}  // namespace

orvacam::GainTablesApart::GainTablesApart() {
  t_apart = &m_tables;
}

orvacam::GainTablesApart::~GainTablesApart() {
  t_apart = nullptr;
}

CGainTablesSensor::CGainTablesSensor(const SensorGains& gains, std::shared_ptr<DneTables>& tablesOfClass)
    : m_Gains(gains) {
  m_dDefaultGainRatio = gains.defaultRatio;
  if (tablesOfClass == nullptr) tablesOfClass = std::make_shared<DneTables>();
  m_pDne = tablesOfClass;
  for (unsigned int t = 0; t < 2; ++t) {
    const ChannelGains& channel = gains.channels[t];
    const auto table = static_cast<ORVAGAINTABLE>(t);
    MapGainTable(table, channel.table, gains.entries);
    if (gains.dne == Dne::None) continue;
    std::vector<merge_gain_t>& dne = m_pDne->channels[t];
    dne.resize(gains.entries);
    for (unsigned int i = 0; i < gains.entries; ++i)
      dne[i] = {gains.dne == Dne::Fixed ? channel.fixedElectrons[i] : channel.table[i].uiValue / 1000.0,
                channel.table[i].uiDeviceIndex};
    MapDNEGainTable(table, dne.data(), gains.entries);
  }
}

CGainTablesSensor::~CGainTablesSensor() = default;

int CGainTablesSensor::GetGainRegs(ORVAGAINTABLE eTable, unsigned int* pReg, unsigned int* pShift,
                                   unsigned int* pMask) {
  if (eTable > ORVA_GAIN_TABLE_HIGH_CHANNEL) return -1;
  const GainField& field = m_Gains.channels[eTable].field;
  if (field.mask == 0) return 0;
  if (pReg != nullptr) *pReg = field.reg;
  if (pShift != nullptr) *pShift = field.shift;
  if (pMask != nullptr) *pMask = field.mask;
  return 0;
}

int CGainTablesSensor::InitializeMergeSettings(CCameraNVMergeSettings* pNV) {
  for (unsigned int t = 0; t < 2; ++t) {
    const ChannelGains& channel = m_Gains.channels[t];
    if (channel.curve == nullptr) continue;
    for (unsigned int i = 0; i < m_Gains.entries; ++i) {
      const unsigned int device = channel.table[i].uiDeviceIndex;
      double electrons = channel.defaultElectrons;
      if (pNV == nullptr ||
          !pNV->GetNVElectronsPerCount(device, t == ORVA_GAIN_TABLE_HIGH_CHANNEL, electrons))
        CurveEVPerCount(device, channel.curve, channel.curveSize, electrons);
      m_pDne->channels[t][i] = {electrons, device};
    }
  }
  return 0;
}

bool CGainTablesSensor::CurveEVPerCount(unsigned int uiDeviceIndex, const electrons_per_count_t* pCurve,
                                        unsigned int uiEntries, double& dValue) const {
  if (pCurve == nullptr) return false;
  for (unsigned int i = 0; i < uiEntries; ++i) {
    if (pCurve[i].uiGain != uiDeviceIndex) continue;
    dValue = pCurve[i].dElectronsPerCount;
    return true;
  }
  return false;
}

#define ORVACAM_GAIN_TABLES(name, gains) \
  name::name() : CGainTablesSensor(gains, tablesOf<name>()) {}

ORVACAM_GAIN_TABLES(CGainTablesGSENSE400, sensor400)
ORVACAM_GAIN_TABLES(CGainTablesGSENSE2020_BSI, sensor2020Bsi)
ORVACAM_GAIN_TABLES(CGainTablesGSENSE2020_FSI, sensor2020Fsi)
ORVACAM_GAIN_TABLES(CGainTablesGSENSE4040, sensor4040)
ORVACAM_GAIN_TABLES(CGainTablesGSENSE6060, sensor6060)
ORVACAM_GAIN_TABLES(CGainTablesIMX183, sensorImx183)
ORVACAM_GAIN_TABLES(CGainTablesLumora420, sensorLumora420)
ORVACAM_GAIN_TABLES(CGainTablesLumora533, sensorLumora533)
ORVACAM_GAIN_TABLES(CGainTablesLumora571, sensorLumora571)
ORVACAM_GAIN_TABLES(CGainTablesLSGEN, sensorLsgen)
ORVACAM_GAIN_TABLES(CGainTablesGeneric, sensorGeneric)
