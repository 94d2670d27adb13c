// Many frames into one by bands of rows: the same pixels whatever the memory, each frame read once a pass.

#include "science/FrameStack.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "face/FaceTesting.h"

using namespace face_testing;
using namespace orvacam::science;
using orvacam::Frame;
using orvacam::Stack;
using testing::HasSubstr;
using Method = Stack::Method;

namespace {

constexpr std::size_t pixels = 240;
constexpr std::uint64_t noLimit = std::uint64_t{1} << 30;

/// Frames in memory, and how often each was asked for.
class Night {
 public:
  explicit Night(std::size_t count, const sim::HeaderFields& fields = fieldsOf("GSense400Hdr")) {
    for (unsigned int i = 0; i < count; ++i)
      m_frames.push_back(simulate(fields, 3, i + 1).bytes);
    m_reads.resize(count);
  }

  FrameSeries series() {
    const auto decoder = std::make_shared<orvacam::Decoder>();
    return {m_frames.size(),
            [this](std::size_t index) {
              ++m_reads[index];
              if (index == m_changing && m_reads[index] > 1) return frameOf(fieldsOf("GSense400Hdr"), 4);
              return Frame::view(m_frames[index].data(), m_frames[index].size());
            },
            [decoder](const Frame& frame, orvacam::Planes wanted) { return decoder->decode(frame, wanted); }};
  }
  void replace(std::size_t index, const sim::HeaderFields& fields) {
    m_frames[index] = simulate(fields, 3, static_cast<unsigned int>(index) + 1).bytes;
  }
  void change(std::size_t index) { m_changing = index; }
  Frame frame(std::size_t index) const { return Frame::view(m_frames[index].data(), m_frames[index].size()); }
  const std::vector<int>& reads() const { return m_reads; }

 private:
  std::vector<Bytes> m_frames;
  std::vector<int> m_reads;
  std::size_t m_changing = ~std::size_t{0};
};

struct Result {
  std::vector<double> values;
  std::vector<std::uint16_t> rejected;
  std::size_t seen = 0;
  std::string plane;
};

Result stacked(Night& night, const StackSettings& settings) {
  Result result;
  result.plane = stackFrames(
      night.series(), settings, [&](const Frame&) { ++result.seen; },
      [&](const StackedPixels& some) {
        EXPECT_EQ(some.first, result.values.size());
        result.values.insert(result.values.end(), some.values, some.values + some.count);
        result.rejected.insert(result.rejected.end(), some.rejected, some.rejected + some.count);
      });
  return result;
}

std::string errorOfStack(Night& night, const StackSettings& settings) {
  try {
    stacked(night, settings);
  } catch (const SeriesError& error) {
    return error.what();
  } catch (const orvacam::Error& error) {
    return error.what();
  }
  return "none";
}

StackSettings by(Method method) {
  StackSettings settings;
  settings.method = method;
  return settings;
}

double medianOfImage(const orvacam::Plane& plane, const orvacam::Region& region) {
  std::vector<double> values;
  for (std::uint32_t y = region.y; y < region.y + region.height; ++y)
    values.insert(values.end(), plane.row(y) + region.x, plane.row(y) + region.x + region.width);
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  return values.size() % 2 != 0 ? values[half] : (values[half - 1] + values[half]) / 2;
}

}  // namespace

TEST(FrameStack, IsWhatAStackInMemoryGives) {
  for (const Method method : {Method::mean, Method::sum, Method::median, Method::minimum, Method::maximum,
                              Method::sigma_clip, Method::winsorized}) {
    Night night(9);
    Stack stack(method);
    stack.sigma(1, 1.5);
    for (std::size_t i = 0; i < 9; ++i)
      stack.add(night.frame(i));
    StackSettings settings = by(method);
    settings.sigmaLow = 1;
    settings.sigmaHigh = 1.5;
    const Result result = stacked(night, settings);
    const auto expected = stack.result_f64();
    EXPECT_EQ(result.values, std::vector<double>(expected.data(), expected.data() + pixels));
    EXPECT_EQ(result.plane, "merged");
    EXPECT_EQ(result.seen, 9u);
    EXPECT_EQ(night.reads(), std::vector<int>(9, 1));
  }
}

TEST(FrameStack, ReadsEachFrameOncePerBandAndGivesTheSamePixels) {
  for (const Method method : {Method::median, Method::winsorized}) {
    Night whole(11);
    StackSettings settings = by(method);
    settings.normalization = StackSettings::Normalization::multiplicative;
    settings.sigmaLow = settings.sigmaHigh = 1;
    settings.memory = noLimit;
    const Result expected = stacked(whole, settings);
    std::map<int, int> passes;
    for (settings.memory = 24 << 20; settings.memory < (24 << 20) + 16000; settings.memory += 300) {
      Night night(11);
      const std::string error = errorOfStack(night, settings);
      if (error != "none") {
        EXPECT_THAT(error, HasSubstr("24M of memory do not hold")) << settings.memory;
        EXPECT_THAT(error, HasSubstr("takes 25M"));
        continue;
      }
      Night again(11);
      const Result result = stacked(again, settings);
      EXPECT_EQ(result.values, expected.values);
      EXPECT_EQ(result.rejected, expected.rejected);
      EXPECT_EQ(result.seen, 11u);
      EXPECT_EQ(std::count(again.reads().begin(), again.reads().end(), again.reads().front()), 11);
      ++passes[again.reads().front()];
    }
    EXPECT_GE(passes.size(), 3u) << "heights of bands";
    EXPECT_EQ(passes.begin()->first, 1);
    EXPECT_EQ(passes.rbegin()->first, 10) << "one row at a time";
  }
}

TEST(FrameStack, NormalizesByMediansOfTheImage) {
  for (const bool scaled : {false, true}) {
    sim::HeaderFields fields = fieldsOf("GSense400Hdr");
    fields.height = 11;
    Night night(5, fields);
    StackSettings settings = by(Method::mean);
    settings.normalization =
        scaled ? StackSettings::Normalization::multiplicative : StackSettings::Normalization::additive;
    settings.plane = "high";
    const Result result = stacked(night, settings);
    std::vector<double> sums(result.values.size());
    double first = 0;
    for (std::size_t i = 0; i < 5; ++i) {
      const Frame frame = night.frame(i);
      const orvacam::Plane plane = orvacam::Decoder().decode(frame).high;
      const double median = medianOfImage(plane, frame.header().image_region());
      if (i == 0) first = median;
      for (std::size_t p = 0; p < sums.size(); ++p)
        sums[p] += scaled ? plane.data()[p] * (first / median) : plane.data()[p] + (first - median);
    }
    for (std::size_t p = 0; p < sums.size(); ++p)
      EXPECT_EQ(result.values[p], sums[p] / 5);
    EXPECT_EQ(result.plane, "high");
    settings.method = Method::maximum;
    EXPECT_GE(stacked(night, settings).values[0], result.values[0]);
  }
}

TEST(FrameStack, CannotScaleByAMedianOfZero) {
  sim::HeaderFields fields = fieldsOf("Imx183");
  Night night(2, fields);
  const std::vector<std::uint16_t> all(pixels, 65535);
  orvacam::Decoder decoder;
  decoder.bias(orvacam::Plane::copy({24, 10}, all.data()), {});
  FrameSeries series = night.series();
  series.decode = [&](const Frame& frame, orvacam::Planes wanted) { return decoder.decode(frame, wanted); };
  StackSettings settings = by(Method::median);
  settings.normalization = StackSettings::Normalization::multiplicative;
  const auto run = [&] {
    stackFrames(
        series, settings, [](const Frame&) {}, [](const StackedPixels&) {});
  };
  EXPECT_THROW(run(), SeriesError);
  settings.normalization = StackSettings::Normalization::additive;
  EXPECT_NO_THROW(run());
}

TEST(FrameStack, WeighsByExposure) {
  sim::HeaderFields fields = fieldsOf("Imx183");
  Night night(2, fields);
  fields.exposure *= 3;
  night.replace(1, fields);
  StackSettings settings = by(Method::mean);
  EXPECT_THAT(errorOfStack(night, settings), HasSubstr("ExposureTime is 300000, of the first frame 100000"));
  settings.weights = StackSettings::Weights::exposure;
  settings.allowed = orvacam::Unlike::exposure;
  const Result result = stacked(night, settings);
  const auto one = orvacam::Decoder().decode(night.frame(0)).image;
  const auto other = orvacam::Decoder().decode(night.frame(1)).image;
  for (std::size_t p = 0; p < pixels; ++p)
    EXPECT_DOUBLE_EQ(result.values[p], (one.data()[p] + 3.0 * other.data()[p]) / 4);
  fields.exposure = 0;
  Night dark(2, fields);
  EXPECT_THAT(errorOfStack(dark, settings), HasSubstr("all exposures are 0"));
}

TEST(FrameStack, RefusesFramesThatDoNotGoTogether) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  for (const Method method : {Method::minimum, Method::median}) {
    Night none(0);
    EXPECT_THAT(errorOfStack(none, by(method)), HasSubstr("no frames"));
    Night unlike(3);
    fields.lowGain = 3;
    unlike.replace(2, fields);
    EXPECT_THAT(errorOfStack(unlike, by(method)), HasSubstr("LDRGain is 3, of the first frame 1"));
    StackSettings settings = by(method);
    settings.allowed = orvacam::Unlike::settings;
    EXPECT_EQ(stacked(unlike, settings).seen, 3u);
    settings.plane = "image";
    EXPECT_THAT(errorOfStack(unlike, settings), HasSubstr("has no plane 'image'"));
    settings.plane = "";
    settings.memory = 1000;
    EXPECT_THAT(errorOfStack(unlike, settings), HasSubstr("do not hold one frame"));
  }
}

TEST(FrameStack, NoticesAFrameThatChangesBetweenPasses) {
  StackSettings settings = by(Method::median);
  std::string error;
  for (settings.memory = 24 << 20; error.find("changed") == error.npos && settings.memory < 25 << 20;
       settings.memory += 300) {
    Night night(11);
    night.change(4);
    error = errorOfStack(night, settings);
    ASSERT_NE(error, "none");
  }
  EXPECT_EQ(error, "has changed since it was read the first time");
}

TEST(FrameStack, ReadsFilesByTheirPaths) {
  TestFolder folder;
  Night night(3);
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < 3; ++i) {
    const std::string_view bytes = night.frame(i).bytes();
    paths.push_back(folder.put("frame" + std::to_string(i), Bytes(bytes.begin(), bytes.end())));
  }
  FrameBands bands(seriesOf(paths), {{"low", "high"}});
  std::size_t used = 0;
  bands.run(
      [&](const SeenFrame& one) {
        EXPECT_EQ(one.planes.size(), 2u);
        EXPECT_FALSE(one.planes[0].statistics());
      },
      [&](const Band& band) {
        ++used;
        ASSERT_EQ(band.pixels.size(), 2u);
        const auto decoded = orvacam::Decoder().decode(night.frame(2));
        EXPECT_TRUE(std::equal(decoded.low.data(), decoded.low.data() + pixels, band.pixels[0][2]));
        EXPECT_TRUE(std::equal(decoded.high.data(), decoded.high.data() + pixels, band.pixels[1][2]));
      });
  EXPECT_EQ(used, 1u);
  EXPECT_EQ(bands.scan().passes(), 1u);
}
