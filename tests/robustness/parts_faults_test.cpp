// Each call that headers, calibration, image files, the log and the utilities make fails in turn.

#include <fcntl.h>
#include <orvacam.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "TestFolder.h"
#include "gain/CalibrationBlock.h"
#include "imagefiles/ImageFileTesting.h"
#include "robustness/FaultTesting.h"
#include "robustness/Frames.h"

namespace {

using namespace fault_testing;
using robustness::fieldsOf;
using robustness::frameOf;
using robustness::modeNamed;

// ---- Headers

Bytes headerBytes(unsigned int version) {
  robustness::sim::HeaderFields fields = fieldsOf(modeNamed("GSense400Hdr"));
  fields.model = "VESTRA VS400 with a text that no small buffer holds";
  if (version == 4) fields.otherBlock = {1, 2, 3, 4, 5};
  return robustness::sim::writeHeader(fields, version);
}

/// The header of a FITS file.
Bytes fitsBytes() {
  Bytes bytes(5760 + 2 * 16);
  CFitsInterface().CreateImageBuffer(reinterpret_cast<unsigned short*>(bytes.data()), 5760, 16,
                                     frameHeader(4, 4), false);
  return bytes;
}

Bytes textOf(CFrameMetaData& header) {
  std::vector<char> text(20000);
  const int length = header.ToString(text.data(), static_cast<unsigned int>(text.size()));
  return Collected().value(length).bytes(text.data(), text.size()).all();
}

std::unique_ptr<Operation> parse(const Bytes& bytes) {
  struct State {
    Bytes given, buffer;
    CFrameMetaData header;
  };
  const auto s = std::make_shared<State>();
  s->given = s->buffer = bytes;
  return *Steps(
      [s] {
        s->buffer.assign(s->given.begin(), s->given.end());
        return s->header.Parse(s->buffer.data(), static_cast<unsigned int>(s->buffer.size()));
      },
      [s] { return textOf(s->header); });
}

/// From a stream. A header that ends early is no error, and neither is one that cannot be read.
std::unique_ptr<Operation> parseStream(const Bytes& bytes, int (*parser)(std::FILE*, CFrameMetaData&)) {
  struct State {
    std::FILE* file = std::tmpfile();
    CFrameMetaData header;
    ~State() { std::fclose(file); }
  };
  const auto s = std::make_shared<State>();
  std::fwrite(bytes.data(), 1, bytes.size(), s->file);
  return Steps([s, parser] { return parser(s->file, s->header); }, [s] { return textOf(s->header); })
      .silentAfter({faults::Call::FileRead, faults::Call::FileSeek});
}

std::unique_ptr<Operation> withHeader(unsigned int version, int (*action)(CFrameMetaData&, Bytes&)) {
  struct State {
    CFrameMetaData header;
    Bytes out = Bytes(20000 * sizeof(wchar_t));
  };
  const auto s = std::make_shared<State>();
  Bytes bytes = headerBytes(version);
  s->header.Parse(bytes.data(), static_cast<unsigned int>(bytes.size()));
  return *Steps(
      [s, action] {
        std::fill(s->out.begin(), s->out.end(), static_cast<unsigned char>(0));
        return action(s->header, s->out);
      },
      [s] { return s->out; });
}

/// The operations that are documented to throw leave objects that can be set again.
std::unique_ptr<Operation> setTexts() {
  struct State {
    CFrameMetaData header, copy;
  };
  const auto s = std::make_shared<State>();
  return *Steps(
      [s] {
        return withoutMemory([&] {
          s->header.ReInitialize(true);
          s->header.SetModelName("ANOTHER", 7);
          s->header.SetValue(ORVA_META_KEY_APP_INFO_STRING, std::string("a text that no small buffer holds"));
          s->header.SetValue(ORVA_META_KEY_CAPTURE_DATE, std::string("2024/01/02 03:04:05.500000000"));
          const CFrameMetaData copy(s->header);
          s->copy = copy;
        });
      },
      [s] { return Collected().bytes(textOf(s->header)).bytes(textOf(s->copy)).all(); });
}

// ---- Calibration and gains

std::unique_ptr<Operation> calibration(unsigned int version) {
  struct State {
    Bytes block;
    CCameraNVMergeSettings settings;
    CMergeSettings merge;
  };
  const auto s = std::make_shared<State>();
  CalibrationBlock block;
  block.ratios(1.1, 1.2, 20.0, 30.0);
  block.counts(2, 1, 2, 1);
  block.electrons(0, 1.5), block.electrons(1, 1.25), block.electrons(0, 20.0);
  block.record(version, false, sampleRecord(0, 0));
  block.record(version, false, sampleRecord(1, 2));
  block.record(version, true, sampleRecord(3, 3));
  s->block = block.block(version);
  // Neither status tells of a failure: the caller learns it from the counts and lists.
  return Steps(
             [s] {
               const int status =
                   s->settings.Initialize(s->block.data(), static_cast<unsigned>(s->block.size()));
               return std::min(status, s->merge.Initialize({ORVA_DEVICE_GSENSE2020, true}, &s->settings));
             },
             [s] {
               double electrons = 0.0;
               s->settings.GetNVElectronsPerCount(1, true, electrons);
               return Collected()
                   .value(s->settings.GetNumLineOffsets())
                   .value(s->settings.GetExtraLineOffsets().size())
                   .value(electrons)
                   .value(s->merge.GetNumLowGains())
                   .value(s->merge.GetGainOffsetPairGainRatio(0, 1))
                   .all();
             })
      .silentAfter({faults::Call::New});
}

std::unique_ptr<Operation> mappingArray() {
  struct State {
    CMergeSettings settings;
    const CMergeMappingArray* map = nullptr;
  };
  const auto s = std::make_shared<State>();
  s->settings.Initialize({ORVA_DEVICE_GSENSE400, false}, nullptr);
  return *Steps(
      [s] {
        if (s->settings.AllocateGainOffsetPairs(9, 8) < 0 || s->settings.AllocateGainOffsetPairs(8, 8) < 0)
          return -1;
        s->map = s->settings.GenerateMergeMappingArrays(5, 0, 0, 10.0);
        if (s->map != nullptr) s->map = s->settings.GenerateMergeMappingArrays(6, 0, 0, 10.0);
        return s->map != nullptr ? 0 : -1;
      },
      [s] {
        return Collected().bytes(s->map->GetData(), 2 * s->map->GetWidth() * s->map->GetHeight()).all();
      });
}

std::unique_ptr<Operation> gainTables(unsigned int device) {
  const auto tables = std::make_shared<std::unique_ptr<IDeviceGainTables>>();
  return *Steps(
      [tables, device] {
        tables->reset(CDeviceGainTablesFactory::IDeviceGainTables_Create({device, false}, nullptr));
        if (*tables == nullptr) return -1;
        static constexpr gain_value_t other[] = {};
        return withoutMemory([&] { (*tables)->SetGainTable(ORVA_GAIN_TABLE_LOW_CHANNEL, other, 0); });
      },
      [tables] {
        return Collected()
            .value((*tables)->GetNumEntries(ORVA_GAIN_TABLE_HIGH_CHANNEL))
            .value((*tables)->GetDNETableGainRatio(0, 0))
            .all();
      },
      [tables] { tables->reset(); });
}

// ---- Image files

/// A header whose every number is long.
SettableHeader longNumbers(unsigned int width, unsigned int height) {
  SettableHeader header = frameHeader(width, height);
  header.setDouble(ORVA_META_KEY_LDR_GAIN, 1.25e30);
  return header;
}

std::unique_ptr<Operation> imageFile(int (*write)(const std::string&, const unsigned short*,
                                                  SettableHeader&)) {
  struct State {
    std::string path = commonFolder().file("image");
    std::vector<unsigned short> pixels = ramp(60 * 60);
    SettableHeader header = longNumbers(60, 60);
  };
  const auto s = std::make_shared<State>();
  return *Steps([s, write] { return write(s->path, s->pixels.data(), s->header); },
                [s] { return commonFolder().read("image"); }, [s] { std::filesystem::remove(s->path); });
}

std::unique_ptr<Operation> fitsInMemory() {
  struct State {
    SettableHeader header = longNumbers(4, 4);
    CFitsInterface fits;
    std::vector<unsigned short> buffer = ramp(2880 + 16);
  };
  const auto s = std::make_shared<State>();
  return *Steps(
      [s] {
        const auto pixels = 2880;
        std::memset(s->buffer.data() + pixels, 1, 32);
        if (s->fits.AllocateImageCopy(16, 5760) < 0) return -1;
        s->fits.FreeAll();
        return s->fits.CreateImageBuffer(s->buffer.data(), 5760, 16, s->header, false);
      },
      [s] { return Collected().bytes(s->buffer.data(), 2 * s->buffer.size()).all(); });
}

std::unique_ptr<Operation> readCards() {
  struct State {
    Bytes bytes = fitsBytes();
    CFrameMetaData header;
    std::string keyword, value;
  };
  const auto s = std::make_shared<State>();
  return *Steps(
      [s] {
        bool end = false;
        if (CFitsInterface::ParseMetaData(s->bytes.data(), 5760, s->header, end) < 0) return -1;
        return withoutMemory([&] {
          CFitsInterface::ParseNextKey(s->bytes.data() + 11 * 80, 80, s->keyword, s->value);
          CFitsInterface::ProcessKeyValue(s->keyword, s->value, s->header);
        });
      },
      [s] { return textOf(s->header); });
}

std::unique_ptr<Operation> tiffTags() {
  struct State {
    CTiffMaker tiff;
    Bytes out = Bytes(656);
  };
  const auto s = std::make_shared<State>();
  return *Steps(
      [s] {
        if (s->tiff.InitTags(384) < 0) return -1;
        const unsigned int numbers[] = {1, 2, 3};
        if (s->tiff.AddTag({500, TIFF_TAGTYPE_LONG, 3, 0}, numbers, 3) < 0) return -1;
        if (s->tiff.SetImageDimensions(6, 4) < 0 || s->tiff.SetPixelSize(45, 45) < 0) return -1;
        return s->tiff.Binarize(s->out.data(), 656, false);
      },
      [s] { return s->out; });
}

// ---- Support

/// The log, whose lines are lost without a word where they cannot be written; later ones are there again.
class LogLines : public Operation {
 public:
  LogLines() {
    m_before = std::filesystem::current_path();
    std::filesystem::current_path(m_folder.path());
    CLog::release();
    m_log = CLog::getInstance();
    m_log->m_eLogLevel = CLOGLEVEL_ENTRY;
    // It tells of what it cannot open.
    m_standardError = dup(STDERR_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
  }
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;
  ~LogLines() override {
    dup2(m_standardError, STDERR_FILENO);
    close(m_standardError);
    CLog::release();
    std::filesystem::current_path(m_before);
  }

  int run() override {
    m_log->setNewFileHeader(L"a header line");
    m_log->makeLogDirectory();
    m_log->log(CLOGLEVEL_INFO, L"wide %d\n", 1);
    m_log->log(CLOGLEVEL_INFO, "narrow %d\n", 2);
    m_log->logError(L"last %d\n", 3);
    return 0;
  }
  Bytes result() override {
    std::string last;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.path() / "MarloLogs")) {
      std::ifstream in(entry.path());
      for (std::string line; std::getline(in, line);)
        last = line;
    }
    return {last.begin(), last.end()};
  }
  bool mayBeSilent(faults::Call /*first*/) override { return true; }

 private:
  TestFolder m_folder;
  std::filesystem::path m_before;
  CLog* m_log;
  int m_standardError;
};

/// A log that is made anew while files are written.
std::unique_ptr<Operation> firstLine() {
  struct State {
    std::vector<unsigned short> pixels = ramp(60 * 60);
    SettableHeader header = frameHeader(60, 60);
    CFitsInterface fits;
    std::string path = commonFolder().file("image.fit");
    ~State() { CLog::release(); }
  };
  const auto s = std::make_shared<State>();
  return *Steps(
      [s] {
        CLog::release();
        return s->fits.CreateImageFile(s->path, s->pixels.data(), s->header);
      },
      [s] { return commonFolder().read("image.fit"); }, [s] { std::filesystem::remove(s->path); });
}

std::unique_ptr<Operation> texts() {
  const auto narrow = std::make_shared<std::string>();
  const auto wide = std::make_shared<std::wstring>(L"a wide text that no small buffer holds");
  return *Steps([=] { return withoutMemory([&] { utilW2S(*wide, *narrow); }); },
                [=] { return Bytes(narrow->begin(), narrow->end()); });
}

std::vector<Subject> partSubjects() {
  std::vector<Subject> all;
  const auto add = [&all](const std::string& name, auto make) { all.push_back({name, make}); };
  for (const unsigned int version : {1u, 2u, 3u, 4u}) {
    const std::string number = std::to_string(version);
    add("ParseVersion" + number, [version] { return parse(headerBytes(version)); });
    add("ParseStreamOfVersion" + number, [version] {
      return parseStream(headerBytes(version),
                         [](std::FILE* file, CFrameMetaData& header) { return header.Parse(file); });
    });
    add("CalibrationVersion" + number, [version] { return calibration(version); });
  }
  add("ParseFits", [] { return parse(fitsBytes()); });
  add("ParseStreamOfFits", [] {
    return parseStream(fitsBytes(), [](std::FILE* file, CFrameMetaData& header) {
      return CFitsInterface::ParseMetaData(file, header);
    });
  });
  add("ToString", [] {
    return withHeader(4, [](CFrameMetaData& header, Bytes& out) {
      return header.ToString(reinterpret_cast<char*>(out.data()), 20000u);
    });
  });
  add("ToWideString", [] {
    return withHeader(4, [](CFrameMetaData& header, Bytes& out) {
      return header.ToString(reinterpret_cast<wchar_t*>(out.data()), 20000u);
    });
  });
  add("Binarize", [] {
    return withHeader(4, [](CFrameMetaData& header, Bytes& out) {
      const int written = header.Binarize(out.data(), 384);
      return written < 0 ? written : header.BinarizeEx(out.data() + 384, 389, nullptr, 0);
    });
  });
  add("BinarizeVersion1", [] {
    return withHeader(1, [](CFrameMetaData& header, Bytes& out) { return header.Binarize(out.data(), 384); });
  });
  add("SetTexts", setTexts);

  add("MappingArray", mappingArray);
  for (const unsigned int device :
       {ORVA_DEVICE_GSENSE400, ORVA_DEVICE_GSENSE2020, ORVA_DEVICE_GSENSE4040, ORVA_DEVICE_GSENSE6060,
        ORVA_DEVICE_IMX183, ORVA_DEVICE_LUMORA420, ORVA_DEVICE_LSGEN, ORVA_DEVICE_UNKNOWN})
    add("GainTables_" + std::to_string(device), [device] { return gainTables(device); });

  add("FitsFile", [] {
    return imageFile([](const std::string& path, const unsigned short* pixels, SettableHeader& header) {
      CFitsInterface fits;
      return fits.CreateImageFile(path, pixels, header);
    });
  });
  add("TiffFile", [] {
    return imageFile([](const std::string& path, const unsigned short* pixels, SettableHeader& header) {
      return CTiffMaker().CreateImageFile(path, pixels, header);
    });
  });
  add("FitsInMemory", fitsInMemory);
  add("ReadCards", readCards);
  add("TiffTags", tiffTags);

  add("LogLines", [] { return std::make_unique<LogLines>(); });
  add("FirstLine", firstLine);
  add("Texts", texts);
  return all;
}

ORVACAM_FAIL_EVERY_CALL(PartsWithFaults, partSubjects());

TEST(WritesWithFaults, AreTakenUpAgainWhereTheyWereInterrupted) {
  const faults::StoppedClock clock;
  const std::vector<unsigned short> pixels = ramp(60 * 60);
  SettableHeader header = frameHeader(60, 60);
  const TestFolder folder;
  const auto write = [&](const std::string& name) {
    CFitsInterface fits;
    CTiffMaker tiff;
    EXPECT_EQ(fits.CreateImageFile(folder.file(name + ".fit"), pixels.data(), header), 0);
    EXPECT_EQ(tiff.CreateImageFile(folder.file(name + ".tiff"), pixels.data(), header), 656 + 384);
  };
  write("whole");
  {
    const faults::InterruptedWrites interrupted;
    write("parts");
  }
  EXPECT_EQ(folder.read("parts.fit").size(), 7200u);
  EXPECT_EQ(folder.read("parts.fit"), folder.read("whole.fit"));
  EXPECT_EQ(folder.read("parts.tiff").size(), 656u + 384 + 7200);
  EXPECT_EQ(folder.read("parts.tiff"), folder.read("whole.tiff"));
}

// ---- Utilities, whose only calls are their own

class UtilitiesWithFaults : public ::testing::Test {
 protected:
  TestFolder folder;
};

TEST_F(UtilitiesWithFaults, CopyingFailsWhereAFileCannotBeOpened) {
  const std::wstring source = folder.write("source", {1, 2, 3}), copy = folder.wideFile("copy");
  for (const long number : {0L, 1L}) {
    const unsigned int before = faults::openDescriptors();
    int status = 0;
    {
      const faults::Failing failing(number, faults::Extent::Once);
      status = utilOSWideCopyFile(source.c_str(), copy.c_str());
    }
    EXPECT_EQ(status, -1) << number;
    EXPECT_EQ(faults::openDescriptors(), before);
  }
  EXPECT_FALSE(folder.has("copy"));
  EXPECT_EQ(utilOSWideCopyFile(source.c_str(), copy.c_str()), 0);
}

TEST_F(UtilitiesWithFaults, DirectoriesThatCannotBeMadeAreTold) {
  const std::wstring path = folder.wideFile("a/b");
  int failures = 0;
  for (int status = -1; status != 0 && failures < 100; ++failures) {
    std::filesystem::remove_all(folder.file("a"));
    const faults::Failing failing(failures, faults::Extent::FromThenOn);
    status = utilOSMakeDirectory(path.c_str());
    EXPECT_EQ(status == 0, !failing.had(faults::Call::MakeDirectory) && !failing.had(faults::Call::Status));
  }
  EXPECT_GT(failures, 2);
  EXPECT_TRUE(folder.has("a/b"));
}

TEST_F(UtilitiesWithFaults, NothingIsSaidOfAnUnreadableSystem) {
  wchar_t path[64] = L"something";
  unsigned long available = 7, total = 8;
  const std::wstring root = L"/";
  const faults::Failing failing(0, faults::Extent::FromThenOn);
  utilOSPathGet(path, 64);
  EXPECT_EQ(path[0], L'\0');
  EXPECT_FALSE(utilOSDirectoryExists(root));
  EXPECT_EQ(utilOSGetDiskAvailableSpace(root, available, total), -1);
  EXPECT_EQ(available + total, 15u);
  EXPECT_EQ(utilOSWideFileOpen(L"/dev/null", L"rb"), nullptr);
}

}  // namespace
