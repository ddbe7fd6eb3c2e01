// The demo city; see demo_drawing.h.
#include "tools/demo_drawing.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "backends/freetype/freetype_engine.h"
#include "drawables/dot.h"
#include "drawables/image.h"
#include "drawables/polything.h"
#include "drawables/polytriangle.h"
#include "drawables/row_of_dots.h"
#include "dxf/text_label.h"
#include "ellipse/ellipse.h"
#include "nested/drawable_display_list.h"

namespace dlview {

using DL::dxf::make_label;
using DL::dxf::to_utf16;

namespace {

constexpr double kSheet = 268435456.0;  // 2^28
constexpr float kPi = 3.14159265f;

using DL::WorldBounds;
using DL::WorldPoint;

// splitmix64: the same numbers on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  // In [0, 1).
  double unit() { return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0); }
  int below(int n) { return static_cast<int>(next() % static_cast<std::uint64_t>(n)); }

 private:
  std::uint64_t state_;
};

WorldPoint pt(double x, double y) {
  return {DL::round_to_int32_saturated(x), DL::round_to_int32_saturated(y)};
}

WorldBounds bounds_of(const std::vector<WorldPoint>& p) {
  WorldBounds b = WorldBounds::empty();
  for (const WorldPoint& q : p) b.merge(WorldBounds{q, q});
  return b;
}

ZR_RGB32 rgb(int r, int g, int b) {
  return static_cast<ZR_RGB32>((std::clamp(r, 0, 255) << 16) | (std::clamp(g, 0, 255) << 8) |
                               std::clamp(b, 0, 255));
}

const char* const kStreetNames[] = {"Oak",    "Elm",    "Pine",  "Maple", "Cedar", "Birch",
                                    "Ash",    "Willow", "Alder", "Rowan", "Hazel", "Linden",
                                    "Poplar", "Spruce", "Larch", "Yew"};
const char* const kStreetKinds[] = {"Street", "Avenue", "Road", "Lane"};

}  // namespace

DemoDrawing::DemoDrawing(ZR_Text_Engine* engine)
    : engine_(engine), font_(DL::FreeTypeTextEngine::make_font("DejaVu Sans")) {
  if (engine_) add_ref(engine_);
  for (const char* name : {"avenues", "streets", "markings", "contours", "buildings", "parks",
                           "gardens", "roundabouts", "trees", "labels", "symbols", "photos"}) {
    auto layer = std::make_unique<DL::Extra_Layer_Info>();
    layer->shown = 1;
    layers_[name] = std::move(layer);
  }
  // The aerial photograph: 48 x 36 pixels of fields and a river, scaled by
  // the renderer to the world rectangle each copy covers.
  constexpr int kW = 48, kH = 36;
  auto* photo = new ZR_Image_Data;
  photo->width = kW;
  photo->height = kH;
  photo->pixels.resize(kW * kH);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const double river = std::fabs(y - kH / 2 - 6 * std::sin(x / 6.0));
      const bool field = ((x / 6) + (y / 5)) % 2 == 0;
      photo->pixels[static_cast<std::size_t>(y * kW + x)] =
          river < 2 ? rgb(40, 90, 200 - static_cast<int>(river) * 30)
          : field   ? rgb(170 + x % 7, 190, 90)
                    : rgb(120, 160 + y % 9, 70);
    }
  photo_ = ZR_Image(photo);
}

DemoDrawing::~DemoDrawing() {
  for (Item& item : items_) item.drawable->destroy();
  items_.clear();
  symbols_.clear();
  if (engine_) release(engine_);
}

DL::Extra_Layer_Info* DemoDrawing::layer(const std::string& name) {
  auto it = layers_.find(name);
  return it == layers_.end() ? nullptr : it->second.get();
}

std::vector<std::string> DemoDrawing::layer_names() const {
  std::vector<std::string> out;
  for (const auto& [name, layer] : layers_) out.push_back(name);
  return out;
}

std::string DemoDrawing::symbol_name(const DL::DisplayList* list) const {
  static const char* const kNames[] = {"tree", "house", "parking sign"};
  for (std::size_t k = 0; k < symbols_.size() && k < 3; ++k)
    if (symbols_[k].get() == list) return kNames[k];
  return "";
}

double DemoDrawing::min_scale(const std::string& name) const {
  // Pixels a block must span for the layer to be drawn.
  static const std::map<std::string, double> kBlockPixels = {
      {"trees", 20},    {"symbols", 25},  {"labels", 60}, {"roundabouts", 10},
      {"contours", 10}, {"markings", 10}, {"streets", 6}, {"gardens", 10}};
  auto it = kBlockPixels.find(name);
  return it == kBlockPixels.end() ? 0.0 : it->second / cell_;
}

void DemoDrawing::add(DL::Drawable* d, const WorldBounds& b, DL::Extra_Layer_Info* layer) {
  d->set_layer(layer);
  items_.push_back({d, b});
}

// Three symbols in worlds of +-1000 units: a tree, a house, a parking sign.
void DemoDrawing::make_symbols() {
  symbols_.clear();
  for (int k = 0; k < 3; ++k) {
    auto list = std::make_unique<DL::DisplayList>();
    list->saturate_device_points = true;
    DL::DisplayList& l = *list;
    auto put = [&l](DL::Drawable* d) {
      WorldBounds b = WorldBounds::empty();
      d->add_bounds(b);
      l.add(d, b);
    };
    if (k == 0) {  // tree: crown and trunk
      const WorldPoint trunk[] = {{-120, -1000}, {120, -1000}, {120, -200}, {-120, -200}};
      put(new DL::Polygon(rgb(110, 70, 30), 4, trunk));
      put(new DL::EllipticalPie(rgb(40, 140, 50), {0, 250}, {800, 750}, 0.0f, 0.0f, 6.2f, &l));
      put(new DL::Ellipse(rgb(20, 90, 30), {0, 250}, {800, 750}, 0.0f, &l));
    } else if (k == 1) {  // house: walls, roof, door
      const WorldPoint walls[] = {{-800, -1000}, {800, -1000}, {800, 200}, {-800, 200}};
      const WorldPoint roof[] = {{-1000, 200}, {1000, 200}, {0, 1000}};
      const WorldPoint door[] = {{-150, -1000}, {150, -1000}, {150, -400}, {-150, -400}};
      put(new DL::Polygon(rgb(230, 210, 170), 4, walls));
      put(new DL::Polygon(rgb(180, 50, 40), 3, roof));
      put(new DL::Polygon(rgb(90, 60, 40), 4, door));
    } else {  // parking sign: a blue square with a P
      const WorldPoint sign[] = {{-900, -900}, {900, -900}, {900, 900}, {-900, 900}, {-900, -900}};
      put(new DL::Polygon(rgb(30, 80, 200), 4, sign));
      put(new DL::Polyline(rgb(255, 255, 255), 5, sign));
      if (engine_) {
        WorldBounds b;
        DL::Text* t =
            make_label(l, engine_, font_, rgb(255, 255, 255), {-420, -600}, 1600, 0.0, u"P", b);
        if (t) l.add(t, b);
      }
    }
    symbols_.push_back(std::move(list));
  }
}

void DemoDrawing::build(DL::DisplayList& list, const DemoOptions& options) {
  for (Item& item : items_) item.drawable->destroy();
  items_.clear();
  make_symbols();
  const int n = std::clamp(options.blocks_per_side, 1, 4096);
  const double cell = std::floor(kSheet / n);
  const double street = cell / 10;  // street width
  cell_ = cell;
  extent_ = {{0, 0}, pt(cell * n, cell * n)};
  // Every photograph covers the same world rectangle (below), at any zoom.
  photo_.get()->world_width = std::floor(cell * 0.2);
  photo_.get()->world_height = std::floor(cell * 0.15);
  // The first point of the lower street of block (1, 1): nothing else is near.
  street_point_ = n > 1 ? pt(cell, cell + street / 2) : pt(0, street / 2);
  Random random(options.seed);
  items_.reserve(static_cast<std::size_t>(n) * n * 19);
  DL::Extra_Layer_Info* avenues = layer("avenues");
  DL::Extra_Layer_Info* streets = layer("streets");
  DL::Extra_Layer_Info* markings = layer("markings");
  DL::Extra_Layer_Info* contours = layer("contours");
  DL::Extra_Layer_Info* buildings = layer("buildings");
  DL::Extra_Layer_Info* parks = layer("parks");
  DL::Extra_Layer_Info* gardens = layer("gardens");
  DL::Extra_Layer_Info* roundabouts = layer("roundabouts");
  DL::Extra_Layer_Info* trees = layer("trees");
  DL::Extra_Layer_Info* labels = layer("labels");
  DL::Extra_Layer_Info* symbols = layer("symbols");
  DL::Extra_Layer_Info* photos = layer("photos");
  auto poly = [&](auto* made, const std::vector<WorldPoint>& p, DL::Extra_Layer_Info* l) {
    add(made, bounds_of(p), l);
  };

  // The river's centre line, in blocks: a slow wave across the city.
  auto river_y = [n](double x) {
    return n * (0.45 + 0.18 * std::sin(x / n * 2 * kPi * 1.3) + 0.05 * std::sin(x / n * 19.0));
  };
  const double river_half = std::max(0.6, n / 60.0);  // half its width, in blocks
  for (int cy = 0; cy < n; ++cy) {
    for (int cx = 0; cx < n; ++cx) {
      const double x0 = cx * cell, y0 = cy * cell;
      const int index = cy * n + cx;
      // Districts of 8 x 8 blocks: 0 residential, 1 commercial, 2 industrial,
      // 3 parkland; the river's blocks are water.
      const std::uint64_t h = (static_cast<std::uint64_t>(cx / 8) * 0x9e3779b97f4a7c15ull) ^
                              (static_cast<std::uint64_t>(cy / 8) * 0xc2b2ae3d27d4eb4full);
      const int district = static_cast<int>((h >> 29) % 7 % 4);
      const bool water = std::fabs(cy + 0.5 - river_y(cx + 0.5)) < river_half;
      // The district's ground, under all its blocks: its first block in
      // the order of building comes before the others.
      if (cx % 8 == 0 && cy % 8 == 0) {
        const double x1 = std::min(n, cx + 8) * cell, y1 = std::min(n, cy + 8) * cell;
        static const ZR_RGB32 kGround[] = {rgb(236, 222, 204), rgb(208, 216, 232),
                                           rgb(216, 216, 210), rgb(176, 214, 156)};
        std::vector<WorldPoint> p = {pt(x0, y0), pt(x1, y0), pt(x1, y1), pt(x0, y1)};
        poly(new DL::Polygon(kGround[district], 4, p.data()), p, avenues);
      }
      // Avenues between the districts: a wide band along the lower and left
      // edges of every eighth row and column, under the streets.
      for (int axis = 0; axis < 2 && n >= 8; ++axis) {
        if ((axis == 0 ? cy : cx) % 8 != 0) continue;
        const double half = street * 2.5;
        std::vector<WorldPoint> p =
            axis == 0 ? std::vector<WorldPoint>{pt(x0, y0 - half), pt(x0 + cell, y0 - half),
                                                pt(x0 + cell, y0 + half), pt(x0, y0 + half)}
                      : std::vector<WorldPoint>{pt(x0 - half, y0), pt(x0 + half, y0),
                                                pt(x0 + half, y0 + cell), pt(x0 - half, y0 + cell)};
        poly(new DL::Polygon(rgb(105, 105, 110), 4, p.data()), p, avenues);
      }
      // Streets: lower and left edges, gently bent, with centre dashes.
      {
        std::vector<WorldPoint> low, left, dashes;
        for (int i = 0; i <= 4; ++i) {
          const double bend = street * 0.15 * std::sin(index * 0.7 + i);
          low.push_back(pt(x0 + cell * i / 4, y0 + street / 2 + (i % 4 ? bend : 0)));
          left.push_back(pt(x0 + street / 2 + (i % 4 ? bend : 0), y0 + cell * i / 4));
        }
        poly(new DL::Polyline(rgb(128, 128, 128), 5, low.data()), low, streets);
        poly(new DL::Polyline(rgb(128, 128, 128), 5, left.data()), left, streets);
        for (int i = 0; i < 4; ++i) {
          dashes.push_back(pt(x0 + street + cell * (2 * i + 0.5) / 9, y0 + street / 2));
          dashes.push_back(pt(x0 + street + cell * (2 * i + 1.2) / 9, y0 + street / 2));
        }
        poly(new DL::Polysegment(rgb(250, 250, 250), 8, dashes.data()), dashes, markings);
      }
      // A contour line across the block, shaded by height.
      {
        std::vector<WorldPoint> line;
        std::vector<ZR_RGB32> shade;
        const double h = random.unit();
        for (int i = 0; i <= 6; ++i) {
          line.push_back(
              pt(x0 + street + (cell - street) * i / 6,
                 y0 + street + (cell - street) * (0.3 + 0.4 * h + 0.1 * std::sin(i + h))));
          shade.push_back(rgb(140 + 15 * i, 100 + 10 * i, 60));
        }
        poly(new DL::GouraudPolyline(rgb(160, 110, 60), 7, line.data(), shade.data()), line,
             contours);
      }
      if (water || (district == 3 && index % 3 != 0)) {
        // The whole block, inside its streets: water or a park.
        std::vector<WorldPoint> p = {pt(x0 + street, y0 + street), pt(x0 + cell, y0 + street),
                                     pt(x0 + cell, y0 + cell), pt(x0 + street, y0 + cell)};
        poly(new DL::Polygon(water ? rgb(90, 150, 220) : rgb(110, 185, 95), 4, p.data()), p, parks);
        continue;
      }
      // Buildings in the block's upper part.
      const double bx0 = x0 + street * 1.5, by0 = y0 + cell * 0.45;
      const double bw = cell - street * 2.0, bh = cell * 0.5;
      const int count = 4 + random.below(3);
      for (int b = 0; b < count; ++b) {
        const double u0 = bx0 + bw * b / count + street * 0.2;
        const double u1 = bx0 + bw * (b + 1) / count - street * 0.2;
        const double v0 = by0 + bh * 0.1 * random.unit();
        const double v1 = by0 + bh * (0.6 + 0.4 * random.unit());
        const int v = random.below(40);
        const ZR_RGB32 c = district == 1   ? rgb(120 + v, 140 + v, 175 + v)
                           : district == 2 ? rgb(150 + v, 150 + v, 145 + v)
                                           : rgb(200 + v, 130 + v, 100 + v / 2);
        std::vector<WorldPoint> p;
        if (random.below(3) == 0) {  // an L
          const double um = (u0 + u1) / 2, vm = (v0 + v1) / 2;
          p = {pt(u0, v0), pt(u1, v0), pt(u1, vm), pt(um, vm), pt(um, v1), pt(u0, v1)};
        } else {
          p = {pt(u0, v0), pt(u1, v0), pt(u1, v1), pt(u0, v1)};
        }
        poly(new DL::Polygon(c, static_cast<int>(p.size()), p.data()), p, buildings);
      }
      // A park: a shaded strip in the lower right.
      {
        std::vector<WorldPoint> p;
        std::vector<ZR_RGB32> shade;
        const double px0 = x0 + cell * 0.55, py0 = y0 + street * 1.5;
        for (int i = 0; i < 8; ++i) {
          p.push_back(pt(px0 + cell * 0.4 * (i / 2) / 3, py0 + (i % 2) * cell * 0.25));
          shade.push_back(rgb(60 + 20 * (i % 3), 150 + 12 * (i / 2), 60));
        }
        poly(new DL::GouraudPolytriangle(rgb(60, 160, 60), 8, p.data(), shade.data()), p, gardens);
      }
      // A pond or a plaza in the lower left.
      {
        const double qx = x0 + street * 1.5, qy = y0 + street * 1.5, s = cell * 0.25;
        std::vector<WorldPoint> p = {pt(qx, qy), pt(qx + s, qy), pt(qx + s * 0.1, qy + s * 0.8),
                                     pt(qx + s * 0.9, qy + s * 0.9)};
        if (index % 2 == 0)
          poly(new DL::PolytriangleWithNoBorder(rgb(80, 140, 230), 4, p.data()), p, gardens);
        else
          poly(new DL::Polytriangle(rgb(210, 200, 180), 4, p.data()), p, gardens);
      }
      // Every fourth block: a roof with texture data.
      if (index % 4 == 0) {
        const double rx = x0 + cell * 0.3, ry = y0 + cell * 0.3, s = cell * 0.1;
        std::vector<WorldPoint> p = {pt(rx, ry), pt(rx + s, ry), pt(rx, ry + s),
                                     pt(rx + s, ry + s)};
        const ZR_RGB32 colors[] = {rgb(200, 80, 60), rgb(180, 60, 40), rgb(220, 100, 80),
                                   rgb(160, 50, 30)};
        const ZR_Vertex_Parameters uv[] = {{{0, 0, 0}}, {{1, 0, 0}}, {{0, 1, 0}}, {{1, 1, 0}}};
        poly(new DL::TexturedPolytriangle(rgb(200, 80, 60), 4, p.data(), colors, uv, nullptr,
                                          nullptr),
             p, buildings);
      }
      // A roundabout at every other crossing.
      if (cx % 2 == 0 && cy % 2 == 0) {
        const WorldPoint c = pt(x0 + street / 2, y0 + street / 2);
        const auto r = static_cast<DL::WorldCoord>(street * 1.4);
        const auto r2 = static_cast<DL::WorldCoord>(street * 0.9);
        auto ring = [&](DL::Drawable* d) {
          WorldBounds b = WorldBounds::empty();
          d->add_bounds(b);
          add(d, b, roundabouts);
        };
        ring(new DL::Ellipse(rgb(100, 100, 100), c, {r, r}, 0.0f, &list));
        ring(new DL::EllipticalPie(rgb(90, 170, 80), c, {r2, r2}, 0.0f, 0.0f, kPi, &list));
        ring(new DL::EllipticalArc(rgb(240, 200, 40), c, {(r + r2) / 2, (r + r2) / 2}, 0.3f, 0.0f,
                                   1.5f * kPi, &list));
        ring(new DL::ColorizedEllipse(rgb(0, 0, 0), c, {r2 / 2, r2 / 3}, 0.5f, 0.0f, 2 * kPi,
                                      rgb(220, 40, 40), true, &list));
      }
      // Trees, lamps and bus stops.
      {
        const WorldPoint t1 = pt(x0 + cell * 0.6, y0 + cell * 0.42);
        const WorldPoint t2 = pt(x0 + cell * 0.8, y0 + cell * 0.42);
        add(new DL::Dot(rgb(30, 120, 40), t1), {t1, t1}, trees);
        add(new DL::ColorizedDot(rgb(30, 120, 40), t2, rgb(60, 160, 40)), {t2, t2}, trees);
        std::vector<WorldPoint> grove;
        for (int i = 0; i < 5; ++i)
          grove.push_back(pt(x0 + cell * (0.62 + 0.05 * i), y0 + cell * (0.2 + 0.03 * (i % 2))));
        poly(new DL::Polydot(rgb(20, 100, 30), 5, grove.data()), grove, trees);
        const WorldPoint lamp0 = pt(x0 + street * 1.1, y0 + street * 1.5);
        const WorldPoint step = pt(0, (cell - street * 2) / 7);
        auto* lamps = new DL::RowOfDots(rgb(240, 180, 0), lamp0, step, 8);
        add(lamps, {lamp0, lamps->last_dot()}, trees);
        std::vector<WorldPoint> stops = {pt(x0 + cell * 0.3, y0 + street * 1.1),
                                         pt(x0 + cell * 0.7, y0 + street * 1.1),
                                         pt(x0 + street * 1.1, y0 + cell * 0.6)};
        poly(new DL::Polymarker(rgb(200, 0, 160), 3, stops.data()), stops, trees);
      }
      // The street's name.
      if (engine_) {
        std::string name = std::string(kStreetNames[(cx + 3 * cy) % 16]) + " " +
                           kStreetKinds[cy % 4] + " " + std::to_string(cx + 1);
        WorldBounds b;
        DL::Text* t = make_label(list, engine_, font_, rgb(20, 20, 20),
                                 {x0 + street * 1.5, y0 + street * 0.25}, street * 0.5, 0.0,
                                 to_utf16(name), b);
        if (t) add(t, b, labels);
      }
      // A symbol through a nested list.
      {
        DL::DisplayList* symbol = symbols_[static_cast<std::size_t>(index % 3)].get();
        auto* nested = new DL::DrawableDisplayList(rgb(0, 0, 0), symbol, nullptr,
                                                   DL::DrawableDisplayList::Ownership::borrowed);
        const double s = street * 0.8 / 1000.0;
        nested->set_scale({s, s});
        nested->set_offset({x0 + cell * 0.9, y0 + cell * 0.3});
        add(nested, nested->mapped_bounds(), symbols);
      }
      // Now and then an aerial photograph.
      if (index % 397 == 0) {
        const WorldPoint corner = pt(x0 + cell * 0.35, y0 + cell * 0.6);
        const WorldBounds b{
            corner, pt(corner.x + std::floor(cell * 0.2), corner.y + std::floor(cell * 0.15))};
        add(new DL::Image(rgb(0, 0, 0), b, photo_), b, photos);
      }
    }
  }
}

void DemoDrawing::insert(DL::DisplayList& list) {
  for (const Item& item : items_) list.add(item.drawable, item.bounds);
  items_.clear();
}

}  // namespace dlview

namespace dlview {

namespace {

struct ClassEntry {
  void* token;
  const char* name;
};

const std::vector<ClassEntry>& class_table() {
  static const std::vector<ClassEntry> table = {
      {&DL::Dot::_drawable_type_dummy, "Dot"},
      {&DL::ColorizedDot::_drawable_type_dummy, "ColorizedDot"},
      {&DL::Polydot::_drawable_type_dummy, "Polydot"},
      {&DL::Polygon::_drawable_type_dummy, "Polygon"},
      {&DL::Polyline::_drawable_type_dummy, "Polyline"},
      {&DL::GouraudPolyline::_drawable_type_dummy, "GouraudPolyline"},
      {&DL::Polymarker::_drawable_type_dummy, "Polymarker"},
      {&DL::Polysegment::_drawable_type_dummy, "Polysegment"},
      {&DL::PolytriangleWithNoBorder::_drawable_type_dummy, "PolytriangleWithNoBorder"},
      {&DL::Polytriangle::_drawable_type_dummy, "Polytriangle"},
      {&DL::GouraudPolytriangle::_drawable_type_dummy, "GouraudPolytriangle"},
      {&DL::TexturedPolytriangle::_drawable_type_dummy, "TexturedPolytriangle"},
      {&DL::RowOfDots::_drawable_type_dummy, "RowOfDots"},
      {&DL::Image::_drawable_type_dummy, "Image"},
      {&DL::Ellipse::_drawable_type_dummy, "Ellipse"},
      {&DL::EllipticalArc::_drawable_type_dummy, "EllipticalArc"},
      {&DL::EllipticalPie::_drawable_type_dummy, "EllipticalPie"},
      {&DL::ColorizedEllipse::_drawable_type_dummy, "ColorizedEllipse"},
      {&DL::Text::_drawable_type_dummy, "Text"},
      {&DL::DrawableDisplayList::_drawable_type_dummy, "DrawableDisplayList"},
  };
  return table;
}

}  // namespace

const char* class_name(const DL::Drawable* drawable) {
  if (!drawable) return "none";
  for (const ClassEntry& e : class_table())
    if (e.token == drawable->type()) return e.name;
  return "unknown";
}

const std::vector<const char*>& class_names() {
  static const std::vector<const char*> names = [] {
    std::vector<const char*> out;
    for (const ClassEntry& e : class_table()) out.push_back(e.name);
    return out;
  }();
  return names;
}

}  // namespace dlview
