// Where correction terms come from: made here, from buffers, from files.

#include <gtest/gtest.h>
#include <orvacam/merge/CHWMergeReferenceFrames.h>

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "TestFolder.h"
#include "merge/HandedOut.h"
#include "simulator/Header.h"
#include "support/Contains.h"

namespace {

using Frames = CHWMergeReferenceFrames;
using Bytes = std::vector<unsigned char>;

TEST(FixedPoint, HoldsIntegerAndFraction) {
  EXPECT_EQ(Frames::ConvertToFixedPoint(1.0, 10), 1024);
  EXPECT_EQ(Frames::ConvertToFixedPoint(-0.5, 3), 65532);
  EXPECT_EQ(Frames::ConvertToFixedPoint(2.75, 2), 11);
  EXPECT_EQ(Frames::ConvertToFixedPoint(2.7499, 2), 10);  // truncated
  EXPECT_EQ(Frames::ConvertToFixedPoint(65536.5, 1), 1);  // kept to 16 bits
  EXPECT_EQ(Frames::ConvertToFixedPoint(0.0, 0), 0);
}

TEST(FixedPoint, OfAnyNumberAndWidthIsDefined) {
  for (const double value : {1e300, -1e300, std::numeric_limits<double>::infinity(), std::nan(""), 1e-300})
    for (const unsigned int f : {0u, 15u, 16u, 31u, 32u, 63u, 64u, 1000u, 4000000000u}) {
      const unsigned short fixed = Frames::ConvertToFixedPoint(value, f);
      EXPECT_TRUE(std::isfinite(Frames::ConvertToDouble(fixed, f)));
    }
}

TEST(FixedPoint, ConvertsBack) {
  EXPECT_EQ(Frames::ConvertToDouble(static_cast<short>(65532), 3), -0.5);
  EXPECT_EQ(Frames::ConvertToDouble(static_cast<unsigned short>(65532), 3), 8191.5);
  EXPECT_EQ(Frames::ConvertToDouble(static_cast<short>(-32768), 3), -4096.0);
  EXPECT_EQ(Frames::ConvertToDouble(static_cast<unsigned short>(1025), 10), 1.0009765625);
  const short shorts[] = {8, -8};
  const unsigned short words[] = {1024, 512};
  std::vector<double> doubles(2);
  Frames::ConvertPixelArray(shorts, doubles.data(), 2, 3);
  EXPECT_EQ(doubles, (std::vector<double>{1.0, -1.0}));
  Frames::ConvertPixelArray(words, doubles.data(), 2, 10);
  EXPECT_EQ(doubles, (std::vector<double>{1.0, 0.5}));
  Frames::ConvertPixelArray(static_cast<const short*>(nullptr), doubles.data(), 2, 3);
  Frames::ConvertPixelArray(words, nullptr, 2, 3);
  EXPECT_EQ(doubles, (std::vector<double>{1.0, 0.5}));
}

class ReferenceFrames : public ::testing::Test {
 protected:
  /// What the terms make of two low-gain pixels.
  std::vector<int> corrected(unsigned short first, unsigned short second) {
    frames.SetMergeEnables({0, 0, 1});
    return merged({first, second}, {0, 0});
  }
  std::vector<int> merged(std::vector<unsigned short> low, std::vector<unsigned short> high) {
    unsigned short out[] = {7777, 7777};
    EXPECT_EQ(frames.MergeFrames(low.data(), high.data(), out, 2), 0);
    return {out[0], out[1]};
  }

  LogCapture log;  // first, as the others keep the log
  std::unique_ptr<Frames> owner = std::make_unique<Frames>();
  Frames& frames = *owner;
  HandedOut out;
};

TEST_F(ReferenceFrames, OfIdentityAreHandedOutInFixedPoint) {
  ASSERT_EQ(frames.CreateIdentityFrames(3, 2, &out), 0);
  EXPECT_EQ(out.uiWidth, 3u);
  EXPECT_EQ(out.uiHeight, 2u);
  EXPECT_EQ(out.additiveLow(), std::vector<int>(6, 0));
  EXPECT_EQ(out.additiveHigh(), std::vector<int>(6, 0));
  EXPECT_EQ(out.multiplicativeLow(), std::vector<int>(6, 1024));
  EXPECT_EQ(out.multiplicativeHigh(), std::vector<int>(6, 1024));
  EXPECT_TRUE(frames.IsIdentity());
}

TEST_F(ReferenceFrames, AreIdentityOnlyWhenEveryTermIs) {
  const struct {
    double addLow, addHigh, mulLow, mulHigh, addStep, mulStep;
    bool identity;
  } rows[] = {{0, 0, 1, 1, 0, 0, true},  {1, 0, 1, 1, 0, 0, false}, {0, 1, 1, 1, 0, 0, false},
              {0, 0, 2, 1, 0, 0, false}, {0, 0, 1, 2, 0, 0, false}, {0, 0, 1, 1, 1, 0, false},
              {0, 0, 1, 1, 0, 1, false}};
  for (const auto& row : rows) {
    ASSERT_EQ(frames.CreateIdentityFrames(2, 2, row.addLow, row.addHigh, row.mulLow, row.mulHigh, 3, 10,
                                          row.addStep, row.mulStep, nullptr),
              0);
    EXPECT_EQ(frames.IsIdentity(), row.identity);
    EXPECT_FALSE(frames.HasCallerFrames());
  }
}

TEST_F(ReferenceFrames, TakeTheFractionBitsThatAreGivenAndKeepThem) {
  ASSERT_EQ(frames.CreateIdentityFrames(1, 1, 4u, 12u, &out), 0);
  EXPECT_EQ(out.multiplicativeLow(), (std::vector<int>{4096}));
  EXPECT_TRUE(frames.IsIdentity());
  HandedOut next;
  ASSERT_EQ(frames.CreateIdentityFrames(1, 1, 0.5, 2.0, &next), 0);
  EXPECT_EQ(next.multiplicativeLow(), (std::vector<int>{2048}));
  EXPECT_EQ(next.multiplicativeHigh(), (std::vector<int>{8192}));
  EXPECT_FALSE(frames.IsIdentity());
  HandedOut all;
  ASSERT_EQ(frames.CreateIdentityFrames(1, 1, -1.5, 2.25, 0.5, 4.0, 2u, 1u, &all), 0);
  EXPECT_EQ(all.additiveLow(), (std::vector<int>{-6}));
  EXPECT_EQ(all.additiveHigh(), (std::vector<int>{9}));
  EXPECT_EQ(all.multiplicativeLow(), (std::vector<int>{1}));
  EXPECT_EQ(all.multiplicativeHigh(), (std::vector<int>{8}));
  HandedOut wide;
  ASSERT_EQ(frames.CreateIdentityFrames(1, 1, 4u, 16u, &wide), 0);
  EXPECT_EQ(wide.multiplicativeLow(), (std::vector<int>{0}));  // 1.0 has no room in 16 bits
}

TEST_F(ReferenceFrames, ThatWereClearedAreNobodysOwn) {
  ASSERT_EQ(frames.CreateIdentityFrames(2, 1, nullptr), 0);
  const short additive[] = {8, 16};
  ASSERT_EQ(frames.SetAdditiveHighFromBuffer(additive, 2), 0);
  frames.ClearFrames();
  EXPECT_FALSE(frames.HasCallerFrames());
  EXPECT_EQ(merged({1, 1}, {2, 2}), (std::vector<int>{2, 2}));
}

TEST_F(ReferenceFrames, WithStepsAreRampsThatStartOver) {
  // With 13 fraction bits the range ends at 2^3 - 1 = 7.
  ASSERT_EQ(frames.CreateIdentityFrames(4, 2, 1.0, -1.0, 0.0, 2.0, 13, 14, 3.0, 1.0, &out), 0);
  EXPECT_EQ(out.additiveLow(), (std::vector<int>{8192, short(32768), short(57344), 8192, short(32768),
                                                 short(57344), 8192, short(32768)}));  // 1, 4, 7, 1, ...
  EXPECT_EQ(out.additiveHigh()[0], -8192);
  EXPECT_EQ(out.additiveHigh()[1], 16384);
  // With 14 bits the range ends at 3: 0, 1, 2, 3, 0, ... and 2, 3, 2, 3, ...
  EXPECT_EQ(out.multiplicativeLow(), (std::vector<int>{0, 16384, 32768, 49152, 0, 16384, 32768, 49152}));
  EXPECT_EQ(out.multiplicativeHigh(),
            (std::vector<int>{32768, 49152, 32768, 49152, 32768, 49152, 32768, 49152}));
}

TEST_F(ReferenceFrames, OfAnAbsurdSizeFailOnlyWhenTheyMustExist) {
  EXPECT_EQ(frames.CreateIdentityFrames(0xFFFFFFFF, 0xFFFFFFFF, nullptr), 0);
  EXPECT_EQ(frames.CreateIdentityFrames(0xFFFFFFFF, 0xFFFFFFFF, &out), -1);
  EXPECT_EQ(out.pAdditiveLow, nullptr);
  EXPECT_EQ(out.uiWidth, 0u);
}

TEST_F(ReferenceFrames, AreReplacedOneByOneFromBuffers) {
  ASSERT_EQ(frames.CreateIdentityFrames(2, 1, nullptr), 0);
  const short additive[] = {8, -8};
  const unsigned short multiplicative[] = {2048, 512};
  EXPECT_EQ(frames.SetAdditiveLowFromBuffer(additive, 3), -1);
  EXPECT_EQ(frames.SetAdditiveLowFromBuffer(nullptr, 2), -1);
  EXPECT_TRUE(frames.IsIdentity());
  EXPECT_EQ(frames.SetAdditiveLowFromBuffer(additive, 2), 0);
  EXPECT_EQ(frames.SetMultiplicativeLowFromBuffer(multiplicative, 2), 0);
  EXPECT_EQ(frames.SetMultiplicativeHighFromBuffer(multiplicative, 1), -1);
  EXPECT_FALSE(frames.IsIdentity());
  EXPECT_TRUE(frames.HasCallerFrames());
  EXPECT_EQ(corrected(100, 100), (std::vector<int>{202, 50}));  // (100 + 1) x 2, (100 - 1) x 0.5 rounded
  ASSERT_EQ(frames.CreateIdentityFrames(2, 1, 40.0, 1.0, nullptr), 0);
  EXPECT_FALSE(frames.HasCallerFrames());
}

TEST_F(ReferenceFrames, KeepTheirOldTermsWhenASetFails) {
  ASSERT_EQ(frames.CreateIdentityFrames(2, 1, nullptr), 0);
  const short additive[] = {8, 16};
  ASSERT_EQ(frames.SetAdditiveLowFromBuffer(additive, 2), 0);
  EXPECT_EQ(frames.SetAdditiveLowFromBuffer(additive, 1), -1);
  EXPECT_EQ(corrected(1, 1), (std::vector<int>{2, 3}));
}

TEST_F(ReferenceFrames, AreCopiedDeeply) {
  ASSERT_EQ(frames.CreateIdentityFrames(2, 1, nullptr), 0);
  const short additive[] = {8, 16};
  ASSERT_EQ(frames.SetAdditiveLowFromBuffer(additive, 2), 0);
  frames.SetMergeThresholds(11, 12);
  frames.SetMergeEnables({4, 0, 1});
  const auto copy = std::make_unique<Frames>(frames);
  const auto assigned = std::make_unique<Frames>();
  *assigned = frames;
  frames.ClearFrames();
  for (Frames* other : {copy.get(), assigned.get()}) {
    EXPECT_TRUE(other->HasCallerFrames());
    unsigned short high = 0, difference = 0;
    other->GetMergeThresholds(high, difference);
    EXPECT_EQ(high, 11);
    unsigned short low[] = {1, 1}, zero[] = {0, 0}, out[2] = {};
    ASSERT_EQ(other->MergeFrames(low, zero, out, 2), 0);
    EXPECT_EQ(std::vector<int>(out, out + 2), (std::vector<int>{2, 3}));
  }
}

// ---- Files

class ReferenceFiles : public ReferenceFrames {
 protected:
  static Bytes header(unsigned int width, unsigned int height) {
    orvacam::simulator::HeaderFields fields;
    fields.width = width;
    fields.height = height;
    return orvacam::simulator::writeHeader(fields, 3);
  }
  static Bytes file(unsigned int width, unsigned int height, const std::vector<int>& values) {
    Bytes bytes = header(width, height);
    for (const int value : values) {
      bytes.push_back(static_cast<unsigned char>(value & 255));
      bytes.push_back(static_cast<unsigned char>(value >> 8 & 255));
    }
    return bytes;
  }

  TestFolder folder;
};

TEST_F(ReferenceFiles, BringLowThenHighTerms) {
  const std::wstring dsnu = folder.write("dsnu", file(2, 1, {-1, 2, 3, -4}));
  const std::wstring prnu = folder.write("prnu", file(2, 1, {1000, 1001, 1002, 65535}));
  ASSERT_EQ(frames.CreateReferenceFrames(dsnu.c_str(), prnu.c_str(), 6.0, 1.0, &out), 0);
  EXPECT_EQ(out.additiveLow(), (std::vector<int>{-1, 2}));
  EXPECT_EQ(out.additiveHigh(), (std::vector<int>{3, -4}));
  EXPECT_EQ(out.multiplicativeLow(), (std::vector<int>{1000, 1001}));
  EXPECT_EQ(out.multiplicativeHigh(), (std::vector<int>{1002, 65535}));
  EXPECT_TRUE(frames.HasCallerFrames());
  EXPECT_FALSE(frames.IsIdentity());
  EXPECT_TRUE(contains(log.text(), "DEBUG, CheckReferenceMetaData: DSNU File size w: 2, h: 1.\n"));
}

TEST_F(ReferenceFiles, ThatAreAbsentLeaveTheGivenTerms) {
  const std::wstring dsnu = folder.write("dsnu", file(2, 1, {-1, 2, 3, -4}));
  ASSERT_EQ(frames.CreateReferenceFrames(dsnu.c_str(), nullptr, 6.0, 1.5, &out), 0);
  EXPECT_EQ(out.multiplicativeLow(), (std::vector<int>{6144, 6144}));
  EXPECT_EQ(out.multiplicativeHigh(), (std::vector<int>{1536, 1536}));
}

TEST_F(ReferenceFiles, OfPrnuAloneAreReadFromWhereTheHeaderEnds) {
  const std::wstring prnu = folder.write("prnu", file(2, 1, {1000, 1001, 1002, 1003}));
  ASSERT_EQ(frames.CreateReferenceFrames(nullptr, prnu.c_str(), 6.0, 1.0, &out), 0);
  EXPECT_EQ(out.multiplicativeLow(), (std::vector<int>{1000, 1001}));
  EXPECT_EQ(out.multiplicativeHigh(), (std::vector<int>{1002, 1003}));
  EXPECT_EQ(out.additiveLow(), (std::vector<int>{0, 0}));
}

TEST_F(ReferenceFiles, OpenForReadingAndWritingAndStayAsTheyAre) {
  EXPECT_EQ(frames.CreateReferenceFrames(folder.path().wstring().c_str(), nullptr, 1.0, 1.0, nullptr), -1);
  EXPECT_TRUE(contains(log.text(), "Could not open DSNU File"));  // a folder opens for reading alone
  const Bytes bytes = file(2, 1, {1, 2, 3, 4});
  const std::wstring dsnu = folder.write("dsnu", bytes);
  ASSERT_EQ(frames.CreateReferenceFrames(dsnu.c_str(), dsnu.c_str(), 1.0, 1.0, nullptr), 0);
  EXPECT_EQ(folder.read("dsnu"), bytes);
}

TEST_F(ReferenceFiles, ThatFailToOpenLeaveNoOtherFramesBehind) {
  const std::wstring good = folder.write("good", file(2, 1, {8, 16, 24, 32}));
  ASSERT_EQ(frames.CreateReferenceFrames(good.c_str(), nullptr, 1.0, 1.0, nullptr), 0);
  ASSERT_TRUE(frames.HasCallerFrames());
  EXPECT_EQ(frames.CreateReferenceFrames(folder.wideFile("missing").c_str(), nullptr, 1.0, 1.0, &out), -1);
  EXPECT_FALSE(frames.HasCallerFrames());
  EXPECT_EQ(out.pAdditiveLow, nullptr);
  EXPECT_EQ(merged({1, 1}, {2, 2}), (std::vector<int>{2, 2}));
}

TEST_F(ReferenceFiles, ArePositionedAtTheirPlanesByTheCheck) {
  Bytes bytes = file(3, 2, {});
  const auto planes = static_cast<long>(bytes.size());
  bytes.resize(bytes.size() + 100);
  folder.write("both", bytes);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> dsnu(std::fopen(folder.file("both").c_str(), "rb"),
                                                             std::fclose);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> prnu(std::fopen(folder.file("both").c_str(), "rb"),
                                                             std::fclose);
  unsigned int width = 0, height = 0;
  ASSERT_EQ(frames.CheckReferenceMetaData(dsnu.get(), prnu.get(), width, height), 0);
  EXPECT_EQ(width, 3u);
  EXPECT_EQ(height, 2u);
  EXPECT_EQ(std::ftell(dsnu.get()), planes);
  EXPECT_EQ(std::ftell(prnu.get()), planes);
  width = height = 0;
  ASSERT_EQ(frames.CheckReferenceMetaData(nullptr, prnu.get(), width, height), 0);
  EXPECT_EQ(width, 3u);
  EXPECT_EQ(height, 2u);
}

TEST_F(ReferenceFiles, ThatCannotBeOpenedAreNamed) {
  const std::wstring there = folder.write("there", file(2, 1, {1, 2, 3, 4}));
  const std::wstring missing = folder.wideFile("missing");
  EXPECT_EQ(frames.CreateReferenceFrames(missing.c_str(), nullptr, 1.0, 1.0, nullptr), -1);
  EXPECT_EQ(frames.CreateReferenceFrames(there.c_str(), missing.c_str(), 1.0, 1.0, nullptr), -1);
  EXPECT_TRUE(contains(log.text(),
                       "ERROR, CreateReferenceFrames: Could not open DSNU File " + folder.file("missing")));
  EXPECT_TRUE(contains(log.text(),
                       "ERROR, CreateReferenceFrames: Could not open PRNU File " + folder.file("missing")));
}

TEST_F(ReferenceFiles, ThatDoNotParseAreRefused) {
  const std::wstring good = folder.write("good", file(2, 1, {1, 2, 3, 4}));
  const std::wstring bad = folder.write("bad", Bytes(500, 'x'));
  EXPECT_EQ(frames.CreateReferenceFrames(bad.c_str(), nullptr, 1.0, 1.0, nullptr), -1);
  EXPECT_TRUE(contains(log.text(), "ERROR, CheckReferenceMetaData: Error parsing DSNU File Meta Data\n"));
  EXPECT_EQ(frames.CreateReferenceFrames(nullptr, bad.c_str(), 1.0, 1.0, nullptr), -1);
  EXPECT_EQ(frames.CreateReferenceFrames(good.c_str(), bad.c_str(), 1.0, 1.0, nullptr), -1);
  EXPECT_TRUE(contains(log.text(), "ERROR, CheckReferenceMetaData: Error parsing PRNU File Meta Data\n"));
}

TEST_F(ReferenceFiles, OfDifferentSizesAreRefusedWithBothSizes) {
  const std::wstring dsnu = folder.write("dsnu", file(2, 1, {1, 2, 3, 4}));
  const std::wstring prnu = folder.write("prnu", file(1, 2, {1, 2, 3, 4}));
  EXPECT_EQ(frames.CreateReferenceFrames(dsnu.c_str(), prnu.c_str(), 1.0, 1.0, nullptr), -1);
  EXPECT_TRUE(contains(log.text(),
                       "ERROR, CheckReferenceMetaData: PRNU File size w: 1, h: 2 does not match DSNU "
                       "size w: 2, h: 1\n"));
  for (const Bytes& other : {file(2, 2, {1, 2, 3, 4, 5, 6, 7, 8}), file(1, 1, {1, 2})}) {
    const std::wstring name = folder.write("other", other);
    EXPECT_EQ(frames.CreateReferenceFrames(dsnu.c_str(), name.c_str(), 1.0, 1.0, nullptr), -1);
  }
}

TEST_F(ReferenceFiles, ThatAreShortGiveAFailureAndWhatTheyHold) {
  const std::wstring dsnu = folder.write("dsnu", file(2, 1, {-1, 2, 3}));
  EXPECT_EQ(frames.CreateReferenceFrames(dsnu.c_str(), nullptr, 1.0, 1.0, &out), -1);
  EXPECT_EQ(out.additiveLow(), (std::vector<int>{-1, 2}));
  EXPECT_EQ(out.additiveHigh(), (std::vector<int>{3, 0}));
}

TEST_F(ReferenceFiles, ThatAreShortAreTheCallersAllTheSame) {
  const std::wstring prnu = folder.write("prnu", file(2, 1, {2048}));
  EXPECT_EQ(frames.CreateReferenceFrames(nullptr, prnu.c_str(), 3.0, 1.0, nullptr), -1);
  EXPECT_TRUE(frames.HasCallerFrames());
  EXPECT_FALSE(frames.IsIdentity());
  EXPECT_EQ(corrected(10, 10), (std::vector<int>{20, 30}));
}

TEST_F(ReferenceFiles, OfLargeFramesMustHoldAnEighthOfThem) {
  constexpr unsigned int size = 2304;  // more than 16 MB of planes
  constexpr unsigned long eighth = 4UL * size * size / 8;
  Bytes bytes = file(size, size, {24});
  const std::size_t header = bytes.size() - 2;
  bytes.resize(header + eighth);
  const std::wstring cut = folder.write("cut", bytes);
  EXPECT_EQ(frames.CreateReferenceFrames(cut.c_str(), nullptr, 1.0, 1.0, nullptr), -1);
  EXPECT_TRUE(frames.HasCallerFrames());
  EXPECT_EQ(corrected(1, 1), (std::vector<int>{4, 1}));

  bytes.resize(header + eighth - 1);
  const std::wstring shorter = folder.write("shorter", bytes);
  EXPECT_EQ(frames.CreateReferenceFrames(shorter.c_str(), nullptr, 2.0, 1.0, nullptr), -1);
  EXPECT_FALSE(frames.HasCallerFrames());
  EXPECT_EQ(corrected(1, 1), (std::vector<int>{2, 2}));  // with the terms made before the file is read
}

TEST_F(ReferenceFiles, ThatClaimFarMoreThanTheyHoldMakeNoMemory) {
  Bytes bytes = header(65535, 65535);
  bytes.resize(2048);
  const std::wstring huge = folder.write("huge", bytes);
  EXPECT_EQ(frames.CreateReferenceFrames(huge.c_str(), nullptr, 1.0, 1.0, nullptr), -1);
  EXPECT_EQ(frames.CreateReferenceFrames(huge.c_str(), nullptr, 1.0, 1.0, &out), -1);
  EXPECT_EQ(out.pAdditiveLow, nullptr);
  EXPECT_EQ(frames.CreateReferenceFrames(nullptr, huge.c_str(), 1.0, 1.0, &out), -1);
  EXPECT_TRUE(
      contains(log.text(), "ERROR, CreateReferenceFrames: Unable to allocate memory for DSNU data\n"));
  EXPECT_TRUE(
      contains(log.text(), "ERROR, CreateReferenceFrames: Unable to allocate memory for PRNU data\n"));
}

TEST_F(ReferenceFiles, OfNeitherKindAreAMessageAndTheCurrentSize) {
  unsigned int width = 5, height = 6;
  EXPECT_EQ(frames.CheckReferenceMetaData(nullptr, nullptr, width, height), 0);
  EXPECT_EQ(width, 5u);
  EXPECT_TRUE(contains(log.text(),
                       "ERROR, CheckReferenceMetaData: Both file pointers are null.  One must be valid!\n"));
}

}  // namespace
