#ifndef ORVACAM_TYPES_DEVICE_TYPES_H
#define ORVACAM_TYPES_DEVICE_TYPES_H

/// \file
/// The device type: which sensor a camera is built on. The library derives it from the camera model in a
/// frame's header (CFrameMetaData::GetDeviceType); the frame class and the gain tables follow from it.

/// The high byte groups the families (0x01 GSENSE sCMOS sensors, 0x03 CCD sensors read through up to four
/// amplifiers, 0x04 and 0x05 CMOS sensors with one gain), the low digits carry the sensor's number. Always
/// compared as a whole. Other values are legal and mean a generic 16-bit camera.
enum ORVADEVICETYPE : unsigned int {
  ORVA_DEVICE_UNKNOWN = 0,
  ORVA_DEVICE_GSENSE400 = 0x01000400,
  ORVA_DEVICE_GSENSE2020 = 0x01002020,
  ORVA_DEVICE_GSENSE4040 = 0x01004040,
  ORVA_DEVICE_GSENSE6060 = 0x01006060,
  ORVA_DEVICE_ARGENT_23042 = 0x03023042,
  ORVA_DEVICE_ARGENT_23084 = 0x03023084,
  ORVA_DEVICE_ARGENT_4320 = 0x03004320,
  ORVA_DEVICE_IMX183 = 0x04000183,
  ORVA_DEVICE_LUMORA420 = 0x05000420,
  ORVA_DEVICE_LUMORA533 = 0x05000533,
  ORVA_DEVICE_LUMORA571 = 0x05000571,
  ORVA_DEVICE_LSGEN = 0x850F0000
};

#endif  // ORVACAM_TYPES_DEVICE_TYPES_H
