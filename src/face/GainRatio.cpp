#include "face/GainRatio.h"

#include <orvacam/gain/CDeviceGainTablesFactory.h>
#include <orvacam/gain/IDeviceGainTables.h>
#include <orvacam/types/gain_types.h>

#include <cmath>
#include <memory>
#include <new>

#include "gain/SensorGains.h"

namespace orvacam::face {

double gainRatioOf(const HeaderValues& header, CCameraNVMergeSettings* stored) {
  const gain_type_info_t camera{header.device(), header.flag(ORVA_META_KEY_BACK_SIDE_ILLUMINATED)};
  const GainTablesApart apart;
  const std::unique_ptr<IDeviceGainTables> tables(
      CDeviceGainTablesFactory::IDeviceGainTables_Create(camera, stored));
  if (tables == nullptr) throw std::bad_alloc();
  return tables->GetDNETableGainRatio(header.number(ORVA_META_KEY_LDR_GAIN),
                                      header.number(ORVA_META_KEY_HDR_GAIN));
}

double flooredRatio(double ratio) {
  return std::ldexp(std::floor(std::ldexp(ratio, ratioFractionBits)), -static_cast<int>(ratioFractionBits));
}

}  // namespace orvacam::face
