#ifndef ORVACAM_GAIN_CDEVICEGAINTABLESFACTORY_H
#define ORVACAM_GAIN_CDEVICEGAINTABLESFACTORY_H

#include <orvacam/gain/IDeviceGainTables.h>
#include <orvacam/types/export.h>
#include <orvacam/types/gain_types.h>

/// Makes the gain tables of a camera.
/// Any thread may use it.
class ORVACAM_API CDeviceGainTablesFactory {
 public:
  /// The tables of the device type; unknown types get the generic ones. The caller deletes them. pNV, the
  /// camera's stored settings, may be null and is not kept. Null only when memory runs out.
  static IDeviceGainTables* IDeviceGainTables_Create(const gain_type_info_t& info,
                                                     CCameraNVMergeSettings* pNV);
};

#endif  // ORVACAM_GAIN_CDEVICEGAINTABLESFACTORY_H
