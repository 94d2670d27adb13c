// Headers as JSON.

#include <nlohmann/json.hpp>

#include "face/FaceTesting.h"

using namespace face_testing;
using orvacam::Header;

namespace {

Header parsed(const Bytes& bytes) {
  return Header::parse(bytes.data(), bytes.size());
}

}  // namespace

TEST(FaceHeader, JsonHasValuesUnitsAndWhatFollows) {
  sim::HeaderFields fields = fieldsOf("GSense400Hdr");
  fields.serial = "quote\" slash\\ tab\t";
  fields.exposure = 1;
  const auto json = nlohmann::json::parse(parsed(sim::writeHeader(fields, 3)).to_json());
  EXPECT_EQ(json["schema"], "orvacam.header/1");
  EXPECT_EQ(json["values"].size(), 93u);
  EXPECT_EQ(json["values"]["HDRMode"], true);
  EXPECT_EQ(json["values"]["ExposureTime"], 1);
  EXPECT_EQ(json["values"]["CameraSerialNumber"], "quote\" slash\\ tab\t");
  EXPECT_EQ(json["units"]["ExposureTime"], "10 us");
  EXPECT_EQ(json["derived"]["sensor"], "GSENSE400");
  EXPECT_EQ(json["derived"]["hdr"], true);
  EXPECT_EQ(json["derived"]["planes"], (nlohmann::json{"low", "high", "merged"}));
  EXPECT_EQ(json["derived"]["width"], 24);
  EXPECT_EQ(json["derived"]["height"], 10);
  EXPECT_EQ(json["derived"]["exposure_seconds"], 1e-5);
  EXPECT_EQ(json["derived"]["time_utc"], "2024-05-17T21:04:33.123456700");
  EXPECT_EQ(json["derived"]["temperature_celsius"], -19.5);
}

TEST(FaceHeader, JsonHasTimesBefore1970) {
  Bytes bytes = sim::writeHeader(fieldsOf("GSense400Hdr"), 3);
  const auto timeOf = [&](const std::string& text) {
    std::copy(text.begin(), text.end(), bytes.begin() + 152);
    return nlohmann::json::parse(parsed(bytes).to_json())["derived"]["time_utc"];
  };
  EXPECT_EQ(timeOf("1969/12/31 23:59:59.000000001"), "1969-12-31T23:59:59.000000001");
  EXPECT_EQ(timeOf("1904/02/29 00:00:00.000000000"), "1904-02-29T00:00:00.000000000");
}

TEST(FaceHeader, JsonHasNullWhereThereIsNothing) {
  Bytes bytes = sim::writeHeader(fieldsOf("GSense400Hdr"), 1);
  bytes[126] = bytes[127] = 0;
  bytes[122] = 1;
  std::fill_n(bytes.begin() + 72, 7, 0);
  const auto json = nlohmann::json::parse(parsed(bytes).to_json());
  EXPECT_TRUE(json["derived"]["width"].is_null());
  EXPECT_TRUE(json["derived"]["time_utc"].is_null());
  EXPECT_TRUE(json["derived"]["set_point_celsius"].is_null());
  EXPECT_TRUE(json["derived"]["planes"].empty());
}
