// orvacam stats: statistics of each plane.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "common.h"

namespace tool {

namespace {

constexpr unsigned int histogramSize = 65535;

struct PlaneStats {
  const char* name;
  image_plane_stats_t stats;
  std::vector<double> histogram;
};

struct Options {
  std::vector<std::string> files;
  bool json = false;
  std::string histogram;
};

/// Statistics of the image in a plane, without reference pixels and rows, at columns and rows of the frame.
/// Gathered here: the library's own count the rows of both planes together, and a single image has none.
image_plane_stats_t statsOf(const unsigned short* plane, const Frame& frame, std::vector<double>& histogram) {
  unsigned int width = 0, height = 0, pixelsAhead = 0, rowsAhead = 0, behind = 0;
  frame.header.GetImageDimensionsBinned(width, height);
  frame.header.GetRefPixelsBinned(pixelsAhead, behind);
  frame.header.GetRefRowsBinned(rowsAhead, behind);
  auto statistics = std::make_unique<CFrameStatistics>();
  for (unsigned int y = rowsAhead; y < rowsAhead + height; ++y)
    statistics->AddRow(plane + static_cast<std::size_t>(y) * frame.width + pixelsAhead, width,
                       static_cast<int>(pixelsAhead), static_cast<int>(y));
  statistics->Compute();
  image_plane_stats_t stats{};
  histogram.assign(histogramSize, 0.0);
  stats.pHistogram = histogram.data();
  stats.uiHistogramSize = histogramSize;
  statistics->GetResults(stats);
  stats.pHistogram = nullptr;
  return stats;
}

std::vector<PlaneStats> planesOf(const std::string& file) {
  Frame frame(file);
  Planes planes;
  planes.read(frame);
  const unpacked_images_t& images = planes.images();
  std::vector<PlaneStats> all;
  for (const auto& [name, plane] :
       {std::pair{images.pHighImage != nullptr ? "low" : "image", images.pLowImage},
        std::pair{"high", images.pHighImage}, std::pair{"merged", images.pMergedImage}}) {
    if (plane == nullptr) continue;
    all.push_back({name, {}, {}});
    all.back().stats = statsOf(plane, frame, all.back().histogram);
  }
  return all;
}

nlohmann::ordered_json jsonOf(const PlaneStats& plane) {
  const image_plane_stats_t& s = plane.stats;
  return {{"plane", plane.name},
          {"mean", s.dMean},
          {"deviation", s.dStdDev},
          {"mode", s.dMode},
          {"midpoint", s.dMidpoint},
          {"minimum", {{"value", s.uiMin}, {"x", s.minPoint.x}, {"y", s.minPoint.y}}},
          {"maximum", {{"value", s.uiMax}, {"x", s.maxPoint.x}, {"y", s.maxPoint.y}}},
          {"lowClip", s.uiLowClip},
          {"highClip", s.uiHighClip}};
}

void print(const PlaneStats& plane) {
  const image_plane_stats_t& s = plane.stats;
  std::printf(
      "  %-7s mean %10.3f  deviation %10.3f  mode %5.0f  min %5u at (%d, %d)  max %5u at (%d, %d)  clip "
      "%u..%u\n",
      plane.name, s.dMean, s.dStdDev, s.dMode, s.uiMin, s.minPoint.x, s.minPoint.y, s.uiMax, s.maxPoint.x,
      s.maxPoint.y, s.uiLowClip, s.uiHighClip);
}

void writeHistogram(const std::string& path, const std::vector<PlaneStats>& planes) {
  std::string text = "value";
  for (const PlaneStats& plane : planes)
    text += std::string(",") + plane.name;
  for (unsigned int value = 0; value < histogramSize; ++value) {
    bool any = false;
    std::string line = "\n" + std::to_string(value);
    for (const PlaneStats& plane : planes) {
      any = any || plane.histogram[value] > 0;
      line += "," + std::to_string(static_cast<unsigned long>(plane.histogram[value]));
    }
    if (any) text += line;
  }
  text += "\n";
  writeFile(path, Bytes(text.begin(), text.end()));
}

}  // namespace

void addStats(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("stats", "Statistics of the image in each plane of raw frames.");
  command->add_option("FILE", options->files, "Raw frame files")->required();
  command->add_flag("--json", options->json);
  command->add_option("--histogram-csv", options->histogram, "Write the histograms of the one input as CSV");
  command->callback([options, &exitCode] {
    if (!options->histogram.empty() && options->files.size() > 1)
      throw CLI::ValidationError("--histogram-csv", "takes one input");
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    exitCode |= forEachFile(options->files, [&](const std::string& file) {
      const std::vector<PlaneStats> planes = planesOf(file);
      if (!options->histogram.empty())
        exitCode |= report(options->histogram, [&] { writeHistogram(options->histogram, planes); });
      if (options->json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const PlaneStats& plane : planes)
          list.push_back(jsonOf(plane));
        all.push_back({{"file", file}, {"planes", list}});
        return;
      }
      std::printf("%s:\n", file.c_str());
      for (const PlaneStats& plane : planes)
        print(plane);
    });
    if (options->json)
      std::cout << all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
  });
}

}  // namespace tool
