// The rendering component: what the display list hands its primitives to.
//
// Device values, the rendition (drawing state with copy-on-write attribute
// bodies), contour sets, the renderer with its table of action entries and its
// options, matrices, fonts, images, the text engine interface, and the
// generator of elliptical points. Real output devices implement a renderer (and
// a text engine); the display list only calls them.
//
// Names follow the component's own convention: types begin with ZR_, free
// functions with ZP_. Everything here is in the global namespace.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/zephal.h"

// ---------------------------------------------------------------------------
// Values
// ---------------------------------------------------------------------------

// A device point: x and y in device units, z always 0 from the display list.
struct ZR_DCI_Point {
  int x;  // device units, growing to the right
  int y;  // device units, growing as the device's y does
  int z;  // 0 from the display list
  // Equal when all three coordinates are.
  friend constexpr bool operator==(const ZR_DCI_Point&, const ZR_DCI_Point&) = default;
};

// A float point: text points, contour points.
struct ZR_Point {
  float x;  // first coordinate
  float y;  // second coordinate
  float z;  // third coordinate; 0 for text and contour points
  // Equal when all three coordinates are.
  friend constexpr bool operator==(const ZR_Point&, const ZR_Point&) = default;
};

// A direction or a difference of points, in the units of the points.
struct ZR_Vector {
  float x;  // first component
  float y;  // second component
  float z;  // third component
};

// A colour in one word: 0x00RRGGBB; the top byte is the host's.
using ZR_RGB32 = std::uint32_t;

// A device rectangle, inclusive, in this order: x minimum, x maximum, y minimum,
// y maximum (not the order of the display list's rectangles).
struct ZR_Int_Rectangle {
  int x_min;  // leftmost column inside
  int x_max;  // rightmost column inside
  int y_min;  // lowest device y inside
  int y_max;  // highest device y inside
  // Equal when all four bounds are.
  friend constexpr bool operator==(const ZR_Int_Rectangle&, const ZR_Int_Rectangle&) = default;
};

// Three 32-bit words per vertex, handed to textured triangles unread.
struct ZR_Vertex_Parameters {
  std::uint32_t word[3];  // the host's words, passed through
};

// A string of the component, for option names.
class ZR_String {
 public:
  // The empty string.
  ZR_String() = default;
  // A copy of `text`.
  explicit ZR_String(std::string_view text) : text_(text) {}
  // The characters.
  const std::string& text() const { return text_; }
  // Equal when the characters are.
  friend bool operator==(const ZR_String&, const ZR_String&) = default;

 private:
  std::string text_;
};

// ---------------------------------------------------------------------------
// Contour sets
// ---------------------------------------------------------------------------

// Closed polygon contours in screen coordinates: `contour_count` contours of
// `contour_sizes[i]` points each, the points of all contours one after the other
// in `contour_points`. Only x and y of a point are used. Immutable once made.
class ZR_Contour_Set_Data : public ZR_Counted {
 public:
  int contour_count = 0;               // contours in the set
  int* contour_sizes = nullptr;        // owned, `contour_count` ints
  ZR_Point* contour_points = nullptr;  // owned, the sum of the sizes; null when that is 0

  // Frees the sizes and the points.
  ~ZR_Contour_Set_Data() override;

  // Whether (x, y) lies inside, by the even-odd rule over all contours: a point
  // inside a hole of a shape is outside. Points on an edge may go either way.
  bool point_inside(float x, float y) const;

  // A new, unshared set holding `contours`; null only when out of memory.
  static ZR_Contour_Set_Data* create(const std::vector<std::vector<ZR_Point>>& contours);
};

// A counted handle on a contour set; null for none.
class ZR_Contour_Set : public ZR_Handle<ZR_Contour_Set_Data> {
 public:
  using ZR_Handle::ZR_Handle;
  // A set made of the given contours.
  static ZR_Contour_Set make(const std::vector<std::vector<ZR_Point>>& contours) {
    return ZR_Contour_Set(ZR_Contour_Set_Data::create(contours));
  }
};

// ---------------------------------------------------------------------------
// Fonts and images
// ---------------------------------------------------------------------------

// A font as the text engine knows it: a family name and, where the engine loads
// files, the path of the face.
class ZR_Font_Data : public ZR_Counted {
 public:
  ZR_String name;    // family name or the engine's pattern
  std::string file;  // path of the face's file; empty when found by name
};
// A counted handle on a font; null for the engine's default face.
class ZR_Font : public ZR_Handle<ZR_Font_Data> {
 public:
  using ZR_Handle::ZR_Handle;
};

// Pixels of an image, row by row from the top, `width` by `height`, and the
// extent of the world it covers. The display list hands a renderer only the
// image's top-left corner; the renderer scales the pixels to `world_width` by
// `world_height` world units under the view's scale, or paints one device
// unit per pixel when either is 0.
class ZR_Image_Data : public ZR_Counted {
 public:
  int width = 0;                 // pixels in a row
  int height = 0;                // rows
  std::vector<ZR_RGB32> pixels;  // width * height colours, row by row from the top
  double world_width = 0;        // world units the image spans left to right; 0: unknown
  double world_height = 0;       // world units it spans top to bottom; 0: unknown
};
// A counted handle on an image; null for none.
class ZR_Image : public ZR_Handle<ZR_Image_Data> {
 public:
  using ZR_Handle::ZR_Handle;
};

// ---------------------------------------------------------------------------
// Rendition
// ---------------------------------------------------------------------------

// How lines are drawn: a copy-on-write part of the rendition.
class ZR_Line_Attributes : public ZR_Body {
 public:
  int line_weight = 1;  // width of lines in device units
  ZR_Body* clone() const override { return new ZR_Line_Attributes(*this); }
};

// How filled faces are drawn: a copy-on-write part of the rendition.
class ZR_Face_Attributes : public ZR_Body {
 public:
  int face_mode = 0;  // 64: filled triangle strips get a one-unit border
  ZR_Body* clone() const override { return new ZR_Face_Attributes(*this); }
};

// How text is drawn: a copy-on-write part of the rendition.
class ZR_Text_Attributes : public ZR_Body {
 public:
  float size = 0.0f;      // text height in drawing units
  float rotation = 0.0f;  // radians, kept in [0, 2pi)
  float scale = 1.0f;     // width factor
  ZR_Font font;           // the face; null for the engine's default
  ZR_Body* clone() const override { return new ZR_Text_Attributes(*this); }
};

// The drawing state behind a rendition handle. Every field is read freely; it is
// written only through the setters of `ZR_Rendition`, which copy on write.
class ZR_Rendition_Data : public ZR_Body {
 public:
  ZR_RGB32 color = 0;  // what entries without a colour of their own paint in
  // Device rectangle that output is cut to; the whole plane by default.
  ZR_Int_Rectangle hard_clip = {INT32_MIN, INT32_MAX, INT32_MIN, INT32_MAX};
  // Contours in screen coordinates that output is cut to; null for none.
  ZR_Contour_Set complex_clip;
  // `complex_clip` cut to `hard_clip`: what the device really clips to. Kept up to
  // date by `validate_hard_complex_clip` when `hard_complex_clip_valid` is 0.
  ZR_Contour_Set hard_complex_clip;
  unsigned char hard_complex_clip_valid = 0;      // 1 when `hard_complex_clip` is up to date
  ZR_Handle<ZR_Line_Attributes> line_attributes;  // line weight, shared until written
  ZR_Handle<ZR_Face_Attributes> face_attributes;  // face mode, shared until written
  ZR_Handle<ZR_Text_Attributes>
      text_attributes;  // size, rotation, scale, font, shared until written

  ZR_Body* clone() const override { return new ZR_Rendition_Data(*this); }
};

// A one-pointer handle on the drawing state. Each setter compares first and does
// nothing when the value is already held; otherwise it makes the body (and, for
// attributes, the attribute body) writable through `make_mutable`: with
// `in_place` false a shared body is cloned, with `in_place` true it is changed
// where it is, for everyone who shares it, and stamped.
class ZR_Rendition : public ZR_Handle<ZR_Rendition_Data> {
 public:
  using ZR_Handle::ZR_Handle;

  // A rendition with default state: colour 0, no clips, line weight 1.
  static ZR_Rendition create();

  // The colour entries paint in when they are given none.
  ZR_RGB32 color() const { return body_->color; }
  // The device rectangle output is cut to.
  const ZR_Int_Rectangle& hard_clip() const { return body_->hard_clip; }
  // The contours output is cut to; null for none.
  ZR_Contour_Set_Data* complex_clip() const { return body_->complex_clip.get(); }
  // The complex clip cut to the hard clip, and whether it is up to date with
  // them; see `validate_hard_complex_clip`.
  ZR_Contour_Set_Data* hard_complex_clip() const { return body_->hard_complex_clip.get(); }
  // Whether `hard_complex_clip` is up to date.
  bool hard_complex_clip_valid() const { return body_->hard_complex_clip_valid != 0; }
  // The width of lines in device units.
  int line_weight() const { return body_->line_attributes->line_weight; }
  // The face mode (see ZR_Face_Attributes).
  int face_mode() const { return body_->face_attributes->face_mode; }
  // Size, rotation, scale and font of text.
  const ZR_Text_Attributes& text_attributes() const { return *body_->text_attributes; }

  // Inline, since every drawable sets its colour before it draws and the
  // colour is mostly the one already set.
  void set_color(ZR_RGB32 color, bool in_place) {
    if (body_->color != color) set_changed_color(color, in_place);
  }
  // Sets the device rectangle output is cut to.
  void set_hard_clip(const ZR_Int_Rectangle& clip, bool in_place);
  // Replaces the complex clip; null removes it.
  void set_complex_clip(const ZR_Contour_Set* clip, bool in_place);
  // Removes the complex clip.
  void set_complex_clip(std::nullptr_t, bool in_place) {
    set_complex_clip(static_cast<const ZR_Contour_Set*>(nullptr), in_place);
  }
  // Recomputes `hard_complex_clip` from the complex and hard clips. A cache
  // refresh: it stamps nothing and copies nothing.
  void validate_hard_complex_clip();
  // Sets the width of lines, in device units.
  void set_line_weight(int weight, bool in_place);
  // Sets the face mode (see ZR_Face_Attributes).
  void set_face_mode(int mode, bool in_place);
  // Sets the text height, in drawing units.
  void set_text_size(float size, bool in_place);
  // Stores the angle reduced into [0, 2pi); compares the raw argument first.
  void set_text_rotation(float rotation, bool in_place);
  // Sets the factor on the widths of characters.
  void set_text_scale(float scale, bool in_place);
  // Sets the font (referenced).
  void set_text_font(const ZR_Font& font, bool in_place);

 private:
  void set_changed_color(ZR_RGB32 color, bool in_place);
};

// ---------------------------------------------------------------------------
// Options and selection
// ---------------------------------------------------------------------------

// One named option with a boolean and an integer value.
struct ZR_Option {
  ZR_String name;      // how the option is found
  bool value = false;  // its boolean value
  int number = 0;      // its integer value
};

// Options of a renderer, found by name.
class ZR_Option_Table {
 public:
  // The option of that name, or null when absent.
  const ZR_Option* find(const ZR_String& name) const;
  // Adds the option or changes its value.
  void set(const ZR_String& name, bool value, int number = 0);

 private:
  std::vector<ZR_Option> options_;
};

// The counted object that carries a renderer's options, and, in a selection
// traversal, the drawable being drawn: whatever a selecting renderer records
// while a drawable draws, it can attribute to `selector_drawable`.
class ZR_Option_Source : public ZR_Counted {
 public:
  ZR_Option_Table table;                    // the options, found by name
  const void* selector_drawable = nullptr;  // a DL::Drawable*, written by the display list
  int selector_part = 0;                    // the part of it, written by the display list
};

// What a device does by itself, read by the display list.
struct ZR_Renderer_Options {
  bool complex_clip = false;  // the device clips to complex clips by itself
  // Whether the device clips to complex clips by itself.
  bool supports_complex_clip() const { return complex_clip; }
};

// ---------------------------------------------------------------------------
// Renderer and action entries
// ---------------------------------------------------------------------------

// An action entry: a context word and a function, called function(context,
// rendition, ...). No result is read; the callee keeps nothing it is passed.
template <class F>
struct ZR_Action;
// The action entry of one signature.
template <class... A>
struct ZR_Action<void(void*, ZR_Rendition*, A...)> {
  using Function = void(void*, ZR_Rendition*, A...);  // the entry's function type
  void* context = nullptr;                            // handed back as the first argument
  Function* function = nullptr;                       // never null in a renderer
  // Calls the function with the context, the rendition and `args`.
  void operator()(ZR_Rendition* rendition, A... args) const {
    function(context, rendition, args...);
  }
};

// The signatures of the entries, behind (context, rendition):
using ZR_Dot_Action = void(void*, ZR_Rendition*, const ZR_DCI_Point* point, const ZR_RGB32* color);
using ZR_Points_Action = void(void*, ZR_Rendition*, int count, const ZR_DCI_Point* points);
using ZR_Polygon_Action = void(void*, ZR_Rendition*, int count, const ZR_DCI_Point* points,
                               const ZR_RGB32* color);
using ZR_Shaded_Action = void(void*, ZR_Rendition*, int count, const ZR_DCI_Point* points,
                              const ZR_RGB32* vertex_colors);
using ZR_Textured_Action = void(void*, ZR_Rendition*, int count, const ZR_DCI_Point* points,
                                const ZR_RGB32* vertex_colors,
                                const ZR_Vertex_Parameters* parameters, const float* scalars,
                                const ZR_Vertex_Parameters* vectors);
using ZR_Ellipse_Action = void(void*, ZR_Rendition*, const ZR_DCI_Point* center,
                               const ZR_DCI_Point* radii, double start, double end, double rotation,
                               const ZR_RGB32* color);
using ZR_Image_Action = void(void*, ZR_Rendition*, const ZR_DCI_Point* point,
                             const ZR_Image* image);

// An output device: options, the option source, and one action entry per
// primitive and path. `_clipped` entries must cut the output to the rendition's
// hard clip; `_unclipped` entries may assume it lies inside. A new renderer has
// every entry set to a function that does nothing, so no entry is ever null.
class ZR_Renderer : public ZR_Counted {
 public:
  // Every entry does nothing; one counted option source.
  ZR_Renderer();
  // Drops the option source's reference.
  ~ZR_Renderer() override;

  ZR_Renderer_Options options;      // what the device does by itself
  ZR_Option_Source* option_source;  // counted, one reference held by the renderer

  ZR_Action<ZR_Dot_Action> dot_clipped, dot_unclipped;                   // one device dot
  ZR_Action<ZR_Points_Action> polyline_clipped, polyline_unclipped;      // points in order
  ZR_Action<ZR_Points_Action> polymarker_clipped, polymarker_unclipped;  // a marker at each point
  ZR_Action<ZR_Polygon_Action> polygon_clipped, polygon_unclipped;       // closes itself
  ZR_Action<ZR_Points_Action> triangles_clipped, triangles_unclipped;    // a triangle strip
  // A triangle strip with a colour per vertex.
  ZR_Action<ZR_Shaded_Action> gouraud_triangles_clipped, gouraud_triangles_unclipped;
  // A triangle strip with colours and texture words per vertex.
  ZR_Action<ZR_Textured_Action> textured_triangles_clipped, textured_triangles_unclipped;
  ZR_Action<ZR_Ellipse_Action> elliptical_arc_clipped, elliptical_arc_unclipped;  // outline
  ZR_Action<ZR_Ellipse_Action> elliptical_pie_clipped, elliptical_pie_unclipped;  // filled sector
  ZR_Action<ZR_Image_Action> image_clipped, image_unclipped;  // the image at the point, top left
  ZR_Action<ZR_Shaded_Action> gouraud_polyline_unclipped;     // points in order, a colour per point
};

// ---------------------------------------------------------------------------
// Matrices
// ---------------------------------------------------------------------------

// A 4x4 matrix applied to row vectors: p' = p * M. Each operation multiplies on
// the right, so operations take effect in the order they are called.
class ZR_Matrix_Data : public ZR_Body {
 public:
  int precision = 0;  // 0: single (ZR_Matrix_Single_Data), 1: double
};

// A matrix in single precision.
class ZR_Matrix_Single_Data : public ZR_Matrix_Data {
 public:
  int flags = 0;  // the word in front of the elements
  float m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};  // row by row
  float w = 1.0f;                                                  // the float behind them
  bool adjoint_valid = false;  // whether a cached adjoint matches `m`

  ZR_Body* clone() const override { return new ZR_Matrix_Single_Data(*this); }
  // Drops the cached adjoint.
  void invalidate_adjoint() { adjoint_valid = false; }
  // Rotations about an axis, in radians; `invalidate` drops the cached adjoint.
  void rotate_x(float angle, bool invalidate);
  // Turns about the y axis by `angle` radians.
  void rotate_y(float angle, bool invalidate);
  // Turns about the z axis by `angle` radians.
  void rotate_z(float angle, bool invalidate);
  // Moves by (x, y, z).
  void translate(float x, float y, float z);
};

// A matrix in double precision.
class ZR_Matrix_Double_Data : public ZR_Matrix_Data {
 public:
  // The identity.
  ZR_Matrix_Double_Data() { precision = 1; }
  double m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};  // row by row
  bool adjoint_valid = false;  // whether a cached adjoint matches `m`

  ZR_Body* clone() const override { return new ZR_Matrix_Double_Data(*this); }
  // Drops the cached adjoint.
  void invalidate_adjoint() { adjoint_valid = false; }
  // Turns about the x axis by `angle` radians; `invalidate` drops the cached adjoint.
  void rotate_x(double angle, bool invalidate);
  // Turns about the y axis by `angle` radians.
  void rotate_y(double angle, bool invalidate);
  // Turns about the z axis by `angle` radians.
  void rotate_z(double angle, bool invalidate);
  // Moves by (x, y, z).
  void translate(double x, double y, double z);
};

// A handle on a matrix body, possibly null (which acts as the identity in
// `transform`). The operations allocate a single precision body when needed and
// copy on write.
class ZR_Matrix : public ZR_Handle<ZR_Matrix_Data> {
 public:
  using ZR_Handle::ZR_Handle;

  // Gives `matrix` a new identity body of single (`single` true) or double precision.
  static void allocate(ZR_Matrix& matrix, bool single);
  // Makes the matrix the identity.
  void set_identity();
  // Turns about x, then y, then z, by the angles given in radians.
  void rotate(float x, float y, float z);
  // Moves by (x, y, z).
  void translate(float x, float y, float z);
  // Transforms `count` points; z of each input is multiplied by `z_factor` first.
  void transform(int count, const ZR_Point* in, ZR_Point* out, float z_factor = 1.0f) const;
};

// ---------------------------------------------------------------------------
// Text engine
// ---------------------------------------------------------------------------

// Measures of a font at the rendition's text size.
struct ZR_Font_Metrics {
  float nominal_size;  // the size the font's own measures refer to
  float ascent;        // from the baseline up to the top of the tallest glyph
  float descent;       // from the baseline down, below zero
  float reserved[4];   // not written
};

// Per-character results of a measurement: only `widths` is set by the caller;
// when not null the engine writes one width per character through it.
struct ZR_Text_Detail {
  void* reserved[4];  // not read
  float* widths;      // where the widths go, or null
};

// The box and the advance of one character, in text point units.
struct ZR_Character_Metrics {
  float left;      // left edge of the outline's box
  float bottom;    // lower edge
  float right;     // right edge
  float top;       // upper edge
  float reserved;  // not written
  float advance;   // origin to the next origin, along the text's x axis
  float unused;    // not written
};

// Measures and draws text. Text points are in the units of the transform in
// force; strings come with their length in characters.
class ZR_Text_Engine : public ZR_Counted {
 public:
  // Makes `font` ready; the handle returned may be null and is dropped by callers.
  virtual ZR_Font prepare_font(ZR_Font* font) = 0;
  // Draws `length` 16-bit characters from `point` under the rendition.
  virtual void draw_unicode_text(ZR_Rendition* rendition, const ZR_Point* point,
                                 const unsigned short* text, int length) = 0;
  // Draws `length` bytes of multibyte text from `point` under the rendition.
  virtual void draw_multibyte_text(ZR_Rendition* rendition, const ZR_Point* point,
                                   const unsigned char* text, int length) = 0;
  // The outline of one character around its origin, unrotated, in text point
  // units; a null handle for a character without an outline.
  virtual ZR_Contour_Set character_contour(ZR_Rendition* rendition, unsigned short character,
                                           ZR_Character_Metrics* metrics) = 0;
  // The measures of the rendition's font.
  virtual void font_metrics(ZR_Rendition* rendition, ZR_Font_Metrics* metrics) = 0;
  // Writes the four corners of the text's box to `corners`.
  virtual void measure_unicode_text(ZR_Rendition* rendition, const ZR_Point* start,
                                    const unsigned short* text, int length, ZR_Point* corners,
                                    int flags, ZR_Text_Detail* detail) = 0;
  // As `measure_unicode_text`, for multibyte text.
  virtual void measure_multibyte_text(ZR_Rendition* rendition, const ZR_Point* start,
                                      const unsigned char* text, int length, ZR_Point* corners,
                                      int flags, ZR_Text_Detail* detail) = 0;
};

// One glyph as a text engine draws it: the character, its origin and its
// outline, both in text points, already turned and moved into place.
struct ZR_Placed_Glyph {
  unsigned short character;  // the 16-bit character
  ZR_Point origin;           // where its origin lands
  ZR_Contour_Set outline;    // null for a character without one (a space)
};

// Where a text engine hands the glyphs of a draw: a backend provides it (the
// recording backend records, a raster backend fills the outlines under the
// rendition's colour and clips). One call per draw; the sink keeps nothing it
// is passed but the counted outlines it references itself.
class ZR_Glyph_Sink {
 public:
  virtual ~ZR_Glyph_Sink() = default;
  // The `count` placed glyphs of one string drawn from `start`.
  virtual void glyphs(ZR_Rendition* rendition, const ZR_Point* start, int count,
                      const ZR_Placed_Glyph* glyphs) = 0;
};

// ---------------------------------------------------------------------------
// Elliptical points
// ---------------------------------------------------------------------------

// Fills `count` points of the ellipse with `center` and `radii` (x and y read,
// z ignored), evenly in the parameter from `start` to `end` inclusive, the
// ellipse turned by `rotation` about its centre. The sweep runs in the positive
// sense: an `end` below `start` is reached through angle 0, as the sweep tests
// of the ellipse extent read it. One point gives the start point. Coordinates
// are rounded to nearest and saturate at the int limits; NaN gives the lowest.
void ZP_Generate_Elliptical_Points(const ZR_DCI_Point& center, const ZR_DCI_Point& radii,
                                   float start, float end, float rotation, int count,
                                   ZR_DCI_Point* points);
