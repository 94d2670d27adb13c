// What follows from the header's fields: device, sizes, temperatures, positions, gains.

#include <orvacam/gain/CDeviceGainTablesFactory.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/types/device_types.h>
#include <orvacam/types/gain_types.h>

#include <cstring>
#include <memory>

#include "metadata/Values.h"
#include "sensors/Sensors.h"
#include "support/CheckedMath.h"

namespace {

using orvacam::ceilDivide;
using orvacam::numberOf;

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
  return tables == nullptr ? 1.0 : tables->GetDNETableValue(table, numberOf(header, key));
}

}  // namespace

// ---- Device

int CFrameMetaData::GetDeviceType(unsigned int& uiType) const {
  return DoGetDeviceType(uiType);
}

int CFrameMetaData::DoGetDeviceType(unsigned int& uiType) const {
  // Without memory: a camera is the same one also when there is none.
  const orvacam::Sensor* const sensor =
      orvacam::sensorOfModel(orvacam::textOf(m_Values[ORVA_META_KEY_CAMERA_MODEL]));
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
  const auto measure = [this](ORVA_META_KEYS start, ORVA_META_KEYS stop, unsigned int& size) {
    const unsigned int first = numberOf(*this, start);
    const unsigned int last = numberOf(*this, stop);
    if (last >= first) size = last + 1 - first;
    return last >= first;
  };
  const bool columns = measure(ORVA_META_KEY_IMAGE_START_COLUMN, ORVA_META_KEY_IMAGE_STOP_COLUMN, uiWidth);
  const bool rows = measure(ORVA_META_KEY_IMAGE_START_ROW, ORVA_META_KEY_IMAGE_STOP_ROW, uiHeight);
  return columns && rows ? 0 : -1;
}

int CFrameMetaData::GetFrameDimensions(unsigned int& uiWidth, unsigned int& uiHeight) const {
  const int result = GetImageDimensions(uiWidth, uiHeight);
  if (result != 0) return result;
  uiWidth +=
      numberOf(*this, ORVA_META_KEY_POST_ROW_REF_PIXELS) + numberOf(*this, ORVA_META_KEY_PRE_ROW_REF_PIXELS);
  uiHeight +=
      numberOf(*this, ORVA_META_KEY_POST_REFERENCE_ROWS) + numberOf(*this, ORVA_META_KEY_PRE_REFERENCE_ROWS);
  return 0;
}

int CFrameMetaData::GetImageDimensionsBinned(unsigned int& uiWidth, unsigned int& uiHeight) const {
  const int result = GetImageDimensions(uiWidth, uiHeight);
  uiWidth = binned(uiWidth, numberOf(*this, ORVA_META_KEY_HORIZONTAL_BINNING));
  uiHeight = binned(uiHeight, numberOf(*this, ORVA_META_KEY_VERTICAL_BINNING));
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
  uiPre = binned(numberOf(*this, ORVA_META_KEY_PRE_ROW_REF_PIXELS),
                 numberOf(*this, ORVA_META_KEY_HORIZONTAL_BINNING));
  uiPost = binned(numberOf(*this, ORVA_META_KEY_POST_ROW_REF_PIXELS),
                  numberOf(*this, ORVA_META_KEY_HORIZONTAL_BINNING));
  return 0;
}

int CFrameMetaData::GetRefRowsBinned(unsigned int& uiPre, unsigned int& uiPost) const {
  uiPre = binned(numberOf(*this, ORVA_META_KEY_PRE_REFERENCE_ROWS),
                 numberOf(*this, ORVA_META_KEY_VERTICAL_BINNING));
  uiPost = binned(numberOf(*this, ORVA_META_KEY_POST_REFERENCE_ROWS),
                  numberOf(*this, ORVA_META_KEY_VERTICAL_BINNING));
  return 0;
}

int CFrameMetaData::GetPixelSize(unsigned int& uiBits) const {
  uiBits = numberOf(*this, ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH);
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
  const unsigned int bits = numberOf(*this, ORVA_META_KEY_DATA_PIXEL_BIT_DEPTH);
  const unsigned int refPixels =
      numberOf(*this, ORVA_META_KEY_POST_ROW_REF_PIXELS) + numberOf(*this, ORVA_META_KEY_PRE_ROW_REF_PIXELS);
  const unsigned int rows = height + numberOf(*this, ORVA_META_KEY_POST_REFERENCE_ROWS) +
                            numberOf(*this, ORVA_META_KEY_PRE_REFERENCE_ROWS);
  const bool hdr = m_Values[ORVA_META_KEY_HDR_MODE].GetValueBool();

  const unsigned int bin =
      numberOf(*this, ORVA_META_KEY_HORIZONTAL_BINNING) * numberOf(*this, ORVA_META_KEY_VERTICAL_BINNING);
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
  if (numberOf(*this, ORVA_META_KEY_METADATA_VERSION) == 1)
    return 0.0;  // intended: its header has no position
  const double degrees = (uiRaw & 0x7FFFFFFFu) / 600000.0;
  return (uiRaw >> 31) != 0 ? degrees : -degrees;
}

double CFrameMetaData::GetGPSLatitude() const {
  return DoGetGPSLocation(numberOf(*this, ORVA_META_KEY_GPS_LATITUDE_RAW));
}
double CFrameMetaData::GetGPSLongitude() const {
  return DoGetGPSLocation(numberOf(*this, ORVA_META_KEY_GPS_LONGITUDE_RAW));
}

int CFrameMetaData::GetRawMetaData(unsigned char* pBuffer, unsigned int uiSize) const {
  const unsigned int length = numberOf(*this, ORVA_META_KEY_METADATA_LENGTH);
  if (pBuffer == nullptr || length > uiSize || length > s_uiRawHeaderSize) return -1;
  std::memcpy(pBuffer, m_RawHeader, length);
  return 0;
}
