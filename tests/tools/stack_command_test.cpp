// orvacam stack by methods other than mean and sum, in bands of rows, and in parts.

#include <sys/inotify.h>
#include <unistd.h>

#include <cmath>
#include <cstring>

#include "tools/Program.h"

namespace {

using namespace program_testing;
using ::testing::HasSubstr;

/// How often files of a folder were opened.
class Opens {
 public:
  explicit Opens(const fs::path& folder) : m_watch(inotify_init1(IN_NONBLOCK)) {
    if (inotify_add_watch(m_watch, folder.c_str(), IN_OPEN) < 0) throw std::runtime_error("inotify");
  }
  Opens(const Opens&) = delete;
  Opens& operator=(const Opens&) = delete;
  ~Opens() { close(m_watch); }
  /// Since the last time, by name.
  std::map<std::string, int> take() {
    std::map<std::string, int> opens;
    alignas(inotify_event) char buffer[65536];
    for (ssize_t length = 0; (length = read(m_watch, buffer, sizeof buffer)) > 0;)
      for (char* at = buffer; at < buffer + length;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(at);
        if (event->len > 0) ++opens[event->name];
        at += sizeof *event + event->len;
      }
    return opens;
  }

 private:
  int m_watch;
};

class StackMethods : public Program {
 protected:
  /// Frames of a plain sensor: column and row, and what is added to a frame.
  Arguments write(const std::vector<unsigned int>& values, unsigned int width = 6, unsigned int height = 4) {
    Arguments names;
    for (const unsigned int value : values) {
      names.push_back("f" + std::to_string(names.size()) + ".raw");
      writePlain(names.back(), width, height,
                 [&](unsigned int x, unsigned int y) { return value + (y * width + x) % 97; });
    }
    return names;
  }
  Arguments stack(Arguments frames, const Arguments& more) const {
    frames.insert(frames.begin(), "stack");
    frames.insert(frames.end(), more.begin(), more.end());
    return frames;
  }
  std::vector<double> doubles(const std::string& name) const {
    return read_images::fitsPixels<double>(folder.file(name));
  }
};

TEST_F(StackMethods, GiveWhatTheyAreCalled) {
  const Arguments frames = write({100, 400, 130, 110, 90});
  const std::pair<const char*, double> expected[] = {
      {"median", 110}, {"min", 90}, {"max", 400}, {"mean", 166}, {"sum", 830}};
  for (const auto& [method, value] : expected) {
    good(stack(frames, {"-o", "a.fits", "--overwrite", "--method", method, "--dtype", "float64"}));
    for (unsigned int i = 0; i < 24; ++i)
      EXPECT_EQ(doubles("a.fits")[i], value + (value == 830 ? 5 * i : i)) << method;
    EXPECT_EQ(keyword("a.fits", "NCOMBINE"), "5");
    EXPECT_EQ(keyword("a.fits", "LIVETIME"), "5.");
    EXPECT_EQ(keyword("a.fits", "EXPTIME"), value == 830 ? "5." : "1.");
    EXPECT_EQ(keyword("a.fits", "SATURATE"), value == 830 ? "327675" : "65535");
    EXPECT_THAT(textOf(folder.read("a.fits")), HasSubstr(std::string(method) + " of 5 frames"));
  }
}

TEST_F(StackMethods, ClipAndSayWhere) {
  // Nine values about 100, whose deviation is sqrt(20 / 3), and one far above.
  Arguments frames = write({96, 97, 98, 99, 100, 101, 102, 103, 104, 9000});
  good(stack(frames, {"-o", "a.fits", "--method", "sigma", "--sigma", "2,2.5", "--map-rejected", "n.fits",
                      "--dtype", "float64"}));
  EXPECT_EQ(doubles("a.fits")[7], 107);
  EXPECT_EQ(fits("n.fits"), Pixels(24, 1));
  EXPECT_EQ(keyword("n.fits", "BUNIT"), "'count   '");
  EXPECT_EQ(keyword("n.fits", "SATURATE"), "");
  EXPECT_THAT(textOf(folder.read("a.fits")), HasSubstr("sigma (2, 2.5) of 10 frames"));
  good(stack(frames, {"-o", "w.fits", "--method", "winsorized", "--sigma", "3", "--dtype", "float64"}));
  EXPECT_DOUBLE_EQ(doubles("w.fits")[0], (900 + 100 + 3 * std::sqrt(20 / 3.0)) / 10);
  good(stack(frames, {"-o", "w.tiff", "--method", "winsorized", "--dtype", "uint16"}));
  EXPECT_EQ(tiff("w.tiff")[0], 100);
  good(stack(frames, {"-o", "w.npy", "--method", "sigma", "--map-rejected", "n.npy"}));
  EXPECT_EQ(folder.read("w.npy").size(), folder.read("n.npy").size() + 24 * 2) << "floats and words";
}

TEST_F(StackMethods, NormalizeAndWeigh) {
  const Arguments frames = write({100, 200, 400});
  // The median of 0 ... 23 is 11.5.
  good(stack(frames, {"-o", "a.fits", "--normalize", "additive", "--dtype", "float64"}));
  for (unsigned int i = 0; i < 24; ++i)
    EXPECT_DOUBLE_EQ(doubles("a.fits")[i], 100 + i);
  good(stack(frames,
             {"-o", "m.fits", "--normalize", "multiplicative", "--method", "median", "--dtype", "float64"}));
  for (unsigned int i = 0; i < 24; ++i) {
    std::vector<double> values = {100.0 + i, (200.0 + i) * (111.5 / 211.5), (400.0 + i) * (111.5 / 411.5)};
    std::sort(values.begin(), values.end());
    EXPECT_EQ(doubles("m.fits")[i], values[1]);
  }
  EXPECT_THAT(textOf(folder.read("m.fits")), HasSubstr("median of 3 frames, multiplicative normalization"));
  sim::HeaderFields longer = fieldsOf("GENERIC", "single", 6, 4);
  longer.exposure *= 3;
  const Sample sample(longer, 1);
  folder.write("long.raw", sample.bytes);
  good({"stack", "f0.raw", "long.raw", "-o", "w.fits", "--weights", "exposure", "--dtype", "float64"});
  EXPECT_DOUBLE_EQ(doubles("w.fits")[5], (105 + 3.0 * sample.at(0, 5, 0)) / 4);
  EXPECT_EQ(keyword("w.fits", "LIVETIME"), "4.");
  bad({"stack", "f0.raw", "long.raw", "-o", "x.fits", "--normalize", "additive"}, "long.raw",
      "ExposureTime is 300000, of the first frame 100000");
  writeFlat("zero.raw", 0);
  bad({"stack", "f0.raw", "zero.raw", "-o", "x.fits", "--normalize", "multiplicative"}, "zero.raw",
      "has a median of 0");
}

TEST_F(StackMethods, NameTheFrameThatIsWrong) {
  Arguments frames = write({1, 2, 3});
  writeHdr("hdr.raw", 6, 4);
  Bytes cut = folder.read("f2.raw");
  cut.resize(cut.size() - 1);
  folder.write("cut.raw", cut);
  for (const char* const method : {"median", "min"}) {
    const Arguments more = {"-o", "a.fits", "--method", method};
    bad(stack({"f0.raw", "cut.raw"}, more), "cut.raw", "ends at byte");
    bad(stack({"f0.raw", "hdr.raw", "f1.raw"}, more), "hdr.raw", "is unlike the first frame: the sensor");
    bad(stack({"f0.raw", "none.raw"}, more), "none.raw", "No such file");
    bad(stack({"f0.raw", "f1.raw", "./f0.raw"}, more), "a.fits", "is the same file as f0.raw");
    bad(stack({"f0.raw", "f1.raw", "--plane", "low"}, more), "f0.raw", "has no plane 'low'");
    bad(stack({"f0.raw", "--memory", "10M"}, more), "f0.raw", "10M of memory do not hold one frame");
  }
  bad({"stack", "f0.raw", "--partial", "a.fits", "--memory", "1"}, "f0.raw", "--memory is 0M");
  for (const auto& [memory, text] :
       {std::pair("100", "100 bytes of memory"), std::pair("2K", "2K of memory")})
    bad({"stack", "f0.raw", "-o", "a.fits", "--memory", memory}, "f0.raw", text);
}

TEST_F(StackMethods, StandardInputIsReadOnceHoweverManyPasses) {
  const Arguments frames = write({1, 2, 30}, 512, 512);
  const std::string command =
      std::string(ORVACAM_TOOL) +
      " stack f0.raw f1.raw - -o a.fits --method median --dtype uint16 --memory 29M <f2.raw";
  const Ran ran = runProgram("sh", folder.path(), {"-c", command});
  EXPECT_EQ(ran.exitCode, 0) << ran.err;
  EXPECT_EQ(fits("a.fits")[0], 2);
}

#if !ORVACAM_SANITIZED
TEST_F(StackMethods, KeepToTheMemoryAndOpenEachFileOncePerPass) {
  constexpr int count = 24;  // of 2 MiB
  std::vector<unsigned int> values;
  for (unsigned int i = 0; i < count; ++i)
    values.push_back(1000 + i * 7 % 50);
  const Arguments frames = write(values, 1024, 1024);
  Opens opens(folder.path());
  Bytes whole;
  for (const auto& [memory, passes] : {std::pair(120, 1), std::pair(60, 2), std::pair(40, 7)}) {
    for (const char* const method : {"median", "sigma"}) {
      opens.take();
      const Ran ran =
          orvacam(stack(frames, {"-o", std::string(method) + ".fits", "--overwrite", "--method", method,
                                 "--memory", std::to_string(memory) + "M", "--reproducible"}));
      ASSERT_EQ(ran.exitCode, 0) << ran.err;
      EXPECT_LE(ran.peakKilobytes, memory * 1024) << memory << "M, " << method;
      const auto opened = opens.take();
      for (const std::string& frame : frames)
        EXPECT_EQ(opened.at(frame), passes) << frame << ", " << memory << "M";
    }
    const Bytes result = folder.read("sigma.fits");
    if (whole.empty()) whole = result;
    EXPECT_EQ(result, whole) << memory;
  }
  for (const char* const method : {"mean", "max"}) {
    opens.take();
    const Ran ran =
        orvacam(stack(frames, {"-o", "b.fits", "--overwrite", "--method", method, "--memory", "53M"}));
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    EXPECT_LE(ran.peakKilobytes, 53 * 1024) << method;
    for (const auto& [name, times] : opens.take())
      if (name.find(".raw") != name.npos) EXPECT_EQ(times, 1) << name << ", " << method;
  }
}

TEST_F(StackMethods, GiveTheSameFileWhereSumsDoNotFit) {
  std::vector<unsigned int> values;
  for (unsigned int i = 0; i < 8; ++i)
    values.push_back(65535 - i * 7);
  const Arguments frames = write(values, 1024, 1024);
  for (const char* const method : {"mean", "sum", "max"})
    for (const char* const type : {"float32", "float64", "uint16"}) {
      if (std::string(method) == "sum" && std::string(type) == "uint16") continue;
      SCOPED_TRACE(std::string(method) + ", " + type);
      const Arguments options = {"--overwrite", "--method", method, "--dtype", type, "--reproducible"};
      Arguments roomy = options, tight = options;
      const int memory = std::string(type) == "float64" ? 45 : 37;  // sums take 16 M, the result up to 16
      roomy.insert(roomy.end(), {"-o", "roomy.fits"});
      tight.insert(tight.end(), {"-o", "tight.fits", "--memory", std::to_string(memory) + "M"});
      EXPECT_EQ(orvacam(stack(frames, roomy)).exitCode, 0);
      const Ran ran = orvacam(stack(frames, tight));
      ASSERT_EQ(ran.exitCode, 0) << ran.err;
      EXPECT_LE(ran.peakKilobytes, memory * 1024);
      EXPECT_EQ(folder.read("tight.fits"), folder.read("roomy.fits"));
    }
  const Ran part = orvacam(stack(frames, {"--partial", "p.fits", "--memory", "37M"}));
  EXPECT_EQ(part.exitCode, 1);
  EXPECT_THAT(part.err, testing::HasSubstr("of memory to be summed, --memory is 37M"));
}
#endif

TEST_F(StackMethods, OptionsThatDoNotGoTogetherAreRefused) {
  write({1, 2});
  const auto no = [&](const Arguments& more, const std::string& what) {
    Arguments all = {"stack", "f0.raw", "f1.raw"};
    all.insert(all.end(), more.begin(), more.end());
    refused(all, what);
  };
  no({"-o", "a.fits", "--method", "mediam"}, "did you mean 'median'");
  no({"-o", "a.fits", "--weights", "exposure", "--method", "median"}, "--weights: only a mean has weights");
  no({"-o", "a.fits", "--weights", "exposure", "--method", "sum"}, "--weights: only a mean has weights");
  no({"-o", "a.fits", "--sigma", "3,3"}, "--sigma: mean has no limits");
  for (const char* const limits : {"3,0", "a", "3,", ",3", "3,3,3", "-1,3", "nan,3", ""})
    no({"-o", "a.fits", "--method", "sigma", "--sigma", limits}, "--sigma");
  no({"-o", "a.fits", "--method", "median", "--map-rejected", "b.fits"}, "median rejects nothing");
  no({"-o", "a.fits", "--method", "sigma", "--map-rejected", "b.png"}, "b.png should end in");
  no({"-o", "a.fits", "--method", "sigma", "--map-rejected", "a.fits"}, "a.fits would be written twice");
  no({"-o", "a.fits", "--method", "sigma", "--map-rejected", "f1.raw", "-f", "fits"}, "f1.raw should end in");
  for (const char* const size : {"", "0", "G", "1X", "1.5G", "-1", "99999999T", "1GB"})
    no({"-o", "a.fits", "--memory", size}, "--memory");
  no({"--partial", "p.fits", "-o", "a.fits"}, "--partial");
  no({"--partial", "p.fits", "--method", "median"}, "--partial: there are sums of a mean and a sum alone");
  no({"--partial", "p.fits", "--normalize", "additive"}, "--normalize");
  no({"--partial", "p.fits", "--weights", "exposure"}, "--weights");
  no({"--partial", "p.fits", "--dtype", "float64"}, "--dtype");
  no({"--partial", "f0.raw"}, "f0.raw is an input");
  no({"--combine", "-o", "a.fits", "--method", "max"}, "--combine: there are sums of a mean and a sum alone");
  no({"--combine", "-o", "a.fits", "--plane", "low"}, "--plane");
  no({"--combine", "-o", "a.fits", "--dsnu", "d"}, "--combine");
}

// ---- Parts

class StackParts : public Program {
 protected:
  /// Frames of two gains, at different times.
  void SetUp() override {
    for (unsigned int i = 0; i < 6; ++i) {
      sim::HeaderFields fields = fieldsOf("GSENSE4040", "hdr", 24, 10);
      fields.time.minute = static_cast<int>(10 + (i * 5) % 6);
      fields.frameNumber = i;
      folder.write("f" + std::to_string(i) + ".raw", Sample(fields, i + 1).bytes);
    }
  }
  static Arguments range(unsigned int from, unsigned int to, const Arguments& more) {
    Arguments all = {"stack"};
    for (unsigned int i = from; i < to; ++i)
      all.push_back("f" + std::to_string(i) + ".raw");
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
};

TEST_F(StackParts, GiveTheFileOfOneRunBitForBit) {
  good({"simulate", "GSENSE4040", "--mode", "hdr", "--width", "24", "--height", "10", "--dsnu", "d.ref",
        "--prnu", "p.ref", "-o", "other.raw"});
  for (const Arguments& corrections :
       {Arguments{}, Arguments{"--plane", "high"}, Arguments{"--thresholds", "3000,99"},
        Arguments{"--dsnu", "d.ref", "--prnu", "p.ref"}}) {
    const auto with = [&](Arguments more) {
      more.insert(more.end(), corrections.begin(), corrections.end());
      return more;
    };
    good(range(0, 2, with({"--partial", "p1.fits", "--overwrite"})));
    good(range(2, 5, with({"--partial", "p2.fits", "--overwrite"})));
    good(range(5, 6, with({"--partial", "p3.fits", "--overwrite"})));
    good({"stack", "--combine", "p2.fits", "p3.fits", "--partial", "p23.fits", "--overwrite"});
    for (const Arguments& form : {Arguments{"a.fits", "--method", "mean"},
                                  {"a.tiff", "--method", "sum", "--dtype", "float64"},
                                  {"a.npy", "--dtype", "uint16"}}) {
      Arguments as = {"--reproducible", "--overwrite", "-o"};
      as.insert(as.end(), form.begin(), form.end());
      good(range(0, 6, with(as)));
      const Bytes expected = folder.read(form[0]);
      for (const Arguments& parts : {Arguments{"p1.fits", "p2.fits", "p3.fits"}, {"p1.fits", "p23.fits"}}) {
        Arguments combine = {"stack", "--combine"};
        combine.insert(combine.end(), parts.begin(), parts.end());
        combine.insert(combine.end(), as.begin(), as.end());
        good(combine);
        EXPECT_EQ(folder.read(form[0]), expected) << form[0] << ::testing::PrintToString(corrections);
      }
    }
  }
}

TEST_F(StackParts, AreStandardFits) {
  good(range(0, 3, {"--partial", "p.fits"}));
  EXPECT_EQ(keyword("p.fits", "NCOMBINE"), "3");
  EXPECT_EQ(keyword("p.fits", "BITPIX", 2), "64");
  EXPECT_EQ(keyword("p.fits", "EXTNAME", 2), "'SUM     '");
  EXPECT_EQ(keyword("p.fits", "EXTNAME", 3), "'SUMSQ   '");
  EXPECT_EQ(keyword("p.fits", "INSTRUME"), "'VESTRA VS4040'");
  bad(range(3, 6, {"--partial", "p.fits"}), "p.fits", "is there already", 3);
}

TEST_F(StackParts, CountNoFrameTwiceAndTakeNoOthers) {
  good(range(0, 2, {"--partial", "p1.fits"}));
  good(range(1, 3, {"--partial", "p2.fits"}));
  bad({"stack", "--combine", "p1.fits", "p2.fits", "-o", "a.fits"}, "p2.fits", "it would be counted twice");
  fs::copy_file(folder.path() / "f0.raw", folder.path() / "copy.raw");
  good({"stack", "copy.raw", "--partial", "p3.fits"});
  bad({"stack", "--combine", "p1.fits", "p3.fits", "-o", "a.fits"}, "p3.fits", "it would be counted twice");
  good(range(3, 4, {"--partial", "low.fits", "--plane", "low"}));
  bad({"stack", "--combine", "p1.fits", "low.fits", "-o", "a.fits"}, "low.fits",
      "one stack is of plane \"merged\", the other one of \"low\"");
  good(range(4, 5, {"--partial", "forced.fits", "--force"}));
  bad({"stack", "--combine", "p1.fits", "forced.fits", "-o", "a.fits"}, "forced.fits", "--force");
  bad({"stack", "--combine", "forced.fits", "p1.fits", "-o", "a.fits"}, "forced.fits", "--force");
  good({"stack", "--combine", "p1.fits", "forced.fits", "-o", "a.fits", "--force"});
  bad({"stack", "--combine", "p1.fits", "f5.raw", "-o", "b.fits"}, "f5.raw", "FITS");
  good(range(3, 4, {"-o", "mean.fits"}));
  bad({"stack", "--combine", "mean.fits", "-o", "b.fits"}, "mean.fits", "is no partial stack");
  bad({"stack", "--combine", "p1.fits", "none.fits", "-o", "b.fits"}, "none.fits", "is no regular file");
  fs::create_directory(folder.path() / "parts");
  fs::copy_file(folder.path() / "p1.fits", folder.path() / "parts/p1.fits");
  bad({"stack", "--combine", "parts", "-o", "b.fits"}, "parts", "takes the parts in it by their names");
}

TEST_F(StackParts, OfFramesThatAreDamagedSayWhere) {
  good(range(0, 2, {"--partial", "p.fits"}));
  Bytes bytes = folder.read("p.fits");
  bytes[bytes.size() / 2] ^= 4;
  folder.write("p.fits", bytes);
  bad({"stack", "--combine", "p.fits", "-o", "a.fits"}, "p.fits", "does not fit");
}

}  // namespace
