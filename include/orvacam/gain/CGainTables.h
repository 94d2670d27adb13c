#ifndef ORVACAM_GAIN_CGAINTABLES_H
#define ORVACAM_GAIN_CGAINTABLES_H

/// \file
/// The gain tables of each sensor: classes that differ in their data alone.

#include <orvacam/gain/IDeviceGainTables.h>

#include <memory>

namespace orvacam {
struct SensorGains;
struct DneTables;
}  // namespace orvacam

/// Gain tables that come from a sensor's data record. Constructors may throw std::bad_alloc.
class ORVACAM_API CGainTablesSensor : public IDeviceGainTables {
 public:
  ~CGainTablesSensor() override;
  int GetGainRegs(ORVAGAINTABLE eTable, unsigned int* pReg, unsigned int* pShift,
                  unsigned int* pMask) override;
  /// For each gain: the stored value where the camera has one, else the sensor's curve, else its default.
  int InitializeMergeSettings(CCameraNVMergeSettings* pNV) override;
  /// The electrons per count of the first of uiEntries curve points whose gain is the device index; false,
  /// with dValue left alone, when there is none.
  bool CurveEVPerCount(unsigned int uiDeviceIndex, const electrons_per_count_t* pCurve,
                       unsigned int uiEntries, double& dValue) const;

 protected:
  CGainTablesSensor(const orvacam::SensorGains& gains, std::shared_ptr<orvacam::DneTables>& tablesOfClass);

  const orvacam::SensorGains& m_Gains;
  std::shared_ptr<orvacam::DneTables> m_pDne;  ///< shared by the objects of a class that one thread makes
};

/// GSENSE400: 8 gains with calibrated electrons per count.
class ORVACAM_API CGainTablesGSENSE400 : public CGainTablesSensor {
 public:
  CGainTablesGSENSE400();
};
/// GSENSE2020, back-side illuminated: 26 gains, 1.0 to 13.5.
class ORVACAM_API CGainTablesGSENSE2020_BSI : public CGainTablesSensor {
 public:
  CGainTablesGSENSE2020_BSI();
};
/// GSENSE2020, front-side illuminated: 64 gains, whose order and channels differ a little.
class ORVACAM_API CGainTablesGSENSE2020_FSI : public CGainTablesSensor {
 public:
  CGainTablesGSENSE2020_FSI();
};
/// GSENSE4040: 58 gains; their device indices leave out six.
class ORVACAM_API CGainTablesGSENSE4040 : public CGainTablesSensor {
 public:
  CGainTablesGSENSE4040();
};
/// GSENSE6060: the same 58 gains in ascending order.
class ORVACAM_API CGainTablesGSENSE6060 : public CGainTablesSensor {
 public:
  CGainTablesGSENSE6060();
};
/// IMX183: 4 gains, without electrons per count.
class ORVACAM_API CGainTablesIMX183 : public CGainTablesSensor {
 public:
  CGainTablesIMX183();
};
/// Lumora 420: 481 gains, 0.0 to 48.0.
class ORVACAM_API CGainTablesLumora420 : public CGainTablesSensor {
 public:
  CGainTablesLumora420();
};
/// Lumora 533: 7 gains, 0 to 36.
class ORVACAM_API CGainTablesLumora533 : public CGainTablesSensor {
 public:
  CGainTablesLumora533();
};
/// Lumora 571: the same 7 gains in another register.
class ORVACAM_API CGainTablesLumora571 : public CGainTablesSensor {
 public:
  CGainTablesLumora571();
};
/// LSGEN: unity gain, without a register.
class ORVACAM_API CGainTablesLSGEN : public CGainTablesSensor {
 public:
  CGainTablesLSGEN();
};
/// Every other camera: unity gain.
class ORVACAM_API CGainTablesGeneric : public CGainTablesSensor {
 public:
  CGainTablesGeneric();
};

#endif  // ORVACAM_GAIN_CGAINTABLES_H
