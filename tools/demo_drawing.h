// The built-in demo drawing of dlview: a city map, generated from a seed, that
// holds every drawable class of the library.
//
// The sheet is a square of `blocks_per_side` by `blocks_per_side` city blocks,
// 2^28 world units across (y up). Each block, in a fixed order:
//
// - on the first block of each district of 8 x 8 blocks, the district's
//   ground (`Polygon` in its land-use colour, layer "avenues") under all its
//   blocks; on every eighth row and column, an avenue: a wide band
//   (`Polygon`, layer "avenues") that frames the districts;
// - streets along its lower and left edges (`Polyline`, layer "streets") with
//   their centre-line dashes (`Polysegment`, layer "markings") and a contour line across the
//   block shaded by height (`GouraudPolyline`, layer "contours");
// - four to six buildings (`Polygon`, rectangles and L shapes, layer
//   "buildings");
// - a park, a strip of triangles shaded from vertex colours
//   (`GouraudPolytriangle`, layer "gardens"), and either a pond
//   (`PolytriangleWithNoBorder`) or a plaza with its border (`Polytriangle`,
//   face mode left to the view), layer "gardens"; every fourth block a roof tiled with texture
//   data (`TexturedPolytriangle`);
// - at every other crossing a roundabout: its ring (`Ellipse`), a garden of
//   two sectors (`EllipticalPie`), a lane (`EllipticalArc`) and a crossing mark
//   in a colour of its own (`ColorizedEllipse`), layer "roundabouts";
// - trees (`Dot`, `ColorizedDot`, `Polydot`), street lamps (`RowOfDots`), bus
//   stops (`Polymarker`), layer "trees";
// - the street's name (`Text`, layer "labels"), which the cairo text painter
//   greeks when it is too small to read;
// - a symbol (a tree, a house or a parking sign) shown through a nested list
//   (`DrawableDisplayList`, borrowing one of three shared symbol lists, layer
//   "symbols").
// Every 397th block (and the first) also shows a generated aerial photograph
// (`Image`, one shared body scaled to its world rectangle, layer "photos").
//
// So that the whole city reads as a map at the overview, where a block is a
// few pixels, it has structure larger than a block: a river winds across it
// (its blocks are water, layer "parks", crossed by the streets), parkland
// districts are whole green blocks, and the buildings take the colours of
// their district (residential, commercial, industrial). Detail that would be
// smaller than a few pixels is faded out by the viewer rather than drawn as
// noise: each layer has a `min_scale`, the scale (device units per world unit)
// below which it is not drawn. A block must span 60 pixels for labels (their
// text is then 3 pixels high), 25 for symbols (4 pixels), 20 for trees, lamps
// and stops, 10 for roundabouts, contour lines, markings and gardens, 6 for
// streets; avenues, buildings, parks and photographs are always drawn.
//
// At the default 330 blocks a side that is about two million drawables. The
// drawing is made in two steps so that a host can time them apart: `build`
// creates the drawables, `insert` puts them into the list.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "displaylist/display_list.h"
#include "drawables/drawable.h"
#include "foundation/rendering.h"

namespace dlview {

struct DemoOptions {
  int blocks_per_side = 330;  // 1 to 4096
  std::uint64_t seed = 20240601;
};

class DemoDrawing {
 public:
  // `engine` measures the labels (referenced; may be null: no labels).
  explicit DemoDrawing(ZR_Text_Engine* engine);
  // Destroys what was built and not inserted, then the symbol lists: destroy
  // the list the drawing went into first.
  ~DemoDrawing();
  DemoDrawing(const DemoDrawing&) = delete;
  DemoDrawing& operator=(const DemoDrawing&) = delete;

  // Creates the drawables for `list` (which ellipses and texts refer to).
  void build(DL::DisplayList& list, const DemoOptions& options);
  // Adds what `build` made to `list`, in the order made.
  void insert(DL::DisplayList& list);

  // The world rectangle of the sheet.
  DL::WorldBounds extent() const { return extent_; }
  std::size_t built() const { return items_.size(); }
  // The layer of that name, or null.
  DL::Extra_Layer_Info* layer(const std::string& name);
  std::vector<std::string> layer_names() const;
  // The scale (device units per world unit) below which the layer is not
  // drawn, 0 for always; see the file comment. Meaningful after `build`.
  double min_scale(const std::string& name) const;
  // The name of a symbol list ("tree", "house", "parking sign"), or "" for a
  // list that is not one of the drawing's symbols.
  std::string symbol_name(const DL::DisplayList* list) const;
  // A world point on a street, to pick at.
  DL::WorldPoint street_point() const { return street_point_; }

 private:
  struct Item {
    DL::Drawable* drawable;
    DL::WorldBounds bounds;
  };
  void make_symbols();
  void add(DL::Drawable* d, const DL::WorldBounds& b, DL::Extra_Layer_Info* layer);

  ZR_Text_Engine* engine_;
  ZR_Font font_;
  std::vector<Item> items_;
  std::map<std::string, std::unique_ptr<DL::Extra_Layer_Info>> layers_;
  std::vector<std::unique_ptr<DL::DisplayList>> symbols_;
  ZR_Image photo_;
  DL::WorldBounds extent_ = DL::WorldBounds::empty();
  DL::WorldPoint street_point_{};
  double cell_ = 1;  // a block's side, world units
};

}  // namespace dlview

namespace dlview {
// The class name of a drawable ("Polyline", "EllipticalArc", ...), from its
// type token; "unknown" for a class this viewer does not know.
const char* class_name(const DL::Drawable* drawable);
// Every class name `class_name` knows, in a fixed order.
const std::vector<const char*>& class_names();
}  // namespace dlview
