// Writes the seeds of every fuzz target below a folder, from the simulator: every sensor, read-out mode and
// header version, small.
//
//   fuzz_seeds FOLDER

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "simulator/FitsHeader.h"
#include "simulator/Scene.h"

namespace {

namespace fs = std::filesystem;
namespace sim = orvacam::simulator;
using Bytes = std::vector<unsigned char>;

void write(const fs::path& path, const Bytes& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void append(Bytes& bytes, const Bytes& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes joined(Bytes first, const Bytes& rest) {
  append(first, rest);
  return first;
}

void appendWord(Bytes& bytes, std::size_t value) {
  bytes.push_back(static_cast<unsigned char>(value >> 8));
  bytes.push_back(static_cast<unsigned char>(value));
}

/// Numbers that look random and are the same everywhere.
Bytes noise(std::size_t count, unsigned int seed) {
  Bytes bytes(count);
  for (unsigned char& byte : bytes) {
    seed = seed * 1664525u + 1013904223u;
    byte = static_cast<unsigned char>(seed >> 24);
  }
  return bytes;
}

/// The first byte of the frame target's inputs: a model of the camera's family (frame_families.h).
unsigned char modelOf(const sim::Camera& camera) {
  switch (sim::sensorOf(camera.model)) {
    case sim::Sensor::Gsense400:
      return 0;
    case sim::Sensor::Gsense2020:
      return 1;
    case sim::Sensor::Gsense4040:
      return 2;
    case sim::Sensor::Gsense6060:
      return 3;
    case sim::Sensor::Ccd:
      return 4;
    default:
      return 7;
  }
}

/// A small frame of a camera with reference rows and pixels where its sensor has them.
sim::HeaderFields small(sim::HeaderFields f, bool references) {
  f.width = 24;
  f.height = 6;
  const bool gsense =
      sim::sensorOf(f.model) != sim::Sensor::Ccd && sim::sensorOf(f.model) != sim::Sensor::Other;
  if (gsense && references) {
    f.postRefPixels = 2;
    f.preRefRows = f.postRefRows = 1;
  }
  return f;
}

/// Model, options and region of the frame target: all planes with statistics, as pixels, TIFF and FITS
/// layout, and a region of 8 x 2 pixels in room enough.
Bytes frameOptions(unsigned char model, unsigned int format) {
  Bytes options{model};
  appendWord(options, 0x0410u | format << 5 | 8u * (format & 1));
  append(options, {2, 1, 8, 2});
  appendWord(options, 1024);
  return options;
}

/// The options of a converted file: no reference files, this format.
Bytes fileOptions(unsigned int format, const Bytes& frame) {
  Bytes options{static_cast<unsigned char>(3 | format << 3)};
  appendWord(options, frame.size());
  appendWord(options, 0);
  return options;
}

/// A frame whose header is FITS text, for every target that takes a frame.
void fitsFrameSeeds(const fs::path& folder, const sim::Camera& camera, const char* mode) {
  const auto usual = sim::headerFor(camera, mode);
  if (!usual) return;
  const sim::HeaderFields f = small(*usual, true);
  const Bytes frame = sim::inFitsForm(f, sim::encodeFrame(f, 3, sim::exposeSky(camera, f, sim::Sky())));
  const std::string name = std::string(camera.name) + "-" + mode + "-fits";
  const Bytes text(frame.begin(), frame.begin() + 2880);
  write(folder / "header" / name, text);
  for (unsigned int format = 0; format < 3; ++format) {
    const std::string numbered = name + "-" + std::to_string(format);
    write(folder / "frame" / numbered, joined(frameOptions(modelOf(camera), format), frame));
    write(folder / "face" / numbered, joined({0, 3 | 8, 2, 1, 8, 2}, frame));
    write(folder / "frame_files" / numbered, joined(fileOptions(format, frame), frame));
  }
  for (unsigned char command = 0; command < 5; ++command) {
    Bytes called{command};
    appendWord(called, frame.size());
    write(folder / "orvacam" / (name + "-" + std::to_string(command)), joined(called, frame));
  }
  // Two frames of 4 pixels, then the header of the result.
  Bytes steps = {0, 4, 2, 1, 1, 2, 3, 4, 8, 9};
  appendWord(steps, text.size());
  write(folder / "stacker" / name, joined(steps, text));
  // A reference file is a header and two planes.
  const Bytes planes(4 * f.frameWidth() * f.frameHeight(), 9);
  const Bytes reference = joined(text, planes);
  Bytes pair;
  appendWord(pair, reference.size());
  pair.push_back(0);
  write(folder / "reference_files" / name, joined(joined(pair, reference), reference));
}

void frameSeeds(const fs::path& folder) {
  for (const sim::Camera& camera : sim::cameras())
    for (const char* mode : {"single", "hdr", "16bit", "cms"}) {
      fitsFrameSeeds(folder, camera, mode);
      const auto usual = sim::headerFor(camera, mode);
      if (!usual) continue;
      for (unsigned int version = 1; version <= 4; ++version) {
        const sim::HeaderFields f = sim::asVersion(small(*usual, version != 3), version);
        const Bytes frame = sim::encodeFrame(f, version, sim::exposeSky(camera, f, sim::Sky()));
        const std::string name = std::string(camera.name) + "-" + mode + "-" + std::to_string(version);
        write(folder / "frame" / name, joined(frameOptions(modelOf(camera), version % 3), frame));
        write(folder / "face" / name,
              joined({0, static_cast<unsigned char>(version | 8 | version % 2 << 4), 2, 1, 8, 2}, frame));
        write(folder / "header" / name, sim::writeHeader(f, version));
        for (unsigned char command = 0; command < 4; ++command) {
          Bytes called{command};
          appendWord(called, frame.size());
          write(folder / "orvacam" / (name + "-" + std::to_string(command)), joined(called, frame));
        }
        write(folder / "frame_files" / name, joined(fileOptions(version % 3, frame), frame));
      }
    }
}

/// Every amplifier of a CCD, and binned frames.
void specialFrameSeeds(const fs::path& folder) {
  const sim::Camera& ccd = *sim::findCamera("CCD230-84");
  for (const unsigned int amplifiers : {0x00u, 0x04u, 0x08u, 0x10u, 0x20u, 0x3Cu}) {
    sim::HeaderFields f = small(*sim::headerFor(ccd, "single"), false);
    f.quadrants = amplifiers;
    const Bytes frame = sim::encodeFrame(f, 3, sim::exposeSky(ccd, f, sim::Sky()));
    write(folder / "frame" / ("amplifiers-" + std::to_string(amplifiers)),
          joined(frameOptions(modelOf(ccd), 0), frame));
  }
  for (const char* name : {"GSENSE400", "GSENSE2020", "GSENSE4040", "GSENSE6060", "IMX183"}) {
    const sim::Camera& camera = *sim::findCamera(name);
    sim::HeaderFields f = small(*sim::headerFor(camera, "single"), false);
    f.horizontalBinning = f.verticalBinning = 2;
    const Bytes frame = sim::encodeFrame(f, 3, sim::exposeSky(camera, f, sim::Sky()));
    write(folder / "frame" / (std::string(name) + "-binned"),
          joined(frameOptions(modelOf(camera), 0), frame));
  }
}

/// A calibration block of a version: common part, one entry of each list.
Bytes calibration(unsigned int version) {
  Bytes body;
  const auto put = [&body](unsigned int bytes, unsigned int value) {
    for (unsigned int i = bytes; i > 0; --i)
      body.push_back(static_cast<unsigned char>(value >> (8 * (i - 1))));
  };
  for (const unsigned int ratio : {1100u, 1200u, 24000u, 40000u})
    put(4, ratio);
  for (int list = 0; list < 4; ++list)
    put(2, 1);
  for (int list = 0; list < 2; ++list)
    put(2, 3), put(4, 125000);
  for (const bool extra : {false, true}) {
    if (version == 4) put(2, 3800);
    if (version >= 3) put(2, 15752), put(2, 15670);
    put(2, 1), put(2, 2);
    if (version >= 3 || (version == 2 && extra)) put(4, 24000);
    for (const unsigned int t : {64536u, 500u, 2000u})
      put(2, t), put(2, 4800);
  }
  Bytes block = {'M', 'e', 't', 'a'};
  body.swap(block);
  put(2, static_cast<unsigned int>(block.size()) + 8);
  put(2, version);
  append(body, block);
  return body;
}

void headerSeeds(const fs::path& folder) {
  for (unsigned int version = 1; version <= 4; ++version) {
    sim::HeaderFields f;
    f.otherBlock = {1, 2, 3, 4};
    const Bytes header = sim::writeHeader(f, version);
    write(folder / "header" / ("plain-" + std::to_string(version)), header);
    write(folder / "tiff" / ("header-" + std::to_string(version)), joined(Bytes(15, 3), header));
    write(folder / "nv_block" / std::to_string(version), calibration(version));
    for (unsigned char command = 8; command < 10; ++command)
      write(folder / "orvacam" / ("gains-" + std::to_string(command) + "-" + std::to_string(version)),
            joined({command, 0, 0}, calibration(version)));
    // Two frames of 4 pixels, then the header of the result.
    Bytes steps = {0, 4, 2, 1, 1, 2, 3, 4, 8, 9};
    appendWord(steps, header.size());
    write(folder / "stacker" / ("described-" + std::to_string(version)), joined(steps, header));
  }
}

/// Reference pairs of each sensor that merges, alone and together with a frame.
void referenceSeeds(const fs::path& folder) {
  for (const char* name : {"GSENSE400", "GSENSE2020", "GSENSE4040", "GSENSE6060"}) {
    const sim::Camera& camera = *sim::findCamera(name);
    const sim::HeaderFields f = small(*sim::headerFor(camera, "hdr"), false);
    const Bytes dsnu = sim::dsnuFile(camera, f, sim::Sky()), prnu = sim::prnuFile(camera, f, sim::Sky());
    for (unsigned char given = 0; given < 3; ++given) {
      Bytes pair;
      appendWord(pair, dsnu.size());
      pair.push_back(given);
      append(pair, dsnu);
      append(pair, prnu);
      write(folder / "reference_files" / (std::string(name) + "-" + std::to_string(given)), pair);
    }
    const Bytes frame = sim::encodeFrame(f, 3, sim::exposeSky(camera, f, sim::Sky()));
    Bytes files = {0x10};
    appendWord(files, frame.size());
    appendWord(files, dsnu.size());
    for (const Bytes* bytes : {&frame, &dsnu, &prnu})
      append(files, *bytes);
    for (const auto& [command, second] :
         {std::pair(4, dsnu), std::pair(5, prnu), std::pair(6, frame), std::pair(7, frame)}) {
      Bytes called{static_cast<unsigned char>(command)};
      appendWord(called, frame.size());
      append(called, frame);
      write(folder / "orvacam" / (std::string(name) + "-" + std::to_string(command)), joined(called, second));
    }
    write(folder / "frame_files" / (std::string(name) + "-corrected"), files);
  }
}

void fitsSeeds(const fs::path& folder) {
  std::string text;
  for (const char* card : {"SIMPLE  = T", "BITPIX  = 16", "NAXIS   = 2", "NAXIS1  = 24", "NAXIS2  = 6",
                           "INSTRUME= 'VESTRA VS400'", "DATE-OBS= '2024-05-17T21:04:33.123456700'",
                           "XBINNING= 2 / binning", "SENSTEMP= -12.5", "COMMENT   text", "HISTORY", "END"}) {
    text += card;
    text.resize((text.size() + 79) / 80 * 80, ' ');
  }
  text.resize(2880, ' ');
  write(folder / "fits_header" / "whole", {text.begin(), text.end()});
  write(folder / "header" / "fits", {text.begin(), text.end()});
  text.resize(2875);
  write(folder / "fits_header" / "cut", {text.begin(), text.end()});
}

/// Headers in FITS form that once went through a hole, for every target that takes one.
void holeSeeds(const fs::path& folder) {
  const std::pair<const char*, sim::Cards> holes[] = {
      {"header-of-200-megabytes", {{"MDLENGTH", "200000000"}}},
      {"header-of-4-gigabytes", {{"MDLENGTH", "4294967295"}}},
      {"header-of-1000-bytes", {{"MDLENGTH", "1000"}}},
      {"binning-of-65536", {{"IMGSTPCL", "1000"}, {"IMGSTPRW", "1000"}, {"XBINNING", "65536"}}},
      {"stop-of-4294967295", {{"IMGSTPCL", "4294967295"}, {"IMGSTPRW", "4294967294"}}},
      {"reference-rows-of-4097", {{"PREREFRW", "4097"}, {"YBINNING", "65535"}}},
      {"size-of-2-to-the-62", {{"IMGSTPCL", "2147483647"}, {"IMGSTPRW", "2147483647"}}},
  };
  for (const auto& [name, cards] : holes)
    for (const char* model : {"VESTRA VS400", "VESTRA VS4040", "ARGENT 230-42", "VESTRA PLAIN"}) {
      sim::Cards all = {{"INSTRUME", "'" + std::string(model) + "'"}, {"DPIXDEP", "16"}};
      all.insert(all.end(), cards.begin(), cards.end());
      const Bytes text = sim::writeCards(all);
      const std::string file = std::string(name) + "-" + (model + 7);
      write(folder / "header" / file, text);
      for (const unsigned char family : Bytes{0, 1, 2, 3, 4, 7})
        write(folder / "frame" / (file + "-" + std::to_string(family)),
              joined(frameOptions(family, 1), text));
      for (unsigned int format = 1; format < 3; ++format)
        write(folder / "frame_files" / (file + "-" + std::to_string(format)),
              joined(fileOptions(format, text), text));
      Bytes steps = {0, 4, 9};
      appendWord(steps, text.size());
      write(folder / "stacker" / file, joined(steps, text));
      Bytes pair;
      appendWord(pair, text.size());
      pair.push_back(0);
      write(folder / "reference_files" / file, joined(joined(pair, text), text));
    }
}

void textSeeds(const fs::path& folder) {
  const std::string texts[] = {"2024/05/17 21:04:33.123456700",
                               "2024/05/17 21:04:33.123NOGPS  ",
                               "2024/05/17 21:04:33.123ERROR  ",
                               "-1.5e300",
                               "0x1F",
                               "1234567890",
                               "DEADbeef",
                               "T",
                               std::string("\0\0\0\x41\x42", 5),
                               "\xC3\xA9\xFF\xFE"};
  unsigned int number = 0;
  for (const std::string& text : texts)
    write(folder / "text_readers" / std::to_string(++number), {text.begin(), text.end()});
}

/// Targets that read their input as a list of choices start from noise of all lengths.
void choiceSeeds(const fs::path& folder) {
  for (unsigned int i = 0; i < 24; ++i) {
    const Bytes bytes = noise(40 + 70 * i, i);
    for (const char* target : {"kernels", "round_trip", "merge", "stacker", "tiff"}) {
      Bytes seed = bytes;
      seed[0] = static_cast<unsigned char>(i);
      write(folder / target / ("noise-" + std::to_string(i)), seed);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const fs::path folder = argv[1];
  fs::remove_all(folder);  // seeds of an earlier version
  frameSeeds(folder);
  specialFrameSeeds(folder);
  headerSeeds(folder);
  referenceSeeds(folder);
  fitsSeeds(folder);
  holeSeeds(folder);
  textSeeds(folder);
  choiceSeeds(folder);
}
