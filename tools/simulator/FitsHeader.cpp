#include "simulator/FitsHeader.h"

namespace orvacam::simulator {

namespace {

constexpr std::size_t cardSize = 80;
constexpr std::size_t blockSize = 2880;

std::string number(unsigned long value) {
  return std::to_string(value);
}

}  // namespace

std::vector<unsigned char> writeCards(const Cards& cards) {
  std::string text;
  const auto add = [&text](std::string card) {
    card.resize(cardSize, ' ');
    text += card;
  };
  add("SIMPLE  =                    T");
  for (const auto& [keyword, value] : cards) {
    std::string card = keyword;
    card.resize(8, ' ');
    add(card + "= " + value);
  }
  add("END");
  text.resize((text.size() + blockSize - 1) / blockSize * blockSize, ' ');
  return {text.begin(), text.end()};
}

Cards cardsOf(const HeaderFields& f) {
  return {{"INSTRUME", "'" + f.model + "'"},
          {"MDLENGTH", number(blockSize)},
          {"MDVER", "4"},
          {"DATE-OBS", "'2024-05-17T21:04:33.123456700'"},
          {"SNRPXLDP", number(f.sensorBits)},
          {"DPIXDEP", number(f.dataBits)},
          {"GAINLOW", number(f.lowGain)},
          {"GAINHIGH", number(f.highGain)},
          {"IMGSTACL", number(f.startColumn)},
          {"IMGSTARW", number(f.startRow)},
          {"IMGSTPCL", number(f.startColumn + f.width - 1)},
          {"IMGSTPRW", number(f.startRow + f.height - 1)},
          {"PRFPXPRW", number(f.preRefPixels)},
          {"RFPXLPRW", number(f.postRefPixels)},
          {"PREREFRW", number(f.preRefRows)},
          {"PSTREFRW", number(f.postRefRows)},
          {"XBINNING", number(f.horizontalBinning)},
          {"YBINNING", number(f.verticalBinning)},
          {"HDR-MODE", number(f.hdr ? 1 : 0)},
          {"PXLORDIM", number(f.pixelOrdered ? 1 : 0)},
          {"SENSRDQ", number(f.quadrants)},
          {"CMS", number(f.correlatedMultipleSampling ? 1 : 0)},
          {"BKSDILL", number(f.backSideIlluminated ? 1 : 0)}};
}

std::vector<unsigned char> inFitsForm(const HeaderFields& fields, const std::vector<unsigned char>& frame) {
  std::vector<unsigned char> bytes = writeCards(cardsOf(fields));
  bytes.insert(bytes.end(), frame.begin() + headerSize(3), frame.end());
  return bytes;
}

}  // namespace orvacam::simulator
