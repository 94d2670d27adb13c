// Frames that are cut anywhere and headers with any byte damaged, through the façade.

#include <orvacam.h>
#include <sys/resource.h>

#include <cstring>
#include <memory>

#include "TestFolder.h"
#include "merge/HandedOut.h"
#include "robustness/Frames.h"
#include "robustness/Surroundings.h"

namespace {

using namespace robustness;

constexpr unsigned int headerLength = sim::headerSize(3);
constexpr unsigned char untouched = 0xA5;

/// Bytes of exactly this size, so that a sanitizer sees each that is read beyond them.
struct Exactly {
  explicit Exactly(const Bytes& bytes, std::size_t length)
      : data(std::make_unique<unsigned char[]>(length)), size(length) {
    if (length > 0) std::memcpy(data.get(), bytes.data(), length);
  }
  std::unique_ptr<unsigned char[]> data;
  std::size_t size;
};

/// A plane or header of the caller's with something behind it that stays as it is.
struct Guarded {
  explicit Guarded(std::size_t length) : size(length), bytes(length + 64, untouched) {}
  bool intact() const {
    return std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(size), bytes.end(),
                       [](unsigned char byte) { return byte == untouched; });
  }
  unsigned short* pixels() { return reinterpret_cast<unsigned short*>(bytes.data()); }

  std::size_t size;
  Bytes bytes;
};

/// What a caller holds for a frame of a size: planes, headers and histograms of its own.
class Caller {
 public:
  explicit Caller(std::size_t framePixels, std::size_t headerSize = headerLength)
      : m_pixels(framePixels),
        m_planes{Guarded(2 * framePixels), Guarded(2 * framePixels), Guarded(2 * framePixels)},
        m_headers{Guarded(headerSize), Guarded(headerSize), Guarded(headerSize)},
        m_histograms{Guarded(32 * sizeof(double)), Guarded(32 * sizeof(double)),
                     Guarded(32 * sizeof(double))} {}

  int merge(CAlgo& algo, const Bytes& frame, std::size_t length) {
    const Exactly source(frame, length);
    unpacked_images_t images{};
    images.bMetaDataRequest = images.bLowImageRequest = images.bHighImageRequest =
        images.bMergedImageRequest = true;
    images.uiMetaDataSize = static_cast<unsigned int>(m_headers[0].size);
    images.pLowMetaData = m_headers[0].bytes.data();
    images.pHighMetaData = m_headers[1].bytes.data();
    images.pMergedMetaData = m_headers[2].bytes.data();
    images.pLowImage = m_planes[0].pixels();
    images.pHighImage = m_planes[1].pixels();
    images.pMergedImage = m_planes[2].pixels();
    images.ulLowImageSize = images.ulHighImageSize = images.ulMergedImageSize = 2 * m_pixels;
    unpacked_stats_t stats{};
    image_plane_stats_t* const all[] = {&stats.statsLow, &stats.statsHigh, &stats.statsMerged};
    for (int i = 0; i < 3; ++i) {
      all[i]->bRequest = true;
      all[i]->uiHistogramSize = 32;
      all[i]->pHistogram = reinterpret_cast<double*>(m_histograms[i].bytes.data());
    }
    return algo.MergeImage(source.data.get(), source.size, &images, &stats);
  }
  bool intact() const {
    for (const auto* group : {&m_planes, &m_headers, &m_histograms})
      for (const Guarded& guarded : *group)
        if (!guarded.intact()) return false;
    return true;
  }
  std::vector<unsigned short> plane(int index) {
    return {m_planes[index].pixels(), m_planes[index].pixels() + m_pixels};
  }

 private:
  std::size_t m_pixels;
  Guarded m_planes[3], m_headers[3], m_histograms[3];
};

/// The same with everything allocated by the library; all that it says it delivered is there. The status.
int mergeIntoNew(CAlgo& algo, const Bytes& frame, std::size_t length, unsigned long& sum) {
  const Exactly source(frame, length);
  unpacked_images_t images{};
  images.bMetaDataRequest = images.bLowImageRequest = images.bHighImageRequest = images.bMergedImageRequest =
      true;
  const int status = algo.MergeImage(source.data.get(), source.size, &images, nullptr);
  const struct {
    const unsigned short* pixels;
    unsigned long count, size;
  } planes[] = {{images.pLowImage, images.ulLowImagePixels, images.ulLowImageSize},
                {images.pHighImage, images.ulHighImagePixels, images.ulHighImageSize},
                {images.pMergedImage, images.ulMergedImagePixels, images.ulMergedImageSize}};
  for (const auto& plane : planes) {
    if (plane.pixels == nullptr) continue;
    EXPECT_LE(2 * plane.count, plane.size);
    EXPECT_LE(plane.size, std::max(8ul << 20, 64 * static_cast<unsigned long>(length)));
    for (unsigned long i = 0; i < std::min(plane.count, 4096ul); ++i)
      sum += plane.pixels[i];
  }
  for (const unsigned char* header : {images.pLowMetaData, images.pHighMetaData, images.pMergedMetaData})
    for (unsigned int i = 0; header != nullptr && i < images.uiMetaDataSize; ++i)
      sum += header[i];
  algo.FreeFramePointers(&images);
  return status;
}

std::size_t framePixels(const sim::HeaderFields& fields) {
  return std::size_t{fields.frameWidth()} * fields.frameHeight();
}

class EveryFamily : public ::testing::TestWithParam<Mode> {
 protected:
  EveryFamily() : fields(fieldsOf(GetParam())), frame(frameOf(fields)), caller(framePixels(fields)) {
    algo = std::make_unique<CAlgo>();
  }

  sim::HeaderFields fields;
  Bytes frame;
  Caller caller;
  std::unique_ptr<CAlgo> algo;
};
INSTANTIATE_TEST_SUITE_P(All, EveryFamily, ::testing::ValuesIn(cameras::modes),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(EveryFamily, CutAnywhereDecodesWhatIsWholeAndLeavesTheRestZero) {
  ASSERT_EQ(caller.merge(*algo, frame, frame.size()), 0);
  const std::vector<unsigned short> whole[] = {caller.plane(0), caller.plane(1)};
  // Bytes that a cut may take along: a pair of pixels, a group of the 13-bit packing, a pair of a CCD's
  // lines.
  const bool ccd = GetParam().stream == Stream::Ccd, sampled = GetParam().stream == Stream::Sampled;
  const std::size_t group = ccd ? 4 * fields.frameWidth() : sampled ? 13 : 3;

  std::size_t decodedBefore = 0;
  for (std::size_t length = 0; length < frame.size(); ++length) {
    const bool headerIsWhole = length >= headerLength;
    ASSERT_EQ(caller.merge(*algo, frame, length), headerIsWhole && GetParam().cutIsSilent() ? 0 : -1)
        << length;
    ASSERT_TRUE(caller.intact()) << length;
    if (!headerIsWhole) continue;
    std::size_t decoded = 0;
    for (int plane = 0; plane < 2; ++plane) {
      const std::vector<unsigned short> cut = caller.plane(plane);
      for (std::size_t i = 0; i < cut.size(); ++i) {
        ASSERT_TRUE(cut[i] == 0 || cut[i] == whole[plane][i])
            << length << ", plane " << plane << ", pixel " << i;
        if (cut[i] != 0) ++decoded;
      }
    }
    ASSERT_GE(decoded, decodedBefore) << length;
    decodedBefore = decoded;
    if (GetParam().cutIsSilent()) {
      ASSERT_EQ(decoded, 0u) << length;
      continue;
    }
    // Every whole group of the stream is there.
    const std::size_t bits = sampled ? 13 : GetParam().bits;
    ASSERT_GE(decoded * bits / 8 + group, length - headerLength) << length;
    ASSERT_LT(decoded, framePixels(fields) * sim::layoutOf(fields).planes) << length;
  }
  EXPECT_EQ(caller.merge(*algo, frame, frame.size()), 0) << "not usable afterwards";
  EXPECT_EQ(caller.plane(0), whole[0]);
}

TEST_P(EveryFamily, AnyDamagedHeaderByteStaysWithinTheCallersBuffers) {
  unsigned long sum = 0;
  unsigned int decoded = 0;
  for (const unsigned int version : {1u, 2u, 3u, 4u}) {
    // Versions 1 and 2 take the reference pixels of some sensors for granted.
    const sim::HeaderFields sent = sim::asVersion(fields, version);
    const Bytes whole = frameOf(sent, version);
    const std::size_t header = sim::headerSize(version);
    for (std::size_t i = 0; i < header; ++i)
      for (const unsigned char value : {static_cast<unsigned char>(whole[i] ^ 0xFF),
                                        static_cast<unsigned char>(whole[i] != 0 ? 0 : 0x80)}) {
        Bytes damaged = whole;
        damaged[i] = value;
        Caller own(framePixels(sent), std::max<std::size_t>(header, headerLength));
        const int status = own.merge(*algo, damaged, damaged.size());
        ASSERT_TRUE(status == 0 || status == -1) << version << ", byte " << i;
        ASSERT_TRUE(own.intact()) << version << ", byte " << i;
        if (status == 0) ++decoded;
        const int other = mergeIntoNew(*algo, damaged, damaged.size(), sum);
        ASSERT_TRUE(other == 0 || other == -1) << version << ", byte " << i;
      }
  }
  // Most bytes of a header have nothing to do with the pixels.
  EXPECT_GT(decoded, 1000u);
  EXPECT_NE(sum, 0u);
}

/// Converting and merging the same by way of files, for a sample.
TEST_P(EveryFamily, CutAndDamagedFilesGiveImagesOfTheirSizeOrNone) {
  const TestFolder folder;
  const std::wstring source = folder.wideFile("frame.raw"), destination = folder.wideFile("out.raw");
  const auto convert = [&](const Bytes& bytes) {
    folder.write("frame.raw", bytes);
    for (const unsigned int format : {1u, 2u}) {
      const conv_info_t info{format, nullptr, nullptr};
      const int status = algo->ConvertFile(source.c_str(), &info, destination.c_str());
      EXPECT_TRUE(status == -1 || (format == 1 ? status > 0 : status == 0)) << status;
      for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        if (entry.path().filename() == "frame.raw") continue;
        // No header makes a file of more than a plane that it may claim without sending it.
        EXPECT_LE(entry.file_size(), (8u << 20) + 2048);
        std::filesystem::remove(entry.path());
      }
    }
    unpacked_images_t images{};
    images.bLowImageRequest = images.bMergedImageRequest = true;
    const int status = algo->MergeFile(source.c_str(), &images, nullptr, nullptr, nullptr);
    algo->FreeFramePointers(&images);
    return status;
  };
  for (std::size_t length = 0; length < frame.size(); length += 41)
    convert(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length)));
  for (std::size_t i = 0; i < headerLength; i += 23) {
    Bytes damaged = frame;
    damaged[i] = static_cast<unsigned char>(~damaged[i]);
    convert(damaged);
  }
  EXPECT_EQ(convert(frame), 0);
}

// ---- Claims

struct Claim {
  unsigned int width, height;
};
const Claim claims[] = {{65535, 65535}, {65535, 1}, {1, 65535}, {2048, 2048}, {65535, 64}, {46341, 46341}};
/// What a camera can send: a pair of packed planes, and a single plane of whole words.
constexpr struct {
  bool hdr;
  unsigned int bits;
} modes[] = {{true, 12}, {false, 16}};

class EveryClaim : public ::testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(All, EveryClaim, ::testing::ValuesIn(models), [](const auto& info) {
  std::string name = info.param;
  for (char& c : name)
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  return name;
});

/// Merges, converts and takes for reference files what only claims to be large. Complaints.
std::string takeClaims(const TestFolder& folder, const char* model, unsigned int version) {
  std::string complaints;
  CAlgo algo;
  // The sizes lie at the same place in every version.
  const std::size_t sizes = version == 3 ? std::size(claims) : 1;
  for (std::size_t i = 0; i < sizes; ++i)
    for (const auto& mode : modes) {
      const Claim& size = claims[i];
      Bytes bytes = claim(model, version, size.width, size.height, mode.hdr, mode.bits);
      folder.write("claim.raw", bytes);
      const std::wstring name = folder.wideFile("claim.raw"), out = folder.wideFile("out.raw");
      const bool small = size.width * std::uint64_t{size.height} <= (4u << 20);
      unpacked_images_t images{};
      unpacked_stats_t stats{};
      images.bMetaDataRequest = images.bLowImageRequest = images.bHighImageRequest =
          images.bMergedImageRequest = true;
      stats.statsLow.bRequest = stats.statsHigh.bRequest = stats.statsMerged.bRequest = true;
      const auto refused = [&](const char* what, int status) {
        if (status >= 0 && !small) complaints += std::string(what) + " takes it\n";
        algo.FreeFramePointers(&images);
        algo.FreeStatsPointers(&stats);
      };
      refused("MergeImage", algo.MergeImage(bytes.data(), bytes.size(), &images, &stats));
      refused("MergeFile", algo.MergeFile(name.c_str(), &images, &stats, nullptr, nullptr));
      refused("MergeFile with references",
              algo.MergeFile(name.c_str(), &images, &stats, name.c_str(), name.c_str()));
      for (const unsigned int format : {1u, 2u}) {
        const conv_info_t info{format, nullptr, nullptr};
        refused("ConvertFile", algo.ConvertFile(name.c_str(), &info, out.c_str()));
      }
      HandedOut terms;
      CHWMergeReferenceFrames merge;
      merge.CreateReferenceFrames(name.c_str(), name.c_str(), 1.0, 1.0, &terms);
    }
  return complaints;
}

TEST_P(EveryClaim, OfASmallFileTakesLittleMemory) {
  for (const unsigned int version : {1u, 2u, 3u, 4u}) {
    const TestFolder folder;
    EXPECT_EQ(inChild([&]() -> std::string {
                std::string complaints = takeClaims(folder, GetParam(), version);
                rusage usage{};
                getrusage(RUSAGE_SELF, &usage);
                // The sanitizers' own memory would count, too.
                if (!sanitized && usage.ru_maxrss >= 64 * 1024)
                  complaints += "holds " + std::to_string(usage.ru_maxrss) + " KiB";
                return complaints;
              }),
              "")
        << "version " << version;
  }
}

}  // namespace
