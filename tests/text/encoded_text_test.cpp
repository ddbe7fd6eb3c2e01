// EncodedText and the multibyte functions, in the C locale and in double-byte
// locales that the test compiles for itself with localedef into a temporary
// folder, used through LOCPATH (no root, no change to the system).
#include "text/encoded_text.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/test_files.h"
#include "text/multibyte.h"

namespace DL {
namespace {

using U16 = std::vector<unsigned short>;

U16 u16(const char16_t* s, int extra_zeros = 0) {
  U16 out;
  for (; *s; ++s) out.push_back(static_cast<unsigned short>(*s));
  for (int i = 0; i < extra_zeros; ++i) out.push_back(0);
  return out;
}

std::string bytes_of(const EncodedText& t) {
  return t.multiByteString() ? std::string(reinterpret_cast<const char*>(t.multiByteString()))
                             : std::string("<null>");
}

// Sets LC_CTYPE for the scope of a test, and back to "C" afterwards.
class LocaleScope {
 public:
  explicit LocaleScope(const char* name) { ok_ = std::setlocale(LC_CTYPE, name) != nullptr; }
  ~LocaleScope() { std::setlocale(LC_CTYPE, "C"); }
  bool ok() const { return ok_; }

 private:
  bool ok_;
};

// Compiles locales into one temporary folder for the whole program.
class GeneratedLocales {
 public:
  static GeneratedLocales& get() {
    static GeneratedLocales instance;
    return instance;
  }
  // The locale's name, or empty with `why` set when it cannot be made here.
  std::string make(const std::string& source, const std::string& charmap, std::string& why) {
    if (dir_.empty()) {
      why = "no temporary folder";
      return {};
    }
    std::string name = source + "." + charmap;
    if (std::filesystem::exists(dir_ + "/" + name)) return name;
    std::string command = "localedef --no-warnings=ascii -c -i " + source + " -f " + charmap +
                          " '" + dir_ + "/" + name + "' >/dev/null 2>&1";
    if (std::system("command -v localedef >/dev/null 2>&1") != 0) {
      why = "localedef is not installed";
      return {};
    }
    std::system(command.c_str());
    if (!std::filesystem::exists(dir_ + "/" + name)) {
      why = "localedef could not build " + name + " (charmap or source missing)";
      return {};
    }
    return name;
  }

 private:
  GeneratedLocales() {
    // Under the build folder, and removed at exit.
    std::string pattern = DL::test::test_file_path("dl_locales_XXXXXX");
    if (mkdtemp(pattern.data())) {
      dir_ = pattern;
      setenv("LOCPATH", dir_.c_str(), 1);
    }
  }
  ~GeneratedLocales() {
    std::error_code ignored;
    if (!dir_.empty()) std::filesystem::remove_all(dir_, ignored);
  }
  std::string dir_;
};

#define USE_LOCALE(source, charmap)                                        \
  std::string why_;                                                        \
  std::string name_ = GeneratedLocales::get().make(source, charmap, why_); \
  if (name_.empty()) GTEST_SKIP() << why_;                                 \
  LocaleScope scope_(name_.c_str());                                       \
  if (!scope_.ok()) GTEST_SKIP() << "setlocale refused " << name_;

// ---------------------------------------------------------------------------
// C locale
// ---------------------------------------------------------------------------

TEST(EncodedText, TrailingTerminatorIsDroppedOnceInEveryBranch) {
  LocaleScope c("C");
  for (bool from_unicode : {false, true})
    for (bool to_unicode : {false, true}) {
      SCOPED_TRACE(std::to_string(from_unicode) + std::to_string(to_unicode));
      auto make = [&](const char* s, int n, int zeros) {
        if (from_unicode) {
          U16 src;
          for (const char* p = s; *p; ++p) src.push_back(static_cast<unsigned char>(*p));
          for (int i = 0; i < zeros; ++i) src.push_back(0);
          return EncodedText(src.data(), n, to_unicode);
        }
        std::string src = std::string(s) + std::string(static_cast<std::size_t>(zeros), '\0');
        return EncodedText(src.c_str(), n, to_unicode);
      };
      EXPECT_EQ(make("abc", 4, 1).length(), 3);  // with its terminator
      EXPECT_EQ(make("abc", 3, 1).length(), 3);
      EXPECT_EQ(make("abc", 5, 2).length(), 4);  // only one terminator goes
      EncodedText lone = make("", 1, 1);
      EXPECT_EQ(lone.length(), 0);
      EXPECT_EQ(lone.multiByteString(), nullptr);
      EncodedText none = make("abc", 0, 1);
      EXPECT_EQ(none.length(), 0);
      EXPECT_EQ(none.multiByteString(), nullptr);
      EXPECT_EQ(make("abc", 4, 1).isUnicode(), to_unicode);
      EncodedText t = make("abc", 3, 1);
      if (to_unicode) {
        EXPECT_EQ(t.unicodeCharacter(0), 'a');
        EXPECT_EQ(t.unicodeCharacter(2), 'c');
        EXPECT_EQ(t.unicodeCharacter(3), 0);
      } else {
        EXPECT_EQ(bytes_of(t), "abc");
      }
    }
}

TEST(EncodedText, ThreeCharactersAndTwoZerosKeepAReadableBuffer) {
  LocaleScope c("C");
  // 16-bit form: the embedded zero reads as a character inside `length`.
  U16 src = u16(u"abc", 2);
  EncodedText t(src.data(), 5, true);
  ASSERT_EQ(t.length(), 4);
  EXPECT_EQ(t.unicodeCharacter(3), 0);
  EXPECT_EQ(t.unicodeCharacter(4), 0);
  // Converted from multibyte with a zero inside the length: still padded.
  EncodedText m("ab\0\0\0", 5, true);
  ASSERT_EQ(m.length(), 4);
  EXPECT_EQ(m.unicodeCharacter(1), 'b');
  EXPECT_EQ(m.unicodeCharacter(2), 0);
  EXPECT_EQ(m.unicodeCharacter(4), 0);
}

TEST(EncodedText, NullDataAlwaysMeansLengthZero) {
  LocaleScope c("C");
  // Terminator at position 0 with a longer length, in the converting branches.
  U16 src = {0, 'x', 'y'};
  EncodedText to_mb(src.data(), 3, false);
  EXPECT_EQ(to_mb.multiByteString(), nullptr);
  EXPECT_EQ(to_mb.length(), 0);
  EncodedText to_u16("\0xy", 3, true);
  EXPECT_EQ(to_u16.unicodeString(), nullptr);
  EXPECT_EQ(to_u16.length(), 0);
  EXPECT_EQ(to_u16.multiByteCharacter(2), 0);
}

TEST(EncodedText, UnspellableCharactersBecomeQuestionMarks) {
  LocaleScope c("C");
  U16 src = {'a', 0x4E2D, 'b', 0xD800, 'c'};
  EncodedText t(src.data(), 5, false);
  EXPECT_EQ(t.length(), 5);
  EXPECT_EQ(bytes_of(t), "a?b?c");
  // A byte the C locale cannot read becomes "?" on the way to 16 bits.
  EncodedText u(
      "a\xff"
      "b",
      3, true);
  ASSERT_EQ(u.length(), 3);
  EXPECT_EQ(u.unicodeCharacter(0), 'a');
  EXPECT_EQ(u.unicodeCharacter(1), '?');  // the C locale reads ASCII only
  EXPECT_EQ(u.unicodeCharacter(2), 'b');
}

TEST(EncodedText, UnterminatedSixteenBitSourceIsReadForLengthOnly) {
  LocaleScope c("C");
  // No terminator anywhere: only `length` characters are read or stored.
  U16 src = {'x', 'y', 'z'};
  EncodedText mb(src.data(), 2, false);
  EXPECT_EQ(bytes_of(mb), "xy");
  EncodedText uc(src.data(), 2, true);
  EXPECT_EQ(uc.unicodeCharacter(1), 'y');
  EXPECT_EQ(uc.unicodeCharacter(2), 0);
}

// Regression: the constructors read source[length - 1], past the end of a
// short source given with a longer length, which the header says is allowed.
// The sources here are exactly as long as their characters and terminator, so
// the address sanitizer sees any read beyond them.
TEST(EncodedText, ShortSourceWithALongerLengthIsReadUpToItsZeroOnly) {
  LocaleScope c("C");
  for (bool to_unicode : {false, true}) {
    SCOPED_TRACE(to_unicode);
    std::unique_ptr<unsigned short[]> u16(new unsigned short[3]{'a', 'b', 0});
    EncodedText from_u16(u16.get(), 1000, to_unicode);
    std::unique_ptr<char[]> mb(new char[3]{'a', 'b', 0});
    EncodedText from_mb(mb.get(), 1000, to_unicode);
    for (const EncodedText* t : {&from_u16, &from_mb}) {
      EXPECT_EQ(t->length(), 999);  // the caller's count, less the terminator
      if (to_unicode) {
        EXPECT_EQ(t->unicodeCharacter(1), 'b');
        EXPECT_EQ(t->unicodeCharacter(2), 0);
        EXPECT_EQ(t->unicodeCharacter(998), 0);
      } else {
        EXPECT_EQ(bytes_of(*t), "ab");
      }
    }
  }
  // A null source is an empty text.
  EXPECT_EQ(EncodedText(static_cast<const char*>(nullptr), 5, true).length(), 0);
  EXPECT_EQ(EncodedText(static_cast<const unsigned short*>(nullptr), 5, false).length(), 0);
}

TEST(EncodedText, CopiesAndEquality) {
  LocaleScope c("C");
  EncodedText empty_mb("", 0, false);
  EncodedText copy_mb(empty_mb);
  ASSERT_NE(copy_mb.multiByteString(), nullptr);
  EXPECT_EQ(copy_mb.multiByteString()[0], 0);
  EXPECT_EQ(copy_mb.length(), 0);
  EXPECT_EQ(empty_mb == copy_mb, 1);
  EXPECT_EQ(copy_mb == empty_mb, 1);

  U16 none = {0};
  EncodedText empty_u(none.data(), 0, true);
  EncodedText copy_u(empty_u);
  ASSERT_NE(copy_u.unicodeString(), nullptr);
  EXPECT_EQ(copy_u.unicodeCharacter(0), 0);
  EXPECT_EQ(empty_u == copy_u, 1);
  EXPECT_EQ(empty_u == empty_mb, 0);  // forms differ

  U16 abc = u16(u"abc");
  EncodedText a(abc.data(), 3, true);
  EncodedText b("abc", 3, true);
  EncodedText m("abc", 3, false);
  EXPECT_EQ(a == b, 1);
  EXPECT_EQ(a == m, 0);  // a Unicode and a multibyte text never match
  EncodedText ab("abd", 3, true);
  EXPECT_EQ(a == ab, 0);
  EncodedText deep(a);
  EXPECT_NE(deep.unicodeString(), a.unicodeString());
  EXPECT_EQ(deep == a, 1);
}

TEST(EncodedText, SingleByteAccessors) {
  LocaleScope c("C");
  EncodedText t("xyz", 3, false);
  EXPECT_EQ(t.multiByteCharacter(0), 'x');
  EXPECT_EQ(t.multiByteCharacter(-1), 'x');
  EXPECT_EQ(t.multiByteCharacter(2), 'z');
  EXPECT_EQ(t.multiByteCharacter(7), 0);  // past the end: the terminator
  char buffer[3] = {1, 1, 1};
  t.getMultiByteCharacter(1, buffer);
  EXPECT_EQ(buffer[0], 'y');
  EXPECT_EQ(buffer[1], 0);
}

TEST(EncodedText, NothingLeaks) {
  LocaleScope c("C");
  ZephalHeapStatistics before = ZP_HeapStatistics();
  {
    U16 src = u16(u"hello");
    EncodedText a(src.data(), 5, true);
    EncodedText b(src.data(), 5, false);
    EncodedText c2("hi", 2, true);
    EncodedText d(a), e(b), f(c2);
    auto* g = new EncodedText("x", 1, false);
    delete g;
  }
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before.live_blocks);
}

// ---------------------------------------------------------------------------
// Double-byte locales
// ---------------------------------------------------------------------------

// "中a文" in GBK: D6 D0, 'a', CE C4.
const char kGbk[] =
    "\xD6\xD0"
    "a"
    "\xCE\xC4";

TEST(EncodedTextGbk, DoubleByteCharactersCountOnceAndNeverSplit) {
  USE_LOCALE("zh_CN", "GBK");
  EXPECT_EQ(mb::cur_max(), 2);
  EXPECT_TRUE(mb::is_lead_byte(0xD6));
  EXPECT_FALSE(mb::is_lead_byte('a'));
  EncodedText t(kGbk, 3, false);
  ASSERT_EQ(t.length(), 3);
  EXPECT_EQ(bytes_of(t), kGbk);  // three characters are five bytes
  EXPECT_EQ(t.multiByteCharacter(0), 0xD6D0);
  EXPECT_EQ(t.multiByteCharacter(-1), 0xD6D0);
  EXPECT_EQ(t.multiByteCharacter(1), 'a');
  EXPECT_EQ(t.multiByteCharacter(2), 0xCEC4);
  char buffer[3];
  t.getMultiByteCharacter(2, buffer);
  EXPECT_EQ(std::string(buffer), "\xCE\xC4");
  t.getMultiByteCharacter(1, buffer);
  EXPECT_EQ(std::string(buffer), "a");

  // Two characters of the source are three bytes: the copy stops there.
  EncodedText two(kGbk, 2, false);
  EXPECT_EQ(bytes_of(two),
            "\xD6\xD0"
            "a");
  EncodedText copy(t);
  EXPECT_EQ(bytes_of(copy), kGbk);
  EXPECT_EQ(copy == t, 1);
}

TEST(EncodedTextGbk, ConversionsBothWays) {
  USE_LOCALE("zh_CN", "GBK");
  EncodedText u(kGbk, 3, true);
  ASSERT_EQ(u.length(), 3);
  EXPECT_EQ(u.unicodeCharacter(0), 0x4E2D);
  EXPECT_EQ(u.unicodeCharacter(1), 'a');
  EXPECT_EQ(u.unicodeCharacter(2), 0x6587);
  EXPECT_EQ(u.unicodeCharacter(3), 0);

  U16 src = {0x6587, 'b', 0x0E01 /* Thai: not in GBK */, 0x4E2D};
  EncodedText m(src.data(), 4, false);
  EXPECT_EQ(m.length(), 4);
  EXPECT_EQ(bytes_of(m),
            "\xCE\xC4"
            "b?"
            "\xD6\xD0");
  EXPECT_EQ(m.multiByteCharacter(3), 0xD6D0);

  // A lead byte with nothing behind it, and a stray byte: one "?" each, the
  // rest converts.
  EncodedText broken("a\xD6", 2, true);
  ASSERT_EQ(broken.length(), 2);
  EXPECT_EQ(broken.unicodeCharacter(1), '?');
  EncodedText broken_mb("a\xD6", 2, false);
  EXPECT_EQ(broken_mb.multiByteCharacter(1), 0xD6);
  char buffer[3];
  broken_mb.getMultiByteCharacter(1, buffer);
  EXPECT_EQ(static_cast<unsigned char>(buffer[0]), 0xD6);
  EXPECT_EQ(buffer[1], 0);
}

TEST(EncodedTextDoubleByte, Big5ShiftJisAndEucKrReadTheirLeadBytes) {
  struct Case {
    const char* source;
    const char* charmap;
    const char* text;      // 2 characters: a double-byte one and 'z'
    unsigned short value;  // the double-byte one as a value
    unsigned short code;   // and in Unicode
  };
  const Case cases[] = {
      {"zh_TW", "BIG5",
       "\xA4\xA4"
       "z",
       0xA4A4, 0x4E2D},
      {"ja_JP", "SHIFT_JIS",
       "\x93\xFA"
       "z",
       0x93FA, 0x65E5},
      {"ko_KR", "EUC-KR",
       "\xC7\xD1"
       "z",
       0xC7D1, 0xD55C},
  };
  int ran = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.charmap);
    std::string why;
    std::string name = GeneratedLocales::get().make(c.source, c.charmap, why);
    if (name.empty()) continue;
    LocaleScope scope(name.c_str());
    if (!scope.ok()) continue;
    ++ran;
    EncodedText t(c.text, 2, false);
    EXPECT_EQ(t.multiByteCharacter(0), c.value);
    EXPECT_EQ(t.multiByteCharacter(1), 'z');
    EncodedText u(c.text, 2, true);
    EXPECT_EQ(u.unicodeCharacter(0), c.code);
    unsigned short back[] = {c.code, 'z', 0};
    EncodedText m(back, 3, false);
    EXPECT_EQ(bytes_of(m), c.text);
  }
  if (ran == 0) GTEST_SKIP() << "no double-byte locale could be built here";
}

TEST(EncodedTextUtf8, LongCharactersAreKeptWholeAndReadAsQuestionMarks) {
  USE_LOCALE("en_US", "UTF-8");
  // "é中z": 2, 3 and 1 bytes.
  const char text[] =
      "\xC3\xA9\xE4\xB8\xAD"
      "z";
  EncodedText t(text, 3, false);
  ASSERT_EQ(t.length(), 3);
  EXPECT_EQ(bytes_of(t), text);
  EXPECT_EQ(t.multiByteCharacter(0), 0xC3A9);
  EXPECT_EQ(t.multiByteCharacter(1), '?');
  EXPECT_EQ(t.multiByteCharacter(2), 'z');
  char buffer[3];
  t.getMultiByteCharacter(1, buffer);
  EXPECT_EQ(std::string(buffer), "?");
  t.getMultiByteCharacter(0, buffer);
  EXPECT_EQ(std::string(buffer), "\xC3\xA9");
  // Converted from 16 bits, the buffer holds every byte of every character.
  U16 src = {0x4E2D, 0x4E2D, 0x4E2D};
  EncodedText m(src.data(), 3, false);
  EXPECT_EQ(bytes_of(m), "\xE4\xB8\xAD\xE4\xB8\xAD\xE4\xB8\xAD");
  EncodedText u(text, 3, true);
  EXPECT_EQ(u.unicodeCharacter(1), 0x4E2D);
  // Truncated in the middle of a character: the stray bytes stand alone.
  EncodedText cut("\xE4\xB8", 2, true);
  EXPECT_EQ(cut.unicodeCharacter(0), '?');
  EXPECT_EQ(cut.unicodeCharacter(1), '?');
}

}  // namespace
}  // namespace DL
