// Fixed files and regions through the face.

#include <sys/stat.h>

#include <algorithm>
#include <memory>

#include "face/FaceTesting.h"

using namespace face_testing;
using orvacam::FileFormat;
using orvacam::Frame;

namespace {

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

ORVACAM_OF_EVERY_MODE(FaceFilesOf);

TEST_P(FaceFilesOf, AreThoseOfConvertFileByteForByte) {
  const TestFolder source, expected, given;
  const auto frame = source.put("frame.raw", simulate(fieldsOf(mode)).bytes);
  for (const auto& [format, code] : {std::pair{FileFormat::fits, ORVA_IMAGE_FORMAT_FITS},
                                     std::pair{FileFormat::tiff, ORVA_IMAGE_FORMAT_TIFF}}) {
    const conv_info_t request{static_cast<unsigned int>(code), nullptr, nullptr};
    const auto algo = std::make_unique<CAlgo>();
    ASSERT_GE(
        algo->ConvertFile(frame.wstring().c_str(), &request, (expected.path() / "a.raw").wstring().c_str()),
        0);
    orvacam::convert_file(frame, format, given.path() / "a.raw");
  }
  EXPECT_EQ(namesIn(given.path()), namesIn(expected.path()));
  for (const std::string& name : namesIn(expected.path())) {
    Bytes a = expected.read(name);
    Bytes b = given.read(name);
    EXPECT_EQ(a.size(), b.size()) << name;
    EXPECT_TRUE(a == b) << name;
  }
}

TEST(FaceFiles, NamesOfAnyBytesWork) {
  const TestFolder folder;
  const std::string name = "\xFF\xC3\xBC name";
  const auto frame = folder.put(name + ".raw", simulate(fieldsOf("Imx183")).bytes);
  orvacam::convert_file(frame, FileFormat::fits, folder.path() / (name + ".out"));
  EXPECT_TRUE(std::filesystem::exists(folder.path() / (name + ".fit")));
  EXPECT_EQ(namesIn(folder.path()).size(), 2u);
}

TEST(FaceFiles, ThatCannotBeMadeLeaveNothing) {
  const TestFolder folder;
  const Bytes whole = simulate(fieldsOf("GSense400Hdr")).bytes;
  const auto frame = folder.put("a.raw", whole);
  const auto out = folder.path() / "out";
  std::filesystem::create_directory(out);
  Bytes cut = whole;
  cut.pop_back();
  const auto reason = [&](const std::filesystem::path& source, const std::filesystem::path& destination) {
    return reasonOf([&] { orvacam::convert_file(source, FileFormat::fits, destination); });
  };
  EXPECT_EQ(reason(folder.put("cut.raw", cut), out / "a.fit"), Reason::truncated);
  EXPECT_EQ(reason(folder.path() / "missing", out / "a.fit"), Reason::io);
  EXPECT_EQ(reason(frame, folder.path() / "none" / "a.fit"), Reason::io);
  EXPECT_EQ(reasonOf([&] { orvacam::convert_file("a", static_cast<FileFormat>(3), "b.fit"); }),
            Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { orvacam::convert_file(frame, FileFormat::fits, "nodot"); }), Reason::bad_argument);
  sim::HeaderFields roomy =
      fieldsOf("GSense400Hdr");  // a header with a block, longer than files are read with
  roomy.otherBlock.resize(700);
  EXPECT_EQ(reason(folder.put("roomy.raw", simulate(roomy, 4).bytes), out / "a.fit"), Reason::bad_argument);
  Bytes timeless = whole;
  std::fill_n(timeless.begin() + 152, 30, 0);
  EXPECT_EQ(reason(folder.put("timeless.raw", timeless), out / "a.fit"), Reason::bad_argument);
  EXPECT_TRUE(namesIn(out).empty());
}

TEST(FaceFiles, TakeReferencesThatCoverTheFrame) {
  const TestFolder folder;
  const auto frame = folder.put("a.raw", simulate(fieldsOf("GSense400Hdr")).bytes);
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.height = 8;
  Bytes reference = sim::writeHeader(fields, 3);
  reference.resize(384 + 4 * 24 * 8);
  const auto small = folder.put("small.ref", reference);
  EXPECT_EQ(
      reasonOf([&] { orvacam::convert_file(frame, FileFormat::tiff, folder.path() / "b.tiff", small); }),
      Reason::mismatch);
  fields.height = 10;
  reference = sim::writeHeader(fields, 3);
  reference.resize(384 + 4 * 24 * 10, 1);
  orvacam::convert_file(frame, FileFormat::tiff, folder.path() / "b.tiff", folder.put("d.ref", reference));
  orvacam::convert_file(frame, FileFormat::tiff, folder.path() / "c.tiff");
  EXPECT_NE(folder.read("b_MERGED.tiff"), folder.read("c_MERGED.tiff"));
  EXPECT_EQ(folder.read("b_LOW.tiff"), folder.read("c_LOW.tiff"));
}

// ---- Regions

TEST(FaceCut, IsTheRegionOfEveryPlane) {
  for (const char* mode : {"GSense4040Hdr", "GSense4040Single"}) {
    sim::HeaderFields fields = fieldsOf(mode);
    fields.postRefPixels = 2;
    fields.preRefRows = 3;
    fields.postRefRows = 1;
    fields.preRefPixels = fields.hdr ? 0 : 4;
    fields.startRow = 50;
    const Frame whole = frameOf(fields);
    const Frame region = whole.cut({4, 3, 10, 5});
    EXPECT_EQ(region.header().frame_size(), (orvacam::Size{10, 5}));
    EXPECT_EQ(region.header().image_region(), (orvacam::Region{0, 0, 10, 5}));
    EXPECT_EQ(region.header().start_row(), 0u);
    EXPECT_EQ(region.planes(), whole.planes());
    EXPECT_TRUE(region.check().empty());
    EXPECT_EQ(region.header().temperature_celsius(), whole.header().temperature_celsius());
    EXPECT_EQ(region.header().time(), whole.header().time());
    orvacam::Decoder decoder;
    const auto a = decoder.decode(whole);
    const auto b = decoder.decode(region);
    for (const auto& [from, to] : {std::pair{&a.low, &b.low}, std::pair{&a.high, &b.high},
                                   std::pair{&a.merged, &b.merged}, std::pair{&a.image, &b.image}}) {
      ASSERT_EQ(from->empty(), to->empty());
      for (unsigned int y = 0; y < 5 && !to->empty(); ++y)
        for (unsigned int x = 0; x < 10; ++x)
          ASSERT_EQ((*to)(x, y), (*from)(fields.preRefPixels + 4 + x, 3 + 3 + y)) << x << ", " << y;
    }
  }
}

TEST(FaceCut, RefusesWhatCannotBeCut) {
  const Frame frame = frameOf(fieldsOf("GSense4040Hdr"));
  const auto reason = [&](const orvacam::Region& region) { return reasonOf([&] { frame.cut(region); }); };
  EXPECT_EQ(reason({1, 0, 2, 2}), Reason::bad_argument);
  EXPECT_EQ(reason({0, 0, 3, 2}), Reason::bad_argument);
  EXPECT_EQ(reason({0, 0, 0, 2}), Reason::bad_argument);
  EXPECT_EQ(reason({0, 0, 2, 0}), Reason::bad_argument);
  EXPECT_EQ(reason({16, 0, 10, 2}), Reason::bad_argument);
  EXPECT_EQ(reason({0, 4294967295u, 2, 2}), Reason::bad_argument);
  EXPECT_EQ(reason({4294967294u, 0, 4, 2}), Reason::bad_argument);
  for (const char* mode : {"GSense400Hdr", "GSense4040Sixteen", "Generic"})
    EXPECT_EQ(reasonOf([&] { frameOf(fieldsOf(mode)).cut({0, 0, 2, 2}); }), Reason::unsupported_sensor);
  const Bytes bytes = simulate(fieldsOf("GSense4040Hdr")).bytes;
  EXPECT_EQ(reasonOf([&] {
              Frame::view(bytes.data(), bytes.size() - 1).cut({0, 0, 2, 2});
            }),
            Reason::truncated);
}
