// Strings of 16-bit characters and multibyte strings of the current locale: the
// small run-time functions that EncodedText and the text engines are built on.
//
// They work over the C library's locale support (`mbrtowc`, `wcrtomb`,
// `MB_CUR_MAX`), so they follow `setlocale(LC_CTYPE, ...)` of the process.
//
// Characters
// ----------
// A 16-bit character (`unsigned short`, the storage of a `char16_t`) is
// one UTF-16 code unit and counts as one character: a surrogate has no
// multibyte form and converts to "?". A multibyte character is what `mbrtowc`
// reads in a fresh state: one byte in single-byte locales, a lead byte and a
// trail byte in double-byte locales (GBK, Big5, Shift-JIS, EUC-KR), one to four
// bytes in UTF-8. Bytes below 0x80 are always single characters (true of every
// locale the C library offers), which is the fast path.
//
// Safety rules that hold for every function here
// ----------------------------------------------
// - A multibyte string is read up to its terminator and never beyond it: a
//   character never spans the terminator. A byte that does not begin a valid
//   character of the locale (a stray trail byte, a lead byte with nothing valid
//   behind it) counts as a character of its own, one byte long. So characters
//   are never split and counting never runs past the end.
// - A conversion that meets something without a form in the target encoding
//   writes "?" in its place and goes on: there is no error result.
// - Every writing function is told its room and never writes beyond it.
#pragma once

#include <cstddef>

namespace DL::mb {

// Bytes per character at most in the current locale (`MB_CUR_MAX`): 1 in
// single-byte locales, 2 in double-byte ones, 6 in glibc's UTF-8.
int cur_max();

// Whether `byte` is the lead byte of a longer character in the current locale:
// it does not form a character alone but begins one.
bool is_lead_byte(unsigned char byte);

// The length in bytes of the character at `s`, 1 or more; 0 at the terminator.
// Never looks past a zero byte.
int char_length(const unsigned char* s);

// The bytes of the first `n` characters of `s`, stopping at its terminator.
std::size_t byte_count(const unsigned char* s, int n);

// Copies the first `n` characters of `s` (stopping at its terminator) to `out`
// and returns the bytes written; no terminator is added. `out` must hold
// byte_count(s, n) bytes.
std::size_t copy_chars(unsigned char* out, const unsigned char* s, int n);

// `s` moved `n` characters on, stopping at the terminator.
const unsigned char* advance(const unsigned char* s, int n);

// The character at `s` as one value: a single byte as it is; a two-byte
// character as lead byte * 256 + trail byte. A character longer than two bytes
// (UTF-8 only) has no such value and reads as '?' (0x3F), so that no caller can
// split it. 0 at the terminator.
unsigned short char_value(const unsigned char* s);

// Writes one 16-bit character as multibyte to `out`, which has room for
// cur_max() bytes; returns the bytes written, or -1 when the character has no
// form in the locale (surrogates never have one).
int from_u16(unsigned short c, unsigned char* out);

// Converts up to `n` 16-bit characters of `s` to multibyte, stopping at a zero
// character, and writes at most `room` bytes to `out` (no terminator, never a
// partial character). A character without a multibyte form becomes "?".
// Returns the bytes written; `*converted`, when not null, receives the
// characters converted.
std::size_t u16_to_mbs(unsigned char* out, std::size_t room, const unsigned short* s, int n,
                       int* converted = nullptr);

// Converts up to `n` characters of the multibyte string `s` (stopping at its
// terminator) to 16-bit characters in `out`, which has room for `n`; returns
// the characters written. A character outside the 16-bit range, and a byte
// that begins no valid character, becomes "?". With `out` null only counts.
int mbs_to_u16(unsigned short* out, const unsigned char* s, int n);

// Characters of `s` up to its terminator, by the rules above.
int char_count(const unsigned char* s);

// Copies `n` 16-bit characters; stops copying at a zero character and fills the
// rest of the `n` with zeros, as strncpy does.
void u16_copy(unsigned short* out, const unsigned short* s, int n);

// Order of two terminated strings: negative, 0 or positive. 16-bit strings
// compare by code unit, multibyte strings byte by byte (unsigned).
int u16_compare(const unsigned short* a, const unsigned short* b);
int mbs_compare(const unsigned char* a, const unsigned char* b);  // see u16_compare

}  // namespace DL::mb
