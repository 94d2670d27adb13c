#include "PlaneFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>

#include "files/Names.h"
#include "files/NpyWriter.h"
#include "files/PngWriter.h"
#include "files/Stretch.h"
#include "files/TiffWriter.h"

namespace tool {

namespace {

struct FormatRow {
  Format format;
  const char* name;
  const char* extension;
};

constexpr FormatRow formats[] = {{Format::Fits, "fits", ".fits"},
                                 {Format::Tiff, "tiff", ".tiff"},
                                 {Format::OmeTiff, "ome-tiff", ".ome.tiff"},
                                 {Format::Png, "png", ".png"},
                                 {Format::Png16, "png16", ".png"},
                                 {Format::Npy, "npy", ".npy"}};

template <class Bytes>
Content holding(Bytes bytes) {
  const auto owner = std::make_shared<const Bytes>(std::move(bytes));
  return [owner](const Sink& sink) { sink(owner->data(), owner->size()); };
}

Content fitsContent(const std::vector<Product>& products, const Style& style) {
  std::vector<files::FitsImage> images;
  images.reserve(products.size());
  for (const Product& product : products)
    images.push_back({files::cardsOf(product.subject), product.raster});
  files::FitsLayout layout{style.extensions, style.rice, {}};
  if (style.extensions) {
    files::Subject shared = products.front().subject;
    shared.plane.clear();
    layout.primary = files::cardsOf(shared);
  }
  const auto file = std::make_shared<const files::FitsStream>(images, layout);
  return [file, products](const Sink& sink) { file->writeTo(sink); };
}

files::TiffFacts factsOf(const Product& product) {
  const files::Subject& subject = product.subject;
  files::TiffFacts facts;
  facts.model = subject.model();
  facts.time = subject.stack ? subject.stack->earliest : subject.time;
  facts.pixelWidth = subject.pixelWidth();
  facts.pixelHeight = subject.pixelHeight();
  if (product.header) facts.description = files::descriptionOf(*product.header, files::cardsOf(subject));
  return facts;
}

Content omeContent(const std::vector<Product>& products, const std::string& name) {
  std::vector<files::Channel> channels;
  channels.reserve(products.size());
  for (const Product& product : products)
    channels.push_back({files::upperName(product.subject.plane), product.raster});
  const Product& first = products.front();
  return holding(files::omeTiffFile(channels, factsOf(first), name, first.subject.exposure()));
}

std::vector<std::pair<std::string, std::string>> textsOf(const files::Subject& subject) {
  std::vector<std::pair<std::string, std::string>> texts;
  if (!subject.model().empty()) texts.emplace_back("Source", files::plainText(subject.model()));
  if (subject.time) texts.emplace_back("Creation Time", files::isoTime(*subject.time) + "Z");
  texts.emplace_back("Comment", "exposure " + files::numberText(subject.exposure()) + " s");
  return texts;
}

Content stretchedContent(const Product& product) {
  const auto& plane = product.pixels.value();
  const files::Subject& subject = product.subject;
  const files::Stretch stretch(plane, subject.image, subject.saturation(), files::StretchKind::Auto);
  const orvacam::Region whole{0, 0, plane.size().width, plane.size().height};
  const files::Picture picture =
      files::pictureOf(plane, whole, std::numeric_limits<std::uint32_t>::max(), stretch);
  return pictureContent(picture.raster(), subject);
}

void writeOutput(const void* bytes, std::size_t length) {
  for (std::size_t at = 0; at < length;) {
    const ssize_t done = write(STDOUT_FILENO, static_cast<const char*>(bytes) + at, length - at);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0)
      throw files::WriteError("standard output", std::string("cannot be written: ") + std::strerror(errno));
    at += static_cast<std::size_t>(done);
  }
}

}  // namespace

Names formatNames() {
  Names names;
  for (const FormatRow& row : formats)
    names.emplace_back(row.name);
  return names;
}

std::optional<Format> formatNamed(const std::string& name) {
  for (const FormatRow& row : formats)
    if (name == row.name) return row.format;
  return std::nullopt;
}

std::optional<Format> formatOfPath(const std::string& path) {
  const std::string name = path.substr(path.find_last_of('/') + 1);
  const std::size_t dot = name.find_last_of('.');
  const std::string extension = dot == std::string::npos ? "" : name.substr(dot);
  if (extension == ".fits" || extension == ".fit" || extension == ".fts") return Format::Fits;
  if (extension == ".tif" || extension == ".tiff") return Format::Tiff;
  if (extension == ".npy") return Format::Npy;
  return std::nullopt;
}

std::string extensionOf(Format format, bool rice) {
  for (const FormatRow& row : formats)
    if (format == row.format) return std::string(row.extension) + (rice ? ".fz" : "");
  return "";
}

Content contentOf(std::string text) {
  return holding(std::move(text));
}

Content contentOf(files::FitsFile file) {
  return holding(std::move(file));
}

Content pictureContent(const files::Raster& raster, const files::Subject& subject) {
  return holding(files::pngFile(raster, textsOf(subject)));
}

Content contentOf(const std::vector<Product>& products, const Style& style, const std::string& name) {
  const Product& first = products.front();
  switch (style.format) {
    case Format::Fits:
      return fitsContent(products, style);
    case Format::Tiff:
      return holding(files::tiffFile(first.raster, factsOf(first)));
    case Format::OmeTiff:
      return omeContent(products, name);
    case Format::Png:
      return stretchedContent(first);
    case Format::Png16:
      return pictureContent(first.raster, first.subject);
    case Format::Npy:
      return [first](const Sink& sink) {
        const std::string header = files::npyHeader(first.raster);
        sink(header.data(), header.size());
        sink(first.raster.data, first.raster.bytes());
      };
  }
  return {};
}

void requireAnyWritable(const Names& targets, bool overwrite) {
  std::optional<files::WriteError> first;
  for (const std::string& target : targets) {
    if (target.empty()) continue;
    if (target == "-") return;
    try {
      const files::OutputFile tried(target, overwrite ? files::Existing::replace : files::Existing::refuse);
      return;
    } catch (const files::WriteError& error) {
      if (!first) first = error;
    }
  }
  if (first) throw files::WriteError(*first);
}

void writeContent(const std::string& target, const Content& content, bool overwrite) {
  if (target == "-") return content(writeOutput);
  files::OutputFile file(target, overwrite ? files::Existing::replace : files::Existing::refuse);
  content([&](const void* bytes, std::size_t length) { file.write(bytes, length); });
  file.commit();
}

void finish(files::Subject& subject, bool reproducible) {
  subject.history.push_back("liborvacam " + orvacam::version());
  if (!reproducible) subject.date = files::isoNow();
}

}  // namespace tool
