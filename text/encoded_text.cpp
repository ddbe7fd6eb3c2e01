// EncodedText: construction in both forms, character access, comparison.
#include "text/encoded_text.h"

#include <cstring>

#include "text/multibyte.h"

namespace DL {

namespace {

unsigned short* allocate_u16(int characters) {
  return static_cast<unsigned short*>(
      ZP_AllocateMemory(static_cast<std::size_t>(characters) * 2 + 2));
}

unsigned char* allocate_bytes(std::size_t bytes) {
  return static_cast<unsigned char*>(ZP_AllocateMemory(bytes + 1));
}

// The length a constructor keeps: `length` less one when a zero stands among
// the first `length` characters of the source (the one terminator `length` may
// count). The source is read up to that zero and no further, so one shorter
// than `length` is never read past its end.
int kept_length(const unsigned short* s, int length) {
  if (length <= 0) return 0;
  for (int i = 0; i < length; ++i)
    if (s[i] == 0) return length - 1;
  return length;
}

// The same over characters of the locale, not bytes.
int kept_length(const unsigned char* s, int length) {
  if (length <= 0) return 0;
  for (int i = 0; i < length; ++i) {
    const int bytes = mb::char_length(s);
    if (bytes == 0) return length - 1;
    s += bytes;
  }
  return length;
}

}  // namespace

EncodedText::EncodedText(const unsigned short* text, int length, bool unicode)
    : unicode_(unicode), length_(text ? kept_length(text, length) : 0), data_(nullptr) {
  if (length_ <= 0) {
    length_ = 0;
    return;
  }
  if (unicode_) {
    unsigned short* out = allocate_u16(length_);
    if (!out) {
      length_ = 0;
      return;
    }
    mb::u16_copy(out, text, length_);
    out[length_] = 0;
    data_ = out;
    return;
  }
  const std::size_t room = static_cast<std::size_t>(length_) * mb::cur_max();
  unsigned char* out = allocate_bytes(room);
  if (!out) {
    length_ = 0;
    return;
  }
  const std::size_t bytes = mb::u16_to_mbs(out, room, text, length_);
  if (bytes == 0) {
    ZP_ReleaseMemory(out);
    length_ = 0;
    return;
  }
  out[bytes] = 0;
  data_ = out;
}

EncodedText::EncodedText(const char* text, int length, bool unicode)
    : unicode_(unicode), length_(0), data_(nullptr) {
  const auto* source = reinterpret_cast<const unsigned char*>(text);
  length_ = source ? kept_length(source, length) : 0;
  if (length_ <= 0) {
    length_ = 0;
    return;
  }
  if (!unicode_) {
    const std::size_t bytes = mb::byte_count(source, length_);
    unsigned char* out = allocate_bytes(bytes);
    if (!out) {
      length_ = 0;
      return;
    }
    mb::copy_chars(out, source, length_);
    out[bytes] = 0;
    data_ = out;
    return;
  }
  const int count = mb::mbs_to_u16(nullptr, source, length_);
  if (count == 0) {
    length_ = 0;
    return;
  }
  // Room for `length` characters, so that every index below it reads inside.
  unsigned short* out = allocate_u16(length_);
  if (!out) {
    length_ = 0;
    return;
  }
  const int converted = mb::mbs_to_u16(out, source, length_);
  std::memset(out + converted, 0, static_cast<std::size_t>(length_ - converted + 1) * 2);
  data_ = out;
}

EncodedText::EncodedText(const EncodedText& other)
    : HeapObject(), unicode_(other.unicode_), length_(other.length_), data_(nullptr) {
  if (unicode_) {
    unsigned short* out = allocate_u16(length_);
    if (!out) {
      length_ = 0;
      return;
    }
    if (other.data_) mb::u16_copy(out, other.unicodeString(), length_);
    out[length_] = 0;
    data_ = out;
    return;
  }
  const unsigned char* source = other.multiByteString();
  const std::size_t bytes = source ? mb::byte_count(source, length_) : 0;
  unsigned char* out = allocate_bytes(bytes);
  if (!out) {
    length_ = 0;
    return;
  }
  if (bytes) mb::copy_chars(out, source, length_);
  out[bytes] = 0;
  data_ = out;
}

EncodedText::~EncodedText() {
  ZP_ReleaseMemory(data_);
}

unsigned short EncodedText::multiByteCharacter(int index) const {
  const unsigned char* s = multiByteString();
  if (!s) return 0;
  if (index >= 1) s = mb::advance(s, index);
  return mb::char_value(s);
}

void EncodedText::getMultiByteCharacter(int index, char* buffer) const {
  const unsigned short value = multiByteCharacter(index);
  const auto high = static_cast<unsigned char>(value >> 8);
  int i = 0;
  if (mb::is_lead_byte(high)) buffer[i++] = static_cast<char>(high);
  buffer[i++] = static_cast<char>(value & 0xFF);
  buffer[i] = 0;
}

int EncodedText::operator==(const EncodedText& other) const {
  if (length_ != other.length_ || unicode_ != other.unicode_) return 0;
  if (unicode_) {
    static const unsigned short kEmpty = 0;
    const unsigned short* a = data_ ? unicodeString() : &kEmpty;
    const unsigned short* b = other.data_ ? other.unicodeString() : &kEmpty;
    return mb::u16_compare(a, b) == 0 ? 1 : 0;
  }
  static const unsigned char kEmpty = 0;
  const unsigned char* a = data_ ? multiByteString() : &kEmpty;
  const unsigned char* b = other.data_ ? other.multiByteString() : &kEmpty;
  return mb::mbs_compare(a, b) == 0 ? 1 : 0;
}

}  // namespace DL
