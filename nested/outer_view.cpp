// The outer view: the clip's classification of an entry's rectangle, and the
// size of images.
#include "nested/outer_view.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace DL {
namespace {

struct Rect {
  double x0, y0, x1, y1;
};

// Whether the segment a-b meets the rectangle (Liang-Barsky).
bool segment_meets(const ZR_Point& a, const ZR_Point& b, const Rect& r) {
  double t0 = 0, t1 = 1;
  const double dx = double(b.x) - a.x, dy = double(b.y) - a.y;
  const double p[4] = {-dx, dx, -dy, dy};
  const double q[4] = {a.x - r.x0, r.x1 - a.x, a.y - r.y0, r.y1 - a.y};
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0) {
      if (q[i] < 0) return false;
    } else {
      const double t = q[i] / p[i];
      if (p[i] < 0)
        t0 = std::max(t0, t);
      else
        t1 = std::min(t1, t);
      if (t0 > t1) return false;
    }
  }
  return true;
}

OuterView::Reach classify(const ZR_Contour_Set_Data& set, const Rect& r) {
  const ZR_Point* p = set.contour_points;
  if (!p) return OuterView::Reach::skip;  // a clip of no area shows nothing
  for (int c = 0; c < set.contour_count; ++c) {
    const int n = set.contour_sizes[c];
    for (int i = 0; i < n; ++i)
      if (segment_meets(p[i], p[(i + 1) % n], r)) return OuterView::Reach::cut;
    p += std::max(n, 0);
  }
  // No edge meets the rectangle: it lies wholly on one side of the clip.
  return set.point_inside(static_cast<float>(r.x0), static_cast<float>(r.y0))
             ? OuterView::Reach::none
             : OuterView::Reach::skip;
}

}  // namespace

OuterView::Reach OuterView::reach(const ZR_Rendition* rendition, int margin) {
  if (!source_ || !*source_ || rendition == source_) return Reach::none;
  ZR_Contour_Set_Data* set = source_->get()->complex_clip.get();
  if (!set) return Reach::none;  // lifted here, or never set
  const ZR_Rendition_Data* data = rendition && *rendition ? rendition->get() : nullptr;
  const ZR_Int_Rectangle whole = {INT32_MIN, INT32_MAX, INT32_MIN, INT32_MAX};
  const ZR_Int_Rectangle& h = data ? data->hard_clip : whole;
  if (set == cached_.get() && h == rect_ && margin == margin_) return reach_;
  cached_ = source_->get()->complex_clip;
  rect_ = h;
  margin_ = margin;
  if (h.x_max < h.x_min || h.y_max < h.y_min) {
    reach_ = Reach::skip;  // the entry's own clip shows nothing
  } else {
    const double m = 0.5 + std::max(margin, 0);
    reach_ = classify(*set, {h.x_min - m, h.y_min - m, h.x_max + m, h.y_max + m});
  }
  return reach_;
}

void OuterView::image_size(const ZR_Image_Data& image, double& width, double& height) const {
  width = image.width;
  height = image.height;
  if (!list_ || !(image.world_width > 0) || !(image.world_height > 0)) return;
  const double w = image.world_width * std::fabs(list_->scale.x);
  const double h = image.world_height * std::fabs(list_->scale.y);
  if (std::isfinite(w) && std::isfinite(h)) width = w, height = h;
}

}  // namespace DL
