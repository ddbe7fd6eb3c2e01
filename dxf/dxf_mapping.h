// THE MAPPING from DXF entities to the library's drawables.
//
// Every entity goes through one affine map from its own units to the world of
// the list it lands in (`Affine`); for model space that is the drawing's
// `Placement`. Per kind:
//
// - LINE, LWPOLYLINE, POLYLINE: a `Polyline` through the mapped points (bulges
//   are flattened by the loader); a closed one gets its first point again at
//   the end. A line whose points all round to one world point is a `Dot`.
//   A polyline with widths is a filled outline instead: one
//   `PolytriangleWithNoBorder` strip, a quad a segment (its start width to
//   its end width across it), the strip's triangles between two quads
//   filling the inside of their joint. The outer corner of a turn keeps a
//   notch where CAD draws a miter; the chords of a flattened bulge turn too
//   little for it to show.
// - CIRCLE: an `Ellipse`; ARC: an `EllipticalArc` (angles counter-clockwise
//   from start to end, as both DXF and the library read them); ELLIPSE: an
//   `Ellipse` when whole, else an `EllipticalArc`, with its tilt. Under a map
//   that mirrors or scales x and y apart (an INSERT with such scales), the
//   curve is flattened into a `Polyline` instead, closed when whole.
// - POINT: a `Dot`.
// - TEXT, ATTRIB, MTEXT: one `Text` per line, measured by the text engine.
//   DXF gives the height of capitals; the em of the font is that over 0.73
//   (the capital height of DejaVu Sans). TEXT justification and MTEXT
//   attachment move the baseline as the file says; an aligned TEXT runs from
//   its first point to its second, its height scaled to fit. MTEXT lines are
//   split at `\P`, wrapped at the MTEXT's width (greedily, at spaces, as
//   measured); a line reaches its tallest capitals above its baseline and
//   2/3 of them below, so lines of one height stand 5/3 of it apart (times
//   the spacing factor). Its inline codes (dxf/dxf_mtext_p.h) make
//   runs: colour, font family, bold and italic (a font a style, see
//   `SheetContext::font_for`) and height go to the run's `Text`; a width
//   factor, slant or tracking draws the run as its glyphs' outlines, as a
//   TEXT's below; underline, overline and strike-through are a two-point
//   `Polyline` over the run (and the spaces between underlined words); a
//   stack is its two parts at 0.7 of the height, "a/b" centred over a bar,
//   "a^b" left-aligned, "a#b" across a slash. BYLAYER and BYBLOCK (`\C256`,
//   `\C0`) give the entity's own colour.
//   A "fit" TEXT runs between its points at its own height, its width factor
//   chosen to fit. Without a text engine texts are counted as not shown.
// - A TEXT with a width factor other than 1 (code 41, or the one "fit"
//   chooses) or an oblique angle (code 51) is drawn as its glyphs' outlines,
//   one `Polygon` a glyph (its contours chained, even-odd), widths scaled and
//   uprights slanted in double. Why not a `Text`: its attribute step always
//   sets the rendition's width scale to 1 and the rendition has no slant, so
//   neither can travel with it, and a Text subclass would need its own table
//   of four forms and a twin for every host engine to honour. The cost: such
//   texts are not text to a PDF or SVG reader (not searchable), are not
//   greeked when small, and take some 60 points a glyph in the list.
// - SPLINE, LEADER: a `Polyline` through their flattened points, as above; a
//   LEADER's arrow head a `PolytriangleWithNoBorder` triangle.
// - DIMENSION: as an INSERT of its geometry block at the origin (the
//   file's, or the one the reader built from its definition points).
// - IMAGE: its frame, a closed `Polyline`.
// - SOLID, TRACE: a `PolytriangleWithNoBorder`: the file's corner order is a
//   triangle strip already.
// - HATCH (solid): one `Polygon`. Several loops (islands) are chained into
//   one point list, each loop closed and joined to the first point of the
//   first loop by a bridge walked there and back; the even-odd fill then
//   leaves the islands open and the bridges add nothing.
// - INSERT: when neither the INSERT nor the map turns or mirrors, a
//   `DrawableDisplayList` per array cell showing the block's own list, under
//   the INSERT's scales and offset. Block lists are built once per drawing,
//   block and BYBLOCK colour, and borrowed by every INSERT that shows them
//   (`Ownership::borrowed`); the `SheetContext` owns them. A turned or
//   mirrored INSERT is expanded: its block's entities are mapped one by one
//   through the composed map. Blocks nest to a depth of 16; a deeper or
//   cyclic INSERT, or one naming no block, is not shown, and so is every
//   entity past the sheet's `max_points`.
//
// Lineweights: a list draws its lines at its rendition's line weight, so the
// entities whose device width (see `SheetContext::lineweight_dpi`) differs
// from their list's are gathered, each run of consecutive entities of one
// width, into a nested list of that weight, shown by one
// `DrawableDisplayList` at the run's place (file order is kept). A drawing
// with lineweights on every layer thus costs a nested list a change of
// width, not a drawable class; their edges are placed through the nested
// view, within a pixel of where the top list puts them. BYBLOCK takes the
// INSERT's width (a block list per width, drawn at it).
//
// Layers: each drawable gets the `Extra_Layer_Info` of its entity's layer from
// the `LayerTable`, so `--layer-off` clears one byte. Inside a block list the
// entities of layer "0" get no layer of their own (they follow the INSERT,
// whose DrawableDisplayList carries the INSERT's layer); so do the entities of
// an expanded INSERT. Colours: BYBLOCK takes the INSERT's colour; BYLAYER was
// resolved by the loader (layer "0" inside blocks keeps layer 0's colour).
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "displaylist/display_list.h"
#include "dxf/dxf_loader.h"
#include "foundation/rendering.h"

namespace DL::dxf {

// x' = a x + b y + e, y' = c x + d y + f.
struct Affine {
  double a = 1;  // x' from x
  double b = 0;  // x' from y
  double c = 0;  // y' from x
  double d = 1;  // y' from y
  double e = 0;  // x' offset
  double f = 0;  // y' offset
  // The map of a placement on the sheet.
  static Affine from(const Placement& p) {
    return {p.scale, 0, 0, p.scale, p.offset_x, p.offset_y};
  }
  // The image of `p`.
  DxfPoint apply(DxfPoint p) const { return {a * p.x + b * p.y + e, c * p.x + d * p.y + f}; }
  // This map after `inner`: x -> this(inner(x)).
  Affine after(const Affine& inner) const;
  // Turns and scales alike on both axes, without mirroring.
  bool conformal() const;
  // Neither turns nor mirrors: b = c = 0, a > 0, d > 0.
  bool axis_aligned() const { return b == 0 && c == 0 && a > 0 && d > 0; }
};

// What the mapping put into the list, per kind.
struct MappingReport {
  // Model-space entities shown, and those that could not be shown.
  std::vector<long> shown = std::vector<long>(kDxfKindCount, 0);
  // Model-space entities that could not be shown, per kind.
  std::vector<long> not_shown = std::vector<long>(kDxfKindCount, 0);
  // Entities inside blocks that could not be shown (counted once per block list
  // built, and once per expanded INSERT).
  std::vector<long> not_shown_in_blocks = std::vector<long>(kDxfKindCount, 0);
  long drawables = 0;    // drawables added, to every list
  long block_lists = 0;  // block lists built
  // The world rectangle of what was added to the list: the drawables' own
  // bounds (arcs by their sweep, texts as the engine measures them), so a view
  // framed by it shows all that is drawn and nothing more. Empty when nothing
  // was added.
  DL::WorldBounds bounds = DL::WorldBounds::empty();
};

// What the drawables of a sheet refer to: the layers, the block lists, the
// font and the text engine that measures labels. Destroy it after every list
// that holds the sheet's drawables.
class SheetContext {
 public:
  // `engine` may be null: texts are then not shown. Referenced.
  explicit SheetContext(ZR_Text_Engine* engine, ZR_Font font = {});
  ~SheetContext();
  SheetContext(const SheetContext&) = delete;
  SheetContext& operator=(const SheetContext&) = delete;

  LayerTable layers;  // the sheet's layers, by name
  // Points that a draw of what one call of add_to_display_list adds may hand
  // on at most: a point list counts its points, another drawable 1, one that
  // shows a block list what that list hands on plus one for the list's view
  // (and the list's own drawables count once as it is built). Entities past it are counted as not
  // shown. Nested blocks and arrays can ask for billions from a few bytes of a file; real drawings
  // stay far below.
  long max_points = 100'000'000;
  // Lineweights become device widths at this many device units an inch
  // (the width in millimetres / 25.4 times it, rounded, at least 1): at 96
  // a default 0.25 mm line is 1 unit, 0.5 mm 2, the heaviest (2.11 mm) 8.
  // They show only when the drawing's $LWDISPLAY says so, as in CAD; 0 here
  // draws every line 1 unit wide. A weight finer than the default 0.25 mm
  // whose width is under one unit (0.13 mm is 0.49 at 96) is drawn one unit
  // wide in its colour mixed towards the white paper by that width (at
  // least a quarter of the ink), since a rendition's width is a whole number
  // of units; lines, polylines, splines, leaders and curves only (not
  // texts, fills, points, nor INSERTs' BYBLOCK lines). 0.00 mm is CAD's
  // hairline: one unit, full ink.
  double lineweight_dpi = 96;
  // The engine that measures texts, or null.
  ZR_Text_Engine* engine() const { return engine_; }
  // The font texts are measured and drawn in.
  const ZR_Font& font() const { return font_; }
  // The font of an MTEXT run: `family` (the sheet's font's when empty),
  // bold, italic, named as a fontconfig pattern ("Family:bold:italic", the
  // family's '-', ':' and ',' escaped), which the FreeType engine reads; the
  // sheet's font itself for no family and neither. Made on first use and
  // kept, so each is one font body the engine resolves once.
  const ZR_Font& font_for(const std::string& family, bool bold, bool italic);

  // The list of `block` of `drawing` with BYBLOCK as `by_block`, and the scale
  // from block units to its world; built on first use, null while it is being
  // built (a cycle) or for an empty block.
  struct BlockList {
    std::unique_ptr<DL::DisplayList> list;  // null: empty, or a cycle
    double scale = 1;                       // world units of the list per block unit
    DxfPoint base;                          // the block's base point
    bool building = false;                  // being built: an INSERT of it now is a cycle
    // What a draw of the list hands on, in points (see max_points).
    long points = 0;
  };
  // Reads an image file for IMAGE entities. The library reads no image
  // format: the host brings a decoder (dlview: cairo's PNG reader). Null, or
  // an image without pixels, leaves IMAGEs as their frames.
  std::function<ZR_Image(const std::string& path)> read_image;
  // The images read so far, by path (null for one that could not be read).
  std::map<std::string, ZR_Image> images;

  // Block lists by drawing, block name, BYBLOCK colour and BYBLOCK device
  // width (the list's own line weight).
  std::map<std::tuple<const DxfDrawing*, std::string, ZR_RGB32, int>, BlockList> blocks;

 private:
  ZR_Text_Engine* engine_;
  ZR_Font font_;
  std::map<std::string, ZR_Font> fonts_;  // font_for's, by pattern
};

// Adds the model-space entities of `drawing`, placed by `placement`, to
// `list`, in file order.
MappingReport add_to_display_list(const DxfDrawing& drawing, const Placement& placement,
                                  SheetContext& context, DL::DisplayList& list);

// The same, for a drawing read only to be shown: each model-space entity's
// points and detail are let go as soon as it is mapped and `drawing.entities`
// is left empty (its blocks, layers and counts stay), so the records and the
// list do not both sit in memory whole. A million LINEs peak some 50 MB lower.
MappingReport consume_into_display_list(DxfDrawing& drawing, const Placement& placement,
                                        SheetContext& context, DL::DisplayList& list);

// An MTEXT string without its inline codes, split into lines.
std::vector<std::string> mtext_lines(const std::string& text);
// %%d, %%p, %%c, %%u, %%o and %%% of TEXT resolved (underline and overline
// dropped).
std::string text_codes(const std::string& text);

}  // namespace DL::dxf
