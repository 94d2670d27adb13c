// The gain tables of each sensor.

#include <gtest/gtest.h>
#include <orvacam/gain/CCameraNVMergeSettings.h>
#include <orvacam/gain/CDeviceGainTablesFactory.h>
#include <orvacam/gain/CGainTables.h>

#include <algorithm>
#include <map>
#include <memory>
#include <thread>

#include "gain/CalibrationBlock.h"
#include "support/Cameras.h"

namespace {

constexpr auto low = ORVA_GAIN_TABLE_LOW_CHANNEL;
constexpr auto high = ORVA_GAIN_TABLE_HIGH_CHANNEL;
constexpr auto neither = static_cast<ORVAGAINTABLE>(2);

std::unique_ptr<IDeviceGainTables> makeOf(unsigned int device, bool bsi = false,
                                          CCameraNVMergeSettings* nv = nullptr) {
  return std::unique_ptr<IDeviceGainTables>(
      CDeviceGainTablesFactory::IDeviceGainTables_Create({device, bsi}, nv));
}

std::unique_ptr<IDeviceGainTables> make(const char* sensor, bool bsi = false,
                                        CCameraNVMergeSettings* nv = nullptr) {
  return makeOf(cameras::of(sensor).device, bsi, nv);
}

std::vector<gain_value_t> table(IDeviceGainTables& tables, ORVAGAINTABLE channel, bool sorted = false) {
  std::vector<gain_value_t> entries(tables.GetNumEntries(channel));
  EXPECT_EQ(tables.GetTable(channel, entries.data(), entries.size(), sorted), 0);
  return entries;
}

std::vector<unsigned int> values(const std::vector<gain_value_t>& entries) {
  std::vector<unsigned int> all;
  for (const gain_value_t& entry : entries)
    all.push_back(entry.uiValue);
  return all;
}

TEST(GainTablesFactory, KnowsEveryDevice) {
  EXPECT_NE(dynamic_cast<CGainTablesGSENSE400*>(make("GSENSE400").get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesGSENSE2020_BSI*>(make("GSENSE2020", true).get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesGSENSE2020_FSI*>(make("GSENSE2020", false).get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesGSENSE4040*>(make("GSENSE4040", true).get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesGSENSE6060*>(make("GSENSE6060").get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesIMX183*>(make("IMX183").get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesLumora420*>(make("LUMORA420").get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesLumora533*>(make("LUMORA533").get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesLumora571*>(make("LUMORA571").get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesLSGEN*>(make("LSGEN").get()), nullptr);
  for (const char* other : {"CCD230-42", "CCD230-84", "CCD4320", "GENERIC"})
    EXPECT_NE(dynamic_cast<CGainTablesGeneric*>(make(other).get()), nullptr);
  EXPECT_NE(dynamic_cast<CGainTablesGeneric*>(makeOf(0xFFFFFFFF).get()), nullptr);
}

struct Row {
  const char* sensor;
  bool bsi;
  unsigned int entries, dne;
  double ratio;
  unsigned int regs[2][3];
};

const Row rows[] = {
    {"GSENSE400", false, 8, 8, 40.0, {{7, 18, 0x1C0000}, {7, 15, 0x38000}}},
    {"GSENSE2020", true, 26, 26, 40.0, {{3, 14, 0xFC000}, {163, 19, 0x1F80000}}},
    {"GSENSE2020", false, 64, 64, 40.0, {{3, 14, 0xFC000}, {163, 19, 0x1F80000}}},
    {"GSENSE4040", false, 58, 58, 40.0, {{3, 14, 0xFC000}, {163, 19, 0x1F80000}}},
    {"GSENSE6060", false, 58, 58, 14.32, {{3, 14, 0xFC000}, {163, 19, 0x1F80000}}},
    {"IMX183", false, 4, 0, 1.0, {{17, 24, 0x3000000}, {17, 24, 0x3000000}}},
    {"LUMORA420", false, 481, 481, 40.0, {{20, 0, 0xFFFFFFFF}, {20, 0, 0xFFFFFFFF}}},
    {"LUMORA533", false, 7, 7, 40.0, {{62, 0, 0xFFFFFFFF}, {62, 0, 0xFFFFFFFF}}},
    {"LUMORA571", false, 7, 7, 40.0, {{64, 0, 0xFFFFFFFF}, {64, 0, 0xFFFFFFFF}}},
    {"GENERIC", false, 1, 0, 1.0, {{7, 18, 0x1C0000}, {7, 15, 0x38000}}},
};

TEST(GainTables, HaveTheirSizesRatiosAndRegisters) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.sensor);
    const auto tables = make(row.sensor, row.bsi);
    for (const ORVAGAINTABLE channel : {low, high}) {
      EXPECT_EQ(tables->GetNumEntries(channel), row.entries);
      EXPECT_EQ(tables->GetDNETableNumEntries(channel), row.dne);
      unsigned int reg = 0, shift = 0, mask = 0;
      EXPECT_EQ(tables->GetGainRegs(channel, &reg, &shift, &mask), 0);
      EXPECT_EQ((std::vector<unsigned int>{reg, shift, mask}),
                std::vector<unsigned int>(row.regs[channel], row.regs[channel] + 3));
      EXPECT_EQ(tables->GetGainRegs(channel, nullptr, nullptr, nullptr), 0);
    }
    EXPECT_EQ(tables->GetGainRegs(neither, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(tables->GetDNETableGainRatio(5000, 5000), row.ratio);  // no such gains
  }
}

TEST(GainTables, OfTheLsgenHaveNoRegisters) {
  const auto tables = make("LSGEN");
  unsigned int reg = 9, shift = 9, mask = 9;
  EXPECT_EQ(tables->GetGainRegs(low, &reg, &shift, &mask), 0);
  EXPECT_EQ(reg + shift + mask, 27u);
  EXPECT_EQ(tables->GetGainRegs(neither, &reg, &shift, &mask), -1);
  EXPECT_EQ(tables->GetDNETableGainRatio(0, 0), 1.0);
  for (const char* sensor : {"LSGEN", "GENERIC"})
    for (const ORVAGAINTABLE channel : {low, high}) {
      const std::vector<gain_value_t> entries = table(*make(sensor), channel);
      ASSERT_EQ(entries.size(), 1u);
      EXPECT_EQ(entries[0].uiValue, 1000u);
      EXPECT_EQ(entries[0].uiDeviceIndex, 0u);
    }
}

TEST(GainTables, OfTheGsense400) {
  const auto tables = make("GSENSE400");
  EXPECT_EQ(values(table(*tables, low)),
            (std::vector<unsigned int>{660, 1850, 2490, 3680, 1290, 3700, 4950, 7250}));
  EXPECT_EQ(values(table(*tables, high, true)),
            (std::vector<unsigned int>{660, 1290, 1850, 2490, 3680, 3700, 4950, 7250}));
  const double lowElectrons[] = {47.8469, 17.3611, 12.6904, 8.6059, 24.9377, 8.8652, 6.5789, 4.8544};
  const double highElectrons[] = {7.5988, 2.5661, 1.7492, 1.0896, 3.7979, 1.1004, 0.8109, 0.5549};
  for (unsigned int i = 0; i < 8; ++i) {
    EXPECT_EQ(tables->GetDNETableValue(low, i), lowElectrons[i]);
    EXPECT_EQ(tables->GetDNETableValue(high, i), highElectrons[i]);
    EXPECT_EQ(tables->GetDNETableDeviceIndex(high, i), i);
  }
  EXPECT_EQ(tables->GetDNETableGainRatio(0, 0), 47.8469 / 7.5988);
}

TEST(GainTables, OfTheGsense4040LeaveOutTheIndicesThatRepeatAValue) {
  const auto tables = make("GSENSE4040");
  const std::vector<gain_value_t> entries = table(*tables, low);
  EXPECT_EQ(values({entries.begin(), entries.begin() + 9}),
            (std::vector<unsigned int>{1000, 400, 1500, 600, 2000, 800, 2500, 3000, 1200}));
  EXPECT_EQ(entries[56].uiValue, 16500u);
  EXPECT_EQ(entries[57].uiValue, 6600u);
  EXPECT_EQ(entries[57].uiDeviceIndex, 63u);
  std::vector<unsigned int> all = values(entries);
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
  EXPECT_EQ(tables->GetTableIndexFromDeviceIndex(low, 7), 7u);    // absent
  EXPECT_EQ(tables->GetTableIndexFromDeviceIndex(low, 57), 57u);  // absent, below 58
  EXPECT_EQ(tables->GetTableIndexFromDeviceIndex(low, 64), 57u);
  EXPECT_EQ(tables->GetTableIndexFromDeviceIndex(low, 8), 7u);
}

TEST(GainTables, OfTheGsense6060AreThoseOfThe4040Ascending) {
  std::vector<unsigned int> expected = values(table(*make("GSENSE4040"), low, true));
  const auto tables = make("GSENSE6060");
  const std::vector<gain_value_t> entries = table(*tables, high);
  EXPECT_EQ(values(entries), expected);
  for (unsigned int i = 0; i < 58; ++i)
    EXPECT_EQ(entries[i].uiDeviceIndex, i);
  EXPECT_EQ(entries[0].uiValue, 400u);
  EXPECT_EQ(entries[37].uiValue, 6600u);
  EXPECT_EQ(entries[38].uiValue, 7000u);
  EXPECT_EQ(entries[39].uiValue, 7500u);
}

TEST(GainTables, OfTheGsense2020KeepTheirUnevenValues) {
  const auto bsi = make("GSENSE2020", true);
  EXPECT_EQ(table(*bsi, low)[25].uiValue, 13500u);
  const auto fsi = make("GSENSE2020", false);
  const std::vector<unsigned int> lowValues = values(table(*fsi, low)),
                                  highValues = values(table(*fsi, high));
  std::vector<unsigned int> expected = {
      316,   458,   501,   684,   862,   985,   990,   1083,  1228,  127,   1364,  1777,  1943,
      2126,  2454,  2676,  1818,  2990,  3352,  3548,  3806,  3878,  4068,  4320,  4442,  4446,
      4724,  4802,  4842,  4976,  5292,  5334,  6408,  6536,  6892,  6924,  7002,  7060,  7174,
      7418,  7564,  7564,  7686,  7836,  8394,  8662,  9208,  9404,  9910,  10154, 10260, 10300,
      10658, 10816, 11082, 11630, 13558, 14620, 15132, 16180, 19674, 20680, 21180, 22180};
  EXPECT_EQ(lowValues, expected);
  expected[41] = 7565;
  EXPECT_EQ(highValues, expected);
  EXPECT_EQ(values(table(*fsi, low, true))[0], 127u);
}

TEST(GainTables, OfTheOtherSensorsFollowTheirSteps) {
  EXPECT_EQ(values(table(*make("IMX183"), low)), (std::vector<unsigned int>{0, 6000, 12000, 18000}));
  EXPECT_EQ(table(*make("LUMORA420"), high)[480].uiValue, 48000u);
  EXPECT_EQ(values(table(*make("LUMORA533"), low)),
            (std::vector<unsigned int>{0, 6000, 12000, 18000, 24000, 30000, 36000}));
  EXPECT_EQ(make("LUMORA571")->GetDNETableValue(low, 2), 12.0);    // the plain gain
  EXPECT_EQ(make("LUMORA571")->GetDNETableGainRatio(0, 0), 40.0);  // a high value of 0
}

TEST(GainTables, TakeElectronsFromCurvesDefaultsAndTheCamera) {
  using Curve = std::map<unsigned int, double>;
  const Curve common = {{25, 18.6916}, {49, 10.0}, {63, 8.0}, {50, 1.0}, {52, 4.0}, {62, 0.8194}};
  const Curve largeLow = {{3, 12.5}, {21, 3.226}, {33, 2.174}, {37, 35.714}};
  const Curve largeHigh = {{3, 12.5}, {21, 3.226}, {33, 2.174}, {37, 2.494}};
  const struct {
    const char* name;
    bool bsi;
    const Curve* curves[2];
    double defaults[2];
  } sensors[] = {{"GSENSE2020", true, {&common, &common}, {18.6916, 0.8194}},
                 {"GSENSE2020", false, {&common, &common}, {18.6916, 0.8194}},
                 {"GSENSE4040", false, {&common, &common}, {18.6916, 0.8194}},
                 {"GSENSE6060", false, {&largeLow, &largeHigh}, {12.5, 2.494}}};
  for (const auto& sensor : sensors) {
    const auto tables = make(sensor.name, sensor.bsi);
    for (const ORVAGAINTABLE channel : {low, high})
      for (unsigned int i = 0; i < tables->GetDNETableNumEntries(channel); ++i) {
        const unsigned int device = tables->GetDNETableDeviceIndex(channel, i);
        EXPECT_EQ(device, table(*tables, channel)[i].uiDeviceIndex);
        const auto point = sensor.curves[channel]->find(device);
        EXPECT_EQ(tables->GetDNETableValue(channel, device),
                  point == sensor.curves[channel]->end() ? sensor.defaults[channel] : point->second)
            << sensor.name << ", channel " << channel << ", " << device;
      }
  }

  CalibrationBlock b;
  b.ratios(1, 1, 1, 1);
  b.counts(1, 1, 0, 0);
  b.electrons(25, 3.5);  // high
  b.electrons(3, 7.25);  // low
  const CalibrationBlock::Bytes block = b.block(1);
  CCameraNVMergeSettings nv;
  nv.Initialize(block.data(), block.size());
  const auto plain = make("GSENSE4040");
  const auto calibrated = make("GSENSE4040", false, &nv);
  EXPECT_EQ(calibrated->GetDNETableValue(high, 25), 3.5);
  EXPECT_EQ(calibrated->GetDNETableValue(low, 25), 18.6916);
  EXPECT_EQ(calibrated->GetDNETableValue(low, 3), 7.25);
  EXPECT_EQ(calibrated->GetDNETableGainRatio(3, 25), 7.25 / 3.5);
  // The tables of a class are shared: the first object now sees the second one's values.
  EXPECT_EQ(plain->GetDNETableValue(high, 25), 3.5);
  make("GSENSE4040");
  EXPECT_EQ(calibrated->GetDNETableValue(high, 25), 18.6916);
}

TEST(GainTables, OfTwoThreadsDoNotDisturbEachOther) {
  const auto mine = make("GSENSE4040");
  std::unique_ptr<IDeviceGainTables> theirs;
  std::thread([&theirs] {
    const CalibrationBlock::Bytes block = CalibrationBlock::ofGain(0, 1.0, 99.0);
    CCameraNVMergeSettings nv;
    nv.Initialize(block.data(), block.size());
    theirs = make("GSENSE4040", false, &nv);
  }).join();
  EXPECT_EQ(mine->GetDNETableValue(low, 0), 18.6916);
  EXPECT_EQ(theirs->GetDNETableValue(low, 0), 99.0);  // also after its thread has ended
}

TEST(GainTables, FallBackForWhatTheyDoNotHave) {
  const auto tables = make("GSENSE400");
  EXPECT_EQ(tables->GetDeviceValueFromTableIndex(low, 8), 1000u);
  EXPECT_EQ(tables->GetDeviceValueFromTableIndex(neither, 0), 1000u);
  EXPECT_EQ(tables->GetDeviceValueFromTableIndex(low, 7), 7250u);
  EXPECT_EQ(tables->GetNumEntries(neither), 0xFFFFFFFFu);
  EXPECT_EQ(tables->GetDNETableNumEntries(neither), 0xFFFFFFFFu);
  EXPECT_EQ(tables->GetTableIndexFromDeviceIndex(neither, 77), 77u);
  EXPECT_EQ(tables->GetTableIndexFromDeviceValue(low, 3700), 5u);
  EXPECT_EQ(tables->GetTableIndexFromDeviceValue(low, 3701), 0u);
  EXPECT_EQ(tables->GetTableIndexFromDeviceValue(neither, 3700), 0u);
  EXPECT_EQ(tables->GetDNETableValue(neither, 0), 1.0);
  EXPECT_EQ(tables->GetDNETableValue(low, 99), 1.0);
  EXPECT_EQ(tables->GetDNETableDeviceIndex(neither, 5), 5u);
  EXPECT_EQ(tables->GetDNETableDeviceIndex(low, 8), 8u);
  EXPECT_EQ(make("GENERIC")->GetDNETableDeviceIndex(low, 3), 3u);
  EXPECT_EQ(make("GENERIC")->GetDNETableValue(low, 0), 1.0);
  EXPECT_EQ(make("GENERIC")->InitializeMergeSettings(nullptr), 0);
  gain_value_t entries[8] = {};
  EXPECT_EQ(tables->GetTable(low, entries, 7, false), -1);
  EXPECT_EQ(entries[0].uiValue, 0u);
  EXPECT_EQ(tables->GetTable(neither, entries, 8, false), -1);
  EXPECT_EQ(tables->GetTable(low, nullptr, 8, false), -1);
}

TEST(GainTables, AreReplacedByTheCallersOwn) {
  const auto tables = make("GSENSE400");
  const gain_value_t own[] = {{300, 2}, {100, 1}, {300, 0}, {200, 9}};
  EXPECT_EQ(tables->SetGainTable(low, nullptr, 4), -1);
  EXPECT_EQ(tables->SetGainTable(neither, own, 4), -1);
  EXPECT_EQ(tables->MapGainTable(low, nullptr, 4), -1);
  EXPECT_EQ(tables->MapGainTable(neither, own, 4), -1);
  EXPECT_EQ(tables->MapDNEGainTable(low, nullptr, 1), -1);
  merge_gain_t dne[] = {{-1.0, 0}, {2.0, 1}};
  EXPECT_EQ(tables->MapDNEGainTable(neither, dne, 2), -1);
  ASSERT_EQ(tables->SetGainTable(low, own, 4), 0);
  const std::vector<gain_value_t> sorted = table(*tables, low, true);
  EXPECT_EQ(values(sorted), (std::vector<unsigned int>{100, 200, 300, 300}));
  EXPECT_EQ(sorted[2].uiDeviceIndex, 2u);  // equal values keep their order
  ASSERT_EQ(tables->MapDNEGainTable(low, dne, 2), 0);
  EXPECT_EQ(tables->GetDNETableGainRatio(0, 0), 40.0);  // a negative low value
  EXPECT_EQ(tables->GetDNETableGainRatio(1, 0), 2.0 / 7.5988);
  tables->FreeTables();
  EXPECT_EQ(tables->GetNumEntries(low), 0u);
  EXPECT_EQ(tables->GetDNETableNumEntries(low), 2u);
}

/// Tables of a sensor that the library does not know, with their state in reach.
class OwnTables : public IDeviceGainTables {
 public:
  using IDeviceGainTables::m_dDefaultGainRatio;
  using IDeviceGainTables::m_pDNETables;
  using IDeviceGainTables::m_pMappedTables;
  using IDeviceGainTables::m_pSortedTables;
  using IDeviceGainTables::m_uiDNENumEntries;
  using IDeviceGainTables::m_uiNumEntries;
  int GetGainRegs(ORVAGAINTABLE, unsigned int*, unsigned int*, unsigned int*) override { return 0; }
};

TEST(OwnGainTables, StartEmpty) {
  OwnTables tables;
  EXPECT_EQ(tables.m_dDefaultGainRatio, 40.0);
  for (const ORVAGAINTABLE channel : {low, high}) {
    EXPECT_EQ(tables.m_pMappedTables[channel], nullptr);
    EXPECT_EQ(tables.m_pSortedTables[channel], nullptr);
    EXPECT_EQ(tables.m_pDNETables[channel], nullptr);
    EXPECT_EQ(tables.GetNumEntries(channel), 0u);
    EXPECT_EQ(tables.GetDNETableNumEntries(channel), 0u);
    EXPECT_EQ(tables.GetDeviceValueFromTableIndex(channel, 0), 1000u);
    EXPECT_EQ(tables.GetTableIndexFromDeviceValue(channel, 1000), 0u);
    EXPECT_EQ(tables.GetDNETableValue(channel, 0), 1.0);
    EXPECT_EQ(tables.GetDNETableDeviceIndex(channel, 6), 6u);
  }
  EXPECT_EQ(tables.GetDNETableGainRatio(0, 0), 40.0);
  EXPECT_EQ(tables.InitializeMergeSettings(nullptr), 0);
}

TEST(OwnGainTables, MapTheCallersTableAndForgetIt) {
  OwnTables tables;
  const gain_value_t own[] = {{300, 5}, {100, 6}, {200, 7}};
  merge_gain_t dne[] = {{3.0, 5}, {1.5, 6}};
  ASSERT_EQ(tables.MapGainTable(high, own, 3), 0);
  ASSERT_EQ(tables.MapDNEGainTable(low, dne, 2), 0);
  ASSERT_EQ(tables.MapDNEGainTable(high, dne, 2), 0);
  EXPECT_EQ(tables.m_pMappedTables[high], own);
  EXPECT_EQ(tables.m_pMappedTables[low], nullptr);
  EXPECT_EQ(values(table(tables, high)), (std::vector<unsigned int>{300, 100, 200}));
  EXPECT_EQ(values(table(tables, high, true)), (std::vector<unsigned int>{100, 200, 300}));
  EXPECT_EQ(tables.GetTableIndexFromDeviceIndex(high, 7), 2u);
  EXPECT_EQ(tables.GetTableIndexFromDeviceIndex(high, 2), 2u);  // absent, below the count
  EXPECT_EQ(tables.GetTableIndexFromDeviceIndex(high, 3), 2u);  // absent: the last position
  EXPECT_EQ(tables.GetTableIndexFromDeviceIndex(high, 4), 2u);
  EXPECT_EQ(tables.GetDNETableGainRatio(5, 6), 2.0);
  EXPECT_EQ(tables.GetDNETableGainRatio(5, 7), 40.0);
  EXPECT_EQ(tables.GetDNETableGainRatio(7, 5), 40.0);
  dne[0].dValue = 0.0;
  EXPECT_EQ(tables.GetDNETableGainRatio(5, 6), 0.0);   // a low value of 0 has a ratio
  EXPECT_EQ(tables.GetDNETableGainRatio(6, 5), 40.0);  // a high value of 0 has none
  tables.FreeTables();
  EXPECT_EQ(tables.m_pMappedTables[high], nullptr);
  EXPECT_EQ(tables.m_pSortedTables[high], nullptr);
  EXPECT_EQ(tables.m_uiNumEntries[high], 0u);
  EXPECT_EQ(tables.m_pDNETables[high], dne);
  EXPECT_EQ(tables.m_uiDNENumEntries[high], 2u);
}

TEST(OwnGainTables, AreCopiedEntryByEntry) {
  const gain_value_t from[] = {{1, 2}, {3, 4}, {5, 6}};
  gain_value_t to[3] = {{9, 9}, {9, 9}, {9, 9}};
  IDeviceGainTables::CopyTable(from, to, 2);
  EXPECT_EQ(values({to, to + 3}), (std::vector<unsigned int>{1, 3, 9}));
  EXPECT_EQ(to[1].uiDeviceIndex, 4u);
}

TEST(GainTables, CurvesGiveTheirFirstFittingPoint) {
  const CGainTablesGSENSE400 tables;
  const electrons_per_count_t curve[] = {{3, 1.5}, {3, 2.5}};
  double value = 9;
  EXPECT_TRUE(tables.CurveEVPerCount(3, curve, 2, value));
  EXPECT_EQ(value, 1.5);
  EXPECT_FALSE(tables.CurveEVPerCount(4, curve, 2, value));
  EXPECT_FALSE(tables.CurveEVPerCount(3, nullptr, 2, value));
  EXPECT_FALSE(tables.CurveEVPerCount(3, curve, 0, value));
  EXPECT_EQ(value, 1.5);
}

}  // namespace
