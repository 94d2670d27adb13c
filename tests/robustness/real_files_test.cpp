// The library where files are not what they should be and disks are full.

#include <orvacam.h>

#include "robustness/Frames.h"
#include "robustness/Surroundings.h"

namespace {

using namespace robustness;

/// Complaints of a child, collected.
class Complaints {
 public:
  void unless(bool condition, const std::string& what) {
    if (!condition) m_text += what + "\n";
  }
  std::string text() const { return m_text; }

 private:
  std::string m_text;
};

struct Planes {
  explicit Planes(CAlgo& owner) : algo(owner) {
    images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest = true;
  }
  Planes(const Planes&) = delete;
  Planes& operator=(const Planes&) = delete;
  ~Planes() { algo.FreeFramePointers(&images); }

  std::vector<unsigned short> merged() const {
    if (images.pMergedImage == nullptr) return {};
    return {images.pMergedImage, images.pMergedImage + images.ulMergedImagePixels};
  }

  CAlgo& algo;
  unpacked_images_t images{};
};

class RealFiles : public ::testing::Test {
 protected:
  RealFiles() {
    const sim::HeaderFields fields = fieldsOf(modeNamed("GSense400Hdr"));
    bytes = frameOf(fields);
    good = folder.write("good.raw", bytes);
    reference = referenceOf(fields.frameWidth(), fields.frameHeight(), 8, 16);
    dsnu = folder.write("good.dsnu", reference);
  }
  std::size_t filesNamed(const std::string& start) const {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
      if (entry.path().filename().string().rfind(start, 0) == 0) ++count;
    return count;
  }

  TestFolder folder;
  Bytes bytes, reference;
  std::wstring good, dsnu;
};

// ---- Inputs

class Inputs : public RealFiles, public ::testing::WithParamInterface<Obstacle> {};
INSTANTIATE_TEST_SUITE_P(All, Inputs, ::testing::ValuesIn(obstacles),
                         [](const auto& info) { return nameOf(info.param); });

TEST_P(Inputs, AreRefusedAndNothingIsDelivered) {
  put(GetParam(), folder.file("bad.raw"), bytes);
  const std::wstring bad = folder.wideFile("bad.raw"), out = folder.wideFile("out.raw");
  EXPECT_EQ(inChild([&] {
              Complaints complaints;
              complaints.unless(becomeOrdinary(), "the rights of root cannot be given up");
              CAlgo algo;
              Planes planes(algo);
              complaints.unless(algo.MergeFile(bad.c_str(), &planes.images, nullptr, nullptr, nullptr) < 0,
                                "MergeFile");
              complaints.unless(planes.merged().empty(), "pixels out of nothing");
              for (const unsigned int format : {1u, 2u}) {
                const conv_info_t info{format, nullptr, nullptr};
                complaints.unless(algo.ConvertFile(bad.c_str(), &info, out.c_str()) < 0, "ConvertFile");
              }
              complaints.unless(filesNamed("out") == 0, "an image file out of nothing");
              // Intended: the copy that copies nothing minds only what cannot be opened.
              const bool opens = GetParam() != Obstacle::Missing && GetParam() != Obstacle::DanglingLink &&
                                 GetParam() != Obstacle::Unreadable;
              complaints.unless((utilOSWideCopyFile(bad.c_str(), out.c_str()) == 0) == opens, "copy");
              complaints.unless(filesNamed("out") == (opens ? 1 : 0), "copied file");
              Planes after(algo);
              complaints.unless(algo.MergeFile(good.c_str(), &after.images, nullptr, nullptr, nullptr) >= 0,
                                "not usable afterwards");
              return complaints.text();
            }),
            "");
}

TEST_P(Inputs, AreRefusedAsReferenceFiles) {
  put(GetParam(), folder.file("bad.raw"), reference);
  const std::wstring bad = folder.wideFile("bad.raw");
  EXPECT_EQ(inChild([&] {
              Complaints complaints;
              complaints.unless(becomeOrdinary(), "the rights of root cannot be given up");
              CAlgo algo;
              Planes planes(algo);
              const auto merge = [&](const wchar_t* additive, const wchar_t* multiplicative) {
                return algo.MergeFile(good.c_str(), &planes.images, nullptr, additive, multiplicative);
              };
              complaints.unless(merge(bad.c_str(), nullptr) < 0, "as DSNU file");
              complaints.unless(merge(nullptr, bad.c_str()) < 0, "as PRNU file");
              complaints.unless(merge(dsnu.c_str(), bad.c_str()) < 0, "as second file");
              complaints.unless(planes.merged().empty(), "merged without its terms");
              const conv_info_t info{2, bad.c_str(), nullptr};
              complaints.unless(algo.ConvertFile(good.c_str(), &info, folder.wideFile("out.raw").c_str()) < 0,
                                "ConvertFile");
              complaints.unless(filesNamed("out") == 0, "an image file without its terms");
              complaints.unless(merge(dsnu.c_str(), nullptr) >= 0, "not usable afterwards");
              return complaints.text();
            }),
            "");
}

TEST_P(Inputs, AreNoFramesAsStreams) {
  put(GetParam(), folder.file("bad.raw"), bytes);
  const std::string bad = folder.file("bad.raw");
  EXPECT_EQ(inChild([&] {
              Complaints complaints;
              complaints.unless(becomeOrdinary(), "the rights of root cannot be given up");
              // A FIFO that both ends of are ours, so that opening it does not wait.
              std::FILE* const stream = std::fopen(bad.c_str(), GetParam() == Obstacle::Fifo ? "r+" : "r");
              if (stream == nullptr) return complaints.text();
              CFrameMetaData header;
              complaints.unless(header.Parse(stream) == 0 && header.GetBinarizeSize() == 0, "Parse");
              complaints.unless(CFitsInterface::ParseMetaData(stream, header) < 0, "ParseMetaData");
              const std::unique_ptr<IFrame> frame(CFrameFactory::Create(ORVA_DEVICE_GSENSE400));
              CFrameMetaData goodHeader;
              Bytes copy = bytes;
              goodHeader.Parse(copy.data(), static_cast<unsigned int>(copy.size()));
              complaints.unless(frame->Initialize(goodHeader, stream, nullptr) < 0, "Initialize");
              CAlgo algo;
              Planes planes(algo);
              complaints.unless(frame->Merge(&planes.images) < 0, "Merge");
              std::fclose(stream);
              return complaints.text();
            }),
            "");
}

TEST_F(RealFiles, AFileThatVanishesWhileItIsOpenIsStillRead) {
  std::FILE* const stream = std::fopen(folder.file("good.raw").c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  CFrameMetaData header;
  ASSERT_EQ(header.Parse(stream), 0);
  std::filesystem::remove(folder.file("good.raw"));
  CAlgo algo;
  Planes planes(algo);
  const std::unique_ptr<IFrame> frame(algo.InitFrame(&header, stream, &planes.images));
  EXPECT_EQ(frame->Unpack(&planes.images), 0);
  std::fclose(stream);
}

TEST_F(RealFiles, AFileThatShrinksAfterItsHeaderWasReadIsACutFrame) {
  std::FILE* const stream = std::fopen(folder.file("good.raw").c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  CFrameMetaData header;
  ASSERT_EQ(header.Parse(stream), 0);
  std::filesystem::resize_file(folder.file("good.raw"), bytes.size() - 3);
  CAlgo algo;
  Planes planes(algo);
  const std::unique_ptr<IFrame> frame(algo.InitFrame(&header, stream, &planes.images));
  EXPECT_EQ(frame->Unpack(&planes.images), -1);
  std::fclose(stream);
}

// ---- Outputs

/// One plane of 80 KB, larger than what a pipe and the small disk hold.
class Outputs : public RealFiles {
 protected:
  Outputs() {
    large = folder.write("large.raw", frameOf(fieldsOf(modeNamed("GSense2020Sixteen"), 200, 200)));
    header.ReInitialize(true);
    header.SetDimensions(200, 200);
  }

  /// That both writers, alone and by way of the façade, fail on "<folder>/image.fit" and "image.tiff".
  std::string bothFail(const std::string& outputFolder) {
    Complaints complaints;
    CFitsInterface fits;
    CTiffMaker tiff;
    CAlgo algo;
    const std::wstring destination = std::filesystem::path(outputFolder + "/image.raw").wstring();
    const conv_info_t toTiff{1, nullptr, nullptr}, toFits{2, nullptr, nullptr};
    complaints.unless(fits.CreateImageFile(outputFolder + "/image.fit", pixels.data(), header) < 0, "FITS");
    complaints.unless(tiff.CreateImageFile(outputFolder + "/image.tiff", pixels.data(), header) < 0, "TIFF");
    complaints.unless(algo.ConvertFile(large.c_str(), &toFits, destination.c_str()) < 0,
                      "conversion to FITS");
    complaints.unless(algo.ConvertFile(large.c_str(), &toTiff, destination.c_str()) < 0,
                      "conversion to TIFF");
    // Elsewhere the same objects write.
    const std::string elsewhere = folder.file("elsewhere");
    complaints.unless(fits.CreateImageFile(elsewhere, pixels.data(), header) == 0, "FITS afterwards");
    complaints.unless(tiff.CreateImageFile(elsewhere, pixels.data(), header) == 656 + 384, "TIFF afterwards");
    return complaints.text();
  }
  std::string folderWith(const std::function<void(const std::string&)>& makeFile) {
    std::filesystem::create_directory(folder.file("out"));
    for (const char* name : {"out/image.fit", "out/image.tiff"})
      makeFile(folder.file(name));
    return folder.file("out");
  }

  std::wstring large;
  CFrameMetaData header;
  std::vector<unsigned short> pixels = std::vector<unsigned short>(200 * 200, 0x1234);
};

TEST_F(Outputs, FailWhereThereIsNoFile) {
  const std::function<void(const std::string&)> obstacles[] = {
      [](const std::string& name) { std::filesystem::create_symlink("/dev/full", name); },
      [](const std::string& name) { std::filesystem::create_directory(name); },
      [](const std::string& name) { mkfifo(name.c_str(), 0600); }};  // that nobody reads
  for (const auto& obstacle : obstacles) {
    const std::string out = folderWith(obstacle);
    EXPECT_EQ(inChild([&] { return bothFail(out); }), "") << &obstacle - obstacles;
    std::filesystem::remove_all(out);
  }
  EXPECT_EQ(inChild([&] { return bothFail(folder.file("none")); }), "") << "no folder";
}

TEST_F(Outputs, FailOnAFifoWhoseReaderReadsNothing) {
  const std::string out = folderWith([](const std::string& name) { mkfifo(name.c_str(), 0600); });
  EXPECT_EQ(inChild([&] {
              const int fits = open((out + "/image.fit").c_str(), O_RDONLY | O_NONBLOCK);
              const int tiff = open((out + "/image.tiff").c_str(), O_RDONLY | O_NONBLOCK);
              return fits < 0 || tiff < 0 ? std::string("no reader") : bothFail(out);
            }),
            "");
}

TEST_F(Outputs, FailOnFilesThatMayNotBeWritten) {
  const std::string out = folderWith([](const std::string& name) {
    std::ofstream(name).flush();
    chmod(name.c_str(), 0444);
  });
  EXPECT_EQ(
      inChild([&] { return becomeOrdinary() ? bothFail(out) : "the rights of root cannot be given up"; }),
      "");
}

TEST_F(Outputs, FailOnAFullDisk) {
  const std::string out = folderWith([](const std::string&) {});
  // Elsewhere is another disk, where there is one; with a limit to all files nothing can be written anywhere.
  const std::string complaint = inChild([&]() -> std::string {
    if (!makeDiskSmall(out, 16 * 1024)) return "the disk cannot be made small";
    return bothFail(out);
  });
  if (complaint != "FITS afterwards\nTIFF afterwards\n") EXPECT_EQ(complaint, "");
}

TEST_F(Outputs, FailWhereFilesMayNotGrow) {
  const std::string out = folderWith([](const std::string&) {});
  EXPECT_EQ(inChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit limit{16 * 1024, 16 * 1024};
              return setrlimit(RLIMIT_FSIZE, &limit) == 0 ? bothFail(out) : std::string("no limit");
            }),
            "FITS afterwards\nTIFF afterwards\n");
  EXPECT_EQ(std::filesystem::file_size(out + "/image.tiff"), 16u * 1024) << "what was written stays";
}

// ---- The log

TEST_F(RealFiles, AFullDiskTakesTheLogAndNothingElse) {
  std::filesystem::create_directory(folder.file("disk"));
  CAlgo algo;
  Planes expected(algo);
  ASSERT_EQ(algo.MergeFile(good.c_str(), &expected.images, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(inChild([&] {
              Complaints complaints;
              complaints.unless(makeDiskSmall(folder.file("disk"), 4096), "the disk cannot be made small");
              std::filesystem::current_path(folder.file("disk"));
              CLog::release();
              CLog::getInstance()->m_eLogLevel = CLOGLEVEL_ENTRY;
              CAlgo logging;
              Planes planes(logging);
              for (int i = 0; i < 100; ++i)
                complaints.unless(
                    logging.MergeFile(good.c_str(), &planes.images, nullptr, nullptr, nullptr) == 0,
                    "status");
              complaints.unless(planes.merged() == expected.merged(), "pixels");
              return complaints.text();
            }),
            "");
}

}  // namespace
