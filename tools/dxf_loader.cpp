// Reading DXF files through dxflib into the entity list of dxf_loader.h, the
// layout of a sheet, and the mapping to drawables.
#include "tools/dxf_loader.h"

#include <dxflib/dl_creationadapter.h>
#include <dxflib/dl_dxf.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <set>

namespace dlview {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;
constexpr double kChordAngle = 5.0 * kDegree;  // flattening: at most 5 degrees a chord
// Cells of one INSERT array at most: a few bytes of a file must not ask for
// billions of copies (real arrays hold hundreds).
constexpr long long kMaxArrayCells = 65536;

std::string upper(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return s;
}

std::string trim(const std::string& s) {
  std::size_t a = s.find_first_not_of(" \t\r\n");
  if (a == std::string::npos) return "";
  std::size_t b = s.find_last_not_of(" \t\r\n");
  return s.substr(a, b - a + 1);
}

// Appends the points of the arc of `sweep` radians (sign: direction) around
// `c` from angle `a0`, the first point excluded.
void append_arc(std::vector<DxfPoint>& out, DxfPoint c, double rx, double ry, double rotation,
                double a0, double sweep) {
  // One turn at most, whatever angles the file gave (NaN sweeps nothing): the
  // count of chords then fits an int and stays small.
  if (!(std::fabs(sweep) <= 2 * kPi))
    sweep = std::isnan(sweep) ? 0.0 : std::copysign(2 * kPi, sweep);
  int n = std::max(1, static_cast<int>(std::ceil(std::fabs(sweep) / kChordAngle)));
  const double cs = std::cos(rotation), sn = std::sin(rotation);
  for (int i = 1; i <= n; ++i) {
    double t = a0 + sweep * i / n;
    double ex = rx * std::cos(t), ey = ry * std::sin(t);
    out.push_back({c.x + cs * ex - sn * ey, c.y + sn * ex + cs * ey});
  }
}

// The chords of the bulged segment a-b (bulge: tangent of a quarter of the
// included angle, positive counter-clockwise), b included.
void append_bulge(std::vector<DxfPoint>& out, DxfPoint a, DxfPoint b, double bulge) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double chord = std::hypot(dx, dy);
  if (bulge == 0.0 || chord == 0.0 || !std::isfinite(bulge)) {
    out.push_back(b);
    return;
  }
  const double theta = 4.0 * std::atan(bulge);
  const double h = (chord / 2.0) / std::tan(theta / 2.0);  // midpoint to centre, leftward
  const DxfPoint c{(a.x + b.x) / 2.0 - dy / chord * h, (a.y + b.y) / 2.0 + dx / chord * h};
  const double r = std::hypot(a.x - c.x, a.y - c.y);
  append_arc(out, c, r, r, 0.0, std::atan2(a.y - c.y, a.x - c.x), theta);
  out.back() = b;  // end exactly on the vertex
}

bool finite(const DxfEntity& e) {
  auto ok = [](double v) { return std::isfinite(v); };
  for (const DxfPoint& p : e.points)
    if (!ok(p.x) || !ok(p.y)) return false;
  for (const auto& loop : e.loops)
    for (const DxfPoint& p : loop)
      if (!ok(p.x) || !ok(p.y)) return false;
  return ok(e.center.x) && ok(e.center.y) && ok(e.radius_x) && ok(e.radius_y) && ok(e.rotation) &&
         ok(e.start) && ok(e.end) && ok(e.height) && ok(e.scale.x) && ok(e.scale.y) &&
         ok(e.spacing.x) && ok(e.spacing.y);
}

// The dxflib callbacks: each entity goes to the container being filled (model
// space, or the block being read).
class Reader : public DL_CreationAdapter {
 public:
  explicit Reader(DxfDrawing& d) : d_(d), target_(&d.entities) {}

  void addLayer(const DL_LayerData& data) override {
    DxfLayer& layer = d_.layers[data.name];
    layer.name = data.name;
    int aci = attributes.getColor();
    layer.off = data.off || aci < 0;
    layer.frozen = (data.flags & 1) != 0;
    int c24 = attributes.getColor24();
    layer.color = c24 >= 0 ? static_cast<ZR_RGB32>(c24) & 0xffffff : aci_color(std::abs(aci));
  }

  void addBlock(const DL_BlockData& data) override {
    DxfBlock& block = d_.blocks[data.name];
    block.base = {data.bpx, data.bpy};
    target_ = &block.entities;
  }
  void endBlock() override { target_ = &d_.entities; }

  void addPoint(const DL_PointData& p) override { add(DxfKind::point).points = {{p.x, p.y}}; }
  void addLine(const DL_LineData& l) override {
    add(DxfKind::line).points = {{l.x1, l.y1}, {l.x2, l.y2}};
  }
  void addCircle(const DL_CircleData& c) override {
    DxfEntity& e = add(DxfKind::circle);
    e.center = {c.cx, c.cy};
    e.radius_x = e.radius_y = c.radius;
    e.end = 2.0 * kPi;
  }
  void addArc(const DL_ArcData& a) override {
    DxfEntity& e = add(DxfKind::arc);
    e.center = {a.cx, a.cy};
    e.radius_x = e.radius_y = a.radius;
    e.start = a.angle1 * kDegree;
    e.end = a.angle2 * kDegree;
  }
  void addEllipse(const DL_EllipseData& el) override {
    DxfEntity& e = add(DxfKind::ellipse);
    e.center = {el.cx, el.cy};
    e.radius_x = std::hypot(el.mx, el.my);
    e.radius_y = e.radius_x * el.ratio;
    e.rotation = std::atan2(el.my, el.mx);
    e.start = el.angle1;
    e.end = el.angle2;
  }
  void addPolyline(const DL_PolylineData& p) override {
    if (p.flags & (16 | 64)) {  // polygon or polyface mesh
      ++d_.skipped["POLYLINE (mesh)"];
      polyline_ = nullptr;
      return;
    }
    DxfEntity& e = add(DxfKind::polyline);
    e.closed = (p.flags & 1) != 0;
    polyline_ = &e;
    bulges_.clear();
    raw_.clear();
  }
  void addVertex(const DL_VertexData& v) override {
    if (!polyline_) return;
    raw_.push_back({v.x, v.y});
    bulges_.push_back(v.bulge);
    flatten_polyline();
  }
  void addSolid(const DL_SolidData& s) override { add_solid(s); }
  void addTrace(const DL_TraceData& t) override { add_solid(t); }
  void addText(const DL_TextData& t) override { add_text(DxfKind::text, t); }
  void addMText(const DL_MTextData& t) override {
    DxfEntity& e = add(DxfKind::mtext);
    e.points = {{t.ipx, t.ipy}};
    e.height = t.height;
    e.rotation = t.angle;
    e.text = t.text;
    e.attachment = t.attachmentPoint >= 1 && t.attachmentPoint <= 9 ? t.attachmentPoint : 1;
    e.line_spacing = t.lineSpacingFactor > 0 ? t.lineSpacingFactor : 1.0;
  }
  void addInsert(const DL_InsertData& i) override {
    if (static_cast<long long>(std::max(1, i.cols)) * std::max(1, i.rows) > kMaxArrayCells) {
      ++d_.skipped["INSERT (array over 65536 cells)"];
      return;
    }
    DxfEntity& e = add(DxfKind::insert);
    e.block = i.name;
    e.points = {{i.ipx, i.ipy}};
    e.scale = {i.sx, i.sy};
    e.rotation = i.angle * kDegree;
    e.columns = std::max(1, i.cols);
    e.rows = std::max(1, i.rows);
    e.spacing = {i.colSp, i.rowSp};
  }
  void addHatch(const DL_HatchData& h) override {
    if (!h.solid) {
      ++d_.skipped["HATCH (pattern)"];
      hatch_ = nullptr;
      return;
    }
    hatch_ = &add(DxfKind::hatch);
  }
  void addHatchLoop(const DL_HatchLoopData&) override {
    if (hatch_) hatch_->loops.emplace_back();
  }
  void addHatchEdge(const DL_HatchEdgeData& edge) override {
    if (!hatch_ || hatch_->loops.empty()) return;
    std::vector<DxfPoint>& loop = hatch_->loops.back();
    switch (edge.type) {
      case 0: {  // polyline boundary: x, y, bulge per vertex
        std::vector<DxfPoint> flat;
        for (std::size_t i = 0; i < edge.vertices.size(); ++i) {
          const auto& v = edge.vertices[i];
          if (v.size() < 2) continue;
          DxfPoint p{v[0], v[1]};
          if (flat.empty()) {
            flat.push_back(p);
          } else {
            double bulge = edge.vertices[i - 1].size() > 2 ? edge.vertices[i - 1][2] : 0.0;
            append_bulge(flat, flat.back(), p, bulge);
          }
        }
        loop.insert(loop.end(), flat.begin(), flat.end());
        break;
      }
      case 1:
        if (loop.empty()) loop.push_back({edge.x1, edge.y1});
        loop.push_back({edge.x2, edge.y2});
        break;
      case 2:
      case 3: {
        // Arc or elliptic arc (dxflib gives radians), counter-clockwise unless
        // `ccw` is false, in which case the angles are mirrored.
        const bool arc = edge.type == 2;
        // dxflib leaves `ccw` unset when the file has no flag: read its byte,
        // not a bool that may hold any value.
        unsigned char ccw_byte;
        std::memcpy(&ccw_byte, &edge.ccw, 1);
        const bool ccw = ccw_byte != 0;
        double a1 = edge.angle1;
        double a2 = edge.angle2;
        double rx = arc ? edge.radius : std::hypot(edge.mx, edge.my);
        double ry = arc ? edge.radius : rx * edge.ratio;
        double rot = arc ? 0.0 : std::atan2(edge.my, edge.mx);
        if (!ccw) {
          a1 = -a1;
          a2 = -a2;
        }
        double sweep = a2 - a1;
        if (ccw && sweep < 0) sweep += 2 * kPi;
        if (!ccw && sweep > 0) sweep -= 2 * kPi;
        const double cs = std::cos(rot), sn = std::sin(rot);
        DxfPoint first{edge.cx + cs * rx * std::cos(a1) - sn * ry * std::sin(a1),
                       edge.cy + sn * rx * std::cos(a1) + cs * ry * std::sin(a1)};
        loop.push_back(first);
        append_arc(loop, {edge.cx, edge.cy}, rx, ry, rot, a1, sweep);
        break;
      }
      case 4:  // spline: its control polygon, a fair outline for a fill
        for (const auto& c : edge.controlPoints)
          if (c.size() >= 2) loop.push_back({c[0], c[1]});
        break;
      default:
        break;
    }
  }

  void addSpline(const DL_SplineData&) override { ++d_.skipped["SPLINE"]; }
  void addXLine(const DL_XLineData&) override { ++d_.skipped["XLINE"]; }
  void addRay(const DL_RayData&) override { ++d_.skipped["RAY"]; }
  void add3dFace(const DL_3dFaceData&) override { ++d_.skipped["3DFACE"]; }
  void addImage(const DL_ImageData&) override { ++d_.skipped["IMAGE"]; }
  void addLeader(const DL_LeaderData&) override { ++d_.skipped["LEADER"]; }
  void addAttribute(const DL_AttributeData& a) override { add_text(DxfKind::attrib, a); }
  void addArcAlignedText(const DL_ArcAlignedTextData&) override { ++d_.skipped["ARCALIGNEDTEXT"]; }
  void addDimAlign(const DL_DimensionData&, const DL_DimAlignedData&) override { dimension(); }
  void addDimLinear(const DL_DimensionData&, const DL_DimLinearData&) override { dimension(); }
  void addDimRadial(const DL_DimensionData&, const DL_DimRadialData&) override { dimension(); }
  void addDimDiametric(const DL_DimensionData&, const DL_DimDiametricData&) override {
    dimension();
  }
  void addDimAngular(const DL_DimensionData&, const DL_DimAngular2LData&) override { dimension(); }
  void addDimAngular3P(const DL_DimensionData&, const DL_DimAngular3PData&) override {
    dimension();
  }
  void addDimOrdinate(const DL_DimensionData&, const DL_DimOrdinateData&) override { dimension(); }

  // Drops what has non-finite numbers, once the file is read.
  void finish() {
    auto drop = [&](std::vector<DxfEntity>& list) {
      auto bad =
          std::remove_if(list.begin(), list.end(), [](const DxfEntity& e) { return !finite(e); });
      d_.invalid += list.end() - bad;
      list.erase(bad, list.end());
    };
    drop(d_.entities);
    for (auto& [name, block] : d_.blocks) drop(block.entities);
  }

 private:
  void dimension() { ++d_.skipped["DIMENSION"]; }

  DxfEntity& add(DxfKind kind) {
    polyline_ = nullptr;
    hatch_ = nullptr;
    target_->emplace_back();
    DxfEntity& e = target_->back();
    e.kind = kind;
    e.layer = attributes.getLayer();
    int c24 = attributes.getColor24();
    int aci = attributes.getColor();
    if (c24 >= 0) {
      e.color = static_cast<ZR_RGB32>(c24) & 0xffffff;
    } else if (aci == 256) {
      auto it = d_.layers.find(e.layer);
      e.color = it == d_.layers.end() ? 0 : it->second.color;
    } else if (aci == 0) {
      e.by_block = target_ != &d_.entities;
      e.color = 0;
    } else {
      e.color = aci_color(std::abs(aci));
    }
    return e;
  }

  void add_text(DxfKind kind, const DL_TextData& t) {
    DxfEntity& e = add(kind);
    e.points = {{t.ipx, t.ipy}};
    e.height = t.height;
    e.rotation = t.angle;  // dxflib gives radians here
    e.text = t.text;
    e.halign = t.hJustification;
    e.valign = t.vJustification;
    e.align_point = {t.apx, t.apy};
  }

  template <class S>
  void add_solid(const S& s) {
    DxfEntity& e = add(DxfKind::solid);
    // The file's corners go 1, 2, 3, 4 in a Z: the outline is 1, 2, 4, 3.
    e.points = {{s.x[0], s.y[0]}, {s.x[1], s.y[1]}, {s.x[3], s.y[3]}, {s.x[2], s.y[2]}};
    if (s.x[3] == s.x[2] && s.y[3] == s.y[2]) e.points.erase(e.points.begin() + 2);
  }

  // Rebuilds the current polyline's points from its vertices and bulges.
  void flatten_polyline() {
    DxfEntity& e = *polyline_;
    e.points.assign(raw_.begin(), raw_.begin() + 1);
    for (std::size_t i = 1; i < raw_.size(); ++i)
      append_bulge(e.points, raw_[i - 1], raw_[i], bulges_[i - 1]);
    if (e.closed && raw_.size() > 1 && bulges_.back() != 0.0)
      append_bulge(e.points, raw_.back(), raw_.front(), bulges_.back());
  }

  DxfDrawing& d_;
  std::vector<DxfEntity>* target_;
  DxfEntity* polyline_ = nullptr;  // the polyline taking vertices
  DxfEntity* hatch_ = nullptr;     // the solid hatch taking loops
  std::vector<DxfPoint> raw_;
  std::vector<double> bulges_;
};

// The first group of an ASCII DXF, after comments, is "0" / "SECTION".
bool looks_like_dxf(const std::string& path, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  char head[22] = {};
  in.read(head, sizeof head - 1);
  if (std::string(head).rfind("AutoCAD Binary DXF", 0) == 0) {
    error = path + ": binary DXF is not supported (save it as ASCII DXF)";
    return false;
  }
  in.clear();
  in.seekg(0);
  std::string code, value;
  for (int pairs = 0; pairs < 64 && std::getline(in, code) && std::getline(in, value); ++pairs) {
    code = trim(code);
    value = trim(value);
    if (code == "999") continue;
    if (code == "0" && upper(value) == "SECTION") return true;
    break;
  }
  error = path + ": not a DXF file";
  return false;
}

// Counts the entities of the ENTITIES and BLOCKS sections that no callback of
// the reader receives, by name, into `skipped`.
void count_unread_entities(const std::string& path, DxfDrawing& drawing) {
  static const std::set<std::string> read = {
      "LINE",    "LWPOLYLINE", "POLYLINE", "VERTEX",    "SEQEND",         "CIRCLE", "ARC",
      "ELLIPSE", "POINT",      "TEXT",     "MTEXT",     "SOLID",          "TRACE",  "HATCH",
      "INSERT",  "ATTRIB",     "BLOCK",    "ENDBLK",    "SPLINE",         "XLINE",  "RAY",
      "3DFACE",  "IMAGE",      "LEADER",   "DIMENSION", "ARCALIGNEDTEXT", "ENDSEC"};
  std::ifstream in(path, std::ios::binary);
  std::string code, value;
  bool in_section = false, name_next = false;
  while (std::getline(in, code) && std::getline(in, value)) {
    code = trim(code);
    value = trim(value);
    if (code == "0" && value == "SECTION") {
      name_next = true;
      in_section = false;
      continue;
    }
    if (name_next && code == "2") {
      in_section = value == "ENTITIES" || value == "BLOCKS";
      name_next = false;
      continue;
    }
    if (in_section && code == "0" && !read.count(value)) ++drawing.skipped[value];
  }
}

struct BlockExtents {
  const DxfDrawing& d;
  std::map<std::string, DxfBounds> done;
  std::vector<std::string> open;  // blocks being measured, against cycles

  void add_entity(const DxfEntity& e, DxfBounds& b) {
    switch (e.kind) {
      case DxfKind::circle:
      case DxfKind::arc:
      case DxfKind::ellipse: {
        // The whole ellipse's box: enough for a view's extent.
        const double cs = std::cos(e.rotation), sn = std::sin(e.rotation);
        const double hx = std::hypot(e.radius_x * cs, e.radius_y * sn);
        const double hy = std::hypot(e.radius_x * sn, e.radius_y * cs);
        b.add(e.center.x - hx, e.center.y - hy);
        b.add(e.center.x + hx, e.center.y + hy);
        break;
      }
      case DxfKind::text:
      case DxfKind::attrib:
      case DxfKind::mtext: {
        // A box a character high and roughly as long as the text, turned.
        const double w = 0.7 * e.height * static_cast<double>(e.text.size());
        const DxfPoint o = e.points[0];
        const double cs = std::cos(e.rotation), sn = std::sin(e.rotation);
        for (DxfPoint c :
             {DxfPoint{0, 0}, DxfPoint{w, 0}, DxfPoint{0, e.height}, DxfPoint{w, e.height}})
          b.add(o.x + cs * c.x - sn * c.y, o.y + sn * c.x + cs * c.y);
        break;
      }
      case DxfKind::insert: {
        auto it = d.blocks.find(e.block);
        if (it == d.blocks.end()) break;
        DxfBounds inner = block(e.block);
        if (inner.empty()) break;
        const DxfPoint base = it->second.base;
        const double cs = std::cos(e.rotation), sn = std::sin(e.rotation);
        for (int col = 0; col < e.columns; ++col)
          for (int row = 0; row < e.rows; ++row)
            for (DxfPoint c :
                 {DxfPoint{inner.min_x, inner.min_y}, DxfPoint{inner.max_x, inner.min_y},
                  DxfPoint{inner.min_x, inner.max_y}, DxfPoint{inner.max_x, inner.max_y}}) {
              double x = (c.x - base.x) * e.scale.x + col * e.spacing.x;
              double y = (c.y - base.y) * e.scale.y + row * e.spacing.y;
              b.add(e.points[0].x + cs * x - sn * y, e.points[0].y + sn * x + cs * y);
            }
        break;
      }
      default:
        for (const DxfPoint& p : e.points) b.add(p.x, p.y);
        for (const auto& loop : e.loops)
          for (const DxfPoint& p : loop) b.add(p.x, p.y);
    }
  }

  DxfBounds block(const std::string& name) {
    if (auto it = done.find(name); it != done.end()) return it->second;
    if (std::find(open.begin(), open.end(), name) != open.end() || open.size() > 64) return {};
    open.push_back(name);
    DxfBounds b;
    for (const DxfEntity& e : d.blocks.at(name).entities) add_entity(e, b);
    open.pop_back();
    return done[name] = b;
  }
};

}  // namespace

const char* dxf_kind_name(DxfKind kind) {
  static const char* const names[kDxfKindCount] = {"LINE",    "POLYLINE", "CIRCLE", "ARC",
                                                   "ELLIPSE", "POINT",    "TEXT",   "MTEXT",
                                                   "SOLID",   "HATCH",    "INSERT", "ATTRIB"};
  return names[static_cast<int>(kind)];
}

void DxfBounds::add(double x, double y) {
  if (empty()) {
    min_x = max_x = x;
    min_y = max_y = y;
    return;
  }
  min_x = std::min(min_x, x);
  max_x = std::max(max_x, x);
  min_y = std::min(min_y, y);
  max_y = std::max(max_y, y);
}

std::vector<long> DxfDrawing::counts() const {
  std::vector<long> n(kDxfKindCount, 0);
  for (const DxfEntity& e : entities) ++n[static_cast<int>(e.kind)];
  return n;
}

ZR_RGB32 aci_color(int index) {
  auto rgb = [](int r, int g, int b) { return static_cast<ZR_RGB32>((r << 16) | (g << 8) | b); };
  switch (index) {
    case 1:
      return rgb(255, 0, 0);
    case 2:
      return rgb(255, 255, 0);
    case 3:
      return rgb(0, 255, 0);
    case 4:
      return rgb(0, 255, 255);
    case 5:
      return rgb(0, 0, 255);
    case 6:
      return rgb(255, 0, 255);
    case 8:
      return rgb(128, 128, 128);
    case 9:
      return rgb(192, 192, 192);
    default:
      break;
  }
  if (index >= 250 && index <= 255) {
    static const int grey[] = {51, 80, 105, 130, 190, 255};
    int g = grey[index - 250];
    return rgb(g, g, g);
  }
  if (index < 10 || index > 249) return 0;  // 7 and anything unknown: black on white
  // Hue in steps of 15 degrees; brightness 255, 165, 127, 76, 38; odd entries
  // halfway to the brightness in every channel (half saturated).
  const int hue = (index - 10) / 10;
  const int step = (index % 10) / 2;
  static const int level[] = {255, 165, 127, 76, 38};
  const double v = level[step];
  const double sector = hue / 4.0;  // 60-degree sectors
  const int s = static_cast<int>(sector);
  const double f = sector - s;
  double c[3] = {0, 0, 0};  // r, g, b in 0..1 of v
  switch (s % 6) {
    case 0:
      c[0] = 1;
      c[1] = f;
      break;
    case 1:
      c[0] = 1 - f;
      c[1] = 1;
      break;
    case 2:
      c[1] = 1;
      c[2] = f;
      break;
    case 3:
      c[1] = 1 - f;
      c[2] = 1;
      break;
    case 4:
      c[2] = 1;
      c[0] = f;
      break;
    default:
      c[2] = 1 - f;
      c[0] = 1;
      break;
  }
  int out[3];
  for (int i = 0; i < 3; ++i) {
    double value = c[i] * v;
    if (index % 2 == 1) value = (value + v) / 2.0;
    out[i] = static_cast<int>(value);  // truncated, as the table has it
  }
  return rgb(out[0], out[1], out[2]);
}

bool load_dxf(const std::string& path, DxfDrawing& drawing, std::string& error) {
  drawing = DxfDrawing{};
  drawing.path = path;
  if (!looks_like_dxf(path, error)) return false;
  Reader reader(drawing);
  DL_Dxf dxf;
  bool read = false;
  try {
    read = dxf.in(path, &reader);
  } catch (const std::exception& e) {
    error = path + ": cannot read: " + e.what();
    return false;
  }
  if (!read) {
    error = "cannot read " + path;
    return false;
  }
  reader.finish();
  count_unread_entities(path, drawing);
  BlockExtents extents{drawing, {}, {}};
  for (const DxfEntity& e : drawing.entities) extents.add_entity(e, drawing.extent);
  drawing.block_extents = extents.done;
  if (drawing.entities.empty() || drawing.extent.empty()) {
    error = path + ": empty drawing (no entity in model space)";
    return false;
  }
  return true;
}

DL::WorldPoint Placement::map(const DxfPoint& p) const {
  return {DL::round_to_int32_saturated(p.x * scale + offset_x),
          DL::round_to_int32_saturated(p.y * scale + offset_y)};
}

std::vector<Placement> lay_out(const std::vector<DxfDrawing>& drawings, DL::WorldBounds& sheet) {
  std::vector<Placement> out;
  const double n = std::max<double>(1.0, static_cast<double>(drawings.size()));
  // Each drawing's larger side gets `cell` units, and a sixteenth between them.
  const double cell = std::min(67108864.0, std::floor(1073741824.0 / n / 1.0625));
  double cursor = 0;
  sheet = DL::WorldBounds::empty();
  for (const DxfDrawing& d : drawings) {
    const DxfBounds& e = d.extent;
    const double side = std::max(e.max_x - e.min_x, e.max_y - e.min_y);
    Placement p;
    p.scale = side > 0 ? cell / side : 1.0;
    p.offset_x = cursor - e.min_x * p.scale;
    p.offset_y = -e.min_y * p.scale;
    out.push_back(p);
    DL::WorldPoint lo = p.map({e.min_x, e.min_y}), hi = p.map({e.max_x, e.max_y});
    sheet.merge(DL::WorldBounds{lo, hi});
    cursor = hi.x + cell / 16.0;
  }
  return out;
}

DL::Extra_Layer_Info* LayerTable::find_or_add(const std::string& name, bool shown) {
  auto& slot = layers_[upper(name)];
  if (!slot) {
    slot = std::make_unique<DL::Extra_Layer_Info>();
    slot->shown = 1;
  }
  if (!shown) slot->shown = 0;
  return slot.get();
}

bool LayerTable::turn_off(const std::string& name) {
  auto it = layers_.find(upper(name));
  if (it == layers_.end()) return false;
  it->second->shown = 0;
  return true;
}

std::vector<std::pair<std::string, DL::Extra_Layer_Info*>> LayerTable::entries() const {
  std::vector<std::pair<std::string, DL::Extra_Layer_Info*>> out;
  for (const auto& [name, info] : layers_) out.emplace_back(name, info.get());
  return out;
}

}  // namespace dlview
