// Stacks: means and sums of frames.

#include <cmath>

#include "face/FaceTesting.h"
#include "support/Contains.h"

using namespace face_testing;
using orvacam::Decoder;
using orvacam::Frame;
using orvacam::Plane;
using orvacam::Stack;

namespace {

Frame seeded(const sim::HeaderFields& fields, unsigned int seed, unsigned int version = 3) {
  return copied(simulate(fields, version, seed).bytes);
}

std::string mismatchOf(Stack& stack, const Frame& frame) {
  const std::uint64_t before = stack.count();
  const auto error = errorOf([&] { stack.add(frame); });
  EXPECT_EQ(error.reason(), Reason::mismatch);
  EXPECT_EQ(stack.count(), before);
  return error.what();
}

}  // namespace

ORVACAM_OF_EVERY_MODE(FaceStackOf);

TEST_P(FaceStackOf, MeansAreExactAndTruncatedAsTheLibrarysStackerDoes) {
  Stack stack;
  CStacker stacker;
  std::vector<std::uint64_t> sums(240), squares(240);
  ASSERT_EQ(stacker.Initialize(240), 0);
  for (unsigned int seed = 1; seed <= 7; ++seed) {
    const Frame frame = seeded(fieldsOf(mode), seed);
    const auto decoded = Decoder().decode(frame);
    const Plane& plane = planes.size() == 3   ? decoded.merged
                         : planes.size() == 2 ? decoded.low
                                              : decoded.image;
    const std::vector<std::uint16_t> pixels = pixelsOf(plane);
    stacker.StackNextFrame(pixels.data(), pixels.size());
    for (std::size_t i = 0; i < pixels.size(); ++i) {
      sums[i] += pixels[i];
      squares[i] += std::uint64_t{pixels[i]} * pixels[i];
    }
    stack.add(frame);
  }
  EXPECT_EQ(stack.count(), 7u);
  unsigned short* mean = nullptr;
  unsigned int pixels = 0;
  stacker.Finish(&mean, nullptr, &pixels);
  EXPECT_EQ(pixelsOf(stack.result_u16()), std::vector<std::uint16_t>(mean, mean + pixels));
  const auto result = stack.result();
  for (std::size_t i = 0; i < sums.size(); ++i) {
    EXPECT_EQ(stack.sums().data()[i], sums[i]);
    EXPECT_EQ(stack.squares().data()[i], squares[i]);
    EXPECT_EQ(result.data()[i], static_cast<float>(static_cast<long double>(sums[i]) / 7));
  }
  const Plane stacked = stack.result_u16();
  const orvacam::Header& header = stacked.header();
  EXPECT_EQ(header.number("TestIsStackedFrame"), 1);
  EXPECT_EQ(header.number("DataPixelBitDepth"), 16);
  EXPECT_EQ(header.number("TestIsMergedFrame"), planes.size() == 3);
}

TEST(FaceStack, GoesOnAfterAResult) {
  Stack stack;
  const sim::HeaderFields fields = fieldsOf("Imx183");
  stack.add(seeded(fields, 1));
  const auto one = pixelsOf(stack.result_u16());
  stack.add(seeded(fields, 2));
  EXPECT_EQ(stack.count(), 2u);
  EXPECT_NE(pixelsOf(stack.result_u16()), one);
  EXPECT_EQ(stack.result()(0, 0) * 2, static_cast<float>(stack.sums()(0, 0)));
}

TEST(FaceStack, SumsAreSums) {
  Stack stack(Stack::Method::sum);
  const sim::HeaderFields fields = fieldsOf("Imx183");
  for (unsigned int seed = 1; seed <= 3; ++seed)
    stack.add(seeded(fields, seed));
  EXPECT_EQ(stack.result()(3, 3), static_cast<float>(stack.sums()(3, 3)));
  EXPECT_EQ(reasonOf([&] { stack.result_u16(); }), Reason::bad_argument);
}

TEST(FaceStack, MeansAreRoundedOnce) {
  const sim::HeaderFields fields = fieldsOf(modeNamed("Imx183"), 1, 1);
  const auto meanOf = [&](std::uint64_t sum, std::uint64_t count) {
    const std::uint64_t square = sum * 65535;
    const Stack stack =
        Stack::from_sums(frameOf(fields).header(), count, orvacam::Image<std::uint64_t>::copy({1, 1}, &sum),
                         orvacam::Image<std::uint64_t>::copy({1, 1}, &square));
    return stack.result()(0, 0);
  };
  EXPECT_EQ(meanOf(3 * 65535, 3), 65535.0f);
  // Floats near 40000 are 1/256 apart. These means lie beside the middle between two of them by so little
  // that a double does not hold it: rounded to double first, they would go to the even float.
  const std::uint64_t count = (1u << 29) + 511;  // -1 modulo 512
  EXPECT_EQ(meanOf(((512 * 40000 + 1) * count + 1) / 512, count), 40000 + 1.0f / 256)
      << "above 40000 + 1/512";
  EXPECT_EQ(meanOf(((512 * 40000 + 511) * count - 1) / 512, count), 40001 - 1.0f / 256)
      << "below 40001 - 1/512";
  EXPECT_EQ(meanOf((512 * 40000 + 1) * 16, 512 * 16), 40000.0f) << "just 40000 + 1/512: to even";
  unsigned int state = 5;
  for (int i = 0; i < 20000; ++i) {
    state = state * 1664525u + 1013904223u;
    const std::uint64_t n = 1 + state % 1000003;
    state = state * 1664525u + 1013904223u;
    const std::uint64_t s = (std::uint64_t{state} << 4) % (65535 * n);
    const std::uint64_t q = s * 65535;
    const Stack some =
        Stack::from_sums(frameOf(fields).header(), n, orvacam::Image<std::uint64_t>::copy({1, 1}, &s),
                         orvacam::Image<std::uint64_t>::copy({1, 1}, &q));
    const float mean = some.result()(0, 0);
    // The nearest float: no neighbour is nearer, in exact arithmetic of 128 bits.
    const auto distance = [&](float f) {
      const auto scaled =
          static_cast<__int128>(std::ldexp(static_cast<long double>(f), 40)) * static_cast<__int128>(n);
      const auto exact = static_cast<__int128>(s) << 40;
      return scaled > exact ? scaled - exact : exact - scaled;
    };
    ASSERT_LE(distance(mean), distance(std::nextafter(mean, 1e9f))) << s << " / " << n;
    ASSERT_LE(distance(mean), distance(std::nextafter(mean, -1e9f))) << s << " / " << n;
    if (i > 400 && HasFatalFailure()) break;
  }
}

TEST(FaceStack, OtherMethodsAreRefused) {
  for (const auto method : {static_cast<Stack::Method>(-1), static_cast<Stack::Method>(77)})
    EXPECT_EQ(reasonOf([&] { Stack stack(method); }), Reason::bad_argument);
}

constexpr Stack::Method selecting[] = {Stack::Method::median, Stack::Method::minimum, Stack::Method::maximum,
                                       Stack::Method::sigma_clip, Stack::Method::winsorized};

TEST(FaceStack, SelectsPixelByPixelInThePlaneThatIsStacked) {
  for (const auto method : selecting) {
    Stack stack(method);
    stack.sigma(1, 1.25);
    std::vector<Plane> planes;
    std::vector<const std::uint16_t*> rows;
    for (unsigned int seed = 1; seed <= 9; ++seed) {
      const Frame frame = seeded(fieldsOf("GSense400Hdr"), seed);
      stack.add(frame);
      planes.push_back(Decoder().decode(frame).merged);
      rows.push_back(planes.back().data());
    }
    std::vector<double> expected(240);
    combine(orvacam::Combining{method, 1, 1.25}, rows, 240, {expected.data(), nullptr, nullptr});
    const auto doubles = stack.result_f64();
    const auto floats = stack.result();
    const Plane cut = stack.result_u16();
    for (std::size_t i = 0; i < 240; ++i) {
      EXPECT_EQ(doubles.data()[i], expected[i]);
      EXPECT_EQ(floats.data()[i], static_cast<float>(expected[i]));
      EXPECT_EQ(cut.data()[i], std::floor(expected[i]));
    }
    EXPECT_EQ(cut.header().number("TestIsStackedFrame"), 1);
    EXPECT_EQ(stack.plane(), "merged");
    EXPECT_EQ(reasonOf([&] { stack.sums(); }), Reason::bad_argument);
    EXPECT_EQ(reasonOf([&] { stack.squares(); }), Reason::bad_argument);
  }
}

TEST(FaceStack, SelectsFromPartsWhatOneRunGives) {
  for (const auto method : selecting) {
    Stack all(method), one(method), two(method), nothing(method);
    for (unsigned int seed = 1; seed <= 7; ++seed) {
      const Frame frame = seeded(fieldsOf("Imx183"), seed);
      all.add(frame);
      (seed <= 3 ? one : two).add(frame);
    }
    one.merge(two);
    nothing.merge(one);
    nothing.merge(Stack(method));
    EXPECT_EQ(nothing.count(), 7u);
    const auto expected = all.result_f64(), result = nothing.result_f64();
    EXPECT_TRUE(std::equal(expected.data(), expected.data() + 240, result.data()));
    one.merge(one);
    EXPECT_EQ(one.count(), 14u);
  }
}

TEST(FaceStack, LimitsOfClippingAreAboveZeroAndMadeBeforeTheFirstFrame) {
  Stack stack(Stack::Method::sigma_clip);
  EXPECT_EQ(reasonOf([&] { stack.sigma(0, 3); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { stack.sigma(3, std::nan("")); }), Reason::bad_argument);
  stack.sigma(0.5, 100).add(frameOf(fieldsOf("Imx183")));
  EXPECT_EQ(reasonOf([&] { stack.sigma(3, 3); }), Reason::bad_argument);
}

TEST(FaceStack, MeansOfDoublesAreTheQuotientsOfTheSums) {
  Stack mean, sum(Stack::Method::sum);
  for (unsigned int seed = 1; seed <= 3; ++seed) {
    mean.add(seeded(fieldsOf("Imx183"), seed));
    sum.add(seeded(fieldsOf("Imx183"), seed));
  }
  for (std::size_t i = 0; i < 240; ++i) {
    EXPECT_EQ(mean.result_f64().data()[i], static_cast<double>(mean.sums().data()[i]) / 3);
    EXPECT_EQ(sum.result_f64().data()[i], static_cast<double>(mean.sums().data()[i]));
  }
}

TEST(FaceStack, SavedOnesGoOnInTheirPlaneAndMethod) {
  const sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  Stack live(Stack::Method::sum), saved(Stack::Method::sum);
  EXPECT_EQ(live.plane(), "");
  live.plane("high").add(seeded(fields, 1));
  saved.plane("high").add(seeded(fields, 2));
  const auto restore = [&](std::string_view plane, Stack::Method method) {
    return Stack::from_sums(saved.header(), 1, saved.sums(), saved.squares(), plane, method);
  };
  const Stack restored = restore(saved.plane(), Stack::Method::sum);
  EXPECT_EQ(restored.plane(), "high");
  live.merge(restored);
  EXPECT_EQ(live.count(), 2u);
  EXPECT_EQ(reasonOf([&] { live.merge(restore("", Stack::Method::sum)); }), Reason::mismatch);
  EXPECT_EQ(reasonOf([&] { live.merge(restore("high", Stack::Method::mean)); }), Reason::mismatch);
  EXPECT_EQ(restore("", Stack::Method::mean).plane(), "merged");
  EXPECT_EQ(reasonOf([&] { restore("image", Stack::Method::sum); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { restore("gigh", Stack::Method::sum); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { restore("high", Stack::Method::median); }), Reason::bad_argument);
}

TEST(FaceStack, SaysWhetherFramesGoTogetherWithoutStackingThem) {
  using orvacam::require_alike;
  using orvacam::Unlike;
  sim::HeaderFields fields = fieldsOf("GSense4040Hdr");
  const auto first = frameOf(fields).header();
  fields.exposure = 5;
  const auto longer = frameOf(fields).header();
  fields.blackLevel = 9;
  const auto other = frameOf(fields).header();
  fields.model = "VESTRA VS2020";
  const auto stranger = frameOf(fields).header();
  EXPECT_NO_THROW(require_alike(first, first));
  EXPECT_TRUE(contains(errorOf([&] { require_alike(first, longer); }).what(),
                       "ExposureTime is 5, of the first frame 100000"));
  EXPECT_NO_THROW(require_alike(first, longer, Unlike::exposure));
  EXPECT_EQ(reasonOf([&] { require_alike(first, other, Unlike::exposure); }), Reason::mismatch);
  EXPECT_NO_THROW(require_alike(first, other, Unlike::settings));
  EXPECT_EQ(reasonOf([&] { require_alike(first, stranger, Unlike::settings); }), Reason::mismatch);
  EXPECT_EQ(reasonOf([&] { require_alike(first, first, static_cast<Unlike>(9)); }), Reason::bad_argument);
}

TEST(FaceStack, EmptyOnesHaveNoResults) {
  const Stack stack;
  EXPECT_EQ(stack.count(), 0u);
  EXPECT_EQ(reasonOf([&] { stack.result(); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { stack.result_u16(); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { stack.sums(); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { stack.squares(); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { stack.header(); }), Reason::bad_argument);
}

TEST(FaceStack, TakesThePlaneThatWasAskedFor) {
  const SimulatedFrame frame = simulate(fieldsOf("GSense400Hdr"));
  const Frame view = Frame::view(frame.bytes.data(), frame.bytes.size());
  Stack stack;
  stack.plane("high");
  stack.add(view);
  EXPECT_EQ(pixelsOf(stack.result_u16()), frame.planes[1]);
  EXPECT_EQ(stack.result_u16().header().number("TestIsHighFrame"), 1);
  Stack lacking;
  lacking.plane("image");
  EXPECT_EQ(reasonOf([&] { lacking.add(view); }), Reason::bad_argument);
  EXPECT_EQ(lacking.count(), 0u);
  EXPECT_EQ(reasonOf([&] { lacking.plane("Merged"); }), Reason::bad_argument);
  EXPECT_NO_THROW(lacking.plane(""));
  lacking.add(view);
  EXPECT_EQ(lacking.count(), 1u);
}

TEST(FaceStack, DecodesWithTheSettingsOfItsDecoder) {
  const SimulatedFrame frame = simulate(fieldsOf("Imx183"));
  const std::vector<std::uint16_t> ones(frame.planes[0].size(), 1);
  Decoder decoder;
  decoder.bias(Plane::copy({24, 10}, ones.data()), Plane());
  Stack stack;
  stack.decoder(std::move(decoder));
  stack.add(Frame::view(frame.bytes.data(), frame.bytes.size()));
  EXPECT_EQ(stack.result_u16()(0, 0), frame.planes[0][0] - 1);
}

TEST(FaceStack, SettingsAreMadeBeforeTheFirstFrame) {
  Stack stack;
  stack.add(frameOf(fieldsOf("Imx183")));
  EXPECT_EQ(reasonOf([&] { stack.plane("low"); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { stack.decoder(Decoder()); }), Reason::bad_argument);
}

TEST(FaceStack, NamesTheFieldInWhichAFrameIsUnlike) {
  const sim::HeaderFields first = fieldsOf("GSense4040Hdr");
  Stack stack;
  stack.add(frameOf(first));
  const auto differing = [&](auto change) {
    sim::HeaderFields fields = first;
    change(fields);
    return mismatchOf(stack, frameOf(fields));
  };
  EXPECT_TRUE(
      contains(differing([](auto& f) { f.exposure = 5; }), "ExposureTime is 5, of the first frame 100000"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.lowGain = 3; }), "LDRGain"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.highGain = 3; }), "HDRGain"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.globalGain = 3; }), "GlobalGain"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.blackLevel = 3; }), "BlackLevelAdjust is 3"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.blackLevelHigh = 3; }), "BlackLevelAdjustHigh"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.startRow = 2; }), "ImageStartRow"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.startColumn = 2; }), "ImageStartColumn"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.width = 26; }), "size"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.model = "VESTRA VS2020"; }), "GSENSE2020"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.chipTemperature = -184; }), "SensorChipTemp"));
  EXPECT_TRUE(contains(differing([](auto& f) { f.hdr = false; }), "HDRMode"));
  sim::HeaderFields alike = first;
  alike.chipTemperature = -185;
  alike.frameNumber = 99;
  alike.time.year = 2020;
  EXPECT_NO_THROW(stack.add(frameOf(alike)));
  EXPECT_NO_THROW(stack.add(frameOf(first, 4)));
}

TEST(FaceStack, HeaderVersionsMayDiffer) {
  const sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  Stack stack;
  for (unsigned int version = 1; version <= 4; ++version)
    EXPECT_NO_THROW(stack.add(frameOf(fields, version))) << version;
  EXPECT_EQ(stack.count(), 4u);
}

TEST(FaceStack, TakesUnlikeFramesWhereThatIsAllowedButNeverOtherKinds) {
  const sim::HeaderFields first = fieldsOf("GSense4040Hdr");
  Stack stack;
  stack.allow_unlike(true);
  stack.add(frameOf(first));
  sim::HeaderFields fields = first;
  fields.exposure = 5;
  fields.startRow = 9;
  fields.chipTemperature = 200;
  EXPECT_NO_THROW(stack.add(frameOf(fields)));
  fields = first;
  fields.model = "VESTRA VS2020";
  mismatchOf(stack, frameOf(fields));
  fields = first;
  fields.height = 12;
  mismatchOf(stack, frameOf(fields));
  fields = first;
  fields.hdr = false;
  mismatchOf(stack, frameOf(fields));
}

TEST(FaceStack, IsAsBeforeAfterAFrameThatCannotBeDecoded) {
  Stack stack;
  stack.add(frameOf(fieldsOf("Imx183")));
  const auto before = pixelsOf(stack.result_u16());
  const Bytes bytes = simulate(fieldsOf("Imx183")).bytes;
  EXPECT_EQ(reasonOf([&] { stack.add(Frame::view(bytes.data(), bytes.size() - 1)); }), Reason::truncated);
  EXPECT_EQ(stack.count(), 1u);
  EXPECT_EQ(pixelsOf(stack.result_u16()), before);
}

TEST(FaceStack, PartsComeTogetherToWhatOneRunGives) {
  const sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  Stack all, one, two;
  for (unsigned int seed = 1; seed <= 5; ++seed) {
    all.add(seeded(fields, seed));
    (seed <= 2 ? one : two).add(seeded(fields, seed));
  }
  const Stack saved = Stack::from_sums(two.header(), two.count(), two.sums(), two.squares());
  one.merge(saved);
  EXPECT_EQ(one.count(), 5u);
  EXPECT_EQ(pixelsOf(one.result_u16()), pixelsOf(all.result_u16()));
  for (std::size_t i = 0; i < 240; ++i) {
    EXPECT_EQ(one.sums().data()[i], all.sums().data()[i]);
    EXPECT_EQ(one.squares().data()[i], all.squares().data()[i]);
    EXPECT_EQ(one.result().data()[i], all.result().data()[i]);
  }
  EXPECT_EQ(saved.count(), 3u);
  Stack fromNothing;
  fromNothing.merge(all);
  EXPECT_EQ(fromNothing.count(), 5u);
  EXPECT_EQ(pixelsOf(fromNothing.result_u16()), pixelsOf(all.result_u16()));
  fromNothing.add(seeded(fields, 9));
  EXPECT_EQ(fromNothing.count(), 6u);
}

TEST(FaceStack, OfUnlikePartsIsAMismatch) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  Stack mean, sum(Stack::Method::sum), longer, low;
  mean.add(frameOf(fields));
  sum.add(frameOf(fields));
  low.plane("low");
  low.add(frameOf(fields));
  fields.exposure = 1;
  longer.add(frameOf(fields));
  EXPECT_EQ(reasonOf([&] { mean.merge(sum); }), Reason::mismatch);
  EXPECT_EQ(reasonOf([&] { mean.merge(longer); }), Reason::mismatch);
  EXPECT_EQ(reasonOf([&] { mean.merge(low); }), Reason::mismatch);
  EXPECT_EQ(mean.count(), 1u);
  mean.allow_unlike(true);
  EXPECT_NO_THROW(mean.merge(longer));
  EXPECT_NO_THROW(mean.merge(Stack()));
  EXPECT_EQ(mean.count(), 2u);
}

TEST(FaceStack, OfItselfCountsTwice) {
  Stack stack;
  stack.add(frameOf(fieldsOf("Imx183")));
  const std::uint64_t sum = stack.sums()(5, 5);
  stack.merge(stack);
  EXPECT_EQ(stack.count(), 2u);
  EXPECT_EQ(stack.sums()(5, 5), 2 * sum);
}

TEST(FaceStack, RefusesSumsThatNoFramesHave) {
  const orvacam::Header header = frameOf(fieldsOf(modeNamed("Imx183"), 1, 1)).header();
  const auto from = [&](std::uint64_t count, std::uint64_t sum, std::uint64_t square,
                        orvacam::Size size = {1, 1}) {
    const std::uint64_t sums[] = {sum, sum}, squares[] = {square, square};
    return reasonOf([&] {
      Stack::from_sums(header, count, orvacam::Image<std::uint64_t>::copy(size, sums),
                       orvacam::Image<std::uint64_t>::copy(size, squares));
    });
  };
  EXPECT_EQ(from(0, 0, 0), Reason::bad_argument);
  EXPECT_EQ(from(1, 65536, std::uint64_t{65536} * 65536), Reason::bad_argument);
  EXPECT_EQ(from(2, 10, 9), Reason::bad_argument);
  EXPECT_EQ(from(2, 10, 10 * 65536), Reason::bad_argument);
  EXPECT_EQ(from(1, 10, 10, {2, 1}), Reason::mismatch);
  EXPECT_EQ(from(~std::uint64_t{0}, 0, 0), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] {
              Stack::from_sums(header, 1, orvacam::Image<std::uint64_t>(), orvacam::Image<std::uint64_t>());
            }),
            Reason::bad_argument);
}

TEST(FaceStack, HoldsAsManyFramesAsHaveExactSums) {
  const Frame frame = frameOf(fieldsOf(modeNamed("Imx183"), 1, 1));
  const auto of = [&](std::uint64_t count) {
    const std::uint64_t sum = 65535 * count, square = 65535 * sum;  // every pixel has the largest value
    return Stack::from_sums(frame.header(), count, orvacam::Image<std::uint64_t>::copy({1, 1}, &sum),
                            orvacam::Image<std::uint64_t>::copy({1, 1}, &square));
  };
  Stack stack = of(0xFFFFFFFF);
  stack.merge(of(1));
  EXPECT_EQ(stack.count(), 0x100000000u);
  EXPECT_EQ(stack.squares()(0, 0), 0xFFFE000100000000u);  // 65535^2 * 2^32
  EXPECT_EQ(reasonOf([&] { stack.merge(of(1)); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { stack.merge(stack); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { stack.add(frame); }), Reason::bad_argument);
  EXPECT_EQ(stack.count(), 0x100000000u);
  EXPECT_EQ(stack.squares()(0, 0), 0xFFFE000100000000u);
  EXPECT_EQ(stack.result()(0, 0), 65535.0f);
}

TEST(FaceStack, MovedFromOnesCanBeAssigned) {
  Stack stack;
  stack.add(frameOf(fieldsOf("Imx183")));
  Stack moved = std::move(stack);
  EXPECT_EQ(moved.count(), 1u);
  EXPECT_EQ(stack.count(), 0u);
  EXPECT_EQ(reasonOf([&] { stack.add(frameOf(fieldsOf("Imx183"))); }), Reason::bad_argument);
  stack = std::move(moved);
  EXPECT_EQ(stack.count(), 1u);
}
