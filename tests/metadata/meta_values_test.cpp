// One metadata value, the other-type block, and how a header hands its values out.

#include <gtest/gtest.h>
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/metadata/CFrameOtherMetaData.h>
#include <orvacam/metadata/CMetaValues.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

template <auto Set, typename Value>
CMetaValues made(Value value) {
  CMetaValues made;
  (made.*Set)(value);
  return made;
}
constexpr auto ofUint = made<&CMetaValues::SetValueUint, unsigned int>;
constexpr auto ofUint64 = made<&CMetaValues::SetValueUint64, unsigned long>;
constexpr auto ofInt = made<&CMetaValues::SetValueInt, int>;
constexpr auto ofInt64 = made<&CMetaValues::SetValueInt64, long>;
constexpr auto ofDouble = made<&CMetaValues::SetValueDouble, double>;
constexpr auto ofBool = made<&CMetaValues::SetValueBool, bool>;
constexpr auto ofText = made<&CMetaValues::SetValueStr, const char*>;

std::string textOf(const CMetaValues& value) {
  int length = 0;
  const unsigned char* const bytes = value.GetValue(nullptr, length);
  return bytes == nullptr ? "(none)" : std::string(bytes, bytes + length);
}

/// A value whose state is in reach.
struct OpenValue : CMetaValues {
  using CMetaValues::m_pBytes;
  using CMetaValues::m_uiKind;
  using CMetaValues::m_uiLength;
};

constexpr unsigned int uintMax = std::numeric_limits<unsigned int>::max();
constexpr unsigned long ulongMax = std::numeric_limits<unsigned long>::max();
constexpr int intMin = std::numeric_limits<int>::min();
constexpr int intMax = std::numeric_limits<int>::max();
constexpr long longMin = std::numeric_limits<long>::min();

// ---- Numbers

TEST(MetaValue, IsTheNumberZeroAfterConstruction) {
  const OpenValue value;
  EXPECT_EQ(value.m_uiKind, 0u);
  EXPECT_EQ(value.m_uiLength, 0xFFFFFFFFu);
  EXPECT_EQ(value.m_pBytes, nullptr);
  EXPECT_EQ(value.GetValueInt(), 0);
  EXPECT_EQ(value.GetValueUint(), 0u);
  EXPECT_EQ(value.GetValueUint64(), 0ul);
  EXPECT_EQ(value.GetValueDouble(), 0.0);
  EXPECT_FALSE(value.GetValueBool());
  EXPECT_FALSE(value.IsStringValue());
}

TEST(MetaValue, KindsAreNumbered) {
  OpenValue value;
  value.SetValueUint64(1);
  EXPECT_EQ(value.m_uiKind, 1u);
  value.SetValueInt(1);
  EXPECT_EQ(value.m_uiKind, 2u);
  value.SetValueInt64(1);
  EXPECT_EQ(value.m_uiKind, 3u);
  value.SetValueDouble(1);
  EXPECT_EQ(value.m_uiKind, 4u);
  value.SetValueStr("1");
  EXPECT_EQ(value.m_uiKind, 5u);
  value.SetValueBool(true);
  EXPECT_EQ(value.m_uiKind, 6u);
  value.SetValueUint(1);
  EXPECT_EQ(value.m_uiKind, 0u);
}

TEST(MetaValue, GettersConvertEveryKind) {
  const struct {
    const char* what;
    CMetaValues value;
    int asInt;
    unsigned int asUint;
    unsigned long asUint64;
    double asDouble;
    bool asBool;
  } rows[] = {
      {"uint 7", ofUint(7), 7, 7, 7, 7.0, true},
      {"uint max", ofUint(uintMax), -1, uintMax, uintMax, 4294967295.0, true},
      {"uint64 low half 0", ofUint64(1ul << 32), 0, 0, 1ul << 32, 4294967296.0, true},
      {"uint64 max", ofUint64(ulongMax), -1, uintMax, ulongMax, 18446744073709551616.0, true},
      {"int -5", ofInt(-5), -5, 0xFFFFFFFBu, 0xFFFFFFFFFFFFFFFBul, -5.0, true},
      {"int min", ofInt(intMin), intMin, 0x80000000u, 0xFFFFFFFF80000000ul, -2147483648.0, true},
      {"int 0", ofInt(0), 0, 0, 0, 0.0, false},
      {"int64 -1", ofInt64(-1), -1, uintMax, ulongMax, -1.0, true},
      {"int64 min", ofInt64(longMin), 0, 0, 1ul << 63, -9223372036854775808.0, true},
      {"true", ofBool(true), 1, 1, 1, 1.0, true},
      {"false", ofBool(false), 0, 0, 0, 0.0, false},
      {"text", ofText("12"), 0, 0, 0, 0.0, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.value.GetValueInt(), row.asInt) << row.what;
    EXPECT_EQ(row.value.GetValueUint(), row.asUint) << row.what;
    EXPECT_EQ(row.value.GetValueUint64(), row.asUint64) << row.what;
    EXPECT_EQ(row.value.GetValueDouble(), row.asDouble) << row.what;
    EXPECT_EQ(row.value.GetValueBool(), row.asBool) << row.what;
  }
}

TEST(MetaValue, DoublesAreTruncatedTowardZeroAndSaturate) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const struct {
    double value;
    int asInt;
    unsigned int asUint;
    unsigned long asUint64;
  } rows[] = {
      {3.9, 3, 3, 3},
      {-3.9, -3, 0, 0},
      {-1.0, -1, 0, 0},
      {-0.5, 0, 0, 0},
      {0.99, 0, 0, 0},
      {2147483647.5, intMax, 2147483647u, 2147483647ul},
      {2147483648.0, intMax, 2147483648u, 2147483648ul},
      {-2147483648.0, intMin, 0, 0},
      {-1e10, intMin, 0, 0},
      {4294967295.9, intMax, uintMax, 4294967295ul},
      {4294967296.0, intMax, uintMax, 4294967296ul},
      {9223372036854775808.0, intMax, uintMax, 1ul << 63},
      {18446744073709551616.0, intMax, uintMax, ulongMax},
      {1e300, intMax, uintMax, ulongMax},
      {infinity, intMax, uintMax, ulongMax},
      {-infinity, intMin, 0, 0},
      {std::nan(""), 0, 0, 0},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ofDouble(row.value).GetValueInt(), row.asInt) << row.value;
    EXPECT_EQ(ofDouble(row.value).GetValueUint(), row.asUint) << row.value;
    EXPECT_EQ(ofDouble(row.value).GetValueUint64(), row.asUint64) << row.value;
    EXPECT_EQ(ofDouble(row.value).GetValueBool(), row.asUint64 != 0) << row.value;
  }
  EXPECT_EQ(ofDouble(-3.9).GetValueDouble(), -3.9);
}

TEST(MetaValue, OfFewerBytesShowsNothingOfTheOneBefore) {
  const auto over = [] { return ofUint64(ulongMax); };
  CMetaValues value = over();
  value.SetValueUint(5);
  EXPECT_EQ(value.GetValueUint64(), 5ul);
  EXPECT_TRUE(value.IsEqual(5u));
  EXPECT_TRUE(value.IsEqual(5));
  EXPECT_TRUE(value.IsEqual(5.0));
  value = over();
  value.SetValueInt(5);
  EXPECT_EQ(value.GetValueUint64(), 5ul);
  EXPECT_TRUE(value.IsEqual(5u));
  EXPECT_TRUE(value.IsEqual(5));
  value = over();
  value.SetValueInt(0);
  EXPECT_FALSE(value.GetValueBool());
  value = over();
  value.SetValueBool(false);
  EXPECT_FALSE(value.GetValueBool());
  EXPECT_EQ(value.GetValueUint(), 0u);
  EXPECT_EQ(value.GetValueDouble(), 0.0);
}

TEST(MetaValue, ValuePointerIsTheNumbersAddress) {
  CMetaValues value = ofDouble(2.5);
  double read = 0.0;
  std::memcpy(&read, value.GetValuePtr(), sizeof read);
  EXPECT_EQ(read, 2.5);
  const int seven = 7;
  value.SetValueInt(0);
  std::memcpy(value.GetValuePtr(), &seven, sizeof seven);
  EXPECT_EQ(value.GetValueInt(), 7);
}

// ---- Texts

TEST(MetaValueText, IsACopyFollowedByAZeroByte) {
  char source[] = {'a', '\0', 'b'};
  CMetaValues value;
  value.SetValueByte(source, 3);
  source[0] = 'x';
  int length = 0;
  const unsigned char* const bytes = value.GetValue(nullptr, length);
  EXPECT_TRUE(value.IsStringValue());
  ASSERT_EQ(length, 3);
  EXPECT_EQ(std::memcmp(bytes, "a\0b\0", 4), 0);
}

TEST(MetaValueText, OfANullTextIsEmptyWithAZeroedByte) {
  const CMetaValues value = ofText(nullptr);
  int length = 77;
  const unsigned char* const bytes = value.GetValue(nullptr, length);
  EXPECT_TRUE(value.IsStringValue());
  EXPECT_EQ(length, 0);
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(bytes[0], 0);
}

TEST(MetaValueText, OfNullBytesHasNoBytes) {
  CMetaValues value = ofText("before");
  value.SetValueByte(nullptr, 5);
  int length = 77;
  EXPECT_TRUE(value.IsStringValue());
  EXPECT_EQ(value.GetValue(nullptr, length), nullptr);
  EXPECT_EQ(length, 0);

  char buffer[4] = {'x', 'x', 'x', 'x'};
  length = sizeof buffer;
  EXPECT_EQ(value.GetValue(buffer, length), reinterpret_cast<unsigned char*>(buffer));
  EXPECT_EQ(length, 0);
  EXPECT_EQ(std::string(buffer, 4), std::string(4, '\0'));
}

TEST(MetaValueText, FillsALargerBufferWithZeros) {
  std::vector<char> buffer(101, 'x');
  int size = 100;
  EXPECT_EQ(ofText("twelve bytes").GetValue(buffer.data(), size),
            reinterpret_cast<unsigned char*>(buffer.data()));
  EXPECT_EQ(size, 12);
  EXPECT_EQ(std::string(buffer.data(), 100), "twelve bytes" + std::string(88, '\0'));
  EXPECT_EQ(buffer[100], 'x');
}

TEST(MetaValueText, IsCutToASmallerBuffer) {
  char buffer[] = "xxxxxx";
  int size = 3;
  ofText("twelve bytes").GetValue(buffer, size);
  EXPECT_EQ(size, 3);
  EXPECT_STREQ(buffer, "twexxx");
}

TEST(MetaValueText, WritesNothingIntoABufferOfNoOrNegativeSize) {
  for (const int given : {0, -1}) {
    char buffer[] = "xx";
    int size = given;
    ofText("text").GetValue(buffer, size);
    EXPECT_EQ(size, given);
    EXPECT_STREQ(buffer, "xx");
  }
}

TEST(MetaValueText, IsNoneForANumber) {
  char buffer[] = "xx";
  int size = 2;
  EXPECT_EQ(ofUint(1).GetValue(buffer, size), nullptr);
  EXPECT_EQ(size, -1);
  EXPECT_STREQ(buffer, "xx");
}

TEST(MetaValueText, StaysInMemoryUnderANumber) {
  OpenValue value;
  value.SetValueStr("kept");
  value.SetValueUint(3);
  EXPECT_FALSE(value.IsStringValue());
  EXPECT_STREQ(reinterpret_cast<const char*>(value.m_pBytes.get()), "kept");
}

// ---- Copies

TEST(MetaValueCopy, HasItsOwnBytes) {
  CMetaValues original = ofText("original");
  const CMetaValues copied(original);
  CMetaValues assigned = ofText("a longer text that goes away");
  assigned = original;
  int length = 0;
  EXPECT_NE(copied.GetValue(nullptr, length), original.GetValue(nullptr, length));
  EXPECT_NE(assigned.GetValue(nullptr, length), original.GetValue(nullptr, length));
  original.SetValueStr("changed");
  EXPECT_EQ(textOf(copied), "original");
  EXPECT_EQ(textOf(assigned), "original");
}

TEST(MetaValueCopy, OfANumberKeepsKindAndValue) {
  CMetaValues assigned = ofText("text");
  assigned = ofInt64(-9);
  EXPECT_FALSE(assigned.IsStringValue());
  EXPECT_EQ(assigned.GetValueDouble(), -9.0);
  const CMetaValues copied(ofBool(true));
  EXPECT_TRUE(copied.GetValueBool());
  EXPECT_FALSE(copied.IsEqual(1u));
}

TEST(MetaValueCopy, OfATextWithoutBytesHasNone) {
  CMetaValues none;
  none.SetValueByte(nullptr, 0);
  CMetaValues assigned = ofText("text");
  assigned = none;
  EXPECT_TRUE(assigned.IsStringValue());
  EXPECT_EQ(textOf(assigned), "(none)");
}

TEST(MetaValueCopy, OntoItselfChangesNothing) {
  CMetaValues value = ofText("itself");
  const CMetaValues& alias = value;
  value = alias;
  EXPECT_EQ(textOf(value), "itself");
}

// ---- Comparisons

TEST(MetaValueEquality, OfBytesNeedsTheSameLengthAndContent) {
  const CMetaValues value = ofText("abc");
  EXPECT_TRUE(value.IsEqual("abc", 3));
  EXPECT_FALSE(value.IsEqual("abd", 3));
  EXPECT_FALSE(value.IsEqual("abc", 2));
  EXPECT_FALSE(value.IsEqual(nullptr, 3));
  EXPECT_TRUE(ofText("").IsEqual("", 0));
  EXPECT_FALSE(ofUint(0).IsEqual("", 0));
  CMetaValues none;
  none.SetValueByte(nullptr, 0);
  EXPECT_FALSE(none.IsEqual("", 0));
}

TEST(MetaValueEquality, WithUnsignedNumbers) {
  EXPECT_TRUE(ofUint(uintMax).IsEqual(uintMax));
  EXPECT_TRUE(ofUint64(ulongMax).IsEqual(ulongMax));
  EXPECT_FALSE(ofUint(uintMax).IsEqual(ulongMax));
  EXPECT_FALSE(ofUint64(1ul << 32).IsEqual(0u));
  EXPECT_TRUE(ofInt(5).IsEqual(5u));
  EXPECT_TRUE(ofInt64(5).IsEqual(5ul));
  EXPECT_FALSE(ofInt(-1).IsEqual(uintMax));
  EXPECT_FALSE(ofInt(-1).IsEqual(ulongMax));
  EXPECT_FALSE(ofInt64(-1).IsEqual(ulongMax));
  EXPECT_TRUE(ofInt(0).IsEqual(0u));
  EXPECT_TRUE(ofInt64(0).IsEqual(0ul));
  EXPECT_FALSE(ofInt(5).IsEqual(0u));
  EXPECT_TRUE(ofDouble(4294967295.0).IsEqual(uintMax));
  EXPECT_FALSE(ofDouble(0.5).IsEqual(0u));
}

TEST(MetaValueEquality, WithSignedNumbers) {
  EXPECT_TRUE(ofInt(-5).IsEqual(-5l));
  EXPECT_TRUE(ofInt(-5).IsEqual(-5));
  EXPECT_TRUE(ofInt64(-5).IsEqual(-5));
  EXPECT_TRUE(ofUint64(ulongMax).IsEqual(-1l));  // as 64-bit patterns
  EXPECT_FALSE(ofUint(uintMax).IsEqual(-1));     // extended by zeros
  EXPECT_TRUE(ofUint(uintMax).IsEqual(4294967295l));
  EXPECT_TRUE(ofDouble(-5.0).IsEqual(-5));
  EXPECT_FALSE(ofDouble(-5.5).IsEqual(-5));
}

TEST(MetaValueEquality, WithDoublesNeverHoldsForNegativeIntegers) {
  EXPECT_FALSE(ofInt(-5).IsEqual(-5.0));
  EXPECT_FALSE(ofInt64(-5).IsEqual(-5.0));
  EXPECT_TRUE(ofDouble(-5.0).IsEqual(-5.0));
  EXPECT_TRUE(ofInt(5).IsEqual(5.0));
  EXPECT_TRUE(ofInt64(0).IsEqual(0.0));
  EXPECT_TRUE(ofUint(uintMax).IsEqual(4294967295.0));
  EXPECT_TRUE(ofUint64(ulongMax).IsEqual(18446744073709551616.0));
  EXPECT_FALSE(ofUint(5).IsEqual(5.25));
  EXPECT_FALSE(ofDouble(std::nan("")).IsEqual(std::nan("")));
}

TEST(MetaValueEquality, NeverHoldsForFlagsAndTexts) {
  for (const CMetaValues& value : {ofBool(true), ofBool(false), ofText("1"), ofText("0")}) {
    for (const int number : {0, 1}) {
      EXPECT_FALSE(value.IsEqual(number));
      EXPECT_FALSE(value.IsEqual(static_cast<unsigned int>(number)));
      EXPECT_FALSE(value.IsEqual(static_cast<unsigned long>(number)));
      EXPECT_FALSE(value.IsEqual(static_cast<long>(number)));
      EXPECT_FALSE(value.IsEqual(static_cast<double>(number)));
    }
  }
}

// ---- The other-type block

std::string blockOf(const CFrameOtherMetaData& block) {
  return std::string(block.GetData(), block.GetData() + block.GetBinarizeSize());
}

TEST(OtherMetaData, HoldsNothingAtFirst) {
  const CFrameOtherMetaData block;
  EXPECT_EQ(block.GetData(), nullptr);
  EXPECT_EQ(block.GetType(), 0u);
  EXPECT_EQ(block.GetBinarizeSize(), 0u);
  EXPECT_EQ(block.Binarize(), 0u);
}

TEST(OtherMetaData, KeepsACopyAndBothSizesAreItsLength) {
  char source[] = "block";
  CFrameOtherMetaData block;
  block.SetData(source, 5, 200);
  source[0] = 'x';
  EXPECT_EQ(blockOf(block), "block");
  EXPECT_EQ(block.GetType(), 200u);
  EXPECT_EQ(block.Binarize(), 5u);
  block.SetData("new", 3, 1);
  EXPECT_EQ(blockOf(block), "new");
}

TEST(OtherMetaData, IgnoresANullSource) {
  CFrameOtherMetaData block;
  block.SetData("block", 5, 2);
  block.SetData(nullptr, 9, 3);
  EXPECT_EQ(blockOf(block), "block");
  EXPECT_EQ(block.GetType(), 2u);
}

TEST(OtherMetaData, CanHoldNoBytes) {
  CFrameOtherMetaData block;
  block.SetData("block", 5, 2);
  block.SetData("", 0, 3);
  EXPECT_EQ(block.GetBinarizeSize(), 0u);
  EXPECT_EQ(block.GetType(), 3u);
}

TEST(OtherMetaData, CopiesAreDeep) {
  CFrameOtherMetaData block;
  block.SetData("block", 5, 2);
  const CFrameOtherMetaData copied(block);
  CFrameOtherMetaData assigned;
  assigned.SetData("gone", 4, 9);
  assigned = block;
  const CFrameOtherMetaData& alias = block;
  block = alias;
  EXPECT_EQ(blockOf(block), "block");
  EXPECT_NE(copied.GetData(), block.GetData());
  block.SetData("changed", 7, 7);
  EXPECT_EQ(blockOf(copied), "block");
  EXPECT_EQ(blockOf(assigned), "block");
  EXPECT_EQ(assigned.GetType(), 2u);
  assigned = CFrameOtherMetaData();
  EXPECT_EQ(assigned.GetData(), nullptr);
  EXPECT_EQ(assigned.GetBinarizeSize(), 0u);
}

// ---- Values of a header

TEST(HeaderValues, HandOutNumbersAsDoubles) {
  CFrameMetaData header;
  header.SetBitsPerPixel(12);
  meta_data_value_t value{};
  EXPECT_EQ(header.GetValue(ORVA_META_KEY_SENSOR_PIXEL_BIT_DEPTH, value), 72);
  EXPECT_EQ(value.value, 12.0);
  EXPECT_EQ(value.length, -1);
  header.SetHDRFrame(true);
  EXPECT_EQ(header.GetValue(ORVA_META_KEY_HDR_MODE, value), 40);
  EXPECT_EQ(value.value, 1.0);
}

TEST(HeaderValues, HandOutTextsZeroFilled) {
  CFrameMetaData header;
  header.SetModelName("VS400", 5);
  meta_data_value_t value{};
  std::memset(value.text, 'x', sizeof value.text);
  EXPECT_EQ(header.GetValue(ORVA_META_KEY_CAMERA_MODEL, value), 11);
  EXPECT_EQ(value.length, 5);
  EXPECT_EQ(std::string(value.text, 64), "VS400" + std::string(59, '\0'));
}

TEST(HeaderValues, CutTextsAt64BytesWithoutATerminator) {
  CFrameMetaData header;
  header.SetValue(ORVA_META_KEY_APP_INFO_STRING, std::string(70, 'a'));
  meta_data_value_t value{};
  EXPECT_EQ(header.GetValue(ORVA_META_KEY_APP_INFO_STRING, value), 88);
  EXPECT_EQ(value.length, 64);
  EXPECT_EQ(std::string(value.text, 64), std::string(64, 'a'));
}

TEST(HeaderValues, AreWalkedOneByOne) {
  CFrameMetaData header;
  meta_data_value_t value{};
  for (int key = 0; key < 100; ++key)
    EXPECT_EQ(header.GetValueNext(value), key);
  EXPECT_EQ(header.GetValueNext(value), -1);
  EXPECT_EQ(header.GetValueNext(value), -1);
}

TEST(HeaderValues, ContinueBehindTheKeyThatWasAskedFor) {
  CFrameMetaData header;
  meta_data_value_t value{};
  header.GetValue(ORVA_META_KEY_HDR_MODE, value);
  EXPECT_EQ(header.GetValueNext(value), 41);
}

TEST(HeaderValues, OfAKeyAbove99AreNoneAndLeaveTheCursorAlone) {
  CFrameMetaData header;
  meta_data_value_t value{5.0, 6, "text"};
  header.GetValue(ORVA_META_KEY_HDR_MODE, value);
  value = {5.0, 6, "text"};
  EXPECT_EQ(header.GetValue(static_cast<ORVA_META_KEYS>(100), value), -1);
  EXPECT_EQ(header.GetValue(static_cast<ORVA_META_KEYS>(0xFFFFFFFFu), value), -1);
  EXPECT_EQ(value.value, 5.0);
  EXPECT_EQ(value.length, 6);
  EXPECT_STREQ(value.text, "text");
  EXPECT_EQ(header.GetValueNext(value), 41);
}

TEST(HeaderValues, AreWalkedFromTheStartAfterAnyParse) {
  CFrameMetaData header;
  meta_data_value_t value{};
  unsigned char noFrame[8] = {};
  header.GetValue(ORVA_META_KEY_HDR_MODE, value);
  EXPECT_EQ(header.Parse(noFrame, sizeof noFrame), -1);
  EXPECT_EQ(header.GetValueNext(value), 0);
  header.GetValue(ORVA_META_KEY_HDR_MODE, value);
  EXPECT_EQ(header.Parse(static_cast<std::FILE*>(nullptr)), -1);
  EXPECT_EQ(header.GetValueNext(value), 0);
}

TEST(HeaderValues, AreReachedByReferenceToo) {
  CFrameMetaData header;
  EXPECT_EQ(header.Value(ORVA_META_KEY_MAGIC_NUMBER).GetValueUint(), 0x4D657461u);
  EXPECT_EQ(&header.Value(static_cast<ORVA_META_KEYS>(100)), &header.Value(ORVA_META_KEY_MAGIC_NUMBER));
}

TEST(HeaderValues, TheStaticReaderDoesNothingAndSucceeds) {
  const unsigned char bytes[4] = {1, 2, 3, 4};
  unsigned int value = 77;
  EXPECT_EQ(CFrameMetaData::GetValueUint(bytes, 4, ORVA_META_KEY_EXPOSURE_TIME, value), 0);
  EXPECT_EQ(value, 77u);
}

TEST(HeaderValues, OfACopyAreItsOwn) {
  CFrameMetaData original;
  original.SetModelName("first", 5);
  const CFrameMetaData copied(original);
  CFrameMetaData assigned;
  assigned = original;
  original.SetModelName("second", 6);
  EXPECT_EQ(textOf(copied.Value(ORVA_META_KEY_CAMERA_MODEL)), "first");
  EXPECT_EQ(textOf(assigned.Value(ORVA_META_KEY_CAMERA_MODEL)), "first");
}

}  // namespace
