// Headers: values with units, raw keys, text.

#include <chrono>
#include <limits>
#include <set>

#include "face/FaceTesting.h"
#include "support/Contains.h"

using namespace face_testing;
using orvacam::Header;

namespace {

Bytes headerBytes(const sim::HeaderFields& fields, unsigned int version = 3) {
  return sim::writeHeader(fields, version);
}
Header headerOf(const sim::HeaderFields& fields, unsigned int version = 3) {
  const Bytes bytes = headerBytes(fields, version);
  return Header::parse(bytes.data(), bytes.size());
}
Header parsed(const Bytes& bytes) {
  return Header::parse(bytes.data(), bytes.size());
}

constexpr std::size_t timeAt = 152;

Header withTime(const std::string& text) {
  Bytes bytes = headerBytes(fieldsOf("GSense400Hdr"));
  std::fill_n(bytes.begin() + timeAt, 30, 0);
  std::copy(text.begin(), text.end(), bytes.begin() + timeAt);
  return parsed(bytes);
}

long nanosecondsOf(const Header& header) {
  return header.time()->time_since_epoch().count();
}

}  // namespace

TEST(FaceHeader, KnowsTheSensorByTheModelUpToItsFirstNul) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.model = "LSGEN";
  EXPECT_EQ(headerOf(fields).sensor(), "LSGEN");
  fields.model = std::string("CAM\0LSGEN", 9);
  EXPECT_EQ(headerOf(fields).model(), "CAM");
  EXPECT_EQ(headerOf(fields).sensor(), "GENERIC");
}

TEST(FaceHeader, TellsWhatProgramsAskForMost) {
  sim::HeaderFields fields = fieldsOf("GSense4040Hdr");
  fields.serial = "VS-77  ";
  fields.exposure = 12345;
  fields.chipTemperature = -195;
  fields.temperatureSetPoint = -200;
  const Header header = headerOf(fields);
  EXPECT_EQ(header.version(), 3u);
  EXPECT_EQ(header.model(), "VESTRA VS4040");
  EXPECT_EQ(header.serial(), "VS-77");
  EXPECT_EQ(header.sensor(), "GSENSE4040");
  EXPECT_TRUE(header.hdr());
  EXPECT_DOUBLE_EQ(header.exposure_seconds(), 0.12345);
  EXPECT_DOUBLE_EQ(header.temperature_celsius().value(), -19.5);
  EXPECT_DOUBLE_EQ(header.set_point_celsius().value(), -20.0);
}

TEST(FaceHeader, OfVersionOneHasNoSetPoint) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.chipTemperature = 123;
  const Header header = headerOf(fields, 1);
  EXPECT_EQ(header.version(), 1u);
  EXPECT_DOUBLE_EQ(header.temperature_celsius().value(), 12.3);
  EXPECT_FALSE(header.set_point_celsius().has_value());
}

ORVACAM_OF_EVERY_MODE(FaceHeaderOf);

TEST_P(FaceHeaderOf, NamesTheSensor) {
  for (unsigned int version = 1; version <= 4; ++version)
    EXPECT_EQ(headerOf(fieldsOf(mode), version).sensor(), sensorOf(mode));
}

TEST(FaceHeader, HasTheSizeOfAPlaneAndTheImageWithinIt) {
  sim::HeaderFields fields = fieldsOf("GSense6060Hdr");
  fields.width = 40;
  fields.height = 20;
  fields.startRow = 7;
  fields.preRefPixels = 5;
  fields.postRefPixels = 3;
  fields.preRefRows = 4;
  fields.postRefRows = 9;
  fields.horizontalBinning = 2;
  fields.verticalBinning = 4;
  const Header header = headerOf(fields);
  EXPECT_EQ(header.frame_size(), (orvacam::Size{3 + 20 + 2, 1 + 5 + 3}));
  EXPECT_EQ(header.image_region(), (orvacam::Region{3, 1, 20, 5}));
  EXPECT_EQ(header.start_row(), 7u);
}

TEST(FaceHeader, WithoutGeometrySaysWhy) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  Bytes bytes = headerBytes(fields);
  bytes[126] = bytes[127] = 0;  // stop row
  bytes[122] = 1;               // start row 256
  const Header header = parsed(bytes);
  const auto error = errorOf([&] { header.frame_size(); });
  EXPECT_EQ(error.reason(), Reason::bad_geometry);
  EXPECT_TRUE(contains(error.what(), "rows 256 to 0"));
  EXPECT_EQ(reasonOf([&] { header.image_region(); }), Reason::bad_geometry);
  EXPECT_EQ(reasonOf([&] { header.start_row(); }), Reason::bad_geometry);
}

// ---- Time

TEST(FaceHeader, TimeIsToTheNanosecond) {
  // 2024-05-17T21:04:33Z is 1715979873 s.
  EXPECT_EQ(nanosecondsOf(withTime("2024/05/17 21:04:33.123456789")), 1715979873123456789);
  EXPECT_EQ(nanosecondsOf(withTime("1970/01/01 00:00:00.000000000")), 0);
  EXPECT_EQ(nanosecondsOf(withTime("1969/12/31 23:59:59.999999999")), -1);
  EXPECT_EQ(nanosecondsOf(withTime("2000/02/29 00:00:00.000000001")), 951782400000000001);
}

TEST(FaceHeader, ThreeDigitsOfTimeAreMilliseconds) {
  EXPECT_EQ(nanosecondsOf(withTime("2024/05/17 21:04:33.123 NOGPS")), 1715979873123000000);
  EXPECT_EQ(nanosecondsOf(withTime("2024/05/17 21:04:33.007 ERROR")), 1715979873007000000);
}

TEST(FaceHeader, ImpossibleTimesAreNone) {
  for (const char* text :
       {"2024/05/17 26:02:01.000000000", "2024/02/30 10:00:00.000000000", "2023/02/29 10:00:00.000000000",
        "2024/00/10 10:00:00.000000000", "2024/13/10 10:00:00.000000000", "2024/04/31 10:00:00.000000000",
        "2024/04/00 10:00:00.000000000", "2024/04/10 10:60:00.000000000", "2024/04/10 10:00:60.000000000",
        "1900/02/29 10:00:00.000000000", "1677/09/21 00:12:43.145224191", "2262/04/11 23:47:16.854775808",
        "9999/01/01 00:00:00.000000000", "0000/01/01 00:00:00.000000000"})
    EXPECT_FALSE(withTime(text).time().has_value()) << text;
}

TEST(FaceHeader, TimesAtTheEndsOfNanosecondsAreHeld) {
  EXPECT_EQ(nanosecondsOf(withTime("2262/04/11 23:47:16.854775807")), std::numeric_limits<long>::max());
  EXPECT_EQ(nanosecondsOf(withTime("1677/09/21 00:12:43.145224192")), std::numeric_limits<long>::min());
}

TEST(FaceHeader, UnreadableTimeIsNoneAndLeavesEverythingElse) {
  for (const char* text : {"", "    ", "2024/05/17", "2024-05-17T21:04:33,abc", "garbage"}) {
    const Header header = withTime(text);
    EXPECT_FALSE(header.time().has_value()) << text;
    EXPECT_EQ(header.sensor(), "GSENSE400");
    EXPECT_EQ(header.number("HorizontalPixelSize"), 110);  // stands behind the time
    EXPECT_EQ(header.number("CaptureDate"), 0);
    EXPECT_EQ(header.number("CaptureTime"), 0);
    EXPECT_TRUE(contains(header.to_text(), "ERROR"));
  }
}

TEST(FaceHeader, OfVersionOneHasItsPackedTime) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.time = {2024, 5, 17, 21, 4, 33, 123456700};
  EXPECT_EQ(nanosecondsOf(headerOf(fields, 1)), 1715979873123456700);
}

TEST(FaceHeader, OfVersionOneHasNoTimeBeyondADay) {
  Bytes bytes = headerBytes(fieldsOf("GSense400Hdr"), 1);
  std::fill_n(bytes.begin() + 74, 5, 0xFF);
  EXPECT_FALSE(parsed(bytes).time().has_value());
}

// ---- Raw values

TEST(FaceHeader, GivesEveryKeyAsTheMachineryDoes) {
  for (unsigned int version = 1; version <= 4; ++version) {
    const Bytes bytes = headerBytes(fieldsOf("GSense2020Hdr"), version);
    const Header header = parsed(bytes);
    CFrameMetaData machinery;
    Bytes copy = bytes;
    ASSERT_EQ(machinery.Parse(copy.data(), copy.size()), 0);
    for (const orvacam::Key& key : orvacam::keys()) {
      meta_data_value_t value{};
      machinery.GetValue(static_cast<ORVA_META_KEYS>(key.number), value);
      if (key.kind == orvacam::Key::Kind::text) {
        EXPECT_GE(value.length, 0) << key.name;
        EXPECT_EQ(reasonOf([&] { header.number(key.name); }), Reason::bad_argument) << key.name;
      } else {
        EXPECT_EQ(header.number(key.name), value.value) << key.name;
      }
    }
  }
}

TEST(FaceHeader, KnowsNinetyThreeKeys) {
  const std::vector<orvacam::Key> keys = orvacam::keys();
  ASSERT_EQ(keys.size(), 93u);
  std::set<std::string> names;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    EXPECT_FALSE(keys[i].name.empty());
    EXPECT_TRUE(i == 0 || keys[i - 1].number < keys[i].number);
    EXPECT_GE(keys[i].first_version, 1);
    EXPECT_EQ(keys[i].last_version, 4);
    names.insert(keys[i].name);
  }
  EXPECT_EQ(names.size(), 93u);
}

TEST(FaceHeader, TextsOfValues) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.exposure = 4294967295u;
  fields.shutterOpenDelay = -300;
  fields.time.nanosecond = 500000000;
  const Header header = headerOf(fields);
  EXPECT_EQ(header.text("ExposureTime"), "4294967295");
  EXPECT_EQ(header.text("ShutterOpenDelay"), "-300");
  EXPECT_EQ(header.text("HDRMode"), "true");
  EXPECT_EQ(header.text("CorrelatedMultipleSample"), "false");
  EXPECT_EQ(header.text("CaptureTimeNsecs"), "500000000");
  EXPECT_EQ(header.text("CameraModel"), "VESTRA VS400");
  EXPECT_EQ(header.number("HDRMode"), 1);
}

TEST(FaceHeader, FractionsHaveTheirShortestExactDigits) {
  Bytes bytes = headerBytes(fieldsOf("GSense400Hdr"));
  bytes[182] = 0;  // 0.1 degrees: 60000 units, 6 minutes
  bytes[183] = 0;
  bytes[184] = 60001 >> 8;
  bytes[185] = 60001 & 255;
  const Header header = parsed(bytes);
  const double minutes = header.number("GPSLatitudeMinutes");
  EXPECT_EQ(std::stod(header.text("GPSLatitudeMinutes")), minutes);
  EXPECT_LE(header.text("GPSLatitudeMinutes").size(), 18u);
}

TEST(FaceHeader, UnknownKeysAreRefused) {
  const Header header = headerOf(fieldsOf("GSense400Hdr"));
  for (const char* key : {"", "exposuretime", "ExposureTime ", "Nothing"}) {
    const auto error = errorOf([&] { header.number(key); });
    EXPECT_EQ(error.reason(), Reason::bad_argument);
    EXPECT_TRUE(contains(error.what(), "is no key"));
    EXPECT_EQ(reasonOf([&] { header.text(key); }), Reason::bad_argument);
  }
  using namespace std::string_view_literals;
  EXPECT_EQ(reasonOf([&] { header.number("HDRMode\0x"sv); }), Reason::bad_argument);
}

TEST(FaceHeader, TextsAreCutAtTheFirstNulAndAreUtf8) {
  Bytes bytes = headerBytes(fieldsOf("GSense400Hdr"));
  const std::string serial("A\xC3\xBC\xFF\xE2\x82 \0hidden", 15);
  std::fill_n(bytes.begin() + 48, 24, 0);
  std::copy(serial.begin(), serial.end(), bytes.begin() + 48);
  EXPECT_EQ(parsed(bytes).serial(), "A\xC3\xBC\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(parsed(bytes).text("CameraSerialNumber"), parsed(bytes).serial());
}

TEST(FaceHeader, InvalidUtf8OfEveryKindBecomesReplacementCharacters) {
  const auto serialOf = [](const std::string& text) {
    Bytes bytes = headerBytes(fieldsOf("GSense400Hdr"));
    std::fill_n(bytes.begin() + 48, 24, 0);
    std::copy(text.begin(), text.end(), bytes.begin() + 48);
    return parsed(bytes).serial();
  };
  const std::string r = "\xEF\xBF\xBD";
  EXPECT_EQ(serialOf("\xC0\x80x"), r + r + "x");                  // too long a form
  EXPECT_EQ(serialOf("\xE0\x80\x80x"), r + r + r + "x");          // the same
  EXPECT_EQ(serialOf("\xED\xA0\x80x"), r + r + r + "x");          // half of a pair
  EXPECT_EQ(serialOf("\xF4\x90\x80\x80x"), r + r + r + r + "x");  // beyond the last character
  EXPECT_EQ(serialOf("\xF0\x9F\x98\x80x"), "\xF0\x9F\x98\x80x");  // four bytes that are one
  EXPECT_EQ(serialOf("\xF0\x80\x80\x80x"), r + r + r + r + "x");
}

TEST(FaceHeader, AnEmptyTextIsEmpty) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.serial = "";
  EXPECT_EQ(headerOf(fields).serial(), "");
  EXPECT_EQ(headerOf(fields).text("CameraSerialNumber"), "");
}

// ---- Text

TEST(FaceHeader, TextIsTheMachinerys) {
  for (unsigned int version = 1; version <= 4; ++version) {
    const Bytes bytes = headerBytes(fieldsOf("GSense400Hdr"), version);
    Bytes copy = bytes;
    CFrameMetaData machinery;
    machinery.Parse(copy.data(), copy.size());
    std::vector<char> text(32768);
    machinery.ToString(text.data(), text.size());
    EXPECT_EQ(parsed(bytes).to_text(), text.data());
  }
}

// ---- Where no header can be had

TEST(FaceHeader, WhatIsNoFrameIsSaidSo) {
  const auto errorFor = [](const std::string& text) {
    return errorOf([&] { Header::parse(text.data(), text.size()); });
  };
  for (const char* text : {"", "Met", "SIMPLE  =                    T", "II*", "hello, world", "meta"})
    EXPECT_EQ(errorFor(text).reason(), Reason::not_a_frame) << text;
  EXPECT_TRUE(contains(errorFor("").what(), "is empty"));
  EXPECT_TRUE(contains(errorFor("SIMPLE  = T").what(), "FITS"));
  EXPECT_TRUE(contains(errorFor(std::string("II*\0", 4)).what(), "TIFF"));
  EXPECT_TRUE(contains(errorFor(std::string("MM\0*", 4)).what(), "TIFF"));
  EXPECT_EQ(reasonOf([] { Header::parse(nullptr, 0); }), Reason::not_a_frame);
  EXPECT_EQ(reasonOf([] { Header::parse(nullptr, 10); }), Reason::bad_argument);
}

TEST(FaceHeader, CutOffAtAnyByteIsTruncated) {
  for (unsigned int version = 1; version <= 4; ++version) {
    const Bytes bytes = headerBytes(fieldsOf("GSense400Hdr"), version);
    for (std::size_t length = 4; length < bytes.size(); ++length) {
      const auto error = errorOf([&] { Header::parse(bytes.data(), length); });
      EXPECT_EQ(error.reason(), Reason::truncated);
      EXPECT_EQ(error.needed(), length < 8 ? 8 : bytes.size());
      EXPECT_EQ(error.available(), length);
    }
    EXPECT_NO_THROW(parsed(bytes));
  }
}

TEST(FaceHeader, StatedLengthIsNeededToo) {
  Bytes bytes = headerBytes(fieldsOf("GSense400Hdr"));
  bytes[4] = 2;  // 640
  const auto error = errorOf([&] { parsed(bytes); });
  EXPECT_EQ(error.reason(), Reason::truncated);
  EXPECT_EQ(error.needed(), 640u);
  EXPECT_STREQ(error.what(), "needs 640 bytes for its header, ends at byte 384");
}

TEST(FaceHeader, LeavesTheBytesAlone) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.shutterOpenDelay = -300;
  const Bytes bytes = headerBytes(fields);
  const Bytes before = bytes;
  const Header header = parsed(bytes);
  EXPECT_EQ(bytes, before);
  EXPECT_EQ(header.bytes(), std::string_view(reinterpret_cast<const char*>(before.data()), before.size()));
}

// ---- Files

TEST(FaceHeader, IsReadFromTheStartOfAFile) {
  const TestFolder folder;
  const SimulatedFrame frame = simulate(fieldsOf("GSense4040Hdr"));
  EXPECT_EQ(Header::read(folder.put("a.raw", frame.bytes)).sensor(), "GSENSE4040");
}

TEST(FaceHeader, FilesThatCannotBeReadAreSaidSo) {
  const TestFolder folder;
  const auto missing = errorOf([&] { Header::read(folder.path() / "missing.raw"); });
  EXPECT_EQ(missing.reason(), Reason::io);
  EXPECT_EQ(missing.system_error(), ENOENT);
  EXPECT_EQ(missing.path(), (folder.path() / "missing.raw").string());
  EXPECT_EQ(reasonOf([&] { Header::read(folder.path()); }), Reason::io);
  EXPECT_EQ(reasonOf([&] { Header::read(folder.put("empty.raw", {})); }), Reason::not_a_frame);
}

TEST(FaceHeader, CopiesShareAndMovedFromOnesCanBeAssigned) {
  Header header = headerOf(fieldsOf("GSense400Hdr"));
  const Header copy = header;
  Header moved = std::move(header);
  EXPECT_EQ(copy.sensor(), moved.sensor());
  EXPECT_EQ(reasonOf([&] { header.sensor(); }), Reason::bad_argument);
  header = copy;
  EXPECT_EQ(header.sensor(), "GSENSE400");
}
