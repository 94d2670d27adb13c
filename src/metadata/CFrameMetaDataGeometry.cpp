// What follows from the header's fields: device, sizes, temperatures, positions, gains.

#include <orvacam/gain/CDeviceGainTablesFactory.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/types/device_types.h>
#include <orvacam/types/gain_types.h>

#include <cstring>
#include <memory>
#include <string_view>

#include "sensors/Sensors.h"
#include "support/CheckedMath.h"

namespace {

using orvacam::ceilDivide;

/// The text of a stored value up to its first zero byte; it stays the value's. Nothing here takes memory: a
/// camera is the same one also when there is none.
std::string_view textOf(const CMetaValues& value) {
  int length = 0;
  const auto* const bytes = reinterpret_cast<const char*>(value.GetValue(nullptr, length));
  return bytes == nullptr || length <= 0
             ? std::string_view()
             : std::string_view(bytes, strnlen(bytes, static_cast<unsigned>(length)));
}

unsigned int binned(unsigned int size, unsigned int factor) {
  return factor > 1 ? ceilDivide(size, factor) : size;
}

/// Width x height of a size, written also after a failure only where `always` says so.
int pixelsOf(const CFrameMetaData& header, int (CFrameMetaData::*size)(unsigned int&, unsigned int&) const,
             bool always, unsigned int& pixels) {
  unsigned int width = 0;
  unsigned int height = 0;
  const int result = (header.*size)(width, height);
  if (result == 0 || always) pixels = width * height;
  return result;
}

/// Electrons per count of a gain setting; 1.0 without tables.
double gainValue(const CFrameMetaData& header, ORVAGAINTABLE table, ORVA_META_KEYS key) {
  gain_type_info_t camera{ORVA_DEVICE_UNKNOWN,
                          header.Value(ORVA_META_KEY_BACK_SIDE_ILLUMINATED).GetValueBool()};
  header.GetDeviceType(camera.uiDeviceType);
  const std::unique_ptr<IDeviceGainTables> tables(
      CDeviceGainTablesFactory::IDeviceGainTables_Create(camera, nullptr));
  return tables == nullptr ? 1.0 : tables->GetDNETableValue(table, header.Value(key).GetValueUint());
}

}  // namespace

// ---- Device

int CFrameMetaData::GetDeviceType(unsigned int& uiType) const {
  return DoGetDeviceType(uiType);
}

int CFrameMetaData::DoGetDeviceType(unsigned int& uiType) const {
  const orvacam::Sensor* const sensor = orvacam::sensorOfModel(textOf(m_Values[ORVA_META_KEY_CAMERA_MODEL]));
  if (sensor == nullptr) return -1;
  uiType = sensor->device;
  return 0;
}

double CFrameMetaData::GetLowGainValue() const {
  return gainValue(*this, ORVA_GAIN_TABLE_LOW_CHANNEL, ORVA_META_KEY_LDR_GAIN);
}

double CFrameMetaData::GetHighGainValue() const {
  return gainValue(*this, ORVA_GAIN_TABLE_HIGH_CHANNEL, ORVA_META_KEY_HDR_GAIN);
}

// ---- Sizes. Sums and products are 32-bit and wrap, as documented

int CFrameMetaData::GetImageDimensions(unsigned int& uiWidth, unsigned int& uiHeight) const {
  int result = -1;
  if (DoUint(ORVA_META_KEY_IMAGE_STOP_COLUMN) >= DoUint(ORVA_META_KEY_IMAGE_START_COLUMN)) {
    uiWidth = DoUint(ORVA_META_KEY_IMAGE_STOP_COLUMN) + 1 - DoUint(ORVA_META_KEY_IMAGE_START_COLUMN);
    result = 0;
  }
  if (DoUint(ORVA_META_KEY_IMAGE_STOP_ROW) < DoUint(ORVA_META_KEY_IMAGE_START_ROW)) return -1;
  uiHeight = DoUint(ORVA_META_KEY_IMAGE_STOP_ROW) + 1 - DoUint(ORVA_META_KEY_IMAGE_START_ROW);
  return result;
}

int CFrameMetaData::GetFrameDimensions(unsigned int& uiWidth, unsigned int& uiHeight) const {
  const int result = GetImageDimensions(uiWidth, uiHeight);
  if (result != 0) return result;
  uiWidth += DoUint(ORVA_META_KEY_POST_ROW_REF_PIXELS) + DoUint(ORVA_META_KEY_PRE_ROW_REF_PIXELS);
  uiHeight += DoUint(ORVA_META_KEY_POST_REFERENCE_ROWS) + DoUint(ORVA_META_KEY_PRE_REFERENCE_ROWS);
  return 0;
}

int CFrameMetaData::GetImageDimensionsBinned(unsigned int& uiWidth, unsigned int& uiHeight) const {
  const int result = GetImageDimensions(uiWidth, uiHeight);
  uiWidth = binned(uiWidth, DoUint(ORVA_META_KEY_HORIZONTAL_BINNING));
  uiHeight = binned(uiHeight, DoUint(ORVA_META_KEY_VERTICAL_BINNING));
  return result;
}

int CFrameMetaData::GetFrameDimensionsBinned(unsigned int& uiWidth, unsigned int& uiHeight) const {
  const int result = GetImageDimensionsBinned(uiWidth, uiHeight);
  unsigned int pre = 0;
  unsigned int post = 0;
  GetRefPixelsBinned(pre, post);
  uiWidth += post + pre;
  GetRefRowsBinned(pre, post);
  uiHeight += post + pre;
  return result;
}

int CFrameMetaData::GetImageSizePixels(unsigned int& uiPixels) const {
  return pixelsOf(*this, &CFrameMetaData::GetImageDimensions, false, uiPixels);
}

int CFrameMetaData::GetFrameSizePixels(unsigned int& uiPixels) const {
  return pixelsOf(*this, &CFrameMetaData::GetFrameDimensions, false, uiPixels);
}

int CFrameMetaData::GetImageSizePixelsBinned(unsigned int& uiPixels) const {
  return pixelsOf(*this, &CFrameMetaData::GetImageDimensionsBinned, true, uiPixels);
}

int CFrameMetaData::GetFrameSizePixelsBinned(unsigned int& uiPixels) const {
  return pixelsOf(*this, &CFrameMetaData::GetFrameDimensionsBinned, true, uiPixels);
}

int CFrameMetaData::GetRefPixelsBinned(unsigned int& uiPre, unsigned int& uiPost) const {
  uiPre = binned(DoUint(ORVA_META_KEY_PRE_ROW_REF_PIXELS), DoUint(ORVA_META_KEY_HORIZONTAL_BINNING));
  uiPost = binned(DoUint(ORVA_META_KEY_POST_ROW_REF_PIXELS), DoUint(ORVA_META_KEY_HORIZONTAL_BINNING));
  return 0;
}

int CFrameMetaData::GetRefRowsBinned(unsigned int& uiPre, unsigned int& uiPost) const {
  uiPre = binned(DoUint(ORVA_META_KEY_PRE_REFERENCE_ROWS), DoUint(ORVA_META_KEY_VERTICAL_BINNING));
  uiPost = binned(DoUint(ORVA_META_KEY_POST_REFERENCE_ROWS), DoUint(ORVA_META_KEY_VERTICAL_BINNING));
  return 0;
}

int CFrameMetaData::GetPixelSize(unsigned int& uiBits) const {
  uiBits = DoUint(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH);
  return 0;
}

unsigned int CFrameMetaData::DoComputeFrameSizeFromPixelSize(unsigned int uiBits, unsigned int uiWidth,
                                                             unsigned int uiHeight) {
  const unsigned int bits = uiWidth * uiHeight * uiBits;
  return (bits + (bits % 8 != 0 ? 8 : 0)) / 8;
}

int CFrameMetaData::GetImageSizeBytes(unsigned int& uiBytes) const {
  uiBytes = 0;
  unsigned int device = ORVA_DEVICE_UNKNOWN;
  const int result = GetDeviceType(device);
  if (result != 0) return result;

  unsigned int width = 0;
  unsigned int height = 0;
  if (GetImageDimensions(width, height) != 0) return -1;
  const unsigned int bits = DoUint(ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH);
  const unsigned int refPixels =
      DoUint(ORVA_META_KEY_POST_ROW_REF_PIXELS) + DoUint(ORVA_META_KEY_PRE_ROW_REF_PIXELS);
  const unsigned int rows =
      height + DoUint(ORVA_META_KEY_POST_REFERENCE_ROWS) + DoUint(ORVA_META_KEY_PRE_REFERENCE_ROWS);
  const bool hdr = m_Values[ORVA_META_KEY_HDR_MODE].GetValueBool();

  const unsigned int bin = DoUint(ORVA_META_KEY_HORIZONTAL_BINNING) * DoUint(ORVA_META_KEY_VERTICAL_BINNING);
  if (bin == 0) return 0;

  const orvacam::SizeRule& rule = orvacam::sensorOf(device).size;
  const unsigned int times = rule.doubled == rule.Always || (rule.doubled == rule.InHdr && hdr) ? 2 : 1;
  if (rule.apart)
    uiBytes = times *
              (DoComputeFrameSizeFromPixelSize(bits, width, rows) +
               DoComputeFrameSizeFromPixelSize(bits, refPixels, rows / rule.rowsPerReferenceRow)) /
              bin;
  else
    uiBytes = DoComputeFrameSizeFromPixelSize(bits, width + refPixels, rows) / bin * times;
  return 0;
}

// ---- Temperatures, positions

double CFrameMetaData::DoGetConvertedTemperature(int iTenths) {
  return iTenths / 10.0;
}

double CFrameMetaData::GetSensorTemperature() const {
  return DoGetConvertedTemperature(m_Values[ORVA_META_KEY_SENSOR_CHIP_TEMP].GetValueInt());
}

double CFrameMetaData::DoGetGPSLocation(unsigned int uiRaw) const {
  if (DoUint(ORVA_META_KEY_METADATA_VERSION) == 1) return 0.0;  // intended: its header has no position
  const double degrees = (uiRaw & 0x7FFFFFFFu) / 600000.0;
  return (uiRaw >> 31) != 0 ? degrees : -degrees;
}

double CFrameMetaData::GetGPSLatitude() const {
  return DoGetGPSLocation(DoUint(ORVA_META_KEY_GPS_LATITUDE_RAW));
}
double CFrameMetaData::GetGPSLongitude() const {
  return DoGetGPSLocation(DoUint(ORVA_META_KEY_GPS_LONGITUDE_RAW));
}

int CFrameMetaData::GetRawMetaData(unsigned char* pBuffer, unsigned int uiSize) const {
  const unsigned int length = DoUint(ORVA_META_KEY_METADATA_LENGTH);
  if (pBuffer == nullptr || length > uiSize || length > s_uiRawHeaderSize) return -1;
  std::memcpy(pBuffer, m_RawHeader, length);
  return 0;
}
