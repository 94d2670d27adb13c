// A frame's plan, worked out before anything is decoded, is what the frame classes then do.

#include "frames/DecodePlan.h"

#include "frames/FrameTesting.h"

namespace {

using namespace frame_testing;
using orvacam::DecodePlan;
using orvacam::Refusal;
using orvacam::StreamKind;

/// Header fields as a hostile or an odd camera sets them.
struct Geometry {
  explicit Geometry(std::mt19937& random) {
    const auto upTo = [&](unsigned int most) { return static_cast<unsigned int>(random() % (most + 1)); };
    const auto seldom = [&](unsigned int value, unsigned int otherwise) {
      return random() % 4 == 0 ? value : otherwise;
    };
    startColumn = seldom(upTo(5), 0);
    startRow = seldom(upTo(5), 0);
    stopColumn = startColumn + upTo(39);
    stopRow = startRow + upTo(11);
    if (random() % 40 == 0) std::swap(startColumn, stopColumn);
    preColumns = seldom(upTo(6), 0);
    postColumns = seldom(upTo(6), 0);
    preRows = seldom(upTo(4), 0);
    postRows = seldom(upTo(4), 0);
    horizontalBinning = seldom(upTo(4), 1);
    verticalBinning = seldom(upTo(4), 1);
    if (random() % 2 == 0) {  // even, as cameras send them
      stopColumn |= 1;
      startColumn &= ~1U;
      preColumns &= ~1U;
      postColumns &= ~1U;
    }
    if (random() % 50 == 0) stopColumn = stopRow = 65535u << upTo(16);
    if (random() % 50 == 0) (random() % 2 == 0 ? stopRow : preRows) = 0xFFFFFFFF - upTo(2);
    bits = std::array{8u, 12u, 12u, 12u, 14u, 16u, 16u, 16u}[random() % 8];
    hdr = random() % 2 == 0;
    sampled = random() % 4 == 0;
    amplifiers = random() % 3 == 0 ? 0x3Cu : upTo(0xFF);
  }

  void set(CFrameMetaData& metaData) const {
    const auto number = [&](ORVA_META_KEYS key, unsigned int value) {
      metaData.SetValue(key, std::to_string(value));
    };
    number(ORVA_META_KEY_IMAGE_START_COLUMN, startColumn);
    number(ORVA_META_KEY_IMAGE_STOP_COLUMN, stopColumn);
    number(ORVA_META_KEY_IMAGE_START_ROW, startRow);
    number(ORVA_META_KEY_IMAGE_STOP_ROW, stopRow);
    number(ORVA_META_KEY_PRE_ROW_REF_PIXELS, preColumns);
    number(ORVA_META_KEY_POST_ROW_REF_PIXELS, postColumns);
    number(ORVA_META_KEY_PRE_REFERENCE_ROWS, preRows);
    number(ORVA_META_KEY_POST_REFERENCE_ROWS, postRows);
    number(ORVA_META_KEY_HORIZONTAL_BINNING, horizontalBinning);
    number(ORVA_META_KEY_VERTICAL_BINNING, verticalBinning);
    number(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, bits);
    number(ORVA_META_KEY_HDR_MODE, hdr);
    number(ORVA_META_KEY_CORRELATED_MULTIPLE_SAMPLE, sampled);
    number(ORVA_META_KEY_SENSOR_READ_QUADRANTS, amplifiers);
  }

  unsigned int startColumn, startRow, stopColumn, stopRow, preColumns, postColumns, preRows, postRows;
  unsigned int horizontalBinning, verticalBinning, bits, amplifiers;
  bool hdr, sampled;
};

/// One frame whose pixel bytes are all ones, so that every pixel that is decoded is seen.
class Frame {
 public:
  Frame(const CFrameMetaData& metaData, const Bytes& header, std::uint64_t length) : m_metaData(metaData) {
    m_bytes.assign(length, 0xFF);
    std::copy_n(header.begin(), std::min<std::size_t>(header.size(), length), m_bytes.begin());
    m_frame.reset(CFrameFactory::Create(metaData));
    m_merge->SetMetaData(metaData);
    unsigned int width = 0, height = 0;
    metaData.GetFrameDimensionsBinned(width, height);
    // The frame's first row is that of the sensor where its image starts.
    const unsigned int start = metaData.Value(ORVA_META_KEY_IMAGE_START_ROW).GetValueUint();
    m_merge->CreateIdentityFrames(width, height + start, 1.0, 1.0, nullptr);
    initialize();
  }

  void initialize() {
    m_frame->Initialize(m_metaData, m_bytes.data(), m_bytes.size(), m_merge.get());
    images.bLowImageRequest = images.bHighImageRequest = true;
  }
  int unpack() { return m_frame->Unpack(&images); }
  int merge() { return m_frame->Merge(&images); }

  /// Whether a plane holds so many pixels and zeros behind them.
  static bool holds(const Pixels& plane, std::uint64_t pixels) {
    const auto end = plane.begin() + static_cast<std::ptrdiff_t>(pixels);
    return std::count(plane.begin(), end, 0) == 0 && std::count(end, plane.end(), 0) == plane.end() - end;
  }

  const CFrameMetaData& m_metaData;
  Bytes m_bytes;
  std::unique_ptr<CHWMergeReferenceFrames> m_merge = std::make_unique<CHWMergeReferenceFrames>();
  std::unique_ptr<IFrame> m_frame;
  Images images;
};

class Plans : public ::testing::TestWithParam<const char*> {
 protected:
  Plans() : header(sim::writeHeader(frame_testing::header(GetParam(), 12, false, 8, 4), 3)) {
    EXPECT_EQ(metaData.Parse(header.data(), static_cast<unsigned int>(header.size())), 0);
  }

  DecodePlan planOf(std::uint64_t length) const { return orvacam::makePlan(metaData, length); }

  /// What a whole frame is decoded to.
  void expectDecoded(const DecodePlan& plan) {
    Frame frame(metaData, header, plan.bytesNeeded);
    frame.images.bMergedImageRequest = true;
    ASSERT_EQ(frame.merge(), 0);
    ASSERT_EQ(frame.images.ulLowImagePixels, plan.planePixels);
    if (plan.kind == StreamKind::Quadrants) {
      // The middle row of an odd number of rows is not sent.
      const Pixels low = frame.images.low();
      EXPECT_EQ(low.size() - std::count(low.begin(), low.end(), 0), plan.streamBytes / 2);
    } else {
      EXPECT_TRUE(Frame::holds(frame.images.low(), plan.streamPixels));
    }
    const bool high = (plan.planes & orvacam::HighPlane) != 0;
    EXPECT_TRUE(Frame::holds(frame.images.high(), high ? plan.streamPixels : 0));
    EXPECT_TRUE(Frame::holds(frame.images.merged(), plan.merges ? plan.streamPixels : 0));
  }

  void expectCorrected(const DecodePlan& plan) {
    Frame frame(metaData, header, plan.bytesNeeded);
    unsigned int width = 0, height = 0;
    metaData.GetFrameDimensionsBinned(width, height);
    const Pixels bias(plan.planePixels, 1);
    ASSERT_EQ(frame.m_merge->SetBiasFrames(width, height, bias.data(), bias.data()), 0);
    ASSERT_EQ(frame.unpack(), 0);
    Frame uncorrected(metaData, header, plan.bytesNeeded);
    ASSERT_EQ(uncorrected.unpack(), 0);
    const unsigned int low = uncorrected.images.pLowImage[0], high = uncorrected.images.pHighImage[0];
    EXPECT_EQ(frame.images.pLowImage[0], low - ((plan.biased & orvacam::LowPlane) != 0 ? 1 : 0));
    if (high != 0)
      EXPECT_EQ(frame.images.pHighImage[0], high - ((plan.biased & orvacam::HighPlane) != 0 ? 1 : 0));
  }

  void expectComputed(const DecodePlan& plan, std::uint64_t length) {
    for (const bool enabled : {false, true}) {
      Frame frame(metaData, header, length);
      frame.m_frame->EnableMergeStatistics(enabled);
      frame.unpack();
      // A plane without pixels has a mean that is not a number; one that was not computed has 0.
      image_plane_stats_t low{}, high{};
      frame.m_frame->GetLowFrameStats(low);
      frame.m_frame->GetHighFrameStats(high);
      const bool any = enabled || plan.alwaysCounted;
      EXPECT_EQ(low.dMean != 0.0, any && (plan.computed & orvacam::LowPlane) != 0);
      EXPECT_EQ(high.dMean != 0.0, any && (plan.computed & orvacam::HighPlane) != 0);
    }
  }

  void check() {
    constexpr std::uint64_t most = 100000;  // bytes of a frame here
    const DecodePlan plan = planOf(std::min(planOf(0).bytesNeeded, most));
    if (plan.refusal != Refusal::None) {
      ++refused[static_cast<unsigned int>(plan.refusal)];
      // A frame that is refused is so however many bytes there are.
      const std::uint64_t length = std::min<std::uint64_t>(plan.bytesNeeded, 4000) + 500;
      EXPECT_EQ(Frame(metaData, header, length).unpack(), -1);
      // Planes that cannot be made are not computed, either.
      if (plan.refusal >= Refusal::PixelSize) expectComputed(plan, length);
      return;
    }
    ++decoded[static_cast<unsigned int>(plan.kind)];
    if (plan.bytesNeeded == 0) {  // the one row of a CCD that four amplifiers leave out
      EXPECT_EQ(Frame(metaData, header, header.size()).unpack(), 0);
      return;
    }
    ASSERT_GT(plan.bytesNeeded, plan.firstByte);
    expectDecoded(plan);
    expectCorrected(plan);
    expectComputed(plan, plan.bytesNeeded);

    Frame cut(metaData, header, plan.bytesNeeded - 1);
    const DecodePlan planOfCut = planOf(plan.bytesNeeded - 1);
    EXPECT_FALSE(planOfCut.isWhole());
    if (plan.whenShort == orvacam::WhenShort::IsLeftUncopied) {
      EXPECT_EQ(planOfCut.refusal, Refusal::None);
      EXPECT_EQ(cut.unpack(), 0);
      EXPECT_TRUE(Frame::holds(cut.images.low(), 0));
    } else {
      EXPECT_EQ(planOfCut.refusal, Refusal::SourceEnds);
      EXPECT_EQ(cut.unpack(), -1);
    }
  }

  Bytes header;
  CFrameMetaData metaData;
  std::array<unsigned int, 6> decoded{};
  std::array<unsigned int, 10> refused{};
};

const char* const models[] = {"VESTRA VS400",  "VESTRA VS2020", "VESTRA VS4040", "VESTRA VS6060",
                              "ARGENT 230-42", "VESTRA IMX183", "VESTRA PLAIN"};

INSTANTIATE_TEST_SUITE_P(Models, Plans, ::testing::ValuesIn(models), [](const auto& info) {
  std::string name = info.param;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
  return name;
});

TEST_P(Plans, SayWhatTheClassesDo) {
  constexpr unsigned int seed = 11, rounds = 2000;
  std::mt19937 random(seed);
  for (unsigned int round = 0; round < rounds && !HasFailure(); ++round) {
    const Geometry g(random);
    g.set(metaData);
    SCOPED_TRACE(::testing::Message()
                 << "round " << round << ": columns " << g.startColumn << " to " << g.stopColumn << ", rows "
                 << g.startRow << " to " << g.stopRow << ", refs " << g.preColumns << " " << g.postColumns
                 << " " << g.preRows << " " << g.postRows << ", bins " << g.horizontalBinning << " "
                 << g.verticalBinning << ", bits " << g.bits << ", hdr " << g.hdr << ", sampled " << g.sampled
                 << ", amplifiers " << g.amplifiers);
    check();
  }
  // Every way was gone, and every reason was given.
  const std::string model = GetParam();
  const auto has = [&](const char* part) { return model.find(part) != std::string::npos; };
  const auto count = [&](StreamKind kind) { return decoded[static_cast<unsigned int>(kind)]; };
  const auto refusals = [&](Refusal refusal) { return refused[static_cast<unsigned int>(refusal)]; };
  EXPECT_EQ(count(StreamKind::PackedPair) > 20, has("VS"));
  EXPECT_EQ(count(StreamKind::PackedSingle) > 20, has("VS400") || has("2020") || has("4040"));
  EXPECT_EQ(count(StreamKind::Plain16) > 20, !has("VS400") && !has("ARGENT"));
  EXPECT_EQ(count(StreamKind::Sampled13) > 20, has("2020"));
  EXPECT_EQ(count(StreamKind::Quadrants) > 20, has("ARGENT"));
  for (const Refusal always : {Refusal::NoGeometry, Refusal::PlaneTooLarge})
    EXPECT_GT(refusals(always), 2u);
  EXPECT_EQ(refusals(Refusal::ImageExceedsPlane) > 2, has("VS400"));
  EXPECT_EQ(refusals(Refusal::PixelSize) > 2, has("6060") || has("IMX183") || has("PLAIN"));
  EXPECT_EQ(refusals(Refusal::HdrOfSingleImage) > 2, has("6060"));
  EXPECT_EQ(refusals(Refusal::NoAmplifier) > 2, has("ARGENT"));
  EXPECT_EQ(refusals(Refusal::StreamExceedsPlane) > 2, has("VS") || has("ARGENT"));
}

TEST_P(Plans, RefuseWhatIsOutOfProportionToItsBytes) {
  metaData.SetDimensions(4096, 4096);
  metaData.SetValue(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, "16");
  metaData.SetValue(ORVA_META_KEY_SENSOR_READ_QUADRANTS, "60");
  constexpr std::uint64_t least = 2 * 4096 * 4096 / 64;
  EXPECT_EQ(planOf(least - 1).refusal, Refusal::OutOfProportion);
  EXPECT_NE(planOf(least).refusal, Refusal::OutOfProportion);
  EXPECT_EQ(Frame(metaData, header, least - 1).unpack(), -1);
  EXPECT_GT(planOf(least).bytesNeeded, 4096u * 4096u);  // known all the same
}

TEST_P(Plans, CountBytesFromTheHeaderOnOrBarePixels) {
  metaData.SetValue(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH, "16");
  metaData.SetValue(ORVA_META_KEY_SENSOR_READ_QUADRANTS, "32");
  const DecodePlan behind = orvacam::makePlan(metaData, 0), bare = orvacam::makePlan(metaData, 0, false);
  EXPECT_EQ(behind.firstByte, 384u);
  EXPECT_EQ(behind.bytesNeeded, 384 + behind.streamBytes);
  EXPECT_EQ(bare.bytesNeeded, bare.streamBytes + (bare.takesBarePixels ? 0 : 384));
  if (!bare.takesBarePixels || bare.refusal == Refusal::PixelSize) return;
  for (const std::uint64_t less : {0, 1}) {
    const std::unique_ptr<IFrame> frame(CFrameFactory::Create(metaData));
    Bytes pixels(bare.bytesNeeded - less, 0xFF);
    frame->Initialize(metaData, pixels.data(), pixels.size(), nullptr);
    LowImage images;
    EXPECT_EQ(frame->Unpack(&images), less == 0 ? 0 : -1);
  }
}

}  // namespace
