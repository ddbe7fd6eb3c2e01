// Renditions and contour sets.
#include <cmath>
#include <cstring>

#include "foundation/rendering.h"

// ---------------------------------------------------------------------------
// Contour sets
// ---------------------------------------------------------------------------

ZR_Contour_Set_Data::~ZR_Contour_Set_Data() {
  ZP_ReleaseMemory(contour_sizes);
  ZP_ReleaseMemory(contour_points);
}

ZR_Contour_Set_Data* ZR_Contour_Set_Data::create(
    const std::vector<std::vector<ZR_Point>>& contours) {
  auto* set = new ZR_Contour_Set_Data;
  if (!set) return nullptr;
  std::size_t total = 0;
  for (const auto& c : contours) total += c.size();
  set->contour_count = static_cast<int>(contours.size());
  set->contour_sizes = static_cast<int*>(ZP_AllocateMemory(sizeof(int) * contours.size()));
  if (total)
    set->contour_points = static_cast<ZR_Point*>(ZP_AllocateMemory(sizeof(ZR_Point) * total));
  ZR_Point* out = set->contour_points;
  for (std::size_t i = 0; i < contours.size(); ++i) {
    set->contour_sizes[i] = static_cast<int>(contours[i].size());
    for (const ZR_Point& p : contours[i]) *out++ = p;
  }
  return set;
}

bool ZR_Contour_Set_Data::point_inside(float x, float y) const {
  bool inside = false;
  const ZR_Point* start = contour_points;
  for (int c = 0; c < contour_count; ++c) {
    int n = contour_sizes[c];
    for (int i = 0, j = n - 1; i < n; j = i++) {
      const ZR_Point& a = start[i];
      const ZR_Point& b = start[j];
      // The edge a-b crosses the horizontal line through y, and does so right of x.
      if ((a.y > y) != (b.y > y) && x < (b.x - a.x) * (y - a.y) / (b.y - a.y) + a.x)
        inside = !inside;
    }
    start += n;
  }
  return inside;
}

namespace {

// Cuts one closed contour to the rectangle, one side at a time.
std::vector<ZR_Point> cut_to_rectangle(std::vector<ZR_Point> poly, const ZR_Int_Rectangle& r) {
  struct Side {
    int axis;     // 0: x, 1: y
    float limit;  // the line
    bool keep_below;
  };
  const Side sides[4] = {{0, static_cast<float>(r.x_min), false},
                         {0, static_cast<float>(r.x_max), true},
                         {1, static_cast<float>(r.y_min), false},
                         {1, static_cast<float>(r.y_max), true}};
  for (const Side& s : sides) {
    if (poly.empty()) break;
    auto coord = [&](const ZR_Point& p) { return s.axis == 0 ? p.x : p.y; };
    auto inside = [&](const ZR_Point& p) {
      return s.keep_below ? coord(p) <= s.limit : coord(p) >= s.limit;
    };
    std::vector<ZR_Point> out;
    for (std::size_t i = 0; i < poly.size(); ++i) {
      const ZR_Point& cur = poly[i];
      const ZR_Point& prev = poly[(i + poly.size() - 1) % poly.size()];
      bool ci = inside(cur), pi = inside(prev);
      if (ci != pi) {
        float t = (s.limit - coord(prev)) / (coord(cur) - coord(prev));
        ZR_Point x{prev.x + t * (cur.x - prev.x), prev.y + t * (cur.y - prev.y), 0.0f};
        if (s.axis == 0)
          x.x = s.limit;
        else
          x.y = s.limit;
        out.push_back(x);
      }
      if (ci) out.push_back(cur);
    }
    poly = std::move(out);
  }
  return poly;
}

}  // namespace

// ---------------------------------------------------------------------------
// Rendition
// ---------------------------------------------------------------------------

ZR_Rendition ZR_Rendition::create() {
  auto* data = new ZR_Rendition_Data;
  data->line_attributes.reset(new ZR_Line_Attributes);
  data->face_attributes.reset(new ZR_Face_Attributes);
  data->text_attributes.reset(new ZR_Text_Attributes);
  return ZR_Rendition(data);
}

void ZR_Rendition::set_changed_color(ZR_RGB32 color, bool in_place) {
  make_mutable(*this, in_place)->color = color;
}

void ZR_Rendition::set_hard_clip(const ZR_Int_Rectangle& clip, bool in_place) {
  if (body_->hard_clip == clip) return;
  ZR_Rendition_Data* d = make_mutable(*this, in_place);
  d->hard_clip = clip;
  d->hard_complex_clip_valid = 0;
}

void ZR_Rendition::set_complex_clip(const ZR_Contour_Set* clip, bool in_place) {
  ZR_Contour_Set_Data* wanted = clip ? clip->get() : nullptr;
  if (body_->complex_clip.get() == wanted) return;
  ZR_Rendition_Data* d = make_mutable(*this, in_place);
  d->complex_clip.reset(wanted);
  d->hard_complex_clip_valid = 0;
}

void ZR_Rendition::validate_hard_complex_clip() {
  ZR_Rendition_Data* d = body_;
  const ZR_Contour_Set_Data* clip = d->complex_clip.get();
  const ZR_Int_Rectangle& r = d->hard_clip;
  if (!clip || (r.x_min == INT32_MIN && r.x_max == INT32_MAX && r.y_min == INT32_MIN &&
                r.y_max == INT32_MAX)) {
    d->hard_complex_clip.reset(d->complex_clip.get());
  } else {
    std::vector<std::vector<ZR_Point>> contours;
    const ZR_Point* p = clip->contour_points;
    for (int c = 0; c < clip->contour_count; ++c) {
      int n = clip->contour_sizes[c];
      std::vector<ZR_Point> cut = cut_to_rectangle(std::vector<ZR_Point>(p, p + n), r);
      if (!cut.empty()) contours.push_back(std::move(cut));
      p += n;
    }
    d->hard_complex_clip = ZR_Contour_Set::make(contours);
  }
  d->hard_complex_clip_valid = 1;
}

void ZR_Rendition::set_line_weight(int weight, bool in_place) {
  if (body_->line_attributes->line_weight == weight) return;
  make_mutable(make_mutable(*this, in_place)->line_attributes, in_place)->line_weight = weight;
}

void ZR_Rendition::set_face_mode(int mode, bool in_place) {
  if (body_->face_attributes->face_mode == mode) return;
  make_mutable(make_mutable(*this, in_place)->face_attributes, in_place)->face_mode = mode;
}

void ZR_Rendition::set_text_size(float size, bool in_place) {
  if (body_->text_attributes->size == size) return;
  make_mutable(make_mutable(*this, in_place)->text_attributes, in_place)->size = size;
}

void ZR_Rendition::set_text_rotation(float rotation, bool in_place) {
  if (body_->text_attributes->rotation == rotation) return;
  constexpr float kTurn = 6.2831854820251465f;
  float reduced = std::fmod(rotation, kTurn);
  if (reduced < 0.0f) reduced += kTurn;
  make_mutable(make_mutable(*this, in_place)->text_attributes, in_place)->rotation = reduced;
}

void ZR_Rendition::set_text_scale(float scale, bool in_place) {
  if (body_->text_attributes->scale == scale) return;
  make_mutable(make_mutable(*this, in_place)->text_attributes, in_place)->scale = scale;
}

void ZR_Rendition::set_text_font(const ZR_Font& font, bool in_place) {
  if (body_->text_attributes->font.get() == font.get()) return;
  // The handle's assignment references the new body before it releases the old.
  make_mutable(make_mutable(*this, in_place)->text_attributes, in_place)->font = font;
}
