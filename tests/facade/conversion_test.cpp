// Raw frame files become image files.

#include <orvacam.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "TestFolder.h"
#include "frames/FrameTesting.h"

namespace {

using namespace frame_testing;

class Conversion : public ::testing::Test {
 protected:
  int convert(const RawFrame& raw, unsigned int format, const char* destination = "out.image.raw") {
    const std::wstring source = folder.write("source.bin", raw.bytes);
    conv_info_t info{format, nullptr, nullptr};
    return algo.ConvertFile(source.c_str(), &info, folder.wideFile(destination).c_str());
  }
  std::vector<std::string> written() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
      if (entry.path().filename() != "source.bin") names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }
  /// The file's pixels from an offset on, as far as it goes.
  Pixels pixelsOf(const std::string& name, std::size_t offset, bool bigEndian) const {
    const Bytes bytes = folder.read(name);
    Pixels pixels;
    for (std::size_t i = offset; i + 1 < bytes.size(); i += 2)
      pixels.push_back(static_cast<unsigned short>(bigEndian ? bytes[i] << 8 | bytes[i + 1]
                                                             : bytes[i + 1] << 8 | bytes[i]));
    return pixels;
  }

  TestFolder folder;
  CAlgo algo;
  RawFrame hdr{header("VESTRA VS400", 12, true, 100, 60)};
  RawFrame single{header("VESTRA VS4040", 12, false, 100, 60)};
};

TEST_F(Conversion, GivesTheSameFilesWhateverTheObjectConvertedBefore) {
  // Memory is kept from file to file; nothing of an earlier frame may come through.
  const auto ccd = [](unsigned int quadrants) {
    sim::HeaderFields fields = header("ARGENT 230-84", 16, false, 20, 31);  // the middle row is not written
    fields.quadrants = quadrants;
    return RawFrame(fields);
  };
  RawFrame other(header("VESTRA VS400", 12, true, 100, 60), 3, 77);
  RawFrame cut = other;
  cut.bytes.resize(cut.bytes.size() / 2);
  RawFrame padded = other;  // the same length, the first planes' size
  padded.bytes = cut.bytes;
  padded.bytes.resize(other.bytes.size());
  const RawFrame large(header("VESTRA VS400", 12, true, 300, 200));
  sim::HeaderFields full = header("VESTRA VS4040", 12, true, 100, 60);
  full.backSideIlluminated = full.globalReset = full.gpsError = full.extraFlagBit7 = true;
  // These stay, as headers without them do not say otherwise.
  full.blackLevelHigh = full.blackLevelSunHigh = 0;
  const RawFrame first(full, 4), next(header("VESTRA PLAIN", 16, false, 6, 4), 1);
  const RawFrame sequence[] = {hdr, other,   cut,       hdr,     padded, large, single, single,
                               hdr, ccd(32), ccd(0x3C), ccd(32), cut,    other, first,  next};
  unsigned int step = 0;
  for (const RawFrame& raw : sequence) {
    SCOPED_TRACE(step++);
    const int kept = convert(raw, ORVA_IMAGE_FORMAT_TIFF, "kept.raw");
    CAlgo fresh;
    const conv_info_t info{ORVA_IMAGE_FORMAT_TIFF, nullptr, nullptr};
    EXPECT_EQ(
        fresh.ConvertFile(folder.wideFile("source.bin").c_str(), &info, folder.wideFile("fresh.raw").c_str()),
        kept);
    std::vector<std::string> endings;
    for (const std::string& name : written())
      if (name.rfind("fresh", 0) == 0) endings.push_back(name.substr(5));
    EXPECT_EQ(written().size(), 2 * endings.size());
    for (const std::string& ending : endings)
      EXPECT_EQ(folder.read("kept" + ending), folder.read("fresh" + ending)) << ending;
    for (const std::string& name : written())
      std::filesystem::remove(folder.file(name));
  }
}

TEST_F(Conversion, WithReferenceFilesCorrectsTheMergedPlane) {
  const sim::Camera& camera = *sim::findCamera("gsense400");
  sim::HeaderFields fields = *sim::headerFor(camera, "hdr");
  const sim::Sky sky;
  const std::wstring dsnu = folder.write("dsnu", sim::dsnuFile(camera, fields, sky));
  const std::wstring prnu = folder.write("prnu", sim::prnuFile(camera, fields, sky));
  const std::wstring source =
      folder.write("source.bin", sim::encodeFrame(fields, 3, sim::exposeSky(camera, fields, sky)));
  const conv_info_t info{ORVA_IMAGE_FORMAT_TIFF, dsnu.c_str(), prnu.c_str()};
  ASSERT_GE(algo.ConvertFile(source.c_str(), &info, folder.wideFile("a.raw").c_str()), 0);
  ASSERT_GE(convert(hdr, ORVA_IMAGE_FORMAT_TIFF, "b.raw"), 0);  // back to identity, of another size
  const conv_info_t missing{ORVA_IMAGE_FORMAT_TIFF, L"/nowhere", nullptr};
  EXPECT_EQ(algo.ConvertFile(source.c_str(), &missing, folder.wideFile("c.raw").c_str()), -1);
  EXPECT_FALSE(folder.has("c_LOW.tiff"));
}

TEST_F(Conversion, WritesPixelsAloneWhateverLayoutMergesInMemoryHave) {
  algo.SetHWMergeEnables({5, ORVA_IMAGE_FORMAT_TIFF, 2});
  ASSERT_GE(convert(hdr, ORVA_IMAGE_FORMAT_TIFF), 0);
  EXPECT_EQ(pixelsOf("out.image_MERGED.tiff", 1040, false), hdr.plane(1));
  hw_merge_enables_t enables{};
  algo.GetHWMergeEnables(enables);
  EXPECT_EQ(enables.uiImageFormat, 1u);
}

TEST_F(Conversion, ThrowsOutOfRangeForADestinationWithoutADot) {
  const std::wstring source = folder.write("source.bin", hdr.bytes);
  conv_info_t info{ORVA_IMAGE_FORMAT_FITS, nullptr, nullptr};
  EXPECT_THROW(algo.ConvertFile(source.c_str(), &info, L"nodot"), std::out_of_range);
  info.uiFormat = ORVA_IMAGE_FORMAT_TIFF;
  EXPECT_THROW(algo.ConvertFile(source.c_str(), &info, L"nodot"), std::out_of_range);
}

TEST_F(Conversion, ToAnotherFormatLeavesAnEmptyDestination) {
  EXPECT_EQ(convert(hdr, 0, "zero.raw"), 0);
  EXPECT_EQ(convert(hdr, 3, "three.raw"), 0);
  EXPECT_EQ(written(), (std::vector<std::string>{"three.raw", "zero.raw"}));
  EXPECT_TRUE(folder.read("zero.raw").empty());
  EXPECT_TRUE(folder.read("three.raw").empty());
}

TEST_F(Conversion, RefusesNullArgumentsWithAMessage) {
  const LogCapture log;
  CAlgo fresh;
  conv_info_t info{2, nullptr, nullptr};
  EXPECT_EQ(fresh.ConvertFile(nullptr, &info, L"a.b"), -1);
  EXPECT_EQ(fresh.ConvertFile(L"a.b", nullptr, L"a.b"), -1);
  EXPECT_EQ(fresh.ConvertFile(L"a.b", &info, nullptr), -1);
  const std::string line = "ERROR, ConvertFile: Invalid (NULL) parameter specified!\n";
  EXPECT_EQ(log.text(), line + line + line);
}

TEST_F(Conversion, FailsForSourcesThatCannotBeOpenedParsedOrDecoded) {
  conv_info_t info{2, nullptr, nullptr};
  EXPECT_EQ(algo.ConvertFile(folder.wideFile("none").c_str(), &info, folder.wideFile("o.x").c_str()), -1);
  RawFrame cut = hdr;
  cut.bytes.resize(100);
  EXPECT_LE(convert(cut, ORVA_IMAGE_FORMAT_FITS), 0);
  cut.bytes = hdr.bytes;
  cut.bytes.pop_back();
  EXPECT_EQ(convert(cut, ORVA_IMAGE_FORMAT_FITS), -1);
  EXPECT_EQ(convert(cut, ORVA_IMAGE_FORMAT_TIFF), -1);
  EXPECT_FALSE(folder.has("out.image_LOW.fit"));
}

TEST_F(Conversion, WritesTheOtherPlanesWhenOneCannotBeWritten) {
  // Folders stand where two of the files go: only the status of the last plane is told.
  const struct {
    unsigned int format;
    const char *low, *high, *merged;
  } rows[] = {{1, "o_LOW.tiff", "o_HIGH.tiff", "o_MERGED.tiff"},
              {2, "o_LOW.fit", "o_HIGH.fit", "o_MERGED.fit"}};
  for (const auto& row : rows) {
    std::filesystem::create_directory(folder.file(row.low));
    EXPECT_GE(convert(hdr, row.format, "o.raw"), 0) << row.format;
    EXPECT_FALSE(folder.read(row.high).empty());
    EXPECT_FALSE(folder.read(row.merged).empty());
    std::filesystem::remove(folder.file(row.merged));
    std::filesystem::create_directory(folder.file(row.merged));
    EXPECT_EQ(convert(hdr, row.format, "o.raw"), -1) << row.format;
  }
}

/// Its protected step, for programs that derive from the façade.
class Steps : public CAlgo {
 public:
  using CAlgo::DoConvertBase;
};

TEST_F(Conversion, HandsThePlanesOfAFileToADerivedClass) {
  Steps steps;
  unpacked_images_t images{};
  const conv_info_t info{ORVA_IMAGE_FORMAT_TIFF, nullptr, nullptr};
  ASSERT_EQ(steps.DoConvertBase(folder.write("hdr.bin", hdr.bytes).c_str(), &info, &images), 0);
  EXPECT_TRUE(images.bMetaDataRequest && images.bLowImageRequest && images.bHighImageRequest &&
              images.bMergedImageRequest);
  const std::size_t pixels = hdr.plane(0).size();
  ASSERT_EQ(images.ulLowImageSize, 2 * pixels);
  EXPECT_EQ(Pixels(images.pLowImage, images.pLowImage + pixels), hdr.plane(0));
  EXPECT_EQ(Pixels(images.pHighImage, images.pHighImage + pixels), hdr.plane(1));
  EXPECT_EQ(images.ulMergedImagePixels, pixels);
  CFrameMetaData merged;
  ASSERT_EQ(merged.Parse(images.pMergedMetaData, images.uiMetaDataSize), 0);
  EXPECT_TRUE(merged.Value(ORVA_META_KEY_TEST_IS_MERGED_FRAME).GetValueBool());
  steps.FreeFramePointers(&images);
  EXPECT_EQ(images.pLowImage, nullptr);

  images = {};
  ASSERT_EQ(steps.DoConvertBase(folder.write("single.bin", single.bytes).c_str(), &info, &images), 0);
  EXPECT_EQ(Pixels(images.pLowImage, images.pLowImage + pixels), single.plane(0));
  EXPECT_TRUE(images.pHighImage == nullptr && images.pMergedImage == nullptr);
  steps.FreeFramePointers(&images);
}

TEST_F(Conversion, HandsOverWhatAFailureLeavesAndNothingBefore) {
  Steps steps;
  unpacked_images_t images{};
  const conv_info_t info{ORVA_IMAGE_FORMAT_TIFF, nullptr, nullptr};
  RawFrame cut = hdr;
  cut.bytes.resize(cut.bytes.size() / 2);
  EXPECT_EQ(steps.DoConvertBase(folder.write("cut.bin", cut.bytes).c_str(), &info, &images), -1);
  EXPECT_NE(images.pLowImage, nullptr);
  steps.FreeFramePointers(&images);

  images = {};
  images.ulLowImagePixels = 77;
  const std::wstring source = folder.write("hdr.bin", hdr.bytes);
  EXPECT_EQ(steps.DoConvertBase(L"/nowhere", &info, &images), -1);
  EXPECT_EQ(steps.DoConvertBase(nullptr, &info, &images), -1);
  EXPECT_EQ(steps.DoConvertBase(source.c_str(), nullptr, &images), -1);
  EXPECT_EQ(steps.DoConvertBase(source.c_str(), &info, nullptr), -1);
  EXPECT_TRUE(images.pLowImage == nullptr && images.ulLowImagePixels == 77);
}

TEST(ProcessedFileName, ReplacesTheExtensionAfterTheLastDotOfThePath) {
  CAlgo names;
  EXPECT_EQ(names.MakeProcessedFileName(L"out/frame.raw", "_LOW", ".fit"), "out/frame_LOW.fit");
  EXPECT_EQ(names.MakeProcessedFileName(L"a.b.c", "", ".tiff"), "a.b.tiff");
  EXPECT_EQ(names.MakeProcessedFileName(L"folder.x/name", "_HIGH", ".fit"),
            "folder_HIGH.fit");  // the dot of the folder
  EXPECT_EQ(names.MakeProcessedFileName(L"a.b", "_X", nullptr), "a_X");
  EXPECT_EQ(names.MakeProcessedFileName(L"a.b", nullptr, ".fit"), "a.fit");
  EXPECT_THROW(names.MakeProcessedFileName(L"", "", ".fit"), std::out_of_range);
}

}  // namespace
