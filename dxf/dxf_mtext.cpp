// MTEXT's inline codes into styled runs; see dxf_mtext_p.h.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "dxf/dxf_loader.h"
#include "dxf/dxf_mapping.h"
#include "dxf/dxf_mtext_p.h"

namespace DL::dxf {

namespace {

constexpr std::size_t kMaxDepth = 64;
// Heights (against the entity's), widths and tracking stay within these
// factors: far enough for any drawing, near enough that a run's size stays
// a float and its glyphs stay on the sheet.
constexpr double kMinFactor = 1e-3;
constexpr double kMaxFactor = 1e3;
constexpr double kPi = 3.14159265358979323846;

// A code's value: the characters after the code letter up to ';' (or the
// end), `i` left on the ';'.
std::string_view value_at(const std::string& s, std::size_t& i) {
  const std::size_t start = i + 1;  // at most s.size(): i is a character of s
  std::size_t end = s.find(';', start);
  if (end == std::string::npos) end = s.size();
  i = end;
  return std::string_view(s).substr(start, end - start);
}

// A finite number, the whole of `v`; false otherwise.
bool number(std::string_view v, double& out) {
  while (!v.empty() && v.front() == ' ') v.remove_prefix(1);
  if (!v.empty() && v.front() == '+') v.remove_prefix(1);
  double x = 0;
  const auto [end, error] = std::from_chars(v.data(), v.data() + v.size(), x);
  if (error != std::errc() || end != v.data() + v.size() || !std::isfinite(x)) return false;
  out = x;
  return true;
}

// \H, \W, \T: "<v>" sets the value, "<f>x" multiplies it; a result outside
// [lo, hi] is refused.
void scaled(std::string_view v, double& field, double lo, double hi) {
  const bool relative = !v.empty() && (v.back() == 'x' || v.back() == 'X');
  if (relative) v.remove_suffix(1);
  double x = 0;
  if (!number(v, x)) return;
  const double result = relative ? field * std::fabs(x) : std::fabs(x);
  if (result >= lo && result <= hi) field = result;
}

void append_utf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xc0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3f));
  } else {
    out += static_cast<char>(0xe0 | ((cp >> 12) & 0x0f));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
    out += static_cast<char>(0x80 | (cp & 0x3f));
  }
}

// \f and \F: the family, and bold and italic from the '|' fields of \f.
void font_code(std::string_view v, bool file, MtextStyle& style) {
  const std::size_t bar = v.find('|');
  std::string_view family = v.substr(0, bar);
  if (file) {  // an SHX file: its base name
    const std::size_t slash = family.find_last_of("/\\");
    if (slash != std::string_view::npos) family.remove_prefix(slash + 1);
    const std::size_t dot = family.rfind('.');
    if (dot != std::string_view::npos) family = family.substr(0, dot);
  }
  style.family = std::string(family);
  style.bold = style.italic = false;
  for (std::size_t at = bar, next; at != std::string_view::npos; at = next) {
    next = v.find('|', at + 1);
    const std::string_view field =
        v.substr(at + 1, next == std::string_view::npos ? next : next - at - 1);
    if (field.size() >= 2 && field[0] == 'b') style.bold = field[1] == '1';
    if (field.size() >= 2 && field[0] == 'i') style.italic = field[1] == '1';
  }
}

}  // namespace

std::vector<MtextParagraph> mtext_paragraphs(const std::string& text, double height) {
  const std::string s = text_codes(text);
  std::vector<MtextParagraph> out(1);
  MtextStyle style;
  style.height = height;
  std::vector<MtextStyle> saved;  // the styles the open braces restore
  std::size_t passed = 0;         // braces open past kMaxDepth
  bool fresh = true;              // the next character starts a new run
  auto put = [&](std::string_view chars) {
    if (fresh || out.back().empty() || out.back().back().stack) {
      out.back().push_back({style, {}, {}, 0});
      fresh = false;
    }
    out.back().back().text += chars;
  };
  auto restyle = [&] { fresh = true; };
  for (std::size_t i = 0; i < s.size(); ++i) {
    const char c = s[i];
    if (c == '{') {
      if (saved.size() < kMaxDepth)
        saved.push_back(style);
      else
        ++passed;
      continue;
    }
    if (c == '}') {
      if (passed) {
        --passed;
      } else if (!saved.empty()) {
        style = saved.back();
        saved.pop_back();
        restyle();
      }
      continue;
    }
    if (c != '\\' || i + 1 >= s.size()) {
      put(std::string_view(&s[i], 1));
      continue;
    }
    const char code = s[++i];
    switch (code) {
      case 'P':
      case 'X':
        out.emplace_back();
        restyle();
        break;
      case '~':
        put("\u00a0");
        break;
      case '\\':
      case '{':
      case '}':
        put(std::string_view(&s[i], 1));
        break;
      case 'U':
      case 'u':
        if (i + 5 < s.size() && s[i + 1] == '+') {
          unsigned v = 0;
          const auto [end, error] = std::from_chars(s.data() + i + 2, s.data() + i + 6, v, 16);
          if (error == std::errc() && end == s.data() + i + 6) {
            std::string utf8;
            append_utf8(utf8, static_cast<char32_t>(v));
            put(utf8);
            i += 5;
          }
        }
        break;
      case 'L':
      case 'l':
        style.underline = code == 'L';
        restyle();
        break;
      case 'O':
      case 'o':
        style.overline = code == 'O';
        restyle();
        break;
      case 'K':
      case 'k':
        style.strike = code == 'K';
        restyle();
        break;
      case 'C':
      case 'c': {
        double v = 0;
        if (number(value_at(s, i), v) && v >= 0 && v <= 16777215) {
          const auto n = static_cast<std::uint32_t>(v);
          if (code == 'c') {  // stored blue, green, red from the high byte
            style.color = ((n & 0xff) << 16) | (n & 0xff00) | ((n >> 16) & 0xff);
            style.colored = true;
          } else {
            style.colored = n > 0 && n < 256;
            if (style.colored) style.color = aci_color(static_cast<int>(n));
          }
        }
        restyle();
        break;
      }
      case 'f':
      case 'F':
        font_code(value_at(s, i), code == 'F', style);
        restyle();
        break;
      case 'H':
        scaled(value_at(s, i), style.height, height * kMinFactor, height * kMaxFactor);
        restyle();
        break;
      case 'W':
        scaled(value_at(s, i), style.width, kMinFactor, kMaxFactor);
        restyle();
        break;
      case 'T':
        scaled(value_at(s, i), style.tracking, kMinFactor, kMaxFactor);
        restyle();
        break;
      case 'Q': {
        double degrees = 0;
        // Beyond 85 degrees the glyphs would lie flat: refused.
        if (number(value_at(s, i), degrees) && std::fabs(degrees) <= 85)
          style.oblique = degrees * kPi / 180;
        restyle();
        break;
      }
      case 'S': {
        const std::string_view v = value_at(s, i);
        const std::size_t sep = v.find_first_of("^/#");
        MtextRun run{style, std::string(v.substr(0, sep)), {}, 0};
        if (sep != std::string_view::npos) {
          run.stack = v[sep];
          run.below = std::string(v.substr(sep + 1));
          // "^" stacks often start their lower part with a space.
          if (run.stack == '^' && !run.below.empty() && run.below.front() == ' ')
            run.below.erase(0, 1);
        }
        if (run.stack) {
          out.back().push_back(std::move(run));
          restyle();
        } else {
          put(run.text);
        }
        break;
      }
      default:
        value_at(s, i);  // \A, \p, ...: a value up to ';'
        break;
    }
  }
  for (MtextParagraph& p : out)
    p.erase(std::remove_if(p.begin(), p.end(),
                           [](const MtextRun& r) { return !r.stack && r.text.empty(); }),
            p.end());
  while (out.size() > 1 && out.back().empty()) out.pop_back();
  return out;
}

}  // namespace DL::dxf
