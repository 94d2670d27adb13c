// The table of sensors: whoever adds a row finds here what a row must have.

#include "sensors/Sensors.h"

#include <gtest/gtest.h>
#include <orvacam/facade/CAlgo.h>
#include <orvacam/frames/CFrameFactory.h>
#include <orvacam/frames/CFrameGeneric.h>

#include <memory>
#include <string>
#include <typeinfo>

#include "simulator/Scene.h"
#include "support/Cameras.h"

namespace {

namespace sim = orvacam::simulator;
using orvacam::Sensor;
using orvacam::sensors;

TEST(Sensors, AreThoseThatTestsKnow) {
  ASSERT_EQ(std::size(sensors), std::size(cameras::all));
  for (const Sensor& sensor : sensors) {
    const cameras::Camera& camera = cameras::of(sensor.name);
    EXPECT_EQ(sensor.name, camera.sensor);
    EXPECT_EQ(sensor.device, camera.device) << sensor.name;
    EXPECT_EQ(sensor.referencePixels.pre, camera.pre) << sensor.name;
    EXPECT_EQ(sensor.referencePixels.post, camera.post) << sensor.name;
    EXPECT_EQ(sensor.designation.part.empty(), camera.model == nullptr) << sensor.name;
  }
}

TEST(Sensors, AreFoundByTheirDevice) {
  for (const Sensor& sensor : sensors)
    EXPECT_EQ(&orvacam::sensorOf(sensor.device), &sensor) << sensor.name;
  EXPECT_EQ(orvacam::sensorOf(0x01000401).name, "GENERIC");
  EXPECT_EQ(orvacam::sensorOf(0xFFFFFFFF).name, "GENERIC");
}

TEST(Sensors, HaveAFrameClassOfTheirOwnWhereTheirPixelsNeedOne) {
  for (const Sensor& sensor : sensors) {
    const std::unique_ptr<IFrame> frame(CFrameFactory::Create(sensor.device));
    ASSERT_NE(frame, nullptr) << sensor.name;
    const IFrame& object = *frame;
    EXPECT_EQ(typeid(object) == typeid(CFrameGeneric), sensor.frame == orvacam::FrameClass::Generic)
        << sensor.name;
  }
}

TEST(Sensors, HaveGains) {
  for (const Sensor& sensor : sensors)
    for (const auto make : {sensor.gains, sensor.backSideGains}) {
      ASSERT_NE(make, nullptr) << sensor.name;
      const std::unique_ptr<IDeviceGainTables> tables(make());
      EXPECT_GT(tables->GetNumEntries(ORVA_GAIN_TABLE_LOW_CHANNEL), 0u) << sensor.name;
      EXPECT_GT(tables->GetNumEntries(ORVA_GAIN_TABLE_HIGH_CHANNEL), 0u) << sensor.name;
    }
}

TEST(Sensors, ThatAModelNamesCanBeSimulatedAndDecoded) {
  for (const Sensor& sensor : sensors) {
    if (sensor.designation.part.empty()) continue;
    SCOPED_TRACE(sensor.name);
    const sim::Camera* const camera = sim::findCamera(std::string(sensor.name));
    ASSERT_NE(camera, nullptr);
    EXPECT_EQ(orvacam::sensorOfModel(camera->model), &sensor);
    const auto fields = sim::headerFor(*camera, "single");
    ASSERT_TRUE(fields.has_value());
    const std::vector<sim::Plane> planes = sim::exposeSky(*camera, *fields, {});
    ASSERT_EQ(planes.size(), 1u);
    std::vector<unsigned char> frame = sim::encodeFrame(*fields, 3, planes);
    CAlgo algo;
    unpacked_images_t images{};
    images.bLowImageRequest = true;
    ASSERT_EQ(algo.Initialize({sensor.device, false}, nullptr), 0);
    EXPECT_GE(algo.MergeImage(frame.data(), frame.size(), &images, nullptr), 0);
    EXPECT_EQ(sim::Plane(images.pLowImage, images.pLowImage + images.ulLowImagePixels), planes[0]);
    algo.FreeFramePointers(&images);
  }
}

}  // namespace
