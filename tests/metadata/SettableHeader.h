#ifndef ORVACAM_TESTS_METADATA_SETTABLE_HEADER_H
#define ORVACAM_TESTS_METADATA_SETTABLE_HEADER_H

#include <orvacam/metadata/CFrameMetaData.h>

#include <clocale>
#include <stdexcept>
#include <string>

/// A header whose values a test sets one by one, as a sensor class outside of the library could.
class SettableHeader : public CFrameMetaData {
 public:
  using CFrameMetaData::DoComputeFrameSizeFromPixelSize;
  using CFrameMetaData::DoGetConvertedTemperature;
  using CFrameMetaData::DoGetGPSLocation;
  using CFrameMetaData::DoToString1;
  using CFrameMetaData::DoToString2;
  using CFrameMetaData::DoToString3;
  using CFrameMetaData::DoToString4;
  using CFrameMetaData::m_bCaptureTimeValid;
  using CFrameMetaData::m_Padding;
  using CFrameMetaData::m_RawHeader;

  /// Where the values that are kept whole lie behind the keys.
  enum Kept { controlBlock = 100, controlBlock2, extraFlags, controlBlockTest, reservedOfVersion2 };

  SettableHeader& set(int key, unsigned int value) {
    m_Values[key].SetValueUint(value);
    return *this;
  }
  SettableHeader& setInt(int key, int value) {
    m_Values[key].SetValueInt(value);
    return *this;
  }
  SettableHeader& setDouble(int key, double value) {
    m_Values[key].SetValueDouble(value);
    return *this;
  }
  SettableHeader& setBool(int key, bool value) {
    m_Values[key].SetValueBool(value);
    return *this;
  }
  SettableHeader& setText(int key, const std::string& value) {
    m_Values[key].SetValueByte(value.data(), static_cast<unsigned int>(value.size()));
    return *this;
  }
  SettableHeader& setImage(unsigned int startColumn, unsigned int stopColumn, unsigned int startRow,
                           unsigned int stopRow) {
    return set(49, startColumn).set(51, stopColumn).set(50, startRow).set(52, stopRow);
  }
};

/// 16 columns from 8 on, 10 rows from 4 on; reference pixels 5 + 3, reference rows 7 + 2.
inline SettableHeader smallFrame() {
  SettableHeader header;
  header.setImage(8, 23, 4, 13).set(71, 5).set(70, 3).set(69, 7).set(68, 2).set(1, 384);
  return header;
}

/// Sets the program's locale for the duration of a test.
class ScopedLocale {
 public:
  explicit ScopedLocale(const char* name) : m_before(std::setlocale(LC_ALL, nullptr)) {
    if (std::setlocale(LC_ALL, name) == nullptr)
      throw std::runtime_error("this machine lacks a locale of the tests");
  }
  ScopedLocale(const ScopedLocale&) = delete;
  ScopedLocale& operator=(const ScopedLocale&) = delete;
  ~ScopedLocale() { std::setlocale(LC_ALL, m_before.c_str()); }

 private:
  std::string m_before;
};

#endif  // ORVACAM_TESTS_METADATA_SETTABLE_HEADER_H
