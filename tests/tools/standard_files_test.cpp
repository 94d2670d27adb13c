// What convert and preview write, file by file, read back by the libraries that everybody uses.

#include <nlohmann/json.hpp>

#include "Program.h"

namespace {

using namespace program_testing;
using namespace std::string_literals;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

using StandardFiles = Program;
using Check = Program;
using Repair = Program;
using Preview = Program;

TEST_F(StandardFiles, HoldEveryPlaneInExtensions) {
  const auto planes = writeHdr("a.raw", 40, 30, 2);
  good({"convert", "a.raw", "-o", "out", "--single-file"});
  EXPECT_EQ(fits("out/a.fits", 2), planes[0]);
  EXPECT_EQ(fits("out/a.fits", 3), planes[1]);
  EXPECT_EQ(keyword("out/a.fits", "EXTNAME", 1), "");
  EXPECT_EQ(keyword("out/a.fits", "INSTRUME", 1), "'VESTRA VS4040'");
  EXPECT_EQ(keyword("out/a.fits", "EXTNAME", 4), "'MERGED  '");
  good({"convert", "a.raw", "-o", "out", "--single-file", "--planes", "merged", "--overwrite"});
  EXPECT_EQ(keyword("out/a.fits", "EXTNAME", 2), "'MERGED  '");
}

TEST_F(StandardFiles, AreCompressedWithoutLoss) {
  const auto planes = writeHdr("a.raw", 40, 30);
  good({"convert", "a.raw", "-o", "out", "--compress", "rice"});
  EXPECT_THAT(files("out"), ElementsAre("a_HIGH.fits.fz", "a_LOW.fits.fz", "a_MERGED.fits.fz"));
  EXPECT_EQ(fits("out/a_LOW.fits.fz", 2), planes[0]);
  EXPECT_EQ(keyword("out/a_LOW.fits.fz", "ZCMPTYPE", 2), "'RICE_1  '");
}

TEST_F(StandardFiles, LeaveReferencePixelsOutWhenCropped) {
  const auto planes = writeHdr("a.raw", 40, 30, 2);
  good({"convert", "a.raw", "-o", "whole", "--planes", "low"});
  EXPECT_EQ(keyword("whole/a_LOW.fits", "DATASEC"), "'[1:40,3:32]'");
  EXPECT_EQ(keyword("whole/a_LOW.fits", "TRIMSEC"), "'[1:40,3:32]'");
  EXPECT_EQ(keyword("whole/a_LOW.fits", "BIASSEC"), "'[1:40,1:2]'");
  good({"convert", "a.raw", "-o", "cut", "--planes", "low", "--crop", "image"});
  EXPECT_EQ(fits("cut/a_LOW.fits"), Pixels(planes[0].begin() + 80, planes[0].end()));
  EXPECT_EQ(keyword("cut/a_LOW.fits", "DATASEC"), "'[1:40,1:30]'");
  EXPECT_EQ(keyword("cut/a_LOW.fits", "BIASSEC"), "");
  EXPECT_EQ(keyword("cut/a_LOW.fits", "PREREFRW"), "2") << "as it was shot";
}

TEST_F(StandardFiles, SayWhatThePlaneIs) {
  sim::HeaderFields fields = fieldsOf("GSENSE400", "hdr", 32, 16);
  fields.lowGain = 1, fields.highGain = 2, fields.highGainAduPerElectron = 125;
  folder.write("a.raw", Sample(fields, 1).bytes);
  good({"convert", "a.raw", "-o", "out"});
  const auto value = [this](const char* plane, const char* key) {
    return keyword("out/a_" + std::string(plane) + ".fits", key);
  };
  EXPECT_EQ(value("LOW", "GAIN"), "1");
  EXPECT_EQ(value("HIGH", "GAIN"), "2");
  EXPECT_EQ(value("MERGED", "GAIN"), "2");
  EXPECT_EQ(value("LOW", "OFFSET"), "100");
  EXPECT_EQ(value("HIGH", "OFFSET"), "110");
  EXPECT_EQ(value("HIGH", "EGAIN"), "8.");  // 1000 / 125
  EXPECT_EQ(value("LOW", "SATURATE"), "4095");
  const double ratio = std::stod(value("MERGED", "MERGRATI"));
  EXPECT_EQ(ratio, std::floor(ratio * 1024) / 1024);
  EXPECT_EQ(value("MERGED", "SATURATE"), std::to_string(std::lround(4095 * ratio)));
  EXPECT_NEAR(std::stod(value("LOW", "EGAIN")), 8 * ratio, 1e-9);
  EXPECT_EQ(value("MERGED", "MERGTHRH"), "3700");
  EXPECT_EQ(value("MERGED", "MERGTHRD"), "128");
  EXPECT_EQ(value("LOW", "MERGTHRH"), "");
  EXPECT_EQ(value("LOW", "CCD-TEMP"), "-19.5");
  EXPECT_EQ(value("LOW", "COOLTEMP"), "-19.8");
  EXPECT_EQ(value("LOW", "SET-TEMP"), "-20.");
  EXPECT_EQ(value("LOW", "XPIXSZ"), "11.");
  EXPECT_EQ(value("LOW", "YPIXSZ"), "11.");
  EXPECT_EQ(value("LOW", "SITELAT"), "48.");
  EXPECT_EQ(value("LOW", "SITELONG"), "-16.");
  EXPECT_EQ(value("LOW", "READOUTM"), "'HDR-LOW '");
  EXPECT_EQ(value("LOW", "DATE-OBS"), "'2024-05-17T21:04:33.123456700'");
  EXPECT_EQ(value("LOW", "TIMESRC"), "'GPS     '");
  good({"convert", "a.raw", "-o", "other", "--thresholds", "3000,100"});
  EXPECT_EQ(keyword("other/a_MERGED.fits", "MERGTHRH"), "3000");
}

TEST_F(StandardFiles, LeaveOutWhatAHeaderDoesNotCarry) {
  sim::HeaderFields fields = fieldsOf("GENERIC", "single", 8, 6);
  fields.gpsLocked = false;
  for (unsigned int version = 1; version <= 4; ++version)
    folder.write("v" + std::to_string(version) + ".raw", Sample(fields, 1, version).bytes);
  good({"convert", "v1.raw", "v2.raw", "v3.raw", "-o", "out"});
  for (const char* key : {"SET-TEMP", "XPIXSZ", "TIMESRC", "GPS_LOCK", "FPGATEMP", "BKSDILL"}) {
    EXPECT_EQ(keyword("out/v1.fits", key), "") << key;
    EXPECT_NE(keyword("out/v2.fits", key), "") << key;
  }
  for (const char* key : {"SITELAT", "GEO_LAT", "EGAIN", "TRIMSEC", "NCOMBINE", "ISHIFRM"})
    EXPECT_EQ(keyword("out/v3.fits", key), "") << key;
  EXPECT_EQ(keyword("out/v3.fits", "SATURATE"), "65535");
  EXPECT_EQ(keyword("out/v3.fits", "READOUTM"), "'SINGLE  '");
}

TEST_F(StandardFiles, AreTheSameOnAnyDayWhenReproducible) {
  writeHdr("a.raw", 16, 8);
  for (const char* format : {"fits", "tiff", "ome-tiff", "png", "png16", "npy"})
    for (const char* out : {"one", "two"})
      good({"convert", "a.raw", "-o", std::string(out) + format, "-f", format, "--reproducible"});
  for (const char* format : {"fits", "tiff", "ome-tiff", "png", "png16", "npy"})
    for (const std::string& name : files(std::string("one") + format))
      EXPECT_EQ(folder.read(std::string("one") + format + "/" + name),
                folder.read(std::string("two") + format + "/" + name))
          << name;
  EXPECT_EQ(keyword("onefits/a_LOW.fits", "DATE"), "");
  good({"convert", "a.raw", "-o", "dated", "--planes", "low"});
  EXPECT_NE(keyword("dated/a_LOW.fits", "DATE"), "");
}

TEST_F(StandardFiles, CarryTheHeaderInTheDescriptionOfTiffFiles) {
  const auto planes = writeHdr("a.raw", 16, 8);
  good({"convert", "a.raw", "-o", "out", "-f", "tiff"});
  EXPECT_EQ(tiff("out/a_LOW.tiff"), planes[0]);
  const std::string file = folder.file("out/a_LOW.tiff");
  EXPECT_EQ(read_images::tiffText(file, TIFFTAG_MODEL), "VESTRA VS4040");
  EXPECT_EQ(read_images::tiffText(file, TIFFTAG_DATETIME), "2024:05:17 21:04:33");
  const auto said = nlohmann::json::parse(read_images::tiffText(file, TIFFTAG_IMAGEDESCRIPTION));
  EXPECT_EQ(said["values"]["CameraModel"], "VESTRA VS4040");
  EXPECT_EQ(said["keywords"]["READOUTM"], "HDR-LOW");
}

class DescribedTiff : public Program {
 protected:
  /// A TIFF file of one pixel, with this description.
  void describe(const std::string& description) const {
    TIFF* const file = TIFFOpen(folder.file("a.tiff").c_str(), "w");
    ASSERT_NE(file, nullptr);
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, 1);
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, 1);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(file, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
    unsigned char pixel = 0;
    TIFFWriteEncodedStrip(file, 0, &pixel, 1);
    TIFFClose(file);
  }
};

TEST_F(DescribedTiff, IsShownHoweverDeepItsDescriptionIsNested) {
  // Half a million levels would take more stack than there is.
  for (const std::size_t levels : {std::size_t{3}, std::size_t{500000}}) {
    describe(R"({"values": {"Key": 7, "Deep": )" + std::string(levels, '[') + std::string(levels, ']') +
             "}}");
    EXPECT_THAT(good({"info", "a.tiff", "--keys", "Key,width"}),
                AllOf(HasSubstr("Key                     = 7\n"), HasSubstr("= 1\n")));
    const auto said = nlohmann::json::parse(good({"info", "a.tiff", "--json"}));
    const std::string shown = said["header"]["values"]["Deep"].dump();
    if (levels == 3)
      EXPECT_EQ(shown, "[[[]]]");
    else
      EXPECT_LT(shown.size(), 20u);
  }
}

TEST_F(DescribedTiff, IsShownWithItsFirstKeysHoweverManyThereAre) {
  // A million keys in order, each looked for among those before it, would take hours.
  const auto keysOf = [this](int keys) {
    std::string text = R"({"values": {"K0": 0)";
    for (int i = 1; i < keys; ++i)
      text += ", \"K" + std::to_string(i) + "\": " + std::to_string(i);
    describe(text + "}}");
    return nlohmann::json::parse(good({"info", "a.tiff", "--json"}))["header"]["values"].size();
  };
  EXPECT_EQ(keysOf(1000), 1000u);
  const std::size_t shown = keysOf(1000000);
  EXPECT_GE(shown, 1000u);
  EXPECT_LE(shown, 10000u);
}

TEST_F(DescribedTiff, IsShownWithItsFirstValuesHoweverManyThereAre) {
  // A million empty arrays would take some sixty times the memory of their text.
  const auto valuesOf = [this](std::size_t values) {
    std::string text = R"({"values": {"Key": 7, "Many": [[])";
    for (std::size_t i = 1; i < values; ++i)
      text += ",[]";
    describe(text + R"(], "Last": 8}})");
    return nlohmann::json::parse(good({"info", "a.tiff", "--json"}))["header"]["values"];
  };
  const nlohmann::json all = valuesOf(1000), some = valuesOf(1000000);
  EXPECT_EQ(all["Many"].size(), 1000u);
  EXPECT_EQ(all["Last"], 8);
  EXPECT_EQ(some["Key"], 7);
  EXPECT_GE(some["Many"].size(), 1000u);
  EXPECT_LE(some["Many"].size(), 20000u);
  EXPECT_FALSE(some.contains("Last"));
}

TEST_F(DescribedTiff, CannotWriteToTheTerminalOrChangeTheShapeOfTheAnswer) {
  describe(R"({"values": {"A\u001b[31m": "\u001b[0m"}, "units": 5, "derived": [1]})");
  EXPECT_THAT(good({"info", "a.tiff"}), HasSubstr("A\\x1B[31m               = \\x1B[0m\n"));
  const auto said = nlohmann::json::parse(good({"info", "a.tiff", "--json"}));
  EXPECT_EQ(said["header"]["units"], nlohmann::json::object());
  EXPECT_EQ(said["derived"], (nlohmann::json{{"width", 1}, {"height", 1}}));
}

TEST_F(StandardFiles, HoldTheChannelsOfAnOmeTiffFile) {
  const auto planes = writeHdr("a.raw", 16, 8);
  good({"convert", "a.raw", "-o", "out", "-f", "ome-tiff"});
  EXPECT_THAT(files("out"), ElementsAre("a.ome.tiff"));
  EXPECT_EQ(tiff("out/a.ome.tiff", 0), planes[0]);
  EXPECT_EQ(tiff("out/a.ome.tiff", 1), planes[1]);
  const std::string xml = read_images::tiffText(folder.file("out/a.ome.tiff"), TIFFTAG_IMAGEDESCRIPTION);
  for (const char* part : {"SizeC=\"3\"", "PhysicalSizeX=\"11\"", "ExposureTime=\"1\"", "Name=\"MERGED\"",
                           "<AcquisitionDate>2024-05-17T21:04:33"})
    EXPECT_THAT(xml, HasSubstr(part));
}

TEST_F(StandardFiles, GoToStandardOutputOneAtATime) {
  const auto planes = writeHdr("a.raw", 16, 8);
  folder.write("b.fits", {});
  const std::string bytes = good({"convert", "a.raw", "-o", "-", "--planes", "low", "--reproducible"});
  folder.write("b.fits", Bytes(bytes.begin(), bytes.end()));
  EXPECT_EQ(fits("b.fits"), planes[0]);
  refused({"convert", "a.raw", "-o", "-"}, "several planes");
  refused({"convert", "a.raw", "b.raw", "-o", "-"}, "takes one input");
}

TEST_F(StandardFiles, TakeABiasFrameAway) {
  const auto planes = writeHdr("a.raw", 16, 8);
  sim::HeaderFields fields = fieldsOf("GSENSE4040", "hdr", 16, 8);
  Bytes bias = sim::writeHeader(fields, 3);
  for (int plane = 0; plane < 2; ++plane)
    for (int i = 0; i < 16 * 8; ++i) {
      bias.push_back(static_cast<unsigned char>(plane == 0 ? 5 : 7));
      bias.push_back(0);
    }
  folder.write("bias", bias);
  good({"convert", "a.raw", "-o", "out", "--bias", "bias"});
  Pixels expected(planes[0]);
  for (unsigned short& pixel : expected)
    pixel = pixel > 5 ? pixel - 5 : 0;
  EXPECT_EQ(fits("out/a_LOW.fits"), expected);
  EXPECT_EQ(keyword("out/a_LOW.fits", "SATURATE"), "4090");
  EXPECT_EQ(keyword("out/a_HIGH.fits", "SATURATE"), "4088");
  bias.pop_back();
  bias.resize(400);
  folder.write("cut", bias);
  bad({"convert", "a.raw", "-o", "out", "--bias", "cut"}, "cut", "ends at byte 400");
  bias[123] = 7, bias[127] = 0;
  folder.write("turned", bias);
  bad({"convert", "a.raw", "-o", "out", "--bias", "turned"}, "turned", "rows 7 to 0");
}

TEST_F(Check, TellsFixedFilesFromStandardOnes) {
  writeHdr("a.raw", 40, 80);
  good({"convert", "a.raw", "-o", "fixed", "--native", "--quiet"});
  good({"convert", "a.raw", "-o", "fixed", "--native", "-f", "tiff", "--quiet"});
  good({"convert", "a.raw", "-o", "out"});
  good({"convert", "a.raw", "-o", "out", "-f", "tiff"});
  for (const char* kind : {"fits", "tiff"}) {
    EXPECT_EQ(good({"check", "out/a_LOW." + std::string(kind)}),
              "out/a_LOW." + std::string(kind) + ": good\n");
    const Ran ran = orvacam({"check", "--json", *kind == 'f' ? "fixed/a_LOW.fit" : "fixed/a_LOW.tiff"});
    EXPECT_EQ(ran.exitCode, 1);
    const auto said = nlohmann::json::parse(ran.out);
    EXPECT_EQ(said["schema"], "orvacam.check/1");
    EXPECT_EQ(said["ok"], false);
    EXPECT_EQ(said["findings"][0]["id"], "fixed_" + std::string(kind));
    EXPECT_EQ(said["findings"][0]["severity"], "warning");
  }
  EXPECT_EQ(good({"check", "a.raw"}), "a.raw: good\n");
  folder.write("cut.raw", [&] {
    Bytes bytes = folder.read("a.raw");
    bytes.pop_back();
    return bytes;
  }());
  const Ran cut = orvacam({"check", "cut.raw", "a.raw"});
  EXPECT_EQ(cut.exitCode, 1);
  EXPECT_THAT(cut.out, HasSubstr("cut.raw: error: "));
  EXPECT_THAT(cut.out, HasSubstr("a.raw: good\n"));
}

TEST_F(Check, FindsStandardFilesThatAreNotWhole) {
  writeHdr("a.raw", 40, 80);
  good({"convert", "a.raw", "-o", "out"});
  good({"convert", "a.raw", "-o", "out", "--planes", "low", "--single-file", "--compress", "rice"});
  good({"convert", "a.raw", "-o", "out", "-f", "tiff", "--planes", "low"});
  const auto findingOf = [this](const std::string& name) {
    const Ran ran = orvacam({"check", "--json", name});
    EXPECT_EQ(ran.exitCode, 1) << name;
    const auto said = nlohmann::json::parse(ran.out);
    EXPECT_EQ(said["ok"], false);
    EXPECT_EQ(said["findings"].size(), 1u);
    return std::pair(said["findings"][0]["id"].get<std::string>(),
                     said["findings"][0]["severity"].get<std::string>());
  };
  const auto changed = [&](const std::string& name, const std::function<void(Bytes&)>& change) {
    Bytes bytes = folder.read("out/" + name);
    change(bytes);
    folder.write(name, bytes);
    return findingOf(name);
  };
  const auto end = [](Bytes& bytes) { return bytes.end() - 3000; };
  const auto flip = [&](Bytes& bytes) { *end(bytes) ^= 1; };
  EXPECT_EQ(changed("a_LOW.fits", flip), std::pair("file_damaged"s, "error"s));
  EXPECT_EQ(changed("a.fits.fz", [](Bytes& b) { b[b.size() - 2880] ^= 1; }),
            std::pair("file_damaged"s, "error"s));
  EXPECT_EQ(changed("a_LOW.fits", [&](Bytes& b) { b.erase(end(b), b.end()); }),
            std::pair("file_cut_off"s, "error"s));
  EXPECT_EQ(changed("a_LOW.fits", [](Bytes& b) { b[10 * 80 + 70] ^= 1; }),
            std::pair("file_changed"s, "warning"s));
  EXPECT_EQ(changed("a_LOW.fits", [](Bytes& b) { b.push_back(0); }), std::pair("file_end"s, "warning"s));
  EXPECT_EQ(changed("a_LOW.fits", [](Bytes& b) { b.resize(100); }), std::pair("io"s, "error"s));
  EXPECT_EQ(changed("a_LOW.tiff", [](Bytes& b) { b.resize(b.size() / 2); }), std::pair("io"s, "error"s));
}

TEST_F(Repair, BringsBackWhatAFixedFileLacks) {
  const auto planes = writeHdr("a.raw", 40, 80);
  good({"convert", "a.raw", "-o", "fixed", "--native", "--quiet"});
  good({"repair", "fixed/a_LOW.fit", "-o", "whole", "--raw", "a.raw"});
  EXPECT_EQ(fits("whole/a_LOW.fit"), planes[0]);
  EXPECT_EQ(keyword("whole/a_LOW.fit", "GAIN"), "0");

  const Ran ran = orvacam({"repair", "fixed/a_HIGH.fit", "-o", "part"});
  EXPECT_EQ(ran.exitCode, 1);
  EXPECT_THAT(ran.err, HasSubstr("2880 pixels lost, written as 0: from column 1 of row 9 on"));
  Pixels expected(planes[1]);
  std::fill(expected.begin() + 320, expected.end(), 0);
  EXPECT_EQ(fits("part/a_HIGH.fit"), expected);
  EXPECT_EQ(keyword("part/a_HIGH.fit", "INSTRUME"), "'VESTRA VS4040'");
  EXPECT_EQ(keyword("part/a_HIGH.fit", "EXPTIME"), "1.");
  EXPECT_EQ(keyword("part/a_HIGH.fit", "CCD-TEMP"), "-19.5");
  EXPECT_EQ(keyword("part/a_HIGH.fit", "DATE-OBS"), "'2024-05-17T21:04:33.123456700'");
}

TEST_F(Repair, RefusesOtherFilesAndOtherFrames) {
  writeHdr("a.raw", 40, 80);
  folder.write("other.raw", Sample(fieldsOf("GSENSE4040", "hdr", 40, 80), 7).bytes);
  good({"convert", "a.raw", "-o", "fixed", "--native", "--quiet"});
  good({"convert", "a.raw", "-o", "out"});
  fs::create_directory(folder.path() / "to");
  bad({"repair", "out/a_LOW.fits", "-o", "to"}, "out/a_LOW.fits", "is a standard FITS file");
  bad({"repair", "a.raw", "-o", "to"}, "a.raw", "is none of the library's fixed FITS files");
  bad({"repair", "fixed/a_LOW.fit", "-o", "to", "--raw", "other.raw"}, "fixed/a_LOW.fit",
      "shows other pixels");
  Bytes cut = folder.read("fixed/a_LOW.fit");
  cut.resize(cut.size() - 1);
  folder.write("cut.fit", cut);
  bad({"repair", "cut.fit", "-o", "to"}, "cut.fit", "is cut off: needs 6400 bytes, ends at byte 6399");
  cut.resize(5000);
  folder.write("cut.fit", cut);
  bad({"repair", "cut.fit", "-o", "to"}, "cut.fit", "");
  refused({"repair", "fixed/a_LOW.fit", "-o", "fixed", "--raw", "a.raw"}, "is an input");
  refused({"repair", "fixed/a_LOW.fit", "-o", "to", "--dsnu", "a.raw"}, "--raw");
}

TEST_F(Preview, ShowsTheImageNoLargerThanAsked) {
  good({"simulate", "GSENSE400", "--mode", "hdr", "--width", "300", "--height", "200", "--pre-rows", "4",
        "-o", "a.raw"});
  good({"preview", "a.raw", "-o", "out"});
  good({"preview", "a.raw", "-o", "small", "--max", "100", "--stretch", "asinh"});
  const auto sizeOf = [&](const std::string& name) {
    const Bytes png = folder.read(name);
    return std::pair(png.at(18) * 256 + png.at(19), png.at(22) * 256 + png.at(23));
  };
  EXPECT_EQ(sizeOf("out/a.png"), std::pair(300, 200));
  EXPECT_EQ(sizeOf("small/a.png"), std::pair(100, 67));
  EXPECT_THAT(textOf(folder.read("out/a.png")), HasSubstr("VESTRA VS400"));
  fs::create_directory(folder.path() / "none");
  bad({"preview", "a.raw", "-o", "none", "--plane", "image"}, "a.raw", "has no plane 'image'");
}

}  // namespace
