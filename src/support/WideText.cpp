#include "support/WideText.h"

#include <climits>
#include <cstring>
#include <cwchar>

namespace orvacam {

namespace {

std::size_t encodeUtf8(std::uint32_t code, char* bytes) {
  const auto put = [&bytes](std::size_t at, std::uint32_t value) { bytes[at] = static_cast<char>(value); };
  if (isEscape(code)) {
    put(0, code - escapeBase);
    return 1;
  }
  if (code > 0x10FFFF) {
    put(0, '?');
    return 1;
  }
  if (code < 0x80) {
    put(0, code);
    return 1;
  }
  const std::size_t count = code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
  for (std::size_t i = count - 1; i > 0; --i, code >>= 6)
    put(i, 0x80 | (code & 0x3F));
  put(0, (0xF00u >> count & 0xFF) | code);
  return count;
}

}  // namespace

std::size_t decodeUtf8(const char* text, std::size_t room, std::uint32_t& code) {
  const auto at = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const std::size_t count = at(0) < 0x80 ? 1 : at(0) >= 0xF0 ? 4 : at(0) >= 0xE0 ? 3 : 2;
  constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  code = count == 1 ? at(0) : at(0) & (0x7Fu >> count);
  bool valid = count <= room && at(0) < 0xF8 && (at(0) < 0x80 || at(0) >= 0xC0);
  for (std::size_t i = 1; valid && i < count; ++i) {
    valid = (at(i) & 0xC0) == 0x80;
    code = (code << 6) | (at(i) & 0x3F);
  }
  if (valid && code >= smallest[count] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF)) return count;
  code = escapeBase + at(0);
  return 1;
}

std::size_t wideToNarrow(const wchar_t* wide, char* narrow, std::size_t capacity) {
  if (narrow == nullptr || capacity == 0) return 0;
  std::size_t length = 0;
  std::mbstate_t state{};
  for (; wide != nullptr && *wide != L'\0'; ++wide) {
    char bytes[MB_LEN_MAX];
    std::size_t count = std::wcrtomb(bytes, *wide, &state);
    if (count == static_cast<std::size_t>(-1)) {
      count = encodeUtf8(static_cast<std::uint32_t>(*wide), bytes);
      state = std::mbstate_t{};
    }
    if (length + count >= capacity) break;
    std::memcpy(narrow + length, bytes, count);
    length += count;
  }
  narrow[length] = '\0';
  return length;
}

std::size_t narrowToWide(const char* narrow, wchar_t* wide, std::size_t capacity) {
  if (wide == nullptr || capacity == 0) return 0;
  std::size_t length = 0;
  std::mbstate_t state{};
  const char* end = narrow != nullptr ? narrow + std::strlen(narrow) : nullptr;
  while (narrow != end && length + 1 < capacity) {
    const auto room = static_cast<std::size_t>(end - narrow);
    std::size_t count = std::mbrtowc(&wide[length], narrow, room, &state);
    if (count == static_cast<std::size_t>(-1) || count == static_cast<std::size_t>(-2)) {
      std::uint32_t code = 0;
      count = decodeUtf8(narrow, room, code);
      wide[length] = static_cast<wchar_t>(code);
      state = std::mbstate_t{};
    }
    narrow += count;
    ++length;
  }
  wide[length] = L'\0';
  return length;
}

}  // namespace orvacam
