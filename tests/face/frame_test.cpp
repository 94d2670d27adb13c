// Frames: where they come from, what they yield, and what a look at them brings up.

#include <fcntl.h>
#include <sys/stat.h>

#include <map>

#include "face/FaceTesting.h"
#include "support/Contains.h"

using namespace face_testing;
using orvacam::Finding;
using orvacam::Frame;

namespace {

Finding findingOf(const Frame& frame, const std::string& id) {
  for (const Finding& finding : frame.check())
    if (finding.id == id) return finding;
  throw std::out_of_range("no finding " + id);
}

/// That a frame is refused, by check and by decoding alike.
void expectRefused(const Frame& frame, const std::string& id, Reason reason, const std::string& words) {
  const Finding finding = findingOf(frame, id);
  EXPECT_EQ(finding.severity, Finding::Severity::error);
  EXPECT_EQ(finding.reason, reason);
  EXPECT_TRUE(contains(finding.text, words));
  EXPECT_TRUE(frame.planes().empty());
  orvacam::Decoder decoder;
  const auto error = errorOf([&] { decoder.decode(frame); });
  EXPECT_EQ(error.reason(), frame.check().front().reason);
  EXPECT_EQ(error.what(), frame.check().front().text);
}

/// That a frame has a finding and decodes all the same.
void expectRemarked(const Frame& frame, const std::string& id, Finding::Severity severity,
                    const std::string& words) {
  const Finding finding = findingOf(frame, id);
  EXPECT_EQ(finding.severity, severity);
  EXPECT_TRUE(contains(finding.text, words));
  EXPECT_FALSE(frame.planes().empty());
  orvacam::Decoder decoder;
  EXPECT_NO_THROW(decoder.decode(frame));
}

}  // namespace

ORVACAM_OF_EVERY_MODE(FaceFrameOf);

TEST_P(FaceFrameOf, NamesItsPlanesAndIsSane) {
  const Frame frame = frameOf(fieldsOf(mode));
  EXPECT_EQ(frame.planes(), planes);
  EXPECT_EQ(idsOf(frame.check()), sensorOf(mode) == "GENERIC" ? std::vector<std::string>{"unknown_sensor"}
                                                              : std::vector<std::string>());
}

TEST_P(FaceFrameOf, CutOffAnywhereNamesTheBytesThatItNeeds) {
  const SimulatedFrame whole = simulate(fieldsOf(mode));
  for (const std::size_t missing : {std::size_t{1}, std::size_t{7}, whole.bytes.size() - 384}) {
    const Frame frame = Frame::view(whole.bytes.data(), whole.bytes.size() - missing);
    EXPECT_EQ(idsOf(frame.check()).front(), "pixels_missing");
    EXPECT_TRUE(frame.planes().empty());
    orvacam::Decoder decoder;
    const auto error = errorOf([&] { decoder.decode(frame); });
    EXPECT_EQ(error.reason(), Reason::truncated);
    EXPECT_EQ(error.needed(), whole.bytes.size());
    EXPECT_EQ(error.available(), whole.bytes.size() - missing);
  }
}

// ---- Where frames come from

TEST(FaceFrame, IsReadCopiedAndViewedAlike) {
  const TestFolder folder;
  const Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  orvacam::Decoder decoder;
  const auto read = decoder.decode(Frame::read(folder.put("a.raw", bytes)));
  const auto copy = decoder.decode(copied(bytes));
  const auto view = decoder.decode(Frame::view(bytes.data(), bytes.size()));
  EXPECT_EQ(pixelsOf(read.merged), pixelsOf(copy.merged));
  EXPECT_EQ(pixelsOf(read.merged), pixelsOf(view.merged));
  EXPECT_FALSE(read.merged.empty());
}

TEST(FaceFrame, OfAFileDoesNotMindLaterChangesOfIt) {
  const TestFolder folder;
  const Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  const auto path = folder.put("a.raw", bytes);
  const Frame frame = Frame::read(path);
  std::filesystem::remove(path);
  EXPECT_EQ(frame.bytes(), std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  EXPECT_NO_THROW(orvacam::Decoder().decode(frame));
}

TEST(FaceFrame, OfMoreThanTheStartIsReadWhole) {
  const TestFolder folder;
  const Bytes bytes = simulate(fieldsOf(modeNamed("GSense4040Hdr"), 256, 200)).bytes;
  ASSERT_GT(bytes.size(), 65536u);
  const Frame frame = Frame::read(folder.put("a.raw", bytes));
  EXPECT_EQ(frame.bytes(), std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

namespace {

/// Bytes that this process has read so far, as the system counts them; what asking takes is not among them.
std::uint64_t bytesRead() {
  std::ifstream file("/proc/self/io");
  std::string name;
  std::uint64_t bytes = 0;
  file >> name >> bytes;
  return bytes;
}

}  // namespace

TEST(FaceFrame, IsReadOnceAndAHeaderNeedsNoMoreThanTheStart) {
  const TestFolder folder;
  const Bytes bytes = simulate(fieldsOf(modeNamed("GSense4040Hdr"), 512, 512)).bytes;
  const auto path = folder.put("a.raw", bytes);
  const std::uint64_t start = bytesRead();
  if (start == 0) return;  // the system does not say
  const std::uint64_t asking = bytesRead() - start;
  const std::uint64_t beforeHeader = bytesRead();
  orvacam::Header::read(path);
  EXPECT_LE(bytesRead() - beforeHeader, 65536 + asking + 16);
  const std::uint64_t beforeFrame = bytesRead();
  Frame::read(path);
  EXPECT_LE(bytesRead() - beforeFrame, bytes.size() + asking + 16);
}

TEST(FaceFrame, AnyFileNameWorksAndComesBack) {
  const TestFolder folder;
  const Bytes bytes = simulate(fieldsOf("Generic")).bytes;
  for (const std::string& name : {std::string("\xC3\xBCn\xC3\xAF.raw"), std::string("\xFF\xFE bad bytes.raw"),
                                  std::string(255, 'x'), std::string("new\nline"), std::string("-")}) {
    EXPECT_NO_THROW(Frame::read(folder.put(name, bytes))) << name;
    const Bytes none;
    const auto error = errorOf([&] { Frame::read(folder.put(name, none)); });
    EXPECT_EQ(error.path(), (folder.path() / name).native());
  }
}

TEST(FaceFrame, AFifoIsAnsweredAtOnce) {
  const TestFolder folder;
  const std::string path = (folder.path() / "fifo").string();
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const auto error = errorOf([&] { Frame::read(path); });
  EXPECT_EQ(error.reason(), Reason::io);
  EXPECT_TRUE(contains(error.what(), "no regular file"));
  EXPECT_EQ(reasonOf([&] { orvacam::Header::read(path); }), Reason::io);
  EXPECT_EQ(reasonOf([&] { orvacam::Decoder().dsnu(path); }), Reason::io);
}

TEST(FaceFrame, DevicesAndFoldersAreNoFiles) {
  EXPECT_EQ(reasonOf([] { Frame::read("/dev/zero"); }), Reason::io);
  EXPECT_EQ(reasonOf([] { Frame::read("/"); }), Reason::io);
  EXPECT_EQ(errorOf([] { Frame::read("/"); }).system_error(), EISDIR);
}

TEST(FaceFrame, ErrorsOfDecodingNameTheFile) {
  const TestFolder folder;
  Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  bytes.pop_back();
  const auto path = folder.put("short.raw", bytes);
  const Frame frame = Frame::read(path);
  EXPECT_EQ(errorOf([&] { orvacam::Decoder().decode(frame); }).path(), path.string());
}

TEST(FaceFrame, WhatIsNoFrameIsRefused) {
  const TestFolder folder;
  const Bytes text(100000, 'x');
  EXPECT_EQ(reasonOf([&] { Frame::read(folder.put("x", text)); }), Reason::not_a_frame);
  EXPECT_EQ(reasonOf([&] { copied(text); }), Reason::not_a_frame);
  EXPECT_EQ(reasonOf([&] { Frame::view(nullptr, 5); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { Frame::copy(nullptr, 0); }), Reason::not_a_frame);
}

// ---- Errors

TEST(FaceFinding, HeaderThatIsTooShortForItsVersion) {
  Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  bytes[4] = 0;
  bytes[5] = 200;
  expectRefused(copied(bytes), "header_too_short", Reason::bad_geometry,
                "states a header of 200 bytes; version 3 needs 384");
}

TEST(FaceFinding, ImageThatStopsBeforeItStarts) {
  Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  bytes[128] = bytes[129] = 0;
  bytes[125] = 8;
  expectRefused(copied(bytes), "no_image", Reason::bad_geometry, "columns 8 to 0");
}

TEST(FaceFinding, PairsThatASensorDoesNotSend) {
  for (const char* mode : {"Generic", "Imx183", "Lsgen", "FourAmplifiers", "GSense6060Sixteen"}) {
    Bytes bytes = simulate(fieldsOf(mode)).bytes;
    bytes[98] |= 0x20;
    expectRefused(copied(bytes), "impossible_pair", Reason::unsupported_sensor,
                  "is marked as a pair of two gains, of 16 bits");
  }
}

TEST(FaceFinding, DepthsThatASensorDoesNotSend) {
  const std::map<std::string, std::vector<unsigned int>> impossible = {
      {"GSense400Single", {16, 8, 14}}, {"GSense2020Single", {8, 14}}, {"GSense4040Single", {10}},
      {"GSense6060Twelve", {14}},       {"Generic", {12, 8}},          {"Imx183", {12}},
      {"FourAmplifiers", {12, 14}}};
  for (const auto& [mode, depths] : impossible)
    for (const unsigned int bits : depths) {
      Bytes bytes = simulate(fieldsOf(mode)).bytes;
      bytes[80] = static_cast<unsigned char>(bits - 1);
      bytes.resize(bytes.size() * 2);
      expectRefused(copied(bytes), "impossible_depth", Reason::unsupported_sensor,
                    "has pixels of " + std::to_string(bits) + " bits");
    }
}

TEST(FaceFinding, PairsArePackedWhateverTheDepthFieldSays) {
  for (const char* mode : {"GSense400Hdr", "GSense2020Hdr", "GSense4040Hdr"}) {
    const SimulatedFrame frame = simulate(fieldsOf(mode));
    Bytes bytes = frame.bytes;
    bytes[80] = 15;
    EXPECT_TRUE(copied(bytes).check().empty());
    EXPECT_EQ(pixelsOf(orvacam::Decoder().decode(copied(bytes)).low), frame.planes[0]);
  }
}

TEST(FaceFinding, CcdWithoutAmplifiers) {
  sim::HeaderFields fields = fieldsOf("FourAmplifiers");
  Bytes bytes = simulate(fields).bytes;
  bytes[140] &= static_cast<unsigned char>(~0x3C);
  expectRefused(copied(bytes), "no_amplifier", Reason::unsupported_sensor,
                "which amplifiers read its CCD230-42");
  // Headers of versions 1 and 2 cannot say.
  expectRefused(frameOf(sim::asVersion(fields, 2), 2), "no_amplifier", Reason::unsupported_sensor,
                "amplifiers");
}

TEST(FaceFinding, BinningThatASensorDoesNotSend) {
  for (const char* mode : {"GSense400Hdr", "GSense400Single", "FourAmplifiers"}) {
    sim::HeaderFields fields = fieldsOf(mode);
    fields.horizontalBinning = 2;
    fields.verticalBinning = 3;
    Bytes bytes = simulate(fieldsOf(mode)).bytes;
    const Bytes header = sim::writeHeader(fields, 3);
    std::copy(header.begin(), header.end(), bytes.begin());
    expectRefused(copied(bytes), "impossible_binning", Reason::bad_geometry, "is binned 2 x 3");
  }
}

TEST(FaceFinding, BinningOfOtherSensorsIsDecoded) {
  for (const char* mode : {"GSense2020Hdr", "GSense4040Single", "GSense6060Hdr", "Generic"}) {
    sim::HeaderFields fields = fieldsOf(mode);
    fields.horizontalBinning = 2;
    fields.verticalBinning = 2;
    const Frame frame = frameOf(fields);
    EXPECT_FALSE(frame.planes().empty()) << mode;
    EXPECT_EQ(frame.header().frame_size(), (orvacam::Size{12, 5}));
  }
}

TEST(FaceFinding, ReferenceRegionsThatFramesDoNotCarry) {
  struct {
    const char* mode;
    unsigned int prePixels, postPixels, preRows, postRows;
  } const cases[] = {{"GSense400Hdr", 4, 0, 0, 0},  {"GSense400Hdr", 0, 4, 0, 2},
                     {"GSense400Hdr", 4, 4, 2, 4},  {"GSense2020Hdr", 4, 0, 0, 0},
                     {"GSense4040Hdr", 6, 2, 1, 1}, {"Generic", 2, 0, 0, 0},
                     {"Generic", 0, 0, 1, 0},       {"Imx183", 0, 2, 0, 2}};
  for (const auto& c : cases) {
    sim::HeaderFields fields = fieldsOf(c.mode);
    fields.preRefPixels = c.prePixels;
    fields.postRefPixels = c.postPixels;
    fields.preRefRows = c.preRows;
    fields.postRefRows = c.postRows;
    Bytes bytes = sim::writeHeader(fields, 3);
    bytes.resize(20000);
    expectRefused(copied(bytes), "impossible_reference_regions", Reason::bad_geometry,
                  "states reference regions (" + std::to_string(c.prePixels) + " pixels before and " +
                      std::to_string(c.postPixels));
  }
}

TEST(FaceFinding, OddRunsOfPackedPixels) {
  for (const char* mode :
       {"GSense400Hdr", "GSense400Single", "GSense2020Hdr", "GSense4040Single", "GSense6060Hdr"}) {
    sim::HeaderFields fields = fieldsOf(modeNamed(mode), 23, 10);
    expectRefused(frameOf(fields), "odd_run", Reason::bad_geometry, "runs of 23 pixels");
    fields.width = 24;
    fields.postRefPixels = 3;
    expectRefused(frameOf(fields), "odd_run", Reason::bad_geometry, "runs of 3 pixels");
  }
}

TEST(FaceFinding, OddWidthsOfOtherPixelsAreDecoded) {
  for (const char* mode : {"GSense2020Sixteen", "GSense6060Sixteen", "Generic", "FourAmplifiers"})
    EXPECT_EQ(frameOf(fieldsOf(modeNamed(mode), 23, 10)).planes(), (std::vector<std::string>{"image"}))
        << mode;
}

TEST(FaceFinding, MissingPixelsAreToldWithTheRowsThatAreWhole) {
  sim::HeaderFields fields = fieldsOf(modeNamed("GSense4040Hdr"), 4096, 2048);
  Bytes bytes = sim::writeHeader(fields, 3);
  bytes.resize(8123456);
  // 2 x 6144 bytes for a row of both planes: (8123456 - 384) / 12288 = 661.05
  expectRefused(
      copied(bytes), "pixels_missing", Reason::truncated,
      "needs 25166208 bytes (4096 x 2048 pixels of 12 bits in two planes behind a header of 384 bytes), "
      "ends at byte 8123456: 661 of 2048 rows are whole");
}

TEST(FaceFinding, WholeRowsOfEveryPacking) {
  const auto textOf = [](const char* mode, std::size_t rowBytes, unsigned int rows) {
    const Bytes bytes = simulate(fieldsOf(mode)).bytes;
    const Frame frame = Frame::view(bytes.data(), 384 + rows * rowBytes + rowBytes - 1);
    return findingOf(frame, "pixels_missing").text;
  };
  EXPECT_TRUE(contains(textOf("Generic", 48, 3), "of 16 bits behind a header"));
  EXPECT_TRUE(contains(textOf("Generic", 48, 3), ": 3 of 10 rows are whole"));
  EXPECT_TRUE(contains(textOf("FourAmplifiers", 48, 9), ": 9 of 10 rows are whole"));
  EXPECT_TRUE(contains(textOf("GSense400Single", 36, 0), ": 0 of 10 rows are whole"));
  EXPECT_TRUE(contains(textOf("GSense6060Hdr", 72, 9), ": 9 of 10 rows are whole"));
}

TEST(FaceFinding, PlanesOfMoreThanFourGigabytes) {
  sim::HeaderFields fields = fieldsOf("Generic");
  fields.width = fields.height = 65535;
  const Bytes bytes = sim::writeHeader(fields, 3);
  const Frame frame = copied(bytes);
  EXPECT_EQ(findingOf(frame, "too_large").severity, Finding::Severity::error);
  EXPECT_EQ(findingOf(frame, "pixels_missing").severity, Finding::Severity::error);
  EXPECT_EQ(reasonOf([&] { orvacam::Decoder().decode(frame); }), Reason::truncated);
}

// ---- Warnings and notes

TEST(FaceFinding, UnknownSensorsAreDecodedAsPlainCameras) {
  expectRemarked(frameOf(fieldsOf("Generic")), "unknown_sensor", Finding::Severity::warning,
                 "\"VESTRA PLAIN\"");
  EXPECT_TRUE(frameOf(fieldsOf("Imx183")).check().empty());
  EXPECT_TRUE(frameOf(fieldsOf("Lsgen")).check().empty());
}

TEST(FaceFinding, UnknownVersionsAreReadAsFour) {
  for (const unsigned int version : {0, 5, 700}) {
    Bytes bytes = simulate(fieldsOf("GSense400Hdr"), 4).bytes;
    bytes[6] = static_cast<unsigned char>(version >> 8);
    bytes[7] = static_cast<unsigned char>(version);
    expectRemarked(copied(bytes), "unknown_version", Finding::Severity::warning,
                   "header version " + std::to_string(version));
  }
}

TEST(FaceFinding, ImageLargerThanTheStatedPixels) {
  Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  bytes[81] = 0;
  bytes[82] = 20;
  expectRemarked(copied(bytes), "sizes_disagree", Finding::Severity::warning, "states 20 x 10");
}

TEST(FaceFinding, CcdOfOddHeightLacksItsMiddleRow) {
  const Frame frame = frameOf(fieldsOf(modeNamed("FourAmplifiers"), 24, 11));
  expectRemarked(frame, "middle_row", Finding::Severity::warning, "row 5 of the plane is 0");
  EXPECT_EQ(idsOf(frame.check()), (std::vector<std::string>{"middle_row"}));
  const orvacam::Plane image = orvacam::Decoder().decode(frame).image;
  for (unsigned int x = 0; x < 24; ++x)
    EXPECT_EQ(image(x, 5), 0);
}

TEST(FaceFinding, TrailingBytesAndWhetherTheyBeginAFrame) {
  const Bytes one = simulate(fieldsOf("GSense400Hdr")).bytes;
  Bytes bytes = one;
  bytes.insert(bytes.end(), 5, 'x');
  expectRemarked(copied(bytes), "trailing_bytes", Finding::Severity::warning,
                 "has 5 bytes behind its end at byte " + std::to_string(one.size()));
  EXPECT_FALSE(contains(findingOf(copied(bytes), "trailing_bytes").text, "another frame"));
  bytes = one;
  bytes.insert(bytes.end(), one.begin(), one.end());
  expectRemarked(copied(bytes), "trailing_bytes", Finding::Severity::warning, "which begin another frame");
}

TEST(FaceFinding, TimesThatDoNotExist) {
  Bytes bytes = simulate(fieldsOf("GSense400Hdr")).bytes;
  const std::string time = "2024/02/30 10:00:00.000000000";
  std::copy(time.begin(), time.end(), bytes.begin() + 152);
  expectRemarked(copied(bytes), "no_time", Finding::Severity::warning, "capture time");
  std::fill_n(bytes.begin() + 152, 30, 0);
  expectRemarked(copied(bytes), "no_time", Finding::Severity::warning, "capture time");
}

TEST(FaceFinding, TemperaturesFarOffTheSetPoint) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.temperatureSetPoint = -200;
  for (const int temperature : {-250, -150, -200}) {
    fields.chipTemperature = temperature;
    EXPECT_TRUE(frameOf(fields).check().empty());
  }
  fields.chipTemperature = -149;
  expectRemarked(frameOf(fields), "temperature_off", Finding::Severity::warning,
                 "was taken at -14.9 degrees Celsius, with a set point of -20.0");
  fields.chipTemperature = -251;
  expectRemarked(frameOf(fields), "temperature_off", Finding::Severity::warning, "-25.1");
  EXPECT_TRUE(frameOf(fields, 1).check().empty());
}

TEST(FaceFinding, BlocksThatPointOutside) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.otherType = 3;
  fields.otherBlock = {1, 2, 3, 4};
  const Bytes whole = simulate(fields, 4).bytes;
  EXPECT_TRUE(copied(whole).check().empty());
  Bytes bytes = whole;
  bytes[251] = 1;
  expectRemarked(copied(bytes), "stray_block", Finding::Severity::warning,
                 "bytes 385 to 389, outside the header of 388 bytes");
  bytes = whole;
  std::fill_n(bytes.begin() + 244, 8, 0xFF);
  expectRemarked(copied(bytes), "stray_block", Finding::Severity::warning, "outside the header");
}

TEST(FaceFinding, LongerHeadersAreWherePixelsBegin) {
  const SimulatedFrame plain = simulate(fieldsOf("GSense400Hdr"));
  Bytes bytes = plain.bytes;
  bytes.insert(bytes.begin() + 384, 16, 0xAB);
  bytes[5] = static_cast<unsigned char>(bytes[5] + 16);
  expectRemarked(copied(bytes), "header_longer", Finding::Severity::note,
                 "of 400 bytes, where version 3 needs 384");
  EXPECT_EQ(pixelsOf(orvacam::Decoder().decode(copied(bytes)).low), plain.planes[0]);
}

TEST(FaceFinding, ErrorsComeFirstThenWarningsThenNotes) {
  Bytes bytes = simulate(fieldsOf("Generic")).bytes;
  bytes.insert(bytes.begin() + 384, 16, 0);
  bytes[5] = static_cast<unsigned char>(bytes[5] + 16);
  bytes.pop_back();
  std::fill_n(bytes.begin() + 152, 30, 0);
  EXPECT_EQ(idsOf(copied(bytes).check()),
            (std::vector<std::string>{"pixels_missing", "unknown_sensor", "no_time", "header_longer"}));
}

TEST(FaceFinding, EveryKindIsListedOnceWithItsMeaning) {
  std::set<std::string> ids;
  Finding::Severity last = Finding::Severity::error;
  for (const Finding& kind : orvacam::finding_kinds()) {
    EXPECT_TRUE(ids.insert(kind.id).second) << kind.id;
    EXPECT_FALSE(kind.text.empty());
    EXPECT_EQ(kind.severity == Finding::Severity::error, kind.reason != Reason{});
    EXPECT_LE(kind.severity, last);
    last = kind.severity;
  }
  EXPECT_EQ(ids.size(), 20u);
}
