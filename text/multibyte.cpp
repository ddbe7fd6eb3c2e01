// The multibyte run-time functions over the C library's locale support.
#include "text/multibyte.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace DL::mb {

namespace {

// Decodes the character at `s` without looking past a zero byte. Returns its
// length (1 for a byte that begins no valid character) and stores its code in
// `*code`, or -1 there when the bytes are not a valid character.
int decode(const unsigned char* s, long* code) {
  if (s[0] < 0x80) {
    *code = s[0];
    return s[0] ? 1 : 0;
  }
  // The bytes available before the terminator, at most MB_LEN_MAX.
  std::size_t avail = 1;
  const std::size_t limit = MB_CUR_MAX;
  while (avail < limit && s[avail] != 0) ++avail;
  std::mbstate_t state{};
  wchar_t wc = 0;
  std::size_t n = std::mbrtowc(&wc, reinterpret_cast<const char*>(s), avail, &state);
  if (n == 0 || n == static_cast<std::size_t>(-1) || n == static_cast<std::size_t>(-2)) {
    *code = -1;
    return 1;
  }
  *code = static_cast<long>(wc);
  return static_cast<int>(n);
}

}  // namespace

int cur_max() {
  return static_cast<int>(MB_CUR_MAX);
}

bool is_lead_byte(unsigned char byte) {
  if (byte < 0x80) return false;
  std::mbstate_t state{};
  wchar_t wc = 0;
  const char c = static_cast<char>(byte);
  // Incomplete alone: it begins a longer character.
  return std::mbrtowc(&wc, &c, 1, &state) == static_cast<std::size_t>(-2);
}

int char_length(const unsigned char* s) {
  long code;
  return decode(s, &code);
}

std::size_t byte_count(const unsigned char* s, int n) {
  std::size_t bytes = 0;
  for (int i = 0; i < n; ++i) {
    int len = char_length(s + bytes);
    if (len == 0) break;
    bytes += static_cast<std::size_t>(len);
  }
  return bytes;
}

std::size_t copy_chars(unsigned char* out, const unsigned char* s, int n) {
  std::size_t bytes = byte_count(s, n);
  std::memcpy(out, s, bytes);
  return bytes;
}

const unsigned char* advance(const unsigned char* s, int n) {
  return s + byte_count(s, n);
}

unsigned short char_value(const unsigned char* s) {
  switch (char_length(s)) {
    case 0:
      return 0;
    case 1:
      return s[0];
    case 2:
      return static_cast<unsigned short>(s[0] << 8 | s[1]);
    default:
      return '?';
  }
}

int from_u16(unsigned short c, unsigned char* out) {
  if (c < 0x80) {
    out[0] = static_cast<unsigned char>(c);
    return 1;
  }
  if (c >= 0xD800 && c <= 0xDFFF) return -1;  // half of a pair: no character alone
  std::mbstate_t state{};
  char buffer[MB_LEN_MAX];
  std::size_t n = std::wcrtomb(buffer, static_cast<wchar_t>(c), &state);
  if (n == static_cast<std::size_t>(-1) || n == 0) return -1;
  std::memcpy(out, buffer, n);
  return static_cast<int>(n);
}

std::size_t u16_to_mbs(unsigned char* out, std::size_t room, const unsigned short* s, int n,
                       int* converted) {
  std::size_t bytes = 0;
  int i = 0;
  for (; i < n && s[i] != 0; ++i) {
    unsigned char one[MB_LEN_MAX];
    int len = from_u16(s[i], one);
    if (len < 0) {
      one[0] = '?';
      len = 1;
    }
    if (bytes + static_cast<std::size_t>(len) > room) break;
    std::memcpy(out + bytes, one, static_cast<std::size_t>(len));
    bytes += static_cast<std::size_t>(len);
  }
  if (converted) *converted = i;
  return bytes;
}

int mbs_to_u16(unsigned short* out, const unsigned char* s, int n) {
  int i = 0;
  while (i < n) {
    long code;
    int len = decode(s, &code);
    if (len == 0) break;
    if (out)
      out[i] = (code < 0 || code > 0xFFFF) ? static_cast<unsigned short>('?')
                                           : static_cast<unsigned short>(code);
    ++i;
    s += len;
  }
  return i;
}

int char_count(const unsigned char* s) {
  int count = 0;
  for (int len; (len = char_length(s)) != 0; s += len) ++count;
  return count;
}

void u16_copy(unsigned short* out, const unsigned short* s, int n) {
  int i = 0;
  for (; i < n && s[i] != 0; ++i) out[i] = s[i];
  for (; i < n; ++i) out[i] = 0;
}

int u16_compare(const unsigned short* a, const unsigned short* b) {
  while (*a && *a == *b) {
    ++a;
    ++b;
  }
  return static_cast<int>(*a) - static_cast<int>(*b);
}

int mbs_compare(const unsigned char* a, const unsigned char* b) {
  return std::strcmp(reinterpret_cast<const char*>(a), reinterpret_cast<const char*>(b));
}

}  // namespace DL::mb
