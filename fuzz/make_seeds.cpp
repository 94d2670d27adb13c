// Writes the seeds of every fuzz target below a folder, from the simulator.
//
//   fuzz_seeds FOLDER

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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

sim::HeaderFields small(sim::HeaderFields fields) {
  fields.width = 24;
  fields.height = 6;
  return fields;
}

Bytes joined(unsigned char first, const Bytes& rest) {
  Bytes bytes{first};
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  return bytes;
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
  body.insert(body.end(), block.begin(), block.end());
  return body;
}

Bytes fitsHeader() {
  std::string text;
  for (const char* card :
       {"SIMPLE  = T", "INSTRUME= 'VESTRA VS400'", "DATE-OBS= '2024-05-17T21:04:33.123456700'",
        "XBINNING= 2 / binning", "SENSTEMP= -12.5", "COMMENT   text", "END"}) {
    text += card;
    text.resize((text.size() + 79) / 80 * 80, ' ');
  }
  text.resize(2880, ' ');
  return {text.begin(), text.end()};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const fs::path folder = argv[1];
  unsigned char family = 0;
  for (const sim::Camera& camera : sim::cameras()) {
    for (const char* mode : {"single", "hdr", "16bit", "cms"}) {
      const auto fields = sim::headerFor(camera, mode);
      if (!fields) continue;
      const sim::HeaderFields f = small(*fields);
      const Bytes frame = sim::encodeFrame(f, 3, sim::exposeSky(camera, f, sim::Sky()));
      const std::string name = std::string(camera.name) + "-" + mode;
      write(folder / "frame" / name, joined(family, frame));
      write(folder / "kernels" / name, frame);
      write(folder / "round_trip" / name, frame);
    }
    ++family;
  }
  for (unsigned int version = 1; version <= 4; ++version) {
    sim::HeaderFields f;
    f.otherBlock = {1, 2, 3, 4};
    write(folder / "header" / std::to_string(version), sim::writeHeader(f, version));
    write(folder / "nv_block" / std::to_string(version), calibration(version));
  }
  const sim::Camera& camera = *sim::findCamera("GSENSE400");
  const sim::HeaderFields f = small(*sim::headerFor(camera, "hdr"));
  Bytes pair = sim::dsnuFile(camera, f, sim::Sky());
  const Bytes prnu = sim::prnuFile(camera, f, sim::Sky());
  pair.insert(pair.end(), prnu.begin(), prnu.end());
  write(folder / "reference_files" / "pair", pair);
  write(folder / "fits_header" / "whole", fitsHeader());
  const std::string times[] = {"2024/05/17 21:04:33.123456700", "2024/05/17 21:04:33.123NOGPS  ", "-1.5e300",
                               "0x1F"};
  for (const std::string& text : times)
    write(folder / "text_readers" / std::to_string(text.size()), {text.begin(), text.end()});
}
