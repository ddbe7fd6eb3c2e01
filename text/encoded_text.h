// EncodedText: the string a Text drawable holds, in one of two forms chosen when
// it is made: 16-bit Unicode characters, or the multibyte encoding of the locale
// current at the time of conversion. The source may come in either form and is
// converted to the form asked for, so a draw never converts.
//
// A record of 16 bytes on a 64-bit host (form, length, data pointer); `data`
// holds the characters and a terminator of the form's width, from the default
// Zephal heap, owned. Immutable after construction; may be read from any thread.
//
// Lengths
// -------
// `length` counts characters in both forms, not bytes, without the terminator.
// A constructor's `length` may include one terminator: when a zero stands
// among the first `length` source characters, `length - 1` is kept (only one
// is dropped). The source is read up to its first zero and never further,
// whatever `length` says, so a short source with a longer length is safe; a
// null source is an empty text.
//
// Choices where the caller's input leaves the result open
// -------------------------------------------------------
// - Whenever `data` ends up null, `length` is 0: a source whose terminator stands
//   at position 0 with a longer length, or whose conversion yields nothing, is
//   an empty text, and no reader can index a null buffer.
// - A source that stops early at a zero character inside `length` keeps
//   `length - 1` (the one terminator taken off), as the caller counted it. The
//   buffer behind it is then padded (16-bit form: `length + 1` characters, zero
//   behind the last one converted) or ends at its terminator (multibyte form,
//   whose readers stop there), so no index below `length` reads outside it.
// - A 16-bit source is read for `length` characters at most, also when it has
//   no terminator, and the multibyte buffer (`length * cur_max() + 1` bytes)
//   takes no more than fits in it.
// - A multibyte source that the locale cannot read (a stray byte, a lead byte
//   without its trail) converts to 16 bits with "?" for each such byte, one
//   character each, and the rest stands: there is no count of minus one.
// - A 16-bit character without a multibyte form (one the locale cannot spell,
//   or a lone surrogate) becomes "?" in its place.
// - Allocation failure leaves `data` null and `length` 0.
//
// UTF-8 locales
// -------------
// The multibyte form stores the locale's bytes faithfully, whatever their
// length, and counts each character once, so a draw of the multibyte form
// shows every character. The single-value accessors (`multiByteCharacter`,
// `getMultiByteCharacter`) can carry one or two bytes only: a character of
// three or four bytes reads as '?' there, and `getMultiByteCharacter` writes
// "?" and its terminator, never a split character and never more than three
// bytes. Characters of one and two bytes behave as in a double-byte locale.
#pragma once

#include "foundation/storage.h"

namespace DL {

// A string in one of two forms; see the file comment.
class EncodedText : public HeapObject {
 public:
  // From 16-bit characters; `unicode` chooses the form stored.
  EncodedText(const unsigned short* text, int length, bool unicode);
  // From a multibyte string of the current locale; `unicode` chooses the form.
  EncodedText(const char* text, int length, bool unicode);
  // Deep copy in the same form. Always allocates: the copy of an empty text
  // holds a bare terminator.
  EncodedText(const EncodedText& other);
  EncodedText& operator=(const EncodedText&) = delete;
  ~EncodedText();

  int length() const { return length_; }       // characters (16-bit form) or bytes (multibyte form)
  bool isUnicode() const { return unicode_; }  // whether the 16-bit form is stored
  // The characters with their terminator; null for an empty text.
  const unsigned short* unicodeString() const { return static_cast<const unsigned short*>(data_); }
  // The same for the multibyte form.
  const unsigned char* multiByteString() const { return static_cast<const unsigned char*>(data_); }

  // The 16-bit character at `index`: Unicode form only, `index` in [0, length].
  unsigned short unicodeCharacter(int index) const {
    return static_cast<const unsigned short*>(data_)[index];
  }
  // The character at character position `index` as one value, the lead byte in
  // the high half when it has one; an index below 1 gives the first character.
  // Multibyte form only. Past the end, and on an empty text, gives 0.
  unsigned short multiByteCharacter(int index) const;
  // Writes that character as a terminated string to `buffer`, which holds at
  // least three bytes.
  void getMultiByteCharacter(int index, char* buffer) const;

  // 1 when both have the same form, length and characters, else 0. Empty texts
  // of one form are equal whether `data` is null or a bare terminator.
  int operator==(const EncodedText& other) const;

 private:
  bool unicode_;
  int length_;
  void* data_;  // unsigned short[] or unsigned char[], terminated; or null
};

}  // namespace DL
