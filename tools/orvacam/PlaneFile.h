#ifndef ORVACAM_TOOL_PLANE_FILE_H
#define ORVACAM_TOOL_PLANE_FILE_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Options.h"
#include "files/FitsWriter.h"
#include "files/OutputFile.h"
#include "files/Raster.h"
#include "files/Subject.h"

namespace tool {

namespace files = orvacam::files;

enum class Format { Fits, Tiff, OmeTiff, Png, Png16, Npy };

/// "fits", "tiff", "ome-tiff", "png", "png16", "npy".
Names formatNames();
std::optional<Format> formatNamed(const std::string& name);
/// By a file's extension: .fits, .fit, .fts, .tif, .tiff, .npy.
std::optional<Format> formatOfPath(const std::string& path);
/// ".fits", ".fits.fz", ".tiff", ".ome.tiff", ".png", ".npy".
std::string extensionOf(Format format, bool rice);

/// A plane that is to be written.
struct Product {
  files::Subject subject;
  files::Raster raster;
  std::optional<orvacam::Header> header;                ///< the frame's, for the description of TIFF files
  std::optional<orvacam::Image<std::uint16_t>> pixels;  ///< of 16 bits, for pictures
  std::shared_ptr<const void> owner;                    ///< of the raster's pixels
};

/// What is decided once for all files of a run.
struct Style {
  Format format = Format::Fits;
  bool rice = false, extensions = false;
};

/// What a file will hold: gives it to a sink, a piece behind the other. It owns what it needs for that.
using Sink = std::function<void(const void* bytes, std::size_t length)>;
using Content = std::function<void(const Sink& sink)>;

/// A file of these planes: one, or several for FITS extensions and OME-TIFF.
Content contentOf(const std::vector<Product>& products, const Style& style, const std::string& name);

/// Writes to a file, whole or not at all, or to standard output ("-"). Throws files::WriteError.
void writeContent(const std::string& target, const Content& content, bool overwrite);

/// Throws files::WriteError when none of these files ("" for none) could be written as things are: said
/// before the work that they are for, not after it.
void requireAnyWritable(const Names& targets, bool overwrite);

/// A text, or a file that is in memory, as a file's content.
Content contentOf(std::string text);
Content contentOf(files::FitsFile file);

/// A picture of 8 bits with what it says of the frame.
Content pictureContent(const files::Raster& raster, const files::Subject& subject);

/// Completes a subject's history and says when it is written, unless the same is to come out on any day.
void finish(files::Subject& subject, bool reproducible);

}  // namespace tool

#endif  // ORVACAM_TOOL_PLANE_FILE_H
