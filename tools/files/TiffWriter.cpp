#include "files/TiffWriter.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <pugixml.hpp>
#include <sstream>
#include <stdexcept>

#include "files/TiffFile.h"

namespace orvacam::files {

namespace {

/// A file in memory, as libtiff wants one. Its callbacks may not throw through C code.
struct Memory {
  std::vector<unsigned char> bytes;
  std::size_t position = 0;
  bool outOfMemory = false;
};

Memory& memoryOf(thandle_t handle) {
  return *static_cast<Memory*>(handle);
}

tmsize_t readBytes(thandle_t handle, void* to, tmsize_t length) {
  Memory& memory = memoryOf(handle);
  if (memory.position >= memory.bytes.size()) return 0;
  const std::size_t count = std::min(static_cast<std::size_t>(length), memory.bytes.size() - memory.position);
  std::memcpy(to, memory.bytes.data() + memory.position, count);
  memory.position += count;
  return static_cast<tmsize_t>(count);
}

tmsize_t writeBytes(thandle_t handle, void* from, tmsize_t length) {
  Memory& memory = memoryOf(handle);
  const std::size_t end = memory.position + static_cast<std::size_t>(length);
  try {
    if (end > memory.bytes.size()) memory.bytes.resize(end);
  } catch (const std::bad_alloc&) {
    memory.outOfMemory = true;
    return -1;
  }
  std::memcpy(memory.bytes.data() + memory.position, from, static_cast<std::size_t>(length));
  memory.position = end;
  return length;
}

toff_t seek(thandle_t handle, toff_t offset, int whence) {
  Memory& memory = memoryOf(handle);
  const toff_t start = whence == SEEK_CUR ? memory.position : whence == SEEK_END ? memory.bytes.size() : 0;
  memory.position = start + offset;
  return memory.position;
}

int closeFile(thandle_t) {
  return 0;
}

toff_t sizeOf(thandle_t handle) {
  return memoryOf(handle).bytes.size();
}

int map(thandle_t, void**, toff_t*) {
  return 0;
}

void unmap(thandle_t, void*, toff_t) {}

[[noreturn]] void fail(const Memory& memory) {
  if (memory.outOfMemory) throw std::bad_alloc();
  throw std::runtime_error("cannot be made a TIFF file");
}

TiffFile openFile(Memory& memory, std::size_t pixelBytes) {
  TIFFSetErrorHandler(nullptr);
  TIFFSetWarningHandler(nullptr);
  constexpr std::size_t largestClassic = 0xFFFFFFFFu - (1u << 20);  // room for tags
  memory.bytes.reserve(pixelBytes + (1u << 16));
  TiffFile file(TIFFClientOpen("", pixelBytes > largestClassic ? "wl8" : "wl", &memory, readBytes, writeBytes,
                               seek, closeFile, sizeOf, map, unmap));
  if (!file) fail(memory);
  return file;
}

void setTags(TIFF* file, const Raster& raster, const TiffFacts& facts, std::uint16_t page,
             std::uint16_t pages) {
  const auto bits = static_cast<unsigned int>(raster.sampleBytes() * 8);
  TIFFSetField(file, TIFFTAG_IMAGEWIDTH, raster.size.width);
  TIFFSetField(file, TIFFTAG_IMAGELENGTH, raster.size.height);
  TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(
      file, TIFFTAG_SAMPLEFORMAT,
      raster.sample == Raster::U16 || raster.sample == Raster::U8 ? SAMPLEFORMAT_UINT : SAMPLEFORMAT_IEEEFP);
  TIFFSetField(file, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  TIFFSetField(file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(file, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  const std::size_t rowBytes = raster.size.width * raster.sampleBytes();
  constexpr std::size_t stripBytes = std::size_t{1} << 20;
  TIFFSetField(
      file, TIFFTAG_ROWSPERSTRIP,
      static_cast<std::uint32_t>(std::clamp<std::size_t>(stripBytes / rowBytes, 1, raster.size.height)));
  TIFFSetField(file, TIFFTAG_PAGENUMBER, static_cast<unsigned int>(page), static_cast<unsigned int>(pages));
  TIFFSetField(file, TIFFTAG_SOFTWARE, ("liborvacam " + orvacam::version()).c_str());
  if (!facts.model.empty()) TIFFSetField(file, TIFFTAG_MODEL, plainText(facts.model).c_str());
  if (facts.time) TIFFSetField(file, TIFFTAG_DATETIME, tiffTime(*facts.time).c_str());
  if (facts.pixelWidth > 0 && facts.pixelHeight > 0) {
    constexpr double micrometresPerCentimetre = 10000;
    TIFFSetField(file, TIFFTAG_XRESOLUTION, micrometresPerCentimetre / facts.pixelWidth);
    TIFFSetField(file, TIFFTAG_YRESOLUTION, micrometresPerCentimetre / facts.pixelHeight);
    TIFFSetField(file, TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER);
  }
  if (!facts.description.empty()) TIFFSetField(file, TIFFTAG_IMAGEDESCRIPTION, facts.description.c_str());
}

void writePixels(TIFF* file, const Raster& raster, const Memory& memory) {
  const auto* pixels = static_cast<const unsigned char*>(raster.data);
  const auto strip = static_cast<std::size_t>(TIFFStripSize(file));
  std::uint32_t number = 0;
  for (std::size_t at = 0; at < raster.bytes(); at += strip, ++number) {
    const std::size_t count = std::min(strip, raster.bytes() - at);
    // On a machine of the file's byte order libtiff only reads them.
    if (TIFFWriteRawStrip(file, number, const_cast<unsigned char*>(pixels + at),
                          static_cast<tmsize_t>(count)) < 0)
      fail(memory);
  }
  if (TIFFWriteDirectory(file) == 0) fail(memory);
}

/// What all channels have in common.
void describePixels(pugi::xml_node pixels, const std::vector<Channel>& channels, const TiffFacts& facts) {
  const Raster& first = channels.front().raster;
  pixels.append_attribute("ID") = "Pixels:0";
  pixels.append_attribute("DimensionOrder") = "XYCZT";
  pixels.append_attribute("Type") = first.sample == Raster::U16 ? "uint16" : "float";
  pixels.append_attribute("SizeX") = first.size.width;
  pixels.append_attribute("SizeY") = first.size.height;
  pixels.append_attribute("SizeC") = static_cast<unsigned int>(channels.size());
  pixels.append_attribute("SizeZ") = 1;
  pixels.append_attribute("SizeT") = 1;
  pixels.append_attribute("BigEndian") = false;
  if (facts.pixelWidth <= 0 || facts.pixelHeight <= 0) return;
  constexpr const char* micrometres = "\xC2\xB5m";
  pixels.append_attribute("PhysicalSizeX") = numberText(facts.pixelWidth).c_str();
  pixels.append_attribute("PhysicalSizeXUnit") = micrometres;
  pixels.append_attribute("PhysicalSizeY") = numberText(facts.pixelHeight).c_str();
  pixels.append_attribute("PhysicalSizeYUnit") = micrometres;
}

/// Channels, where their pixels are, and how they were exposed; in this order.
void describeChannels(pugi::xml_node pixels, const std::vector<Channel>& channels, double exposureSeconds) {
  for (std::size_t i = 0; i < channels.size(); ++i) {
    pugi::xml_node channel = pixels.append_child("Channel");
    channel.append_attribute("ID") = ("Channel:0:" + std::to_string(i)).c_str();
    channel.append_attribute("Name") = channels[i].name.c_str();
    channel.append_attribute("SamplesPerPixel") = 1;
  }
  for (std::size_t i = 0; i < channels.size(); ++i) {
    pugi::xml_node data = pixels.append_child("TiffData");
    data.append_attribute("IFD") = static_cast<unsigned int>(i);
    data.append_attribute("PlaneCount") = 1;
    data.append_attribute("FirstC") = static_cast<unsigned int>(i);
    data.append_attribute("FirstZ") = 0;
    data.append_attribute("FirstT") = 0;
  }
  for (std::size_t i = 0; i < channels.size(); ++i) {
    pugi::xml_node plane = pixels.append_child("Plane");
    plane.append_attribute("TheC") = static_cast<unsigned int>(i);
    plane.append_attribute("TheZ") = 0;
    plane.append_attribute("TheT") = 0;
    plane.append_attribute("ExposureTime") = numberText(exposureSeconds).c_str();
    plane.append_attribute("ExposureTimeUnit") = "s";
  }
}

std::string omeXml(const std::vector<Channel>& channels, const TiffFacts& facts, const std::string& imageName,
                   double exposureSeconds) {
  pugi::xml_document document;
  pugi::xml_node declaration = document.append_child(pugi::node_declaration);
  declaration.append_attribute("version") = "1.0";
  declaration.append_attribute("encoding") = "UTF-8";
  pugi::xml_node ome = document.append_child("OME");
  ome.append_attribute("xmlns") = "http://www.openmicroscopy.org/Schemas/OME/2016-06";
  ome.append_attribute("xmlns:xsi") = "http://www.w3.org/2001/XMLSchema-instance";
  ome.append_attribute("xsi:schemaLocation") =
      "http://www.openmicroscopy.org/Schemas/OME/2016-06 "
      "http://www.openmicroscopy.org/Schemas/OME/2016-06/ome.xsd";
  ome.append_attribute("Creator") = ("liborvacam " + orvacam::version()).c_str();
  pugi::xml_node image = ome.append_child("Image");
  image.append_attribute("ID") = "Image:0";
  image.append_attribute("Name") = plainText(imageName).c_str();
  if (facts.time) image.append_child("AcquisitionDate").text().set(isoTime(*facts.time).c_str());
  const pugi::xml_node pixels = image.append_child("Pixels");
  describePixels(pixels, channels, facts);
  describeChannels(pixels, channels, exposureSeconds);
  std::ostringstream text;
  document.save(text, "", pugi::format_raw);
  return text.str();
}

}  // namespace

std::vector<unsigned char> tiffFile(const Raster& raster, const TiffFacts& facts) {
  Memory memory;
  TiffFile file = openFile(memory, raster.bytes());
  setTags(file.get(), raster, facts, 0, 1);
  writePixels(file.get(), raster, memory);
  file.reset();
  if (memory.outOfMemory) fail(memory);
  return std::move(memory.bytes);
}

std::vector<unsigned char> omeTiffFile(const std::vector<Channel>& channels, const TiffFacts& facts,
                                       const std::string& imageName, double exposureSeconds) {
  Memory memory;
  TiffFile file = openFile(memory, channels.size() * channels.front().raster.bytes());
  TiffFacts said = facts;
  said.description = omeXml(channels, facts, imageName, exposureSeconds);
  for (std::size_t i = 0; i < channels.size(); ++i) {
    setTags(file.get(), channels[i].raster, said, static_cast<std::uint16_t>(i),
            static_cast<std::uint16_t>(channels.size()));
    writePixels(file.get(), channels[i].raster, memory);
    said.description.clear();
  }
  file.reset();
  if (memory.outOfMemory) fail(memory);
  return std::move(memory.bytes);
}

}  // namespace orvacam::files
