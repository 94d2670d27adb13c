#ifndef ORVACAM_GAIN_IDEVICEGAINTABLES_H
#define ORVACAM_GAIN_IDEVICEGAINTABLES_H

#include <orvacam/types/export.h>
#include <orvacam/types/gain_types.h>

class CCameraNVMergeSettings;

/// The gain settings of a sensor's two channels: which exist, where the gain field sits in the sensor's
/// registers, and how many electrons one count represents at each ("DNE" tables).
///
/// Operations that take a channel reject every value but the two of ORVAGAINTABLE with the fall-back stated.
/// Objects are read-only after construction, except through SetGainTable, and may then be read by several
/// threads. The DNE tables of one class are shared by its objects that one thread makes: making another one,
/// with other stored settings, changes what the first one sees.
class ORVACAM_API IDeviceGainTables {
 public:
  IDeviceGainTables();
  IDeviceGainTables(const IDeviceGainTables&) = delete;
  IDeviceGainTables& operator=(const IDeviceGainTables&) = delete;
  virtual ~IDeviceGainTables();

  /// Register number, bit position and bit mask (field mask << shift) of the channel's gain field; null
  /// pointers are skipped. 0, or -1 for another channel.
  virtual int GetGainRegs(ORVAGAINTABLE eTable, unsigned int* pReg, unsigned int* pShift,
                          unsigned int* pMask) = 0;
  /// Gain x 1000 of an entry; 1000 where there is none.
  virtual unsigned int GetDeviceValueFromTableIndex(ORVAGAINTABLE eTable, unsigned int uiIndex);
  /// How many gain settings the channel has; 0xFFFFFFFF for another channel.
  virtual unsigned int GetNumEntries(ORVAGAINTABLE eTable);
  /// Copies all entries, in the sensor's own order or sorted by value. -1 when they exceed the capacity.
  virtual int GetTable(ORVAGAINTABLE eTable, gain_value_t* pTable, unsigned int uiCapacity, bool bSorted);
  /// Position of the first entry with a device index. Where there is none: the device index itself when it is
  /// below the number of entries, else the last position.
  virtual unsigned int GetTableIndexFromDeviceIndex(ORVAGAINTABLE eTable, unsigned int uiDeviceIndex);
  /// Position of the first entry with a gain x 1000; 0 where there is none.
  virtual unsigned int GetTableIndexFromDeviceValue(ORVAGAINTABLE eTable, unsigned int uiValue);
  /// Electrons per count of the low-gain over those of the high-gain setting; the default ratio where one is
  /// missing.
  virtual double GetDNETableGainRatio(unsigned int uiLowIndex, unsigned int uiHighIndex);
  /// Electrons per count of a device index; 1.0 where there is none.
  virtual double GetDNETableValue(ORVAGAINTABLE eTable, unsigned int uiDeviceIndex);
  /// Device index of an entry; the index itself where there is none.
  virtual unsigned int GetDNETableDeviceIndex(ORVAGAINTABLE eTable, unsigned int uiIndex);
  /// How many electrons-per-count values the channel has, 0 for a sensor without them; 0xFFFFFFFF for another
  /// channel.
  virtual unsigned int GetDNETableNumEntries(ORVAGAINTABLE eTable);
  /// Takes the camera's stored electrons per count into the DNE tables; pNV may be null. 0.
  virtual int InitializeMergeSettings(CCameraNVMergeSettings* pNV);

  /// Sets a channel's table, which stays the caller's and must outlive the object, and makes a sorted copy of
  /// it. An earlier copy is not freed: use SetGainTable to replace one. -1 for a null table or another
  /// channel. May throw std::bad_alloc.
  int MapGainTable(ORVAGAINTABLE eTable, const gain_value_t* pTable, unsigned int uiEntries);
  /// Sets a channel's DNE table, which stays the caller's. -1 for a null table or another channel.
  int MapDNEGainTable(ORVAGAINTABLE eTable, merge_gain_t* pTable, unsigned int uiEntries);
  /// Replaces a channel's table; as MapGainTable, with the earlier sorted copy freed.
  int SetGainTable(ORVAGAINTABLE eTable, const gain_value_t* pTable, unsigned int uiEntries);
  /// Copies entries; both tables are the caller's.
  static void CopyTable(const gain_value_t* pFrom, gain_value_t* pTo, unsigned int uiEntries);
  /// Forgets both gain tables; the DNE tables stay.
  void FreeTables();

 protected:
  double m_dDefaultGainRatio;
  const gain_value_t* m_pMappedTables[2];  ///< in the sensor's own order, not owned
  gain_value_t* m_pSortedTables[2];        ///< copies sorted by ascending value, owned
  unsigned int m_uiNumEntries[2];
  merge_gain_t* m_pDNETables[2];  ///< not owned
  unsigned int m_uiDNENumEntries[2];
};

#endif  // ORVACAM_GAIN_IDEVICEGAINTABLES_H
