// The FreeType text engine: faces, flattened outlines and their caches,
// measuring and drawing.
#include "backends/freetype/freetype_engine.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <cmath>
#include <cstring>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "text/multibyte.h"

namespace DL {

namespace {

constexpr const char* kDefaultPattern = "DejaVu Sans";
constexpr const char* kDefaultFile = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
// Flattening tolerance as a part of the em.
constexpr double kTolerance = 1.0 / 250.0;
constexpr std::size_t kSizedCacheLimit = 65536;

// A glyph outline in font units, curves flattened: closed contours.
struct GlyphOutline {
  std::vector<std::vector<ZR_Point>> contours;
  float advance = 0.0f;  // font units
};

struct Face {
  FT_Face face = nullptr;
  std::string file;
  float units_per_em = 1000.0f;
  float ascender = 0.0f;   // font units, above the baseline
  float descender = 0.0f;  // font units, below zero
  std::unordered_map<unsigned short, GlyphOutline> outlines;
};

struct SizedKey {
  const Face* face;
  float size;
  float scale;
  unsigned short character;
  friend bool operator==(const SizedKey&, const SizedKey&) = default;
};
struct SizedKeyHash {
  std::size_t operator()(const SizedKey& k) const {
    std::uint32_t s, c;
    std::memcpy(&s, &k.size, 4);
    std::memcpy(&c, &k.scale, 4);
    std::size_t h = reinterpret_cast<std::uintptr_t>(k.face);
    h = h * 0x9E3779B97F4A7C15ull ^ s;
    h = h * 0x9E3779B97F4A7C15ull ^ c;
    return h * 0x9E3779B97F4A7C15ull ^ k.character;
  }
};

// Collects flattened contours from FT_Outline_Decompose.
struct Flattener {
  std::vector<std::vector<ZR_Point>>* contours;
  double tolerance;
  double x = 0, y = 0;

  void point(double px, double py) {
    contours->back().push_back({static_cast<float>(px), static_cast<float>(py), 0.0f});
    x = px;
    y = py;
  }
  static int segments(double deviation, double tolerance) {
    const double n = std::ceil(std::sqrt(deviation / tolerance));
    return n < 1 ? 1 : (n > 64 ? 64 : static_cast<int>(n));
  }
};

int move_to(const FT_Vector* to, void* user) {
  auto* f = static_cast<Flattener*>(user);
  f->contours->emplace_back();
  f->point(to->x, to->y);
  return 0;
}
int line_to(const FT_Vector* to, void* user) {
  static_cast<Flattener*>(user)->point(to->x, to->y);
  return 0;
}
int conic_to(const FT_Vector* c, const FT_Vector* to, void* user) {
  auto* f = static_cast<Flattener*>(user);
  const double x0 = f->x, y0 = f->y;
  // Chord error of n pieces: |p0 - 2 p1 + p2| / (4 n^2).
  const double dx = x0 - 2.0 * c->x + to->x, dy = y0 - 2.0 * c->y + to->y;
  const int n = Flattener::segments(std::hypot(dx, dy) / 4.0, f->tolerance);
  for (int i = 1; i <= n; ++i) {
    const double t = static_cast<double>(i) / n, u = 1.0 - t;
    f->point(u * u * x0 + 2 * u * t * c->x + t * t * to->x,
             u * u * y0 + 2 * u * t * c->y + t * t * to->y);
  }
  return 0;
}
int cubic_to(const FT_Vector* c1, const FT_Vector* c2, const FT_Vector* to, void* user) {
  auto* f = static_cast<Flattener*>(user);
  const double x0 = f->x, y0 = f->y;
  // Chord error of n pieces: at most 6 max|second difference| / (8 n^2).
  const double d1 = std::hypot(x0 - 2.0 * c1->x + c2->x, y0 - 2.0 * c1->y + c2->y);
  const double d2 = std::hypot(c1->x - 2.0 * c2->x + to->x, c1->y - 2.0 * c2->y + to->y);
  const int n = Flattener::segments(0.75 * (d1 > d2 ? d1 : d2), f->tolerance);
  for (int i = 1; i <= n; ++i) {
    const double t = static_cast<double>(i) / n, u = 1.0 - t;
    const double a = u * u * u, b = 3 * u * u * t, cc = 3 * u * t * t, d = t * t * t;
    f->point(a * x0 + b * c1->x + cc * c2->x + d * to->x,
             a * y0 + b * c1->y + cc * c2->y + d * to->y);
  }
  return 0;
}

// Turns (x, y) by the angle whose cosine and sine are given, then adds `at`.
ZR_Point place(double x, double y, double c, double s, const ZR_Point& at) {
  return {static_cast<float>(at.x + x * c - y * s), static_cast<float>(at.y + x * s + y * c), 0.0f};
}

}  // namespace

struct FreeTypeTextEngine::Impl {
  std::mutex lock;
  FT_Library library = nullptr;
  Face* default_face = nullptr;
  std::unordered_map<std::string, Face*> by_file;  // owns the faces
  std::unordered_map<ZR_Font_Data*, Face*> by_font;
  std::vector<ZR_Font> held;  // a reference on every body in by_font
  std::unordered_map<SizedKey, ZR_Contour_Set, SizedKeyHash> sized;
  ZR_Glyph_Sink* sink = nullptr;
  long hits = 0, misses = 0;
  bool fontconfig = false;

  Face* load_file(const std::string& file) {
    if (file.empty() || !library) return nullptr;
    auto it = by_file.find(file);
    if (it != by_file.end()) return it->second;
    FT_Face ft = nullptr;
    if (FT_New_Face(library, file.c_str(), 0, &ft) != 0) return nullptr;
    if (!FT_IS_SCALABLE(ft)) {
      FT_Done_Face(ft);
      return nullptr;
    }
    auto* face = new Face;
    face->face = ft;
    face->file = file;
    face->units_per_em = ft->units_per_EM ? ft->units_per_EM : 1000.0f;
    face->ascender = ft->ascender;
    face->descender = ft->descender;
    by_file.emplace(file, face);
    return face;
  }

  std::string match(const std::string& pattern) {
    if (!fontconfig) return {};
    FcPattern* p = FcNameParse(reinterpret_cast<const FcChar8*>(pattern.c_str()));
    if (!p) return {};
    FcConfigSubstitute(nullptr, p, FcMatchPattern);
    FcDefaultSubstitute(p);
    FcResult result;
    FcPattern* m = FcFontMatch(nullptr, p, &result);
    std::string file;
    FcChar8* path = nullptr;
    if (m && FcPatternGetString(m, FC_FILE, 0, &path) == FcResultMatch)
      file = reinterpret_cast<const char*>(path);
    if (m) FcPatternDestroy(m);
    FcPatternDestroy(p);
    return file;
  }

  Face* resolve(ZR_Font_Data* font) {
    if (!font) return default_face;
    auto it = by_font.find(font);
    if (it != by_font.end()) return it->second;
    Face* face = load_file(font->file);
    if (!face && !font->name.text().empty()) face = load_file(match(font->name.text()));
    if (!face) face = default_face;
    held.emplace_back(font);
    by_font.emplace(font, face);
    return face;
  }

  Face* face_of(ZR_Rendition* r) { return resolve(r->text_attributes().font.get()); }

  const GlyphOutline& outline(Face* face, unsigned short character) {
    auto it = face->outlines.find(character);
    if (it != face->outlines.end()) return it->second;
    GlyphOutline& g = face->outlines[character];
    const FT_UInt index = FT_Get_Char_Index(face->face, character);
    if (FT_Load_Glyph(face->face, index,
                      FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) == 0) {
      FT_GlyphSlot slot = face->face->glyph;
      g.advance = static_cast<float>(slot->advance.x);
      if (slot->format == FT_GLYPH_FORMAT_OUTLINE) {
        Flattener f{&g.contours, face->units_per_em * kTolerance};
        FT_Outline_Funcs funcs{move_to, line_to, conic_to, cubic_to, 0, 0};
        FT_Outline_Decompose(&slot->outline, &funcs, &f);
        // A contour closes itself: drop a last point that repeats the first,
        // and contours too small to enclose anything.
        std::vector<std::vector<ZR_Point>> kept;
        for (auto& c : g.contours) {
          if (c.size() > 1 && c.front() == c.back()) c.pop_back();
          if (c.size() >= 3) kept.push_back(std::move(c));
        }
        g.contours = std::move(kept);
      }
    }
    return g;
  }

  // Factors from font units to text points.
  static void factors(const Face* face, const ZR_Text_Attributes& a, double& kx, double& ky) {
    ky = a.size / face->units_per_em;
    kx = std::fabs(a.size) * a.scale / face->units_per_em;
  }

  ZR_Contour_Set sized_outline(Face* face, const ZR_Text_Attributes& a, unsigned short ch) {
    const SizedKey key{face, a.size, a.scale, ch};
    auto it = sized.find(key);
    if (it != sized.end()) {
      ++hits;
      return it->second;
    }
    ++misses;
    if (sized.size() >= kSizedCacheLimit) sized.clear();
    const GlyphOutline& g = outline(face, ch);
    ZR_Contour_Set set;
    if (!g.contours.empty()) {
      double kx, ky;
      factors(face, a, kx, ky);
      std::vector<std::vector<ZR_Point>> scaled = g.contours;
      for (auto& c : scaled)
        for (ZR_Point& p : c) p = {static_cast<float>(p.x * kx), static_cast<float>(p.y * ky), 0};
      set = ZR_Contour_Set::make(scaled);
    }
    sized.emplace(key, set);
    return set;
  }

  void measure(ZR_Rendition* r, const ZR_Point* start, const unsigned short* text, int length,
               ZR_Point* corners, ZR_Text_Detail* detail) {
    Face* face = face_of(r);
    const ZR_Text_Attributes& a = r->text_attributes();
    double kx = 0, ky = 0, total = 0, low = 0, high = 0;
    if (face) {
      factors(face, a, kx, ky);
      low = face->descender * ky;
      high = face->ascender * ky;
    }
    for (int i = 0; i < length; ++i) {
      const double w = face ? outline(face, text[i]).advance * kx : 0.0;
      if (detail && detail->widths) detail->widths[i] = static_cast<float>(w);
      total += w;
    }
    const double c = std::cos(a.rotation), s = std::sin(a.rotation);
    corners[0] = place(0, low, c, s, *start);
    corners[1] = place(total, low, c, s, *start);
    corners[2] = place(total, high, c, s, *start);
    corners[3] = place(0, high, c, s, *start);
  }

  void draw(ZR_Rendition* r, const ZR_Point* start, const unsigned short* text, int length) {
    Face* face = face_of(r);
    if (!sink || !face || length <= 0) return;
    const ZR_Text_Attributes& a = r->text_attributes();
    double kx, ky;
    factors(face, a, kx, ky);
    const double c = std::cos(a.rotation), s = std::sin(a.rotation);
    std::vector<ZR_Placed_Glyph> placed(static_cast<std::size_t>(length));
    double pen = 0.0;
    for (int i = 0; i < length; ++i) {
      ZR_Placed_Glyph& g = placed[static_cast<std::size_t>(i)];
      g.character = text[i];
      g.origin = place(pen, 0.0, c, s, *start);
      ZR_Contour_Set set = sized_outline(face, a, text[i]);
      if (set) {
        const ZR_Contour_Set_Data& d = *set;
        std::vector<std::vector<ZR_Point>> contours(static_cast<std::size_t>(d.contour_count));
        const ZR_Point* p = d.contour_points;
        for (int k = 0; k < d.contour_count; ++k) {
          for (int j = 0; j < d.contour_sizes[k]; ++j, ++p)
            contours[static_cast<std::size_t>(k)].push_back(place(p->x, p->y, c, s, g.origin));
        }
        g.outline = ZR_Contour_Set::make(contours);
      }
      pen += outline(face, text[i]).advance * kx;
    }
    sink->glyphs(r, start, length, placed.data());
  }
};

FreeTypeTextEngine::FreeTypeTextEngine() : impl_(new Impl) {
  if (FT_Init_FreeType(&impl_->library) != 0) {
    impl_->library = nullptr;
    return;
  }
  impl_->fontconfig = FcInit() == FcTrue;
  impl_->default_face = impl_->load_file(impl_->match(kDefaultPattern));
  if (!impl_->default_face) impl_->default_face = impl_->load_file(kDefaultFile);
}

FreeTypeTextEngine::~FreeTypeTextEngine() {
  impl_->sized.clear();
  impl_->held.clear();
  for (auto& [file, face] : impl_->by_file) {
    FT_Done_Face(face->face);
    delete face;
  }
  if (impl_->library) FT_Done_FreeType(impl_->library);
  delete impl_;
}

bool FreeTypeTextEngine::ok() const {
  return impl_->default_face != nullptr;
}

void FreeTypeTextEngine::set_sink(ZR_Glyph_Sink* sink) {
  std::lock_guard guard(impl_->lock);
  impl_->sink = sink;
}

ZR_Font FreeTypeTextEngine::make_font(const std::string& name, const std::string& file) {
  auto* data = new ZR_Font_Data;
  data->name = ZR_String(name);
  data->file = file;
  return ZR_Font(data);
}

std::string FreeTypeTextEngine::face_file(const ZR_Font& font) {
  std::lock_guard guard(impl_->lock);
  Face* face = impl_->resolve(font.get());
  return face ? face->file : std::string();
}

FreeTypeTextEngine::CacheStatistics FreeTypeTextEngine::cache_statistics() const {
  std::lock_guard guard(impl_->lock);
  return {impl_->hits, impl_->misses};
}

ZR_Font FreeTypeTextEngine::prepare_font(ZR_Font* font) {
  std::lock_guard guard(impl_->lock);
  if (!font) {
    impl_->resolve(nullptr);
    return ZR_Font();
  }
  impl_->resolve(font->get());
  return *font;
}

void FreeTypeTextEngine::draw_unicode_text(ZR_Rendition* r, const ZR_Point* point,
                                           const unsigned short* text, int length) {
  std::lock_guard guard(impl_->lock);
  impl_->draw(r, point, text, length);
}

void FreeTypeTextEngine::draw_multibyte_text(ZR_Rendition* r, const ZR_Point* point,
                                             const unsigned char* text, int length) {
  std::vector<unsigned short> u(static_cast<std::size_t>(length > 0 ? length : 0) + 1);
  const int n = length > 0 ? mb::mbs_to_u16(u.data(), text, length) : 0;
  std::lock_guard guard(impl_->lock);
  impl_->draw(r, point, u.data(), n);
}

ZR_Contour_Set FreeTypeTextEngine::character_contour(ZR_Rendition* r, unsigned short character,
                                                     ZR_Character_Metrics* metrics) {
  std::lock_guard guard(impl_->lock);
  Face* face = impl_->face_of(r);
  if (metrics) *metrics = {};
  if (!face) return ZR_Contour_Set();
  const ZR_Text_Attributes& a = r->text_attributes();
  ZR_Contour_Set set = impl_->sized_outline(face, a, character);
  if (metrics) {
    double kx, ky;
    Impl::factors(face, a, kx, ky);
    metrics->advance = static_cast<float>(impl_->outline(face, character).advance * kx);
    if (set) {
      float l = 1e30f, b = 1e30f, rr = -1e30f, t = -1e30f;
      const ZR_Point* p = set->contour_points;
      int total = 0;
      for (int k = 0; k < set->contour_count; ++k) total += set->contour_sizes[k];
      for (int i = 0; i < total; ++i) {
        l = std::fmin(l, p[i].x);
        rr = std::fmax(rr, p[i].x);
        b = std::fmin(b, p[i].y);
        t = std::fmax(t, p[i].y);
      }
      metrics->left = l;
      metrics->bottom = b;
      metrics->right = rr;
      metrics->top = t;
    }
  }
  return set;
}

void FreeTypeTextEngine::font_metrics(ZR_Rendition* r, ZR_Font_Metrics* metrics) {
  std::lock_guard guard(impl_->lock);
  *metrics = {};
  Face* face = impl_->face_of(r);
  if (!face) {
    metrics->nominal_size = 1.0f;
    return;
  }
  metrics->nominal_size = face->units_per_em;
  metrics->ascent = face->ascender;
  metrics->descent = face->descender;
}

void FreeTypeTextEngine::measure_unicode_text(ZR_Rendition* r, const ZR_Point* start,
                                              const unsigned short* text, int length,
                                              ZR_Point* corners, int, ZR_Text_Detail* detail) {
  std::lock_guard guard(impl_->lock);
  impl_->measure(r, start, text, length > 0 ? length : 0, corners, detail);
}

void FreeTypeTextEngine::measure_multibyte_text(ZR_Rendition* r, const ZR_Point* start,
                                                const unsigned char* text, int length,
                                                ZR_Point* corners, int, ZR_Text_Detail* detail) {
  std::vector<unsigned short> u(static_cast<std::size_t>(length > 0 ? length : 0) + 1);
  const int n = length > 0 ? mb::mbs_to_u16(u.data(), text, length) : 0;
  std::lock_guard guard(impl_->lock);
  impl_->measure(r, start, u.data(), n, corners, detail);
  // Characters past a terminator inside `length` have no width.
  if (detail && detail->widths)
    for (int i = n; i < length; ++i) detail->widths[i] = 0.0f;
}

}  // namespace DL
