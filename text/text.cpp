// Text: the record, its four tables, construction and copies, the string
// operations, the attribute step, search and dump.
#include "text/text.h"

#include <new>
#include <ostream>

#include "displaylist/display_list.h"
#include "foundation/assert.h"

namespace DL {

DL_DRAWABLE_DEFINE(Text);

constexpr Text::Table Text::rendition_form(Table t) {
  t.rendition = [](Drawable* d, DisplayList&) { return d->color.rendition(); };
  t.has_rendition = [](const Drawable*) { return true; };
  return t;
}

constinit const Text::Table Text::rendition_visible_table_ =
    rendition_form(Drawable::make_table<Text>(false, &Text::rendition_hidden_table_));
constinit const Text::Table Text::rendition_hidden_table_ =
    rendition_form(Drawable::make_table<Text>(true, &Text::rendition_visible_table_));

namespace {

// A font holder on the default heap, with its own reference on the body; null
// when allocation fails.
ZR_Font* make_font_holder(const ZR_Font& font) {
  void* block = ZP_AllocateMemory(sizeof(ZR_Font));
  return block ? new (block) ZR_Font(font) : nullptr;
}

const ZR_Font kNoFont;

}  // namespace

// ---------------------------------------------------------------------------
// Construction
// ---------------------------------------------------------------------------

Text::Text(const Table* t, const ColorData& c)
    : Drawable(t, c),
      display_list(nullptr),
      font(nullptr),
      text(nullptr),
      position{0.0, 0.0},
      text_height(0.0),
      rotation(0.0),
      bounds(WorldBounds::empty()) {}

Text::Text(const Table* t, const ColorData& c, const ZR_Font& f, DoublePoint p, double h, double r,
           WorldBounds b, DisplayList* list)
    : Drawable(t, c),
      display_list(list),
      font(make_font_holder(f)),
      text(nullptr),
      position(p),
      text_height(h),
      rotation(r),
      bounds(b) {}

Text::Text(const ZR_RGB32& c) : Text(&visible_table_, ColorData(c)) {}
Text::Text(ZR_Rendition* r) : Text(&rendition_visible_table_, ColorData(r)) {}

Text::Text(const ZR_RGB32& c, const ZR_Font& f, DoublePoint p, const char* s, int n, double h,
           double r, WorldBounds b, DisplayList* list, bool unicode)
    : Text(&visible_table_, ColorData(c), f, p, h, r, b, list) {
  text = new EncodedText(s, n, unicode);
}

Text::Text(const ZR_RGB32& c, const ZR_Font& f, DoublePoint p, const unsigned short* s, int n,
           double h, double r, WorldBounds b, DisplayList* list, bool unicode)
    : Text(&visible_table_, ColorData(c), f, p, h, r, b, list) {
  text = new EncodedText(s, n, unicode);
}

Text::Text(ZR_Rendition* rd, const ZR_Font& f, DoublePoint p, const char* s, int n, double h,
           double r, WorldBounds b, DisplayList* list, bool unicode)
    : Text(&rendition_visible_table_, ColorData(rd), f, p, h, r, b, list) {
  text = new EncodedText(s, n, unicode);
}

Text::Text(ZR_Rendition* rd, const ZR_Font& f, DoublePoint p, const unsigned short* s, int n,
           double h, double r, WorldBounds b, DisplayList* list, bool unicode)
    : Text(&rendition_visible_table_, ColorData(rd), f, p, h, r, b, list) {
  text = new EncodedText(s, n, unicode);
}

Text::Text(const Text& o) : Text(&visible_table_, o.color) {
  display_list = o.display_list;
  position = o.position;
  text_height = o.text_height;
  rotation = o.rotation;
  bounds = o.bounds;
  if (o.font) font = make_font_holder(*o.font);
  if (o.text) text = new EncodedText(*o.text);
}

Text::~Text() {
  delete text;
  if (font) {
    font->~ZR_Font();  // releases the body if the handle holds one
    ZP_ReleaseMemory(font);
  }
}

const ZR_Font& Text::font_handle() const {
  return font ? *font : kNoFont;
}

Drawable* Text::do_clone() const {
  Text* copy = new Text(*this);
  // Called from a visible table only (a hidden clone goes through its twin):
  // the copy takes the visible table of this form.
  if (copy && has_rendition()) copy->table = &rendition_visible_table_;
  return copy;
}

// ---------------------------------------------------------------------------
// Strings and attributes
// ---------------------------------------------------------------------------

void Text::do_set_text_string(const char* s, int n, bool unicode) {
  delete text;
  text = new EncodedText(s, n, unicode);
}

void Text::do_set_text_string(const unsigned short* s, int n, bool unicode) {
  delete text;
  text = new EncodedText(s, n, unicode);
}

namespace {
double y_factor(const DisplayList& list) {
  return list.use_device_transform ? list.device_scale.y : list.scale.y;
}
}  // namespace

WorldCoord Text::do_height(const DisplayList& list) const {
  return truncate_to_int32_saturated(y_factor(list) * text_height);
}

bool Text::do_set_text_attributes(DisplayList& list) {
  double size = y_factor(list) * text_height;
  if (size > 1e15) return false;
  if (size > 32767.0) size = 32767.0;
  ZR_Rendition* r = rendition(list);
  r->set_text_size(static_cast<float>(size), false);
  r->set_text_rotation(static_cast<float>(rotation), false);
  r->set_text_scale(1.0f, false);
  return true;
}

// ---------------------------------------------------------------------------
// Search and dump
// ---------------------------------------------------------------------------

bool Text::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  const auto* other = static_cast<const Text*>(search.pattern);
  if (other->text != text) {
    const bool empty_here = !text || text->length() == 0;
    const bool empty_there = !other->text || other->text->length() == 0;
    if (empty_here != empty_there) return false;
    if (!empty_here && !(*other->text == *text)) return false;
    // Two empty strings are alike in either form.
  }
  return other->bounds == bounds;
}

void Text::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_line(out, indent, "Text: level  ");
  count_dump(debug, sizeof(Text));
}

}  // namespace DL
