// Partial stacks: what comes back is what went in, and nothing that was tampered with comes back at all.

#include "files/PartialStack.h"

#include <gmock/gmock.h>

#include <cstring>
#include <random>

#include "face/FaceTesting.h"
#include "files/Sha256.h"

using namespace face_testing;
using namespace orvacam::files;
using orvacam::Frame;
using orvacam::Stack;
using testing::HasSubstr;

namespace {

/// A part of frames of these seeds, with everything that a record can hold.
PartialStack partOf(std::initializer_list<unsigned int> seeds,
                    sim::HeaderFields fields = fieldsOf("GSense400Hdr"), const char* plane = "high") {
  PartialStack part;
  part.stack.plane(plane).allow_unlike(true);
  for (const unsigned int seed : seeds) {
    fields.time.year = static_cast<int>(2000 + seed);
    const Bytes bytes = simulate(fields, 3, seed).bytes;
    const Frame frame = Frame::copy(bytes.data(), bytes.size());
    part.stack.add(frame);
    part.record.add(frame, true);
  }
  part.record.merge = MergeFacts{12.3408203125, true, 3700, 128, 0};
  part.record.bias = 95.5;
  part.record.corrections = {{"DSNU", std::string(64, 'a')}, {"BIAS", std::string(64, '0')}};
  part.record.history = {"bias frame subtracted: " + std::string(90, 'b'), "SHA-256 " + std::string(64, '0')};
  return part;
}

Bytes bytesOf(const PartialStack& part) {
  const FitsFile file = partialStackFile(part);
  const auto* const bytes = static_cast<const unsigned char*>(file.data());
  return {bytes, bytes + file.size()};
}

template <typename Pixel>
std::vector<Pixel> allOf(const orvacam::Image<Pixel>& image) {
  return {image.data(), image.data() + std::size_t{image.size().width} * image.size().height};
}

class PartialStackFile : public testing::Test {
 protected:
  /// What is said of a file of these bytes; "" when it can be read.
  std::string refusal(const Bytes& bytes) const {
    const auto path = folder.put("part.fits", bytes);
    try {
      readPartialStack(path);
    } catch (const std::exception& error) {
      return error.what();
    }
    return "";
  }
  /// The same of a file in whose first header a card was replaced, and whose checksums are right again.
  std::string refusalWith(const std::string& keyword, const std::string& value, std::size_t unit = 0) const {
    Bytes bytes = whole;
    std::size_t at = 0;
    for (std::size_t seen = 0; seen <= unit; ++seen) {
      at = findCard(bytes, at, seen == 0 ? "SIMPLE" : "XTENSION");
      if (seen < unit) at += 80;
    }
    const std::size_t card = findCard(bytes, at, keyword);
    std::string text = keyword;
    text.resize(8, ' ');
    text += "= " + value;
    text.resize(80, ' ');
    if (value.empty()) text = "COMMENT" + std::string(73, ' ');
    std::memcpy(bytes.data() + card, text.data(), 80);
    mend(bytes, at, at + 2880 * ((findCard(bytes, at, "END") - at) / 2880 + 1));
    return refusal(bytes);
  }

  static std::size_t findCard(const Bytes& bytes, std::size_t from, const std::string& keyword) {
    std::string name = keyword;
    name.resize(8, ' ');
    for (std::size_t at = from; at + 80 <= bytes.size(); at += 80)
      if (std::memcmp(bytes.data() + at, name.data(), 8) == 0) return at;
    throw std::logic_error("no card " + keyword);
  }
  /// Makes the header's change even by its CHECKSUM card's comment: the words of the unit still add up.
  void mend(Bytes& bytes, std::size_t from, std::size_t end) const {
    const std::uint32_t before = wordSum(whole.data() + from, end - from);
    const std::uint32_t now = wordSum(bytes.data() + from, end - from);
    std::uint64_t word = 0;  // in the last four bytes of the header's padding
    word = std::uint64_t{before} + 0xFFFFFFFFu - now;
    const std::size_t free = end - 4;
    std::uint32_t old = 0;
    for (int i = 0; i < 4; ++i)
      old = old << 8 | bytes[free + static_cast<std::size_t>(i)];
    std::uint64_t sum = word % 0xFFFFFFFFu + old;
    sum = (sum & 0xFFFFFFFFu) + (sum >> 32);
    for (int i = 3; i >= 0; --i, sum >>= 8)
      bytes[free + static_cast<std::size_t>(i)] = static_cast<unsigned char>(sum);
  }

  TestFolder folder;
  Bytes whole = bytesOf(partOf({1, 2, 3}));
};

}  // namespace

TEST_F(PartialStackFile, HoldsEverything) {
  const PartialStack part = partOf({1, 2, 3});
  EXPECT_EQ(refusal(whole), "");
  const PartialStack back = readPartialStack(folder.path() / "part.fits", Stack::Method::sum);
  EXPECT_EQ(back.stack.count(), 3u);
  EXPECT_EQ(back.stack.plane(), "high");
  EXPECT_EQ(allOf(back.stack.sums()), allOf(part.stack.sums()));
  EXPECT_EQ(allOf(back.stack.squares()), allOf(part.stack.squares()));
  EXPECT_EQ(back.stack.result()(0, 0), static_cast<float>(part.stack.sums()(0, 0)));
  EXPECT_EQ(back.stack.header().bytes(), part.stack.header().bytes());
  const StackRecord &a = part.record, &b = back.record;
  EXPECT_EQ(a.frames, b.frames);
  const Bytes first = simulate(
                          [] {
                            sim::HeaderFields fields = fieldsOf("GSense400Hdr");
                            fields.time.year = 2001;
                            return fields;
                          }(),
                          3, 1)
                          .bytes;
  EXPECT_EQ(b.frames[0], sha256(first.data(), first.size()));
  EXPECT_EQ(b.exposure, 300000u);
  EXPECT_TRUE(a.earliest && a.earliest == b.earliest);
  EXPECT_TRUE(a.end && a.end == b.end);
  EXPECT_TRUE(a.coldest && a.coldest == b.coldest && a.warmest == b.warmest);
  EXPECT_EQ(b.merge->ratio, a.merge->ratio);
  EXPECT_EQ(b.merge->prnu, true);
  EXPECT_EQ(b.merge->high, 3700u);
  EXPECT_EQ(b.merge->difference, 128u);
  EXPECT_EQ(b.bias, 95.5);
  EXPECT_EQ(b.corrections, a.corrections);
  EXPECT_EQ(b.history, a.history);
  EXPECT_FALSE(b.forced);
  EXPECT_EQ(bytesOf(back), whole);
}

TEST(StackRecord, EndsNoLaterThanTimesReach) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.exposure = 0xFFFFFFFF;  // twelve hours
  const auto endOf = [&](unsigned int hour) {
    fields.time = {2262, 4, 11, hour, 47, 16, 854775807};
    const Bytes bytes = simulate(fields, 3, 1).bytes;
    StackRecord record;
    record.add(Frame::copy(bytes.data(), bytes.size()), false);
    return record.end.value();
  };
  EXPECT_EQ(endOf(23), Instant::max()) << "the last time of all, and twelve hours more";
  EXPECT_EQ(endOf(11), Instant::max() - std::chrono::hours(12) + std::chrono::microseconds(42949672950));
}

TEST_F(PartialStackFile, PartsAddUpToWhatOneRunGives) {
  PartialStack sum = partOf({1, 2}), more = partOf({3, 4, 5});
  const PartialStack all = partOf({1, 2, 3, 4, 5});
  addPart(sum, more, false);
  EXPECT_EQ(bytesOf(sum), bytesOf(all));
}

TEST_F(PartialStackFile, NoFrameCountsTwice) {
  PartialStack sum = partOf({1, 2});
  const Bytes before = bytesOf(sum);
  EXPECT_THAT(
      [&] {
        addPart(sum, partOf({3, 2}), true);
      },
      testing::ThrowsMessage<std::runtime_error>(HasSubstr("it would be counted twice")));
  EXPECT_EQ(bytesOf(sum), before);
  EXPECT_EQ(refusal(bytesOf(partOf({4, 4}))), "counts a frame twice");
}

TEST_F(PartialStackFile, PartsAreAlike) {
  const auto refusalOf = [](const PartialStack& part, bool allow = false) -> std::string {
    PartialStack sum = partOf({1, 2});
    try {
      addPart(sum, part, allow);
    } catch (const std::exception& error) {
      EXPECT_EQ(sum.stack.count(), 2u);
      return error.what();
    }
    return "";
  };
  const sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  sim::HeaderFields other = fields;
  other.exposure = 7;
  EXPECT_THAT(refusalOf(partOf({3}, other)), HasSubstr("ExposureTime is 7, of the first frame 100000"));
  EXPECT_EQ(refusalOf(partOf({3}, other), true), "");
  EXPECT_THAT(refusalOf(partOf({3}, fields, "low")), HasSubstr("plane"));
  PartialStack part = partOf({3});
  part.record.corrections["DSNU"] = std::string(64, 'b');
  EXPECT_THAT(refusalOf(part, true), HasSubstr("another DSNU reference"));
  part = partOf({3});
  part.record.corrections["PRNU"] = std::string(64, 'b');
  EXPECT_THAT(refusalOf(part), HasSubstr("another PRNU reference"));
  part = partOf({3});
  part.record.merge->high = 3000;
  EXPECT_THAT(refusalOf(part), HasSubstr("thresholds 3000, 128"));
  part = partOf({3});
  part.record.forced = true;
  EXPECT_THAT(refusalOf(part), HasSubstr("--force"));
  EXPECT_EQ(refusalOf(part, true), "");
  part = partOf({3});
  part.record.warmest = *part.record.warmest + 1.5;
  EXPECT_THAT(refusalOf(part), HasSubstr("SensorChipTemp"));
}

TEST_F(PartialStackFile, EveryKeywordIsChecked) {
  EXPECT_EQ(refusalWith("PARTNUM", "                   3"), "") << "the checksum can be mended";
  const std::pair<const char*, const char*> wrong[] = {
      {"PARTVERS", "2"},      {"PARTVERS", "''"},
      {"PARTVERS", ""},       {"PARTPLAN", "'gigh'"},
      {"PARTPLAN", "7"},      {"PARTPLAN", ""},
      {"PARTNUM", "0"},       {"PARTNUM", "4"},
      {"PARTNUM", "-3"},      {"PARTNUM", "1.5"},
      {"PARTNUM", ""},        {"PARTNUM", "99999999999999999999"},
      {"PARTEXPO", "-1"},     {"PARTEXPO", "20000000000000"},
      {"PARTEXPO", ""},       {"PARTFORC", "1"},
      {"PARTFORC", ""},       {"PARTBLEV", "-1"},
      {"PARTBLEV", "70000."}, {"PARTBLEV", "'x'"},
      {"PARTBEG", "1.5"},     {"PARTEND", "'now'"},
      {"PARTTMIN", "T"},      {"PARTTMAX", "'hot'"},
      {"PARTRATI", "-2."},    {"PARTRATI", "65."},
      {"PARTMPRN", "3"},      {"PARTMPRN", ""},
      {"PARTTHRH", "65536"},  {"PARTTHRH", ""},
      {"PARTTHRD", "-1"},     {"PARTMTYP", "'x'"},
      {"PARTDSNU", "'abc'"},  {"PARTBIAS", "12"},
      {"PARTTMIN", "NAN"},    {"PARTTMAX", "INF"},
      {"NCOMBINE", "4"},      {"NCOMBINE", ""}};
  for (const auto& [keyword, value] : wrong)
    EXPECT_NE(refusalWith(keyword, value), "") << keyword << " = " << value;
  EXPECT_THAT(refusalWith("PARTVERS", ""), HasSubstr("is no partial stack"));
  EXPECT_THAT(refusalWith("PARTVERS", "2"), HasSubstr("layout 2"));
  EXPECT_THAT(refusalWith("PARTNUM", "4"), HasSubstr("FRAMES"));
  EXPECT_THAT(refusalWith("PARTFORC", ""), HasSubstr("lacks the keyword PARTFORC"));
  EXPECT_EQ(refusalWith("NCOMBINE", "2"), "its keyword NCOMBINE is 2, its keyword PARTNUM 3");
}

TEST_F(PartialStackFile, EveryUnitIsLaidOutAsItShouldBe) {
  const std::tuple<std::size_t, const char*, const char*> wrong[] = {
      {1, "BITPIX", "-64"}, {1, "NAXIS1", "25"}, {1, "NAXIS1", "4294967295"}, {1, "NAXIS1", "-24"},
      {1, "NAXIS2", "11"},  {1, "NAXIS", "3"},   {1, "EXTNAME", "'SUMSQ'"},   {2, "NAXIS1", "12"},
      {2, "PCOUNT", "5"},   {2, "GCOUNT", "2"},  {3, "NAXIS1", "383"},        {3, "NAXIS1", "100000"},
      {4, "NAXIS2", "2"},   {4, "NAXIS1", "16"}, {5, "EXTNAME", "''"},        {5, "BITPIX", "16"},
      {3, "BITPIX", "'a'"}};
  for (const auto& [unit, keyword, value] : wrong)
    EXPECT_NE(refusalWith(keyword, value, unit), "") << unit << " " << keyword << " = " << value;
}

TEST_F(PartialStackFile, AChangedBitIsNoticedWhereverItIs) {
  std::mt19937 random(11);
  for (int i = 0; i < 400; ++i) {
    Bytes bytes = whole;
    const std::size_t at = random() % bytes.size();
    bytes[at] ^= static_cast<unsigned char>(1u << random() % 8);
    EXPECT_NE(refusal(bytes), "") << "byte " << at;
  }
}

TEST_F(PartialStackFile, HostileBytesAreRefusedInWords) {
  std::mt19937 random(12);
  for (int i = 0; i < 300; ++i) {
    Bytes bytes = whole;
    const std::size_t where = random() % 2 == 0 ? 2880 * 4 : bytes.size();
    for (unsigned int changes = 1 + random() % 30; changes > 0; --changes)
      bytes[random() % where] =
          static_cast<unsigned char>(random() % 3 == 0 ? '0' + random() % 10 : random());
    if (random() % 4 == 0) bytes.resize(random() % bytes.size());
    EXPECT_NE(refusal(bytes), "");
  }
  for (std::size_t length = 0; length < whole.size(); length += 991)
    EXPECT_NE(refusal({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)}), "");
  Bytes longer = whole;
  longer.resize(longer.size() + 2880);
  EXPECT_NE(refusal(longer), "");
  EXPECT_THROW(readPartialStack(folder.path()), std::runtime_error);
  EXPECT_THROW(readPartialStack(folder.path() / "none"), std::runtime_error);
}

TEST_F(PartialStackFile, SumsThatNoFramesHaveAreRefused) {
  const std::size_t unit = findCard(whole, 0, "XTENSION");
  const std::size_t data = unit + 2880 * ((findCard(whole, unit, "END") - unit) / 2880 + 1);
  Bytes bytes = whole;
  // 3 frames of 12 bits add up to less than this; the next sum takes it back for the checksum.
  bytes[data + 3] ^= 1;
  ASSERT_NE(bytes[data + 15], 0);
  bytes[data + 15] = static_cast<unsigned char>(bytes[data + 15] - 1);
  EXPECT_THAT(refusal(bytes), HasSubstr("no 3 frames of 16 bits have these sums at pixel 0"));
}

TEST_F(PartialStackFile, NeedsADigestOfEveryFrame) {
  PartialStack part = partOf({1, 2});
  part.record.frames.pop_back();
  EXPECT_THROW(partialStackFile(part), std::runtime_error);
}
