// Each call that the façade makes fails in turn.

#include <orvacam.h>

#include <cstring>

#include "TestFolder.h"
#include "robustness/FaultTesting.h"
#include "robustness/Frames.h"

namespace {

using namespace fault_testing;
using robustness::families;
using robustness::fieldsOf;
using robustness::frameOf;
using robustness::Mode;
using robustness::modeNamed;
using robustness::referenceOf;

/// What all merges deliver.
class Merge : public Operation {
 public:
  explicit Merge(const Mode& family, bool statistics) : m_withStatistics(statistics) {
    const auto fields = fieldsOf(family);
    m_frame = m_source = frameOf(fields);
    m_width = fields.frameWidth();
    m_height = fields.frameHeight();
    m_algo.Initialize({0, false}, nullptr);
    ask();
  }
  Bytes result() override {
    Collected all;
    for (const auto& [pixels, count] : {std::pair(m_images.pLowImage, m_images.ulLowImagePixels),
                                        std::pair(m_images.pHighImage, m_images.ulHighImagePixels),
                                        std::pair(m_images.pMergedImage, m_images.ulMergedImagePixels)})
      all.value(pixels != nullptr).value(count).bytes(pixels, pixels != nullptr ? 2 * count : 0);
    for (const unsigned char* header :
         {m_images.pLowMetaData, m_images.pHighMetaData, m_images.pMergedMetaData})
      all.bytes(header, header != nullptr ? m_images.uiMetaDataSize : 0);
    for (const image_plane_stats_t* stats : {&m_stats.statsLow, &m_stats.statsHigh, &m_stats.statsMerged}) {
      all.value(stats->uiMax).value(stats->uiMin).value(stats->dMean).value(stats->dStdDev);
      all.value(stats->uiHistogramSize);
      all.bytes(stats->pHistogram, sizeof(double) * stats->uiHistogramSize);
    }
    return all.all();
  }
  void giveBack() override {
    m_algo.FreeFramePointers(&m_images);
    m_algo.FreeStatsPointers(&m_stats);
    ask();
  }
  bool mayBeSilent(faults::Call first) override {
    // Without a frame object nothing is delivered, without memory for a histogram no histogram.
    const bool nothing = m_images.pLowImage == nullptr && m_images.pHighImage == nullptr &&
                         m_images.pMergedImage == nullptr && m_images.pLowMetaData == nullptr;
    const bool noHistogram = first == faults::Call::Malloc && m_withStatistics;
    return nothing || noHistogram;
  }

 protected:
  void ask() {
    m_images = unpacked_images_t{};
    m_images.bMetaDataRequest = m_images.bLowImageRequest = m_images.bHighImageRequest =
        m_images.bMergedImageRequest = true;
    m_stats = unpacked_stats_t{};
    m_stats.statsLow.bRequest = m_stats.statsHigh.bRequest = m_stats.statsMerged.bRequest = m_withStatistics;
  }
  unpacked_stats_t* stats() { return m_withStatistics ? &m_stats : nullptr; }

  bool m_withStatistics;
  Bytes m_frame;
  Bytes m_source;
  unsigned int m_width = 0, m_height = 0;
  CAlgo m_algo;
  unpacked_images_t m_images{};
  unpacked_stats_t m_stats{};
};

class MergeImage : public Merge {
 public:
  using Merge::Merge;
  int run() override {
    m_source.assign(m_frame.begin(), m_frame.end());  // the parser clears sign bits in what it reads
    return m_algo.MergeImage(m_source.data(), m_source.size(), &m_images, stats());
  }
};

class MergeWithCallersTerms : public MergeImage {
 public:
  explicit MergeWithCallersTerms(const Mode& family)
      : MergeImage(family, false), m_add(m_width * m_height, 8), m_mul(m_width * m_height, 2048) {}
  int run() override {
    ref_frames_t terms{m_width, m_height, m_add.data(), m_add.data(), m_mul.data(), m_mul.data()};
    // The size is that of the last frames that were made.
    m_algo.SetHWMergeReferenceFrames(&terms, true);
    const int status = m_algo.SetHWMergeReferenceFrames(&terms, false);
    return status < 0 ? status : MergeImage::run();
  }

 private:
  std::vector<short> m_add;
  std::vector<unsigned short> m_mul;
};

/// Into the layouts of image files in memory.
class MergeIntoLayout : public MergeImage {
 public:
  MergeIntoLayout(const Mode& family, ORVA_IMAGE_FORMAT format) : MergeImage(family, false) {
    m_algo.SetHWMergeEnables({0, static_cast<unsigned int>(format), 0});
  }
  Bytes result() override {
    return Collected()
        .bytes(Merge::result())
        .bytes(m_images.pMergedImage, m_images.pMergedImage != nullptr ? m_images.ulMergedImageSize : 0)
        .all();
  }
  bool mayBeSilent(faults::Call first) override {
    // The status is that of the unpacked planes: a merged plane that did not get its header is not told of.
    return Merge::mayBeSilent(first) || m_images.pMergedImage != nullptr;
  }
};

class MergeFile : public Merge {
 public:
  MergeFile(const Mode& family, bool references) : Merge(family, false), m_references(references) {
    const std::string name = family.name;
    m_name = commonFile(name + ".raw", m_frame);
    m_dsnu = commonFile(name + ".dsnu", referenceOf(m_width, m_height, 8, 16));
    m_prnu = commonFile(name + ".prnu", referenceOf(m_width, m_height, 2048, 1024));
  }
  int run() override {
    return m_algo.MergeFile(m_name.c_str(), &m_images, nullptr, m_references ? m_dsnu.c_str() : nullptr,
                            m_references ? m_prnu.c_str() : nullptr);
  }

 protected:
  std::wstring m_name, m_dsnu, m_prnu;
  bool m_references;
};

class ConvertFile : public Operation {
 public:
  ConvertFile(const Mode& family, unsigned int format, bool references) : m_severalPlanes(family.hdr) {
    auto fields = fieldsOf(family, 60, 60);  // more pixels than the header of a FITS file displaces
    fields.highGain = 0xFFFFFFFF;            // a number that takes memory to print
    m_name = commonFile(std::string("large") + family.name, frameOf(fields));
    m_dsnu = commonFile(std::string("largedsnu") + family.name,
                        referenceOf(fields.frameWidth(), fields.frameHeight(), 8, 16));
    m_out = commonFolder().wideFile("out.raw");
    m_info = {format, references ? m_dsnu.c_str() : nullptr, nullptr};
  }
  int run() override { return m_algo.ConvertFile(m_name.c_str(), &m_info, m_out.c_str()); }
  Bytes result() override {
    Collected all;
    for (const std::string& name : made()) {
      for (const char c : name)
        all.value(c);
      all.bytes(commonFolder().read(name));
    }
    return all.all();
  }
  void giveBack() override {
    for (const std::string& name : made())
      std::filesystem::remove(commonFolder().path() / name);
  }
  bool mayBeSilent(faults::Call /*first*/) override {
    // The status is that of the last plane alone.
    return m_severalPlanes;
  }

 private:
  std::vector<std::string> made() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(commonFolder().path()))
      if (entry.path().filename().string().rfind("out", 0) == 0) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

  bool m_severalPlanes;
  std::wstring m_name, m_dsnu, m_out;

 protected:
  conv_info_t m_info{};
  CAlgo m_algo;
};

/// A file after one of another size, whose memory is kept for the next.
class ConvertFilesOfTwoSizes : public ConvertFile {
 public:
  explicit ConvertFilesOfTwoSizes(unsigned int format)
      : ConvertFile(modeNamed("GSense2020Sixteen"), format, false) {
    m_other = commonFile("other", frameOf(fieldsOf(modeNamed("GSense4040Sixteen"), 70, 60)));
    m_otherOut = commonFolder().wideFile("outother.raw");
  }
  int run() override {
    const int status = m_algo.ConvertFile(m_other.c_str(), &m_info, m_otherOut.c_str());
    return status < 0 ? status : ConvertFile::run();
  }
  // The status of the first conversion is that of its last plane alone.
  bool mayBeSilent(faults::Call /*first*/) override { return true; }

 private:
  std::wstring m_other, m_otherOut;
};

/// The façade's own set-up.
class SetUp : public Operation {
 public:
  int run() override {
    try {
      m_algo = std::make_unique<CAlgo>();
    } catch (const std::bad_alloc&) {  // constructors may throw it
      return -1;
    }
    return m_algo->Initialize({ORVA_DEVICE_GSENSE4040, false}, nullptr);
  }
  Bytes result() override {
    CFrameMetaData header;
    header.ReInitialize(true);
    return Collected().value(m_algo != nullptr ? m_algo->DeriveGainRatioFromMetaData(header) : 0.0).all();
  }
  // Without memory for the gain tables the settings work without them, whatever the status.
  bool mayBeSilent(faults::Call /*first*/) override { return true; }
  void giveBack() override { m_algo.reset(); }

 private:
  std::unique_ptr<CAlgo> m_algo;
};

/// A frame object for callers that merge step by step.
class MakeFrame : public Operation {
 public:
  explicit MakeFrame(bool fromFile)
      : m_fromFile(fromFile), m_bytes(frameOf(fieldsOf(modeNamed("GSense400Hdr")))) {
    Bytes copy = m_bytes;
    m_header.Parse(copy.data(), static_cast<unsigned int>(copy.size()));
    commonFile("hdr.raw", m_bytes);
    m_file = std::fopen(commonFolder().file("hdr.raw").c_str(), "rb");
    m_algo.SetHWMergeEnables({0, 0, 0});
  }
  MakeFrame(const MakeFrame&) = delete;
  MakeFrame& operator=(const MakeFrame&) = delete;
  ~MakeFrame() override { std::fclose(m_file); }

  int run() override {
    giveBack();
    m_frame.reset(m_fromFile ? m_algo.InitFrame(&m_header, m_file, &m_images)
                             : m_algo.InitFrame(&m_header, m_bytes.data(), m_bytes.size(), &m_images));
    if (m_frame == nullptr) return -1;
    m_images.bLowImageRequest = m_images.bHighImageRequest = true;
    return m_frame->Unpack(&m_images);
  }
  Bytes result() override { return Collected().bytes(m_images.pLowImage, m_images.ulLowImageSize).all(); }
  void giveBack() override {
    m_algo.FreeFramePointers(&m_images);
    m_images = unpacked_images_t{};
    m_frame.reset();
  }

 private:
  bool m_fromFile;
  Bytes m_bytes;
  std::FILE* m_file;
  CFrameMetaData m_header;
  CAlgo m_algo;
  std::unique_ptr<IFrame> m_frame;
  unpacked_images_t m_images{};
};

/// A sensor's gain tables are made once for each thread and kept. A header that cannot be read is a generic
/// camera's, so that a failure may be the first to need them: that is no loss.
void makeEveryGainTable() {
  for (const unsigned int device :
       {ORVA_DEVICE_UNKNOWN, ORVA_DEVICE_GSENSE400, ORVA_DEVICE_GSENSE2020, ORVA_DEVICE_GSENSE4040,
        ORVA_DEVICE_GSENSE6060, ORVA_DEVICE_IMX183, ORVA_DEVICE_LUMORA420, ORVA_DEVICE_LUMORA533,
        ORVA_DEVICE_LUMORA571, ORVA_DEVICE_LSGEN})
    for (const bool backSideIlluminated : {false, true})
      delete CDeviceGainTablesFactory::IDeviceGainTables_Create({device, backSideIlluminated}, nullptr);
}

std::vector<Subject> facadeSubjects() {
  makeEveryGainTable();
  std::vector<Subject> all;
  const auto add = [&all](const std::string& name, auto make) { all.push_back({name, make}); };
  for (const Mode& family : families) {
    add(std::string("MergeImage_") + family.name,
        [&] { return std::make_unique<MergeImage>(family, false); });
  }
  // Read as it is, and decoded as from memory.
  for (const char* name : {"GSense400Hdr", "GSense2020Sixteen", "FourAmplifiers"})
    add(std::string("MergeFile_") + name,
        [name] { return std::make_unique<MergeFile>(modeNamed(name), false); });
  for (const Mode* family : {&modeNamed("GSense400Hdr"), &modeNamed("GSense6060Hdr"),
                             &modeNamed("FourAmplifiers"), &modeNamed("Generic")})
    add(std::string("MergeImageWithStatistics_") + family->name,
        [family] { return std::make_unique<MergeImage>(*family, true); });
  add("MergeImageWithCallersTerms",
      [] { return std::make_unique<MergeWithCallersTerms>(modeNamed("GSense400Hdr")); });
  add("MergeImageIntoTiff",
      [] { return std::make_unique<MergeIntoLayout>(modeNamed("GSense400Hdr"), ORVA_IMAGE_FORMAT_TIFF); });
  add("MergeImageIntoFits",
      [] { return std::make_unique<MergeIntoLayout>(modeNamed("GSense400Hdr"), ORVA_IMAGE_FORMAT_FITS); });
  add("MergeFileWithReferences", [] { return std::make_unique<MergeFile>(modeNamed("GSense400Hdr"), true); });
  for (const Mode* family :
       {&modeNamed("GSense400Hdr"), &modeNamed("GSense2020Sixteen"), &modeNamed("FourAmplifiers")})
    for (const auto& [format, formatName] : {std::pair(1u, "ToTiff_"), std::pair(2u, "ToFits_")})
      add(std::string("ConvertFile") + formatName + family->name,
          [family, format = format] { return std::make_unique<ConvertFile>(*family, format, false); });
  add("ConvertFileWithReferences",
      [] { return std::make_unique<ConvertFile>(modeNamed("GSense400Hdr"), 2, true); });
  for (const auto& [format, formatName] : {std::pair(1u, "ToTiff"), std::pair(2u, "ToFits")})
    add(std::string("ConvertFilesOfTwoSizes") + formatName,
        [format = format] { return std::make_unique<ConvertFilesOfTwoSizes>(format); });
  add("ConvertFileByCopying",
      [] { return std::make_unique<ConvertFile>(modeNamed("GSense2020Sixteen"), 0, false); });
  add("SetUp", [] { return std::make_unique<SetUp>(); });
  add("InitFrame", [] { return std::make_unique<MakeFrame>(false); });
  add("InitFrameFromFile", [] { return std::make_unique<MakeFrame>(true); });
  return all;
}

ORVACAM_FAIL_EVERY_CALL(FacadeWithFaults, facadeSubjects());

}  // namespace
