// The camera's stored calibration block.

#include <gtest/gtest.h>
#include <orvacam/gain/CCameraNVMergeSettings.h>

#include "TestFolder.h"
#include "gain/CalibrationBlock.h"
#include "support/Contains.h"

namespace {

using Bytes = CalibrationBlock::Bytes;

class Exposed : public CCameraNVMergeSettings {
 public:
  using CCameraNVMergeSettings::m_dRatio1;
  using CCameraNVMergeSettings::m_dRatio2;
  using CCameraNVMergeSettings::m_uiLength;
  using CCameraNVMergeSettings::m_uiMagic;
  using CCameraNVMergeSettings::m_uiNumExtraLineOffsets;
  using CCameraNVMergeSettings::m_uiNumHighEPC;
  using CCameraNVMergeSettings::m_uiNumLineOffsets;
  using CCameraNVMergeSettings::m_uiNumLowEPC;
  using CCameraNVMergeSettings::m_uiVersion;
  using CCameraNVMergeSettings::m_ulReserved;
  using CCameraNVMergeSettings::m_vHighEPC;
  using CCameraNVMergeSettings::m_vLowEPC;
};

void expectDefaults(const merge_line_offsets_t& r) {
  EXPECT_EQ(r.dTemperature[0], -10.0);
  EXPECT_EQ(r.dTemperature[1], 5.0);
  EXPECT_EQ(r.dTemperature[2], 20.0);
  EXPECT_EQ(r.uiMappingThreshold, 3800u);
  EXPECT_EQ(r.uiMergeThreshold1, 15752u);
  EXPECT_EQ(r.uiMergeThreshold2, 15670u);
  EXPECT_EQ(r.uiHighGainSetting, 0u);
  EXPECT_EQ(r.uiLowGainSetting, 0u);
  EXPECT_EQ(r.dGainRatio, 40.0);
  EXPECT_EQ(r.iLineOffset[0], 4800);
  EXPECT_EQ(r.iLineOffset[1], 5000);
  EXPECT_EQ(r.iLineOffset[2], 5200);
}

/// What a record reads as, in a version, in the array or the extra list.
void expectRecord(const merge_line_offsets_t& r, unsigned int version, bool extra, unsigned int low,
                  unsigned int high) {
  const merge_line_offsets_t sent = sampleRecord(low, high);
  EXPECT_EQ(r.uiLowGainSetting, low);
  EXPECT_EQ(r.uiHighGainSetting, high);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(r.dTemperature[i], sent.dTemperature[i]);
    EXPECT_EQ(r.iLineOffset[i], sent.iLineOffset[i]);
  }
  EXPECT_EQ(r.uiMappingThreshold, version == 4 ? 1234u : 3800u);
  EXPECT_EQ(r.uiMergeThreshold1, version >= 3 ? 111u : 15752u);
  EXPECT_EQ(r.uiMergeThreshold2, version >= 3 ? 222u : 15670u);
  EXPECT_EQ(r.dGainRatio, version >= 3 || (version == 2 && extra) ? sent.dGainRatio : 40.0);
}

CalibrationBlock sample(unsigned int version, unsigned int records = 2, unsigned int extras = 1) {
  CalibrationBlock b;
  b.ratios(1.5, 2.25, 24.0, 30.125);
  b.counts(2, 1, records, extras);
  b.electrons(5, 1.2345);
  b.electrons(5, 9.0);
  b.electrons(7, 18.6916);
  for (unsigned int i = 0; i < records; ++i)
    b.record(version, false, sampleRecord(i, i + 1));
  for (unsigned int i = 0; i < extras; ++i)
    b.record(version, true, sampleRecord(i + 20, i + 21));
  return b;
}

class EveryVersion : public ::testing::TestWithParam<unsigned int> {};
INSTANTIATE_TEST_SUITE_P(Versions, EveryVersion, ::testing::Values(1u, 2u, 3u, 4u));

TEST_P(EveryVersion, KeepsTheHeaderAndTheCountsOfTheBlock) {
  const Bytes block = sample(GetParam(), 4, 3).block(GetParam());
  Exposed nv;
  ASSERT_EQ(nv.Initialize(block.data(), block.size()), 0);
  EXPECT_EQ(nv.m_uiMagic, 0x4D657461u);
  EXPECT_EQ(nv.m_uiLength, block.size());
  EXPECT_EQ(nv.m_uiVersion, GetParam());
  EXPECT_EQ(nv.m_uiNumHighEPC, 2u);
  EXPECT_EQ(nv.m_uiNumLowEPC, 1u);
  EXPECT_EQ(nv.m_uiNumLineOffsets, 4u);
  EXPECT_EQ(nv.m_uiNumExtraLineOffsets, 3u);
  ASSERT_EQ(nv.m_vHighEPC.size(), 2u);
  EXPECT_EQ(nv.m_vHighEPC[1].uiGain, 5u);
  EXPECT_EQ(nv.m_vHighEPC[1].dElectronsPerCount, 9.0);
  EXPECT_EQ(nv.m_vLowEPC.size(), 1u);
}

TEST_P(EveryVersion, ReadsRatiosListsAndRecords) {
  const Bytes block = sample(GetParam()).block(GetParam());
  Exposed nv;
  ASSERT_EQ(nv.Initialize(block.data(), block.size()), 0);
  EXPECT_EQ(nv.m_dRatio1, 1.5);
  EXPECT_EQ(nv.m_dRatio2, 2.25);
  EXPECT_EQ(nv.GetGainRatio(), 24.0);
  EXPECT_EQ(nv.GetDefaultGainRatio(), 30.125);
  double value = 0;
  EXPECT_TRUE(nv.GetNVElectronsPerCount(5, true, value));
  EXPECT_EQ(value, 1.2345);  // the first of two
  EXPECT_TRUE(nv.GetNVElectronsPerCount(7, false, value));
  EXPECT_EQ(value, 18.6916);
  value = -1;
  EXPECT_FALSE(nv.GetNVElectronsPerCount(7, true, value));
  EXPECT_EQ(value, -1);
  ASSERT_EQ(nv.GetNumLineOffsets(), 2u);
  expectRecord(nv.GetLineOffsets()[0], GetParam(), false, 0, 1);
  expectRecord(nv.GetLineOffsets()[1], GetParam(), false, 1, 2);
  // Array records count as 16 bytes, so that well-formed blocks always pass the checks.
  ASSERT_EQ(nv.GetExtraLineOffsets().size(), 1u);
  expectRecord(nv.GetExtraLineOffsets()[0], GetParam(), true, 20, 21);
}

TEST_P(EveryVersion, ReadsExtraRecordsThatEndWithTheBlock) {
  const Bytes block = sample(GetParam(), 0, 1).block(GetParam());
  CCameraNVMergeSettings nv;
  nv.Initialize(block.data(), block.size());
  ASSERT_EQ(nv.GetExtraLineOffsets().size(), 1u);
  expectRecord(nv.GetExtraLineOffsets()[0], GetParam(), true, 20, 21);
}

TEST_P(EveryVersion, CutAtEveryLengthKeepsCompleteRecordsAndReadsNoFarther) {
  const Bytes whole = sample(GetParam()).block(GetParam());
  for (std::size_t length = 0; length < whole.size(); ++length) {
    CalibrationBlock cut = sample(GetParam());
    if (length >= 8) cut.body.resize(length - 8);
    Bytes block = cut.block(GetParam());
    if (length < 8) block.resize(length);
    const Bytes exact(block);
    Exposed nv;
    EXPECT_EQ(nv.Initialize(exact.data(), exact.size()), 0);
    const std::size_t commonEnd = 8 + 24 + 3 * 6;
    if (length >= 8 + 24) EXPECT_EQ(nv.m_uiNumHighEPC, 2u);
    if (length >= commonEnd) ASSERT_EQ(nv.GetNumLineOffsets(), 2u);
    const unsigned int size[] = {0, 16, 16, 24, 26};
    for (unsigned int i = 0; length >= commonEnd && i < 2; ++i) {
      if (length >= commonEnd + (i + 1) * size[GetParam()])
        expectRecord(nv.GetLineOffsets()[i], GetParam(), false, i, i + 1);
      else
        expectDefaults(nv.GetLineOffsets()[i]);
    }
    EXPECT_TRUE(nv.GetExtraLineOffsets().empty());
  }
}

TEST_P(EveryVersion, ReportsATruncatedBody) {
  const LogCapture log;
  CCameraNVMergeSettings nv;
  CalibrationBlock cut = sample(GetParam());
  cut.body.resize(30);
  const Bytes block = cut.block(GetParam());
  nv.Initialize(block.data(), block.size());
  EXPECT_TRUE(contains(log.text(), "WARN , DoParseSettings: Version " + std::to_string(GetParam()) +
                                       " NV settings failed to parse\n"));
  EXPECT_TRUE(contains(log.text(), "TRACE, DoParseSettings: NV Data: magic= 0x4d657461, vers= 0x" +
                                       std::to_string(GetParam()) + ", length= 0x26\n"));
}

TEST_P(EveryVersion, WithoutRecordsParsesItsRatios) {
  const LogCapture log;
  CCameraNVMergeSettings nv;
  CalibrationBlock b;
  b.ratios(1, 2, 3, 4);
  b.counts(0, 0, 0, 0);
  const Bytes block = b.block(GetParam());
  nv.Initialize(block.data(), block.size());
  EXPECT_EQ(nv.GetGainRatio(), 3.0);
  EXPECT_EQ(nv.GetNumLineOffsets(), 0u);
  EXPECT_EQ(nv.GetLineOffsets(), nullptr);
  EXPECT_FALSE(contains(log.text(), "failed"));
}

TEST_P(EveryVersion, AllocatesDefaultRecordsAlsoAfterAFailure) {
  CalibrationBlock b;
  b.ratios(1, 2, 3, 4);
  b.counts(5, 0, 3, 0);  // five entries that are not there
  const Bytes block = b.block(GetParam());
  CCameraNVMergeSettings nv;
  nv.Initialize(block.data(), block.size());
  ASSERT_EQ(nv.GetNumLineOffsets(), 3u);
  for (unsigned int i = 0; i < 3; ++i)
    expectDefaults(nv.GetLineOffsets()[i]);
}

TEST_P(EveryVersion, FailsForMissingElectronsWhateverFollows) {
  // Bytes enough for two entries and part of a third; the records that would follow are never read.
  for (const auto& [records, extras] :
       {std::pair{0u, 0u}, std::pair{1u, 0u}, std::pair{0u, 1u}, std::pair{1u, 1u}}) {
    CalibrationBlock b;
    b.ratios(1, 2, 3, 4);
    b.counts(2, 1, records, extras);
    b.electrons(5, 1.5);
    b.electrons(6, 2.5);
    b.put(4, 0);
    const Bytes block = b.block(GetParam());
    const LogCapture log;
    Exposed nv;
    EXPECT_EQ(nv.Initialize(block.data(), block.size()), 0);
    EXPECT_TRUE(contains(log.text(), "NV settings failed to parse"));
    EXPECT_EQ(nv.m_vHighEPC.size(), 2u);
    EXPECT_TRUE(nv.m_vLowEPC.empty());
    EXPECT_EQ(nv.GetNumLineOffsets(), records);
    EXPECT_TRUE(nv.GetExtraLineOffsets().empty());
  }
}

TEST_P(EveryVersion, ParsersReportNullAndTruncation) {
  CCameraNVMergeSettings nv;
  int (CCameraNVMergeSettings::*const parsers[])(const unsigned char*, unsigned int) = {
      &CCameraNVMergeSettings::ParseSettings1, &CCameraNVMergeSettings::ParseSettings2,
      &CCameraNVMergeSettings::ParseSettings3, &CCameraNVMergeSettings::ParseSettings4};
  const auto parse = parsers[GetParam() - 1];
  const Bytes body = sample(GetParam()).body;
  EXPECT_EQ((nv.*parse)(nullptr, 10), -1);
  EXPECT_EQ((nv.*parse)(body.data(), body.size()), 0);
  EXPECT_EQ((nv.*parse)(body.data(), body.size() - 1), -1);
  EXPECT_EQ((nv.*parse)(body.data(), 0), -1);
}

TEST(NVSettings, StartAndStartOverWithDefaults) {
  Exposed nv;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(nv.m_dRatio1, 1.1);
    EXPECT_EQ(nv.m_dRatio2, 1.1);
    EXPECT_EQ(nv.GetGainRatio(), 40.0);
    EXPECT_EQ(nv.GetDefaultGainRatio(), 40.0);
    EXPECT_TRUE(nv.m_vHighEPC.empty() && nv.m_vLowEPC.empty() && nv.GetExtraLineOffsets().empty());
    EXPECT_EQ(nv.GetNumLineOffsets(), 0u);
    EXPECT_EQ(nv.GetLineOffsets(), nullptr);
    EXPECT_EQ(nv.m_uiMagic + nv.m_uiLength + nv.m_uiVersion, 0u);
    EXPECT_EQ(nv.m_uiNumHighEPC + nv.m_uiNumLowEPC + nv.m_uiNumLineOffsets + nv.m_uiNumExtraLineOffsets, 0u);
    EXPECT_EQ(nv.m_ulReserved[0] | nv.m_ulReserved[1], 0u);
    if (round == 1) break;
    const Bytes block = sample(3).block(3);
    nv.Initialize(block.data(), block.size());
    EXPECT_EQ(nv.GetNumLineOffsets(), 2u);
    nv.m_ulReserved[0] = nv.m_ulReserved[1] = 7;
    nv.Initialize(nullptr, 100);
  }
}

TEST(NVSettings, ForeignBlocksAreReportedOnceWithTheirValues) {
  const LogCapture log;
  CCameraNVMergeSettings nv;
  const CalibrationBlock b = sample(3);
  std::string expected;
  const struct {
    Bytes block;
    const char* values;
  } foreign[] = {{b.block(5, 500), "magic= 0x4d657461, vers= 0x5, length= 0x1f4"},
                 {b.block(0, 500), "magic= 0x4d657461, vers= 0x0, length= 0x1f4"},
                 {b.block(3, 8), "magic= 0x4d657461, vers= 0x3, length= 0x8"},
                 {b.block(3, 1025), "magic= 0x4d657461, vers= 0x3, length= 0x401"},
                 {b.block(3, 500, 0x4D657462), "magic= 0x4d657462, vers= 0x3, length= 0x1f4"}};
  for (const auto& one : foreign) {
    EXPECT_EQ(nv.Initialize(one.block.data(), one.block.size()), 0);
    expected +=
        "WARN , DoParseSettings: No NV Merge Settings detected on camera!\nWARN , DoParseSettings:     " +
        std::string(one.values) + "\n";
    EXPECT_EQ(nv.GetGainRatio(), 40.0);
  }
  EXPECT_EQ(log.text(), expected);
}

TEST(NVSettings, Of9To1024BytesAreTaken) {
  CalibrationBlock b;
  b.ratios(1.5, 2.25, 24.0, 30.125);
  b.counts(0, 0, 0, 0);
  for (const std::size_t length : {std::size_t{9}, std::size_t{1024}}) {
    b.body.resize(length - 8);
    const Bytes block = b.block(2);
    const LogCapture log;
    CCameraNVMergeSettings nv;
    EXPECT_EQ(nv.Initialize(block.data(), block.size()), 0);
    EXPECT_TRUE(contains(log.text(), "TRACE, DoParseSettings: NV Data: "));
    EXPECT_FALSE(contains(log.text(), "No NV Merge Settings"));
    b.ratios(1.5, 2.25, 24.0, 30.125);
  }
}

TEST(NVSettings, ShorterThanTheyClaimOrThanAHeaderAreIgnoredSilently) {
  const LogCapture log;
  CCameraNVMergeSettings nv;
  const Bytes block = sample(3).block(3);
  EXPECT_EQ(nv.Initialize(block.data(), block.size() - 1), 0);
  EXPECT_EQ(nv.GetGainRatio(), 40.0);
  EXPECT_EQ(nv.Initialize(block.data(), 8), 0);
  EXPECT_EQ(nv.Initialize(nullptr, 8), 0);
  EXPECT_FALSE(contains(log.text(), "WARN"));
}

TEST(NVSettings, ExtraRecordsAreCheckedByTheirOwnSizes) {
  // Version 4: an extra record counts as 24 bytes and takes 26.
  CalibrationBlock b = sample(4, 0, 2);
  Bytes block = b.block(4);
  CCameraNVMergeSettings nv;
  nv.Initialize(block.data(), block.size());
  EXPECT_EQ(nv.GetExtraLineOffsets().size(), 2u);
  b.body.resize(b.body.size() -
                2);  // 24 bytes of the last record: enough for the check, too few for the record
  block = b.block(4);
  nv.Initialize(block.data(), block.size());
  EXPECT_EQ(nv.GetExtraLineOffsets().size(), 1u);
}

}  // namespace
