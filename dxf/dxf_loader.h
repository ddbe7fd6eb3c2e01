// Loading DXF drawings, and placing them on one sheet of 32-bit world
// coordinates.
//
// A file is read by the library's own reader (ASCII DXF; a binary DXF is
// refused with a message) into a list of entities in the drawing's own units:
// model space, plus the blocks that INSERTs refer to. The reader walks the
// file's group-code/value pairs once, in memory, and reads the HEADER
// ($LTSCALE, $INSUNITS, $EXTMIN/$EXTMAX, kept as hints only), the LAYER, LTYPE
// and BLOCK_RECORD tables, the BLOCKS, the ENTITIES and the IMAGEDEF and
// LAYOUT objects. What is kept, per kind:
//
// - LINE: two points. LWPOLYLINE and POLYLINE: the vertices with every bulge
//   flattened into short chords (at most 5 degrees of arc each), `closed` from
//   the flags, and the widths of every segment when the polyline has any
//   (constant, per vertex, or the POLYLINE's defaults). Polyface and polygon
//   meshes are skipped; the frame of a spline-fit POLYLINE is left out, its
//   fitted vertices kept.
// - CIRCLE, ARC, ELLIPSE: centre, radii, rotation of the first axis, start
//   and end angles in radians (ARC angles are turned from degrees; an ELLIPSE's
//   are parametric, as the file gives them). Every angle kept is in radians.
// - POINT: one point. SOLID and TRACE: their corners in outline order (the
//   file's third and fourth corners swapped). TEXT and MTEXT: the insertion
//   point, height, angle in radians and the text (an MTEXT's chunks, code 3,
//   joined before its last, code 1); TEXT its justification and alignment
//   point, width factor and oblique angle (the entity's own codes 41 and 51,
//   else its STYLE's, code 7, from the STYLE table), MTEXT its attachment
//   point and line spacing. ATTRIB
//   (the values an INSERT carries, title blocks above all) is read as TEXT; an invisible one is
//   left out.
// - HATCH: each boundary loop flattened into a closed contour; a patterned
//   hatch keeps its pattern lines. One whose pattern the file does not give
//   is skipped.
// - INSERT: block name, insertion point, scales, rotation and the rows and
//   columns of an array. An array of more than 65536 cells is skipped.
// - SPLINE: degree, knots, weights and control points (B-spline or NURBS),
//   or fit points alone; once the drawing's extent is known it is flattened
//   into `points` to a tolerance of 1/16384 of the extent's larger side (a
//   quarter pixel when the drawing spans 4096 pixels). A fit-point spline is
//   read as the cubic CAD interpolates through them (chord-length
//   parameters; the file's end tangents, codes 12 and 13, else no curvature
//   at the ends; periodic when closed), kept as a B-spline of Bezier spans.
// - LEADER: its vertices, as a polyline, and the length of its arrow head
//   ($DIMASZ times $DIMSCALE; 0 when its flag, code 71, says none) in
//   `height`.
// - DIMENSION: its geometry block ("*D...") shown as an INSERT at the origin.
//   One whose block is missing gets a block built from its definition points
//   ("*DL_DIMENSION1", ...), all BYBLOCK, arrows $DIMASZ long and text
//   $DIMTXT high (the measurement where "<>" stands; at the file's text point,
//   else above the line): linear and aligned ones their extension lines,
//   dimension line and two arrows; angular ones (two lines, or three points)
//   an arc about the vertex through the location point over the sector that
//   holds it, extension lines where it ends beyond its lines, two arrows and
//   the degrees; radius and diameter ones the line to (or across) the circle,
//   a leader to a text outside it, one or two arrows and "R" or the diameter
//   sign before the number; ordinate ones the leader from the feature and the
//   feature's x (flag 64) or y from the origin. One whose points measure
//   nothing (a zero length, parallel lines) is skipped.
// - IMAGE: the four corners of its frame (the picture itself is not read) and
//   the file its IMAGEDEF names; files that are neither where the name says
//   (beside the drawing when it is relative) nor beside the drawing under
//   their base name are listed in `missing_images`.
//
// Object coordinate systems: the planar entities (ARC, CIRCLE, TEXT, ATTRIB,
// LWPOLYLINE, 2D POLYLINE, SOLID, TRACE, HATCH, INSERT) give their points in
// the plane of their extrusion direction (codes 210, 220, 230); the reader
// maps them to the drawing's x-y plane by the arbitrary-axis rule, so a
// mirrored arc (extrusion 0,0,-1) lands where CAD shows it. ELLIPSE and MTEXT
// are in world coordinates, the ellipse's sweep turned by its extrusion. A
// plane tilted out of x-y is projected onto it: its circles are flattened
// into polylines, its texts and INSERTs keep their direction only.
//
// Model and paper space: entities flagged with code 67 belong to a paper-space
// layout and are left out, counted in `paper_space`. With
// `DxfLoadOptions::layout`, a layout's entities are read instead of model
// space: the first layout's from ENTITIES, the others' from their blocks.
//
// Anything else the file holds (3DFACE, VIEWPORT, MLINE, ATTDEF, ...) is
// counted by name in `skipped`, never silently lost. An entity with a number
// that does not parse or is not finite is dropped and counted by name in
// `invalid`; one too far from the rest for the sheet in `too_far`.
//
// Cost: the file is mapped, read once and given back as it is read; the
// records take 56 bytes an entity plus its points (see DxfEntity). The
// reader runs at about 190 MB/s on lines (bench/dxf_load_bench.cpp).
//
// A file that ends before its EOF marker, or inside a section, is read as far
// as it goes: `truncated` says where it ended.
//
// Lineweights: an entity's own (code 370) or its layer's for BYLAYER, in
// hundredths of a millimetre; BYBLOCK inside blocks is kept for the INSERT's,
// and the drawing's default elsewhere. $LWDISPLAY says whether CAD shows them
// on screen.
//
// Line types: an entity's own (code 6) or its layer's for BYLAYER, with the
// LTYPE table's dashes; BYBLOCK and names the table lacks are continuous.
//
// Colours: a true colour when the entity has one, else the ACI index, BYLAYER
// taking the layer's colour. The picture's background is white, so ACI 7
// (white on a dark screen) is black. BYBLOCK inside a block takes the colour
// of the INSERT when expanded, and is black in model space. The ACI table is
// the standard one: 1 to 9 named, 10 to 249 twenty-four hues at five
// brightnesses, full and half saturated, 250 to 255 greys.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "displaylist/display_list.h"
#include "drawables/drawable.h"

namespace DL::dxf {

// The kinds of entity the reader keeps, one record shape for all.
enum class DxfKind : std::uint8_t {
  line,
  polyline,
  circle,
  arc,
  ellipse,
  point,
  text,
  mtext,
  solid,
  hatch,
  insert,
  attrib,
  spline,
  leader,
  dimension,
  image
};
// How many kinds there are (the per-kind counts are vectors of this size).
constexpr int kDxfKindCount = 16;
// The DXF name of a kind: "LINE", "POLYLINE", ...
const char* dxf_kind_name(DxfKind kind);

// A point in the drawing's own units.
struct DxfPoint {
  double x = 0;  // drawing units
  double y = 0;  // drawing units
};

// One line family of a hatch pattern, as the file stores it (already scaled
// and turned by the hatch's own scale and angle): lines in direction `angle`
// (radians) through `base` and every `base + k offset`, dashed by `dashes`
// (positive a dash, negative a gap, 0 a dot; empty: continuous).
struct DxfPatternLine {
  double angle = 0;            // direction of the lines, radians
  DxfPoint base;               // a point of the first line
  DxfPoint offset;             // from one line to the next
  std::vector<double> dashes;  // dash (> 0), gap (< 0), dot (0) lengths; empty: continuous
};

// What an entity has beyond its points: curves, texts, inserts and hatches
// carry one, lines and polylines do not. Shared between copies of a drawing:
// it is not changed once the file is read.
struct DxfDetail {
  std::vector<std::vector<DxfPoint>> loops;  // hatch: closed contours
  std::vector<DxfPatternLine> pattern;       // hatch: empty for a solid fill
  // polyline with widths: start and end width of every segment drawn (the
  // closing one of a closed polyline included), two values a segment; empty
  // for a hairline.
  std::vector<double> widths;
  // circle, arc, ellipse: centre, radii, rotation, angles (radians).
  DxfPoint center;
  double radius_x = 0;  // circle, arc, ellipse: the first radius
  double radius_y = 0;  // the second radius (a circle's equals the first)
  double rotation = 0;  // the first axis's angle, or a text's, radians
  double start = 0;     // arc, ellipse: the start angle, radians
  double end = 0;       // arc, ellipse: the end angle, radians
  // text, mtext: contents and height; the angle goes in `rotation`.
  std::string text;
  double height = 0;  // text, mtext: the capitals' height
  // text: justification (horizontal 0 left, 1 centre, 2 right, 3 aligned,
  // 4 middle, 5 fit; vertical 0 baseline, 1 bottom, 2 middle, 3 top) and the
  // alignment point they refer to. mtext: attachment 1..9 (top left to bottom
  // right, row by row) and the line spacing factor.
  int halign = 0;
  int valign = 0;        // text: vertical justification, as above
  DxfPoint align_point;  // text: the point the justification refers to
  // text: the factor on its characters' widths (code 41) and the slant of
  // their uprights from the vertical, radians, positive leaning forward
  // (code 51, degrees in the file).
  double width_factor = 1;
  double oblique = 0;          // text: as above
  int attachment = 1;          // mtext: 1..9, as above
  double line_spacing = 1.0;   // mtext: the line spacing factor
  double box_width = 0;        // mtext: the width its lines wrap at; 0: no wrapping
  double line_type_scale = 1;  // code 48: the entity's own scale of its dashes
  // spline: the degree, the knots and the weights (empty: all 1); the
  // control points are the entity's points until the load flattens them,
  // then they move here. A spline given by fit points alone has the control
  // points and knots of its interpolating cubic.
  int degree = 3;
  std::vector<double> knots;      // spline: the knot vector
  std::vector<double> weights;    // spline: one a control point; empty: all 1
  std::vector<DxfPoint> control;  // spline: control points, as above
  // image: the file its IMAGEDEF names (as the file gives it), once the
  // OBJECTS section is read; the handle of that IMAGEDEF until then.
  std::string image;
  // insert, dimension: the block, its scales and the array's cells.
  std::string block;
  DxfPoint scale{1, 1};  // insert: x and y scales
  int columns = 1;       // insert: the array's columns
  int rows = 1;          // insert: the array's rows
  DxfPoint spacing;      // insert: column and row spacing
};

// The lineweight "default": the drawing's default width.
constexpr std::int16_t kDefaultLineWeight = -3;
// The lineweight BYBLOCK: the width of the INSERT that shows the block.
constexpr std::int16_t kByBlockLineWeight = -2;

// One entity. 56 bytes on a 64-bit host, its points apart (a LINE's two take
// 32 more on the heap): a drawing of a million lines holds about 90 MB of
// them.
struct DxfEntity {
  DxfKind kind = DxfKind::point;  // what it is
  bool by_block = false;          // colour BYBLOCK: the INSERT's colour applies
  bool closed = false;            // polyline
  ZR_RGB32 color = 0;             // resolved, 0x00RRGGBB
  std::uint32_t layer = 0;        // index into DxfDrawing::layer_names
  // Index into DxfDrawing::line_type_names of its dashes (BYLAYER resolved);
  // 0 for a continuous line.
  std::uint16_t line_type = 0;
  // Its lineweight (code 370, BYLAYER resolved): hundredths of a millimetre,
  // kDefaultLineWeight, or kByBlockLineWeight inside a block.
  std::int16_t line_weight = kDefaultLineWeight;
  // line: 2 points; polyline: flattened vertices; point, text, mtext: 1;
  // solid: 3 or 4 corners in outline order; insert: the insertion point.
  std::vector<DxfPoint> points;

  // The detail, or one of default values when the entity has none.
  const DxfDetail& detail() const;
  // The detail to fill, made on first use.
  DxfDetail& edit();
  // Whether it has a detail of its own.
  bool has_detail() const { return detail_ != nullptr; }
  // Lets the points and the detail go (the kind, layer and colour stay).
  void release() {
    std::vector<DxfPoint>().swap(points);
    detail_.reset();
  }

 private:
  std::shared_ptr<DxfDetail> detail_;
};

// A layer of the LAYER table.
struct DxfLayer {
  std::string name;       // as written
  std::string line_type;  // its entities' line type when they say BYLAYER
  ZR_RGB32 color = 0;     // 0x00RRGGBB
  // Its entities' lineweight when they say BYLAYER: hundredths of a
  // millimetre, or kDefaultLineWeight.
  int line_weight = kDefaultLineWeight;
  bool off = false;     // negative colour in the table
  bool frozen = false;  // flag 1
};

// A rectangle in drawing units; empty while min_x > max_x.
struct DxfBounds {
  double min_x = 0;   // left
  double min_y = 0;   // bottom
  double max_x = -1;  // right
  double max_y = -1;  // top
  // Whether it holds no point yet.
  bool empty() const { return min_x > max_x; }
  // Grows it to hold (x, y).
  void add(double x, double y);
};

// A line type of the LTYPE table: dash lengths in drawing units, positive
// for a dash, negative for a gap, 0 for a dot.
struct DxfLineType {
  std::string name;            // as written
  std::vector<double> dashes;  // as above; empty: continuous
};

// The HEADER's variables the reader keeps. Hints only: the extent is always
// measured from the entities.
struct DxfHeader {
  double ltscale = 1;      // $LTSCALE: global scale of line type dashes
  int insunits = 0;        // $INSUNITS: 0 unitless, 1 inches, 4 millimetres, 6 metres...
  DxfBounds extent;        // $EXTMIN, $EXTMAX as the file states them
  double dimasz = 0.18;    // $DIMASZ: the arrow heads' length
  double dimscale = 1;     // $DIMSCALE: their overall scale
  double dimtxt = 0.18;    // $DIMTXT: the dimensions' text height
  bool lwdisplay = false;  // $LWDISPLAY: whether lineweights are shown on screen
};

// A paper-space layout of the OBJECTS section.
struct DxfLayout {
  std::string name;   // as the LAYOUT object names it
  std::string block;  // its block: "*Paper_Space" (in ENTITIES), "*Paper_Space0", ...
};

// A block of the BLOCKS section.
struct DxfBlock {
  DxfPoint base;                    // the point that lands on an INSERT's point
  std::vector<DxfEntity> entities;  // in file order
};

// A drawing as read: its entities in its own units, its blocks, tables and
// what the reader refused, counted.
struct DxfDrawing {
  std::string path;                        // the file read
  std::vector<DxfEntity> entities;         // model space, in file order
  std::map<std::string, DxfBlock> blocks;  // by name as written
  std::map<std::string, DxfLayer> layers;  // by name as written
  // The layer names entities refer to by index; "0" first.
  std::vector<std::string> layer_names{"0"};
  // The dashed line types entities refer to by index; "" (continuous) first.
  std::vector<std::string> line_type_names{""};
  std::map<std::string, DxfLineType> line_types;  // by name as written
  std::vector<DxfLayout> layouts;                 // in file order
  DxfHeader header;                               // the HEADER's hints
  std::map<std::string, long> skipped;            // entity name -> count
  std::map<std::string, long> invalid;            // entity name -> count, dropped for bad numbers
  long paper_space = 0;                           // entities of layouts not read
  std::vector<std::string> missing_images;        // image files not found, as named
  // The files IMAGEs name that were found: as named -> the path found (as
  // given, beside the DXF, or its base name beside the DXF).
  std::map<std::string, std::string> image_paths;
  // Empty for a complete file; else where it ended, e.g. "inside ENTITIES".
  std::string truncated;
  DxfBounds extent;  // model space, INSERTs included through their blocks
  // Entities left out because they lie too far from the rest to share a
  // 32-bit sheet with it at a useful precision, by name. The rule: from the
  // lower median of the entities' centres, each entity's reach (the largest
  // distance along x or y to its box); sorted by reach, the outer half is cut
  // at the first entity that reaches more than 65536 times the one before.
  // The rest then keeps at least 2^10 world units across.
  std::map<std::string, long> too_far;
  // Extents of the blocks that model space reaches, in block units.
  std::map<std::string, DxfBounds> block_extents;

  // Entities of model space per kind (INSERTs counted once each).
  std::vector<long> counts() const;
  // The name of an entity's layer.
  const std::string& layer_of(const DxfEntity& e) const { return layer_names[e.layer]; }
};

// What to read of a file.
struct DxfLoadOptions {
  // Empty: model space. Else the name of a paper-space layout to read instead
  // (compared without regard to case).
  std::string layout;
};

// Reads `path`. False with a one-line reason in `error` for a file that cannot
// be read, is not an ASCII DXF, holds no entity in the space read, or has no
// layout of the name asked for.
bool load_dxf(const std::string& path, DxfDrawing& drawing, std::string& error,
              const DxfLoadOptions& options = {});

// ACI colour index 1..255 to 0x00RRGGBB (7 is black; others outside give black).
ZR_RGB32 aci_color(int index);

// Where a drawing lands on the sheet: world = drawing * scale + offset.
struct Placement {
  double scale = 1;     // world units per drawing unit
  double offset_x = 0;  // world x of the drawing's x 0
  double offset_y = 0;  // world y of the drawing's y 0
  // A drawing point on the sheet, rounded (saturated) to the 32-bit world.
  DL::WorldPoint map(const DxfPoint& p) const;
};

// Lays the drawings out left to right with a small gap, their bottoms on y 0.
// Each gets one uniform scale so that its larger side spans the same number
// of world units (2^26 for up to 15 drawings, fewer for more), chosen so that
// the whole sheet stays inside 2^30. A drawing's extent leaves out the
// entities too far from the rest for that sheet (see `too_far`): one stray
// line at 1e300 would otherwise shrink the drawing to nothing.
std::vector<Placement> lay_out(const std::vector<DxfDrawing>& drawings, DL::WorldBounds& sheet);

// The layers of a sheet, by name (compared without regard to case, as DXF
// does): one record each, shown unless off or frozen in some drawing.
class LayerTable {
 public:
  // The layer's record, made (shown or not) the first time a name is met; a
  // later drawing that has it off or frozen turns it off.
  DL::Extra_Layer_Info* find_or_add(const std::string& name, bool shown);
  // Hides the layer; false when no drawing has it.
  bool turn_off(const std::string& name);
  // Every layer, by name in capitals (as they are compared), in name order.
  std::vector<std::pair<std::string, DL::Extra_Layer_Info*>> entries() const;

 private:
  std::map<std::string, std::unique_ptr<DL::Extra_Layer_Info>> layers_;
};

}  // namespace DL::dxf
