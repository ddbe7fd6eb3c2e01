// Text as world vectors: the outline of one character in place, and the
// iterator that walks a whole string's outlines, its box, or the bounds figure.
#include <cmath>

#include "displaylist/display_list.h"
#include "foundation/assert.h"
#include "text/text.h"

namespace DL {

ZR_Contour_Set Text::do_get_character_contour(int index, const float*, const DoublePoint& origin,
                                              const DoublePoint* box, DoublePoint& next_origin,
                                              ZR_Matrix& matrix) {
  ZR_Text_Engine* measurer = measuring_engine();
  if (!measurer) {
    matrix.set_identity();
    next_origin = origin;
    return ZR_Contour_Set();
  }
  ZR_Handle<ZR_Text_Engine> engine(measurer);
  ZR_Rendition* r = rendition(*display_list);
  // The outline comes unrotated: the matrix turns it.
  const float noted_rotation = r->text_attributes().rotation;
  r->set_text_rotation(0.0f, true);
  r->set_text_font(font_handle(), true);
  unsigned short character = 0;
  if (text && text->length() > 0)
    character = text->isUnicode() ? text->unicodeCharacter(index) : text->multiByteCharacter(index);
  ZR_Character_Metrics metrics{};
  ZR_Contour_Set contour = engine->character_contour(r, character, &metrics);
  r->set_text_rotation(noted_rotation, true);

  matrix.set_identity();
  if (rotation != 0.0) matrix.rotate(0.0f, 0.0f, static_cast<float>(rotation));
  // The advance in world units, rotation taken into account.
  const ZR_Point advance_in = {metrics.advance, 0.0f, 0.0f};
  ZR_Point advance_out;
  matrix.transform(1, &advance_in, &advance_out);
  DoublePoint a, zero;
  display_list->text_point_to_world(advance_out, a);
  display_list->text_point_to_world(ZR_Point{0.0f, 0.0f, 0.0f}, zero);
  const double d = std::sqrt((a.x - zero.x) * (a.x - zero.x) + (a.y - zero.y) * (a.y - zero.y));
  // Along the writing direction of the box; a box without length moves nothing.
  const double dx = box[1].x - box[0].x, dy = box[1].y - box[0].y;
  const double e = std::sqrt(dx * dx + dy * dy);
  const double k = e > 0.0 ? d / e : 0.0;
  next_origin = {origin.x + dx * k, origin.y + dy * k};

  ZR_Point p;
  display_list->world_to_text_point(origin, p);
  matrix.translate(p.x, p.y, 0.0f);
  return contour;
}

DrawableVectorIterator* Text::do_create_vector_iterator(bool bounds_figure) {
  return new DrawableVectorIteratorText(this, bounds_figure);
}

// ---------------------------------------------------------------------------
// DrawableVectorIteratorText
// ---------------------------------------------------------------------------

namespace {

// A world coordinate of an outline point: below 0 gives 0, above the 32-bit
// range 2147483647, otherwise truncated toward zero.
WorldCoord to_vector_coordinate(double v) {
  if (v > 2147483647.0) return 2147483647;
  if (!(v >= 0.0)) return 0;
  return static_cast<WorldCoord>(v);
}

}  // namespace

DrawableVectorIteratorText::DrawableVectorIteratorText(Text* t, bool figure)
    : text(t), bounds_figure(figure) {
  drawable = t;
  at_end = false;
  if (bounds_figure) {
    load_figure();
    return;
  }
  // No list to measure with: the walk of an empty string (see Text).
  if (!text->measuring_engine()) {
    at_end = true;
    return;
  }
  DisplayList& list = *text->display_list;
  if (!text->set_text_attributes(list)) {
    at_end = true;
    return;
  }
  ZR_Handle<ZR_Text_Engine> engine(list.text_engine);
  engine->prepare_font(text->font);
  greeked = text->is_text_greeked(text->height(list), list.use_device_transform);
  stage = greeked ? 0 : 2;
  const int n = text->text ? text->text->length() : 0;
  if (n == 0) {
    at_end = true;
    return;
  }
  widths = static_cast<float*>(ZP_AllocateMemory(sizeof(float) * static_cast<std::size_t>(n)));
  if (!widths) {
    at_end = true;
    return;
  }
  text->accumulated_normalized_widths(widths);
  text->get_text_bbox(text_box);
  if (!load()) advance();
}

DrawableVectorIteratorText::~DrawableVectorIteratorText() {
  ZP_ReleaseMemory(widths);
}

void DrawableVectorIteratorText::load_figure() {
  const WorldBounds& b = text->bounds;
  // The centre, in signed integers truncated toward zero, without overflow.
  const WorldCoord mx = static_cast<WorldCoord>((std::int64_t{b.min.x} + b.max.x) / 2);
  const WorldCoord my = static_cast<WorldCoord>((std::int64_t{b.min.y} + b.max.y) / 2);
  const WorldVector figure[8] = {
      {{b.min.x, b.min.y}, {b.max.x, b.min.y}}, {{b.max.x, b.min.y}, {b.max.x, b.max.y}},
      {{b.max.x, b.max.y}, {b.min.x, b.max.y}}, {{b.min.x, b.max.y}, {b.min.x, b.min.y}},
      {{mx, b.min.y}, {mx, b.max.y}},           {{b.min.x, my}, {b.max.x, my}},
      {{b.min.x, b.min.y}, {b.max.x, b.max.y}}, {{b.min.x, b.max.y}, {b.max.x, b.min.y}},
  };
  vector = figure[step];
}

bool DrawableVectorIteratorText::load() {
  if (stage == 0) {
    const DoublePoint& a = text_box[step];
    const DoublePoint& b = text_box[(step + 1) % 4];
    vector = {{to_vector_coordinate(a.x), to_vector_coordinate(a.y)},
              {to_vector_coordinate(b.x), to_vector_coordinate(b.y)}};
    return true;
  }
  if (step == 0) {
    contour_total = 0;
    contour.clear();
    if (character == 0) origin = text->position;
    DoublePoint next;
    contour = text->get_character_contour(character, widths, origin, text_box, next, matrix);
    origin = next;
    if (!contour || contour->contour_count <= 0) return false;
    contour_points = contour->contour_points;
    contour_count = contour->contour_count;
    contour_sizes = contour->contour_sizes;
    for (int i = 0; i < contour_count; ++i) contour_total += contour_sizes[i];
    contour_start = contour_index = contour_point = 0;
    contour_size = contour_sizes[0];
  } else {
    ++contour_point;
  }
  // On to the next contour; contours without points are passed over.
  while (contour_point >= contour_size) {
    contour_point = 0;
    contour_start += contour_size;
    if (++contour_index >= contour_count) return false;
    contour_size = contour_sizes[contour_index];
  }
  ZR_Point in[2] = {contour_points[contour_start + contour_point],
                    contour_points[contour_start + (contour_point + 1) % contour_size]};
  ZR_Point out[2];
  matrix.transform(2, in, out, 0.0f);
  DoublePoint a, b;
  text->display_list->text_point_to_world(out[0], a);
  text->display_list->text_point_to_world(out[1], b);
  vector = {{to_vector_coordinate(a.x), to_vector_coordinate(a.y)},
            {to_vector_coordinate(b.x), to_vector_coordinate(b.y)}};
  return true;
}

WorldVector* DrawableVectorIteratorText::advance() {
  const int length = text->text ? text->text->length() : 0;
  for (;;) {
    ++step;
    if (stage == 0) {
      if (step >= 4) at_end = true;
    } else if (step >= contour_total) {
      ++character;
      step = 0;
      if (character >= length) at_end = true;
    }
    if (at_end) return nullptr;
    if (load()) return &vector;
  }
}

WorldVector* DrawableVectorIteratorText::next() {
  if (bounds_figure) {
    if (at_end) return nullptr;
    if (++step >= 8) {
      at_end = true;
      step = 7;
      return nullptr;
    }
    load_figure();
    return &vector;
  }
  if (at_end) return nullptr;
  return advance();
}

}  // namespace DL
