// The polygonal form of an ellipse: how many vectors at the current scale, the
// world points, and the iterator that walks them.
//
// The number of vectors grows with the square root of the larger device radius
// and in proportion to the sweep, so the chord error in device units stays
// about constant as the view zooms. The points are made about the origin in the
// square-pixel frame by ZP_Generate_Elliptical_Points and carried back to whole
// world units.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "displaylist/display_list.h"
#include "ellipse/ellipse.h"
#include "foundation/assert.h"

namespace DL {

namespace {

// -1/(2 pi) as a float, widened. Its product with the float 2 pi is just under
// 1, so a whole ellipse of device radius 100 has 40 vectors, not 41.
constexpr double kNegativeInverseTwoPi = -static_cast<double>(Ellipse::INVERSE_TWO_PI);

// A 64-bit sum brought back into the world range.
WorldCoord saturated_world(std::int64_t v) {
  return static_cast<WorldCoord>(std::clamp<std::int64_t>(
      v, PointTemplate<WorldCoord>::scalarMinimum, PointTemplate<WorldCoord>::scalarMaximum));
}

}  // namespace

int Ellipse::do_get_vector_count() const {
  DL_ASSERT(display_list && "ellipse vectors need the list's scale");
  const double sx = radii.x * display_list->scale.x;
  const double sy = radii.y * display_list->scale.y;
  const double r = std::max(sx, sy);
  const double sweep = static_cast<double>(end_angle()) - start_angle();
  const double v = std::sqrt(r) * 4.0 * sweep * kNegativeInverseTwoPi;
  // A negative r gives NaN, which truncates to 0 here, so the count is 2; a sweep
  // backwards gives a positive v and so 2 as well.
  const std::int64_t n = 1 - std::int64_t{truncate_to_int32_saturated(v)};
  return static_cast<int>(std::clamp<std::int64_t>(n, 2, kMaxEllipseVectors));
}

void Ellipse::generateVectors(ZR_DCI_Point*& points, int& count) const {
  DL_ASSERT(display_list && display_list->scale.y != 0.0 && "ellipse needs its list's scale");
  count = get_vector_count() + 1;
  points = static_cast<ZR_DCI_Point*>(
      DrawableVectorIterator::operator new(sizeof(ZR_DCI_Point) * static_cast<unsigned>(count)));
  if (!points) {
    count = 0;
    return;
  }
  // Worked in the square-pixel frame, freshly from the scale: the float cache
  // of the extent is not used here.
  const double aspect = display_list->scale.x / display_list->scale.y;
  const ZR_DCI_Point origin{0, 0, 0};
  const ZR_DCI_Point square_radii{truncate_to_int32_saturated(radii.x * aspect), radii.y, 0};
  ZP_Generate_Elliptical_Points(origin, square_radii, start_angle(), end_angle(), rotation, count,
                                points);
  for (int i = 0; i < count; ++i) {
    const std::int64_t x = truncate_to_int32_saturated(points[i].x / aspect);
    points[i].x = saturated_world(x + center.x);
    points[i].y = saturated_world(std::int64_t{points[i].y} + center.y);
  }
}

// ---------------------------------------------------------------------------
// DrawableVectorIteratorEllipse
// ---------------------------------------------------------------------------

DrawableVectorIteratorEllipse::DrawableVectorIteratorEllipse(Ellipse* e) {
  // The family is never fast: initialize reports false and sets at_end, which
  // this walk clears; only its counts are taken.
  initialize(e);
  at_end = false;
  segment_index = 0;
  point_buffer = nullptr;
  ellipse = e;
  segment_count = e->get_vector_count();
  get_vector(0);
}

DrawableVectorIteratorEllipse::~DrawableVectorIteratorEllipse() {
  DrawableVectorIterator::operator delete(point_buffer);
}

void DrawableVectorIteratorEllipse::get_vector(int index) {
  if (index == 0 && !point_buffer) {
    int generated = 0;
    ellipse->generateVectors(point_buffer, generated);
    DL_ASSERT((!point_buffer || generated == segment_count + 1) &&
              "the scale changed between counting and generating");
  }
  if (!point_buffer) {
    // No memory for the points: the walk has nothing to give.
    at_end = true;
    return;
  }
  vector.start = {point_buffer[index].x, point_buffer[index].y};
  vector.end = {point_buffer[index + 1].x, point_buffer[index + 1].y};
}

WorldVector* DrawableVectorIteratorEllipse::next() {
  if (!point_buffer) {
    at_end = true;
    return nullptr;
  }
  ++segment_index;
  if (segment_index >= segment_count) {
    segment_index = segment_count;
    at_end = true;
    return nullptr;
  }
  get_vector(segment_index);
  return &vector;
}

WorldVector* DrawableVectorIteratorEllipse::prev() {
  if (!point_buffer) {
    at_end = true;
    return nullptr;
  }
  --segment_index;
  if (segment_index < 0) {
    segment_index = 0;
    at_end = true;
    return nullptr;
  }
  get_vector(segment_index);
  return &vector;
}

}  // namespace DL
