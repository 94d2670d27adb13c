#include <orvacam/gain/CDeviceGainTablesFactory.h>
#include <orvacam/gain/CGainTables.h>
#include <orvacam/types/device_types.h>

#include <new>

namespace {

template <typename Tables>
IDeviceGainTables* make() {
  return new Tables;
}

constexpr struct {
  unsigned int device;
  IDeviceGainTables* (*make)();
  IDeviceGainTables* (*makeBSI)();
} makers[] = {
    {ORVA_DEVICE_GSENSE400, make<CGainTablesGSENSE400>, make<CGainTablesGSENSE400>},
    {ORVA_DEVICE_GSENSE2020, make<CGainTablesGSENSE2020_FSI>, make<CGainTablesGSENSE2020_BSI>},
    {ORVA_DEVICE_GSENSE4040, make<CGainTablesGSENSE4040>, make<CGainTablesGSENSE4040>},
    {ORVA_DEVICE_GSENSE6060, make<CGainTablesGSENSE6060>, make<CGainTablesGSENSE6060>},
    {ORVA_DEVICE_IMX183, make<CGainTablesIMX183>, make<CGainTablesIMX183>},
    {ORVA_DEVICE_LUMORA420, make<CGainTablesLumora420>, make<CGainTablesLumora420>},
    {ORVA_DEVICE_LUMORA533, make<CGainTablesLumora533>, make<CGainTablesLumora533>},
    {ORVA_DEVICE_LUMORA571, make<CGainTablesLumora571>, make<CGainTablesLumora571>},
    {ORVA_DEVICE_LSGEN, make<CGainTablesLSGEN>, make<CGainTablesLSGEN>},
};

}  // namespace

IDeviceGainTables* CDeviceGainTablesFactory::IDeviceGainTables_Create(const gain_type_info_t& info,
                                                                      CCameraNVMergeSettings* pNV) try {
  IDeviceGainTables* tables = nullptr;
  for (const auto& maker : makers)
    if (maker.device == info.uiDeviceType) tables = info.bBSI ? maker.makeBSI() : maker.make();
  if (tables == nullptr) tables = new CGainTablesGeneric;
  tables->InitializeMergeSettings(pNV);  // does nothing for sensors without curves
  return tables;
} catch (const std::bad_alloc&) {
  return nullptr;
}
