// Text: one string at one place, in one font, at one height and angle. It shapes
// and rasterises nothing: the text engine of the display list (`ZR_Text_Engine`)
// measures, outlines and draws the string, and Text keeps what the tree needs,
// above all the world rectangle `bounds` that its creator worked out.
//
// Forms and tables
// ----------------
// Two visible forms share one record: the RGB form (`color` holds a colour; the
// draws use the list's rendition with that colour set) and the rendition form
// (`color` holds a `ZR_Rendition*`, not counted and not owned, which the draws
// use as it is). Each has a hidden twin, so Text has four tables: the RGB pair
// made from Text's own members, and the rendition pair made the same way with
// `rendition` and `has_rendition` replaced. A Text changes only between
// visible and hidden, never between the forms.
//
// Behind the drawable operations every table carries the operations of Text
// (`TextTable`), so that a host may replace them in a derived table.
//
// Choices where the behaviour is open
// -----------------------------------
// - `remove` matches a pattern Text with like characters (same form, same
//   length, same characters, by `EncodedText::operator==`) and equal `bounds`,
//   as a user who builds a pattern from the same string expects; a pattern that
//   shares the stored string record matches too, of course. A null string and
//   an empty one are alike.
// - An empty string (no record, or length 0) never reaches the engine's draw
//   entries (`draw_multibyte_text`, `draw_unicode_text`): there is nothing to
//   show. The calls before them still run (`prepare_font`, the attribute
//   step, the rendition's font), so an engine sees an empty string prepared
//   like any other. `accumulated_normalized_widths` has no element to fill
//   and calls no measure entry; `get_text_bbox` measures a string of length
//   0 through the engine, which places the empty box; the vector walk ends at
//   once.
// - A Text made by the empty constructors (no list, font or string) draws as
//   an empty string through the list it is drawn in. It has no list of its own
//   and so no engine to measure with; its measures touch none:
//   `get_text_bbox` gives four corners at `position`, `get_character_contour`
//   a null handle with `next_origin` = `origin`, and the vector walk ends at
//   once. A Text with characters needs a list with a text engine for its
//   measures, outlines and vector walk (asserted); a release build without one
//   measures it as that empty Text does, its widths all 0.
// - If the holder of the font or the string cannot be allocated, the field
//   stays null and the Text behaves as an empty string.
// - The field the text height is kept in is `text_height`: `height` is the
//   operation that gives it in drawing units.
#pragma once

#include "drawables/drawable.h"
#include "drawables/vector_iterator.h"
#include "text/encoded_text.h"

namespace DL {

class Text;

// The table of a Text class: the drawable operations and then those of Text, in
// this order. Every entry is set in all four tables.
struct TextTable : DrawableTable {
  // Replaces the string by a new record made from a multibyte or a 16-bit
  // source; `bounds` stays and the tree is not told.
  void (*set_text_string_mb)(Text*, const char* text, int length, bool unicode);
  void (*set_text_string_u16)(Text*, const unsigned short* text, int length,
                              bool unicode);  // see set_text_string_mb
  // The attribute step of every draw and measure: size, rotation and scale on
  // the rendition; false when the text is too high to draw.
  bool (*set_text_attributes)(Text*, DisplayList&);
  // Height in drawing units below which the vector walk greeks: 75 on the
  // device transform, 5 otherwise.
  WorldCoord (*greeking_height)(const Text*, bool device);
  // Whether a text `height` drawing units high is greeked (below greeking_height).
  bool (*is_text_greeked)(const Text*, WorldCoord height, bool device);
  // The text height in drawing units, truncated toward zero (saturating).
  WorldCoord (*height)(const Text*, const DisplayList&);
  // The entries of the measures below (see Text::accumulated_normalized_widths,
  // get_text_bbox, get_character_bbox, get_character_contour).
  void (*accumulated_normalized_widths)(Text*, float* widths);
  // See Text::get_text_bbox.
  void (*get_text_bbox)(Text*, DoublePoint* box);
  // See Text::get_character_bbox.
  void (*get_character_bbox)(const Text*, int index, const float* widths, const DoublePoint& origin,
                             const DoublePoint* box, DoublePoint* character_box,
                             DoublePoint& next_origin);
  // See Text::get_character_contour.
  ZR_Contour_Set (*get_character_contour)(Text*, int index, const float* widths,
                                          const DoublePoint& origin, const DoublePoint* box,
                                          DoublePoint& next_origin, ZR_Matrix& matrix);
};

// 120 bytes on a 64-bit host: the drawable part (32), list, font holder and
// string pointers (24), position (16), height and rotation (16), bounds (16),
// and the padding of the table pointer's alignment. The font holder (8 bytes)
// and the string record (16 bytes plus the characters) live on the default heap.
class Text : public Drawable {
 public:
  using Table = TextTable;  // the class's table of operations
  DL_DRAWABLE(Text);

 public:
  // The rendition form's tables.
  static const Table rendition_visible_table_;
  static const Table rendition_hidden_table_;  // see rendition_visible_table_

  // -- The record ------------------------------------------------------------
  DisplayList* display_list;  // the list the text belongs to; not owned, not counted
  ZR_Font* font;              // holder of one counted font handle; owned; may be null
  EncodedText* text;          // the string; owned; may be null
  DoublePoint position;       // anchor point, world coordinates
  double text_height;         // height in world units
  double rotation;            // radians
  WorldBounds bounds;         // world rectangle from the creator; never computed here

  // Empty texts: no list, font or string, zero position, height and rotation,
  // empty bounds.
  explicit Text(const ZR_RGB32& color);
  // The same in rendition form.
  explicit Text(ZR_Rendition* rendition);
  // The full forms. `unicode` chooses the form the string is stored in,
  // whichever form `text` comes in; `length` counts characters and may include
  // one terminator.
  Text(const ZR_RGB32& color, const ZR_Font& font, DoublePoint position, const char* text,
       int length, double height, double rotation, WorldBounds bounds, DisplayList* list,
       bool unicode);
  // The full form in RGB, from 16-bit characters.
  Text(const ZR_RGB32& color, const ZR_Font& font, DoublePoint position, const unsigned short* text,
       int length, double height, double rotation, WorldBounds bounds, DisplayList* list,
       bool unicode);
  // The full form in rendition form, from a multibyte string.
  Text(ZR_Rendition* rendition, const ZR_Font& font, DoublePoint position, const char* text,
       int length, double height, double rotation, WorldBounds bounds, DisplayList* list,
       bool unicode);
  // The full form in rendition form, from 16-bit characters.
  Text(ZR_Rendition* rendition, const ZR_Font& font, DoublePoint position,
       const unsigned short* text, int length, double height, double rotation, WorldBounds bounds,
       DisplayList* list, bool unicode);
  // Deep copy in RGB form, no sibling, no layer, a further reference on the
  // same font body.
  Text(const Text& other);
  ~Text();

  // -- Operations of Text (through the table) ----------------------------------
  const TextTable* text_table() const { return static_cast<const TextTable*>(table); }

  // Replaces the string by one made from a multibyte source; `unicode`
  // chooses the form stored. `bounds` stays and the tree is not told.
  void set_text_string(const char* s, int length, bool unicode) {
    text_table()->set_text_string_mb(this, s, length, unicode);
  }
  // The same from 16-bit characters.
  void set_text_string(const unsigned short* s, int length, bool unicode) {
    text_table()->set_text_string_u16(this, s, length, unicode);
  }
  // Sets size (the height in drawing units, at most 32767), rotation and scale
  // 1.0 on rendition(list), copying shared bodies. Returns false, touching
  // nothing, when the height in drawing units is above 1e15. There is no lower
  // limit: a negative transform factor gives a negative size.
  bool set_text_attributes(DisplayList& list) {
    return text_table()->set_text_attributes(this, list);
  }
  // Height in drawing units below which the vector walk greeks: 75 on the
  // device transform, 5 otherwise.
  WorldCoord greeking_height(bool device) const {
    return text_table()->greeking_height(this, device);
  }
  // True when `height` is below greeking_height(device).
  bool is_text_greeked(WorldCoord height, bool device) const {
    return text_table()->is_text_greeked(this, height, device);
  }
  // The y factor of the transform in force times the height, truncated toward
  // zero; before the limits of set_text_attributes.
  WorldCoord height(const DisplayList& list) const { return text_table()->height(this, list); }

  // Element i becomes the part of the string's length up to the end of
  // character i, measured at the font's nominal size: rising, the last 1.0
  // (all zeros for a string without width). `widths` has one element per
  // character. Reaches the engine through `display_list`.
  void accumulated_normalized_widths(float* widths) {
    text_table()->accumulated_normalized_widths(this, widths);
  }
  // The four world corners of the string, in the engine's order: box[0] to
  // box[1] the lower edge in writing direction, box[3] to box[2] the upper
  // edge. Measures with the size and rotation the rendition holds now, so the
  // attribute step must have run before.
  void get_text_bbox(DoublePoint* box) { text_table()->get_text_bbox(this, box); }
  // The four corners of character `index` from `box` and `widths` alone, and
  // `origin` moved along the lower edge by the character's width. No engine.
  void get_character_bbox(int index, const float* widths, const DoublePoint& origin,
                          const DoublePoint* box, DoublePoint* character_box,
                          DoublePoint& next_origin) const {
    text_table()->get_character_bbox(this, index, widths, origin, box, character_box, next_origin);
  }
  // The outline of character `index` in text point units around its origin,
  // unrotated, with `matrix` set to rotate it by `rotation` and move it to the
  // text point of `origin`; `next_origin` is `origin` moved by the advance along
  // the writing direction of `box`. A null handle for a character without an
  // outline. `widths` is not read.
  ZR_Contour_Set get_character_contour(int index, const float* widths, const DoublePoint& origin,
                                       const DoublePoint* box, DoublePoint& next_origin,
                                       ZR_Matrix& matrix) {
    return text_table()->get_character_contour(this, index, widths, origin, box, next_origin,
                                               matrix);
  }

  // The engine of the list the text was made with, or null (the empty
  // constructors, or a list without one; see the file comment). Asserts that a
  // text with characters has one.
  ZR_Text_Engine* measuring_engine() const;

  template <class U>
  // Fills the Text entries of a table of class U (visible or hidden).
  static constexpr void fill_extra_entries(Table& t, bool hidden);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  // In a selection traversal a text stands for its bounds: one filled strip,
  // no engine call, also when hidden.
  void do_draw_unclipped_selection(DisplayList& list) { draw_bounds_unclipped(list); }
  void do_draw_clipped_selection(DisplayList& list) { draw_bounds_clipped(list); }
  void do_add_bounds(WorldBounds& b) const { b.merge(bounds); }
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  bool do_supports_fast_vector_iterator() const { return false; }
  int do_get_vector_count() const { return 1; }
  DrawableVectorIterator* do_create_vector_iterator(bool bounds_figure);
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;

  void do_set_text_string(const char* s, int length, bool unicode);
  void do_set_text_string(const unsigned short* s, int length, bool unicode);
  bool do_set_text_attributes(DisplayList& list);
  WorldCoord do_greeking_height(bool device) const { return device ? 75 : 5; }
  bool do_is_text_greeked(WorldCoord h, bool device) const { return h < greeking_height(device); }
  WorldCoord do_height(const DisplayList& list) const;
  void do_accumulated_normalized_widths(float* widths);
  void do_get_text_bbox(DoublePoint* box);
  void do_get_character_bbox(int index, const float* widths, const DoublePoint& origin,
                             const DoublePoint* box, DoublePoint* character_box,
                             DoublePoint& next_origin) const;
  ZR_Contour_Set do_get_character_contour(int index, const float* widths, const DoublePoint& origin,
                                          const DoublePoint* box, DoublePoint& next_origin,
                                          ZR_Matrix& matrix);

 private:
  Text(const Table* table, const ColorData& color);
  Text(const Table* table, const ColorData& color, const ZR_Font& font, DoublePoint position,
       double height, double rotation, WorldBounds bounds, DisplayList* list);
  // The rendition form's pair: `rendition` gives the stored pointer.
  static constexpr Table rendition_form(Table t);
  // Draws with `r` from step one of the unclipped draw on.
  void draw_with(DisplayList& list, ZR_Rendition* r);
  // The string's form and characters for the engine; an empty string when
  // there is no record.
  bool is_unicode() const { return text && text->isUnicode(); }
  int string_length() const { return text ? text->length() : 0; }
  // The font handle to hand to the rendition: the held one, or an empty one.
  const ZR_Font& font_handle() const;
};

template <class U>
constexpr void Text::fill_extra_entries(Table& t, bool) {
  t.set_text_string_mb = [](Text* x, const char* s, int n, bool u) {
    static_cast<U*>(x)->do_set_text_string(s, n, u);
  };
  t.set_text_string_u16 = [](Text* x, const unsigned short* s, int n, bool u) {
    static_cast<U*>(x)->do_set_text_string(s, n, u);
  };
  t.set_text_attributes = [](Text* x, DisplayList& l) {
    return static_cast<U*>(x)->do_set_text_attributes(l);
  };
  t.greeking_height = [](const Text* x, bool d) {
    return static_cast<const U*>(x)->do_greeking_height(d);
  };
  t.is_text_greeked = [](const Text* x, WorldCoord h, bool d) {
    return static_cast<const U*>(x)->do_is_text_greeked(h, d);
  };
  t.height = [](const Text* x, const DisplayList& l) {
    return static_cast<const U*>(x)->do_height(l);
  };
  t.accumulated_normalized_widths = [](Text* x, float* w) {
    static_cast<U*>(x)->do_accumulated_normalized_widths(w);
  };
  t.get_text_bbox = [](Text* x, DoublePoint* b) { static_cast<U*>(x)->do_get_text_bbox(b); };
  t.get_character_bbox = [](const Text* x, int i, const float* w, const DoublePoint& o,
                            const DoublePoint* b, DoublePoint* cb, DoublePoint& n) {
    static_cast<const U*>(x)->do_get_character_bbox(i, w, o, b, cb, n);
  };
  t.get_character_contour = [](Text* x, int i, const float* w, const DoublePoint& o,
                               const DoublePoint* b, DoublePoint& n, ZR_Matrix& m) {
    return static_cast<U*>(x)->do_get_character_contour(i, w, o, b, n, m);
  };
}

// Walks a Text as world vectors: the outline edges of each character, the four
// edges of the text box when the text is greeked, or, asked for the bounds
// figure, eight fixed vectors on `bounds` without touching the engine (the
// rectangle, its two centre lines, its two diagonals).
//
// A new iterator stands on its first vector; `next` gives the following ones
// and null at the end; `prev` always gives null. The Text must outlive the
// iterator and keep its string meanwhile. Each character's outline is fetched
// once, on its first edge; a character without one (a space) yields no vector
// but still moves the origin on. Coordinates below 0 come out as 0 and above
// the 32-bit range as 2147483647.
//
// Choices: an empty string ends the walk at once (greeked or not); a first
// character without an outline is passed over by the constructor too, so that
// the iterator stands on a real vector or is at its end; a contour set without
// contours counts as no outline.
class DrawableVectorIteratorText : public DrawableVectorIterator {
 public:
  // A walk over the vectors of `text`: the outlines of its characters, or the
  // fixed figure on its `bounds` when `bounds_figure` is true.
  DrawableVectorIteratorText(Text* text, bool bounds_figure);
  ~DrawableVectorIteratorText() override;

  WorldVector* next() override;
  WorldVector* prev() override { return nullptr; }

  int step = 0;                              // vector within the present stage or character
  int stage = 0;                             // 0: text box; 2: outlines
  int character = 0;                         // the present character
  bool greeked = false;                      // too small at construction
  int contour_index = 0;                     // present contour of the character
  int contour_total = 0;                     // points of all its contours
  ZR_Contour_Set contour;                    // outline of the present character; counted
  Text* text;                                // not owned
  int contour_count = 0;                     // contours of the present character
  const int* contour_sizes = nullptr;        // belongs to `contour`
  int contour_start = 0;                     // first point of the present contour
  int contour_point = 0;                     // present point within it
  int contour_size = 0;                      // points of the present contour
  const ZR_Point* contour_points = nullptr;  // belongs to `contour`
  bool bounds_figure;                        // the fixed figure on `bounds`
  DoublePoint text_box[4] = {};              // from get_text_bbox
  DoublePoint origin = {};                   // world origin of the present character
  ZR_Matrix matrix;                          // from get_character_contour; counted
  float* widths = nullptr;                   // one per character; owned

 private:
  // Loads `vector` for (stage, character, step); false when the character has
  // no outline.
  bool load();
  // Steps on until a vector loads or the walk ends; null at the end.
  WorldVector* advance();
  void load_figure();
};

}  // namespace DL
