// The DXF reader: the file's group-code/value pairs walked once, in memory,
// into the records of dxf_loader.h.
//
// Pairs are views into the file's text: nothing is copied until an entity is
// kept. Each entity's pairs (up to the next code 0) are gathered into one
// reused vector and read by the entity's own function; numbers go through
// std::from_chars, and one that does not parse, or is not finite, marks the
// entity to be dropped and counted.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <set>

#include "dxf/dxf_reader_p.h"
#include "dxf/dxf_spline_p.h"

namespace DL::dxf {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;
constexpr double kChordAngle = 5.0 * kDegree;  // flattening: at most 5 degrees a chord
// Cells of one INSERT array at most: a few bytes of a file must not ask for
// billions of copies (real arrays hold hundreds).
constexpr long long kMaxArrayCells = 65536;
// Entity names longer than this are cut in the summary: a file's garbage must
// not make it unreadable.
constexpr std::size_t kMaxNameLength = 64;

struct Pair {
  int code = 0;
  std::string_view value;
};

// A count from a number of the file: negative, NaN and huge ones fit an int
// (the loops reading so many stop at the first missing item anyway).
long long count_of(double v) {
  return v >= 0 && v < 1e9 ? static_cast<long long>(v) : 0;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
    s.remove_suffix(1);
  return s;
}

bool iequals(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (std::toupper(static_cast<unsigned char>(a[i])) !=
        std::toupper(static_cast<unsigned char>(b[i])))
      return false;
  return true;
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

// Vertices with bulges to a flattened outline; `closed` adds the closing
// segment when it bulges (a straight one is drawn by the closing point).
// With `widths` (start and end width per vertex), `widths_out` gets the start
// and end width of every segment drawn, the closing one included, each
// bulge's chords shading from its start width to its end width.
std::vector<DxfPoint> flatten_bulges(const std::vector<DxfPoint>& raw,
                                     const std::vector<double>& bulges, bool closed,
                                     const std::vector<DxfPoint>* widths = nullptr,
                                     std::vector<double>* widths_out = nullptr) {
  std::vector<DxfPoint> out;
  if (raw.empty()) return out;
  out.reserve(raw.size());
  out.push_back(raw[0]);
  const std::size_t n = raw.size();
  const std::size_t segments = closed && n > 1 ? n : n - 1;
  for (std::size_t i = 0; i < segments; ++i) {
    const std::size_t before = out.size();
    const bool closing = i == n - 1;
    if (!closing || bulges.back() != 0.0) append_bulge(out, raw[i], raw[(i + 1) % n], bulges[i]);
    if (!widths || !widths_out) continue;
    const std::size_t chords = std::max<std::size_t>(1, out.size() - before);
    const double w0 = (*widths)[i].x, w1 = (*widths)[i].y;
    for (std::size_t j = 0; j < chords; ++j) {
      widths_out->push_back(w0 + (w1 - w0) * static_cast<double>(j) / static_cast<double>(chords));
      widths_out->push_back(w0 +
                            (w1 - w0) * static_cast<double>(j + 1) / static_cast<double>(chords));
    }
  }
  return out;
}

// Whether any width of `widths` is drawn (over zero).
bool has_width(const std::vector<DxfPoint>& widths) {
  for (const DxfPoint& w : widths)
    if (w.x > 0 || w.y > 0) return true;
  return false;
}

// The plane of an entity (its object coordinate system) seen from above: the
// arbitrary-axis rule gives its x and y axes from the extrusion direction;
// x-y of a point in the plane lands at (ax * x + ay * y) in the drawing.
struct Ocs {
  bool identity = true;
  bool tilted = false;    // the plane is not parallel to x-y: a projection
  bool mirrored = false;  // seen from below (extrusion z < 0)
  DxfPoint ax{1, 0}, ay{0, 1};
  double phi = 0;  // the angle of the plane's x axis in the drawing

  static Ocs from(double nx, double ny, double nz) {
    Ocs o;
    const double len = std::sqrt(nx * nx + ny * ny + nz * nz);
    if (!(len > 0) || !std::isfinite(len)) return o;
    nx /= len, ny /= len, nz /= len;
    if (std::fabs(nx) < 1e-12 && std::fabs(ny) < 1e-12 && nz > 0) return o;
    o.identity = false;
    // Ax = Wy x N near the poles, Wz x N elsewhere; Ay = N x Ax.
    double x0, x1, x2;
    if (std::fabs(nx) < 1.0 / 64 && std::fabs(ny) < 1.0 / 64) {
      x0 = nz, x1 = 0, x2 = -nx;
    } else {
      x0 = -ny, x1 = nx, x2 = 0;
    }
    const double xl = std::sqrt(x0 * x0 + x1 * x1 + x2 * x2);
    x0 /= xl, x1 /= xl, x2 /= xl;
    const double y0 = ny * x2 - nz * x1, y1 = nz * x0 - nx * x2;
    o.ax = {x0, x1};
    o.ay = {y0, y1};
    o.tilted = std::fabs(nz) < 1 - 1e-9;
    o.mirrored = nz < 0;
    o.phi = std::atan2(x1, x0);
    return o;
  }
  DxfPoint map(DxfPoint p) const { return {ax.x * p.x + ay.x * p.y, ax.y * p.x + ay.y * p.y}; }
  // The angle in the drawing of the direction at `angle` in the plane.
  double direction(double angle) const {
    const DxfPoint d = map({std::cos(angle), std::sin(angle)});
    return std::atan2(d.y, d.x);
  }
};

// What every entity has: layer, colour, space, extrusion.
struct Common {
  std::string_view layer = "0";
  std::string_view line_type;  // empty: BYLAYER
  double line_type_scale = 1;
  int line_weight = -1;  // code 370: hundredths of a millimetre; -1 BYLAYER
  int aci = 256;         // BYLAYER
  long long true_color = -1;
  bool paper = false;
  double nx = 0, ny = 0, nz = 1;
};

// One pass over the pairs of the text.
class Reader {
 public:
  Reader(std::string_view text, DxfDrawing& d, const std::function<void(std::size_t)>& done)
      : begin_(text.data()), p_(begin_), end_(p_ + text.size()), d_(d), done_(done) {}

  bool read(const DxfLoadOptions& options, std::string& error);

 private:
  // --- Pairs -----------------------------------------------------------------
  std::string_view line() {
    const char* nl =
        static_cast<const char*>(std::memchr(p_, '\n', static_cast<std::size_t>(end_ - p_)));
    const char* e = nl ? nl : end_;
    std::string_view s(p_, static_cast<std::size_t>(e - p_));
    p_ = nl ? nl + 1 : end_;
    if (!s.empty() && s.back() == '\r') s.remove_suffix(1);
    return s;
  }
  // The next pair; false at the end of the text, or at a line that is not a
  // group code (`bad_line_` then says which).
  bool next(Pair& out) {
    if (has_peek_) {
      out = peek_;
      has_peek_ = false;
      return true;
    }
    if (p_ >= end_ || bad_line_) return false;
    const std::string_view code = trim(line());
    ++line_;
    if (p_ >= end_) return false;  // a code without its value: the file is cut
    const auto r = std::from_chars(code.data(), code.data() + code.size(), out.code);
    if (r.ec != std::errc() || r.ptr != code.data() + code.size()) {
      bad_line_ = line_;
      return false;
    }
    out.value = line();
    ++line_;
    return true;
  }
  void push_back(const Pair& p) {
    peek_ = p;
    has_peek_ = true;
  }
  // The pairs after an entity's name, up to the next code 0.
  void gather() {
    pairs_.clear();
    Pair p;
    while (next(p)) {
      if (p.code == 0) {
        push_back(p);
        return;
      }
      pairs_.push_back(p);
    }
  }

  // --- Values ------------------------------------------------------------------
  double real(const Pair& p) {
    std::string_view s = trim(p.value);
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    double v = 0;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size() || !std::isfinite(v)) {
      bad_number_ = true;
      return 0;
    }
    return v;
  }
  // Whole numbers; a few writers put "1.0" where an integer belongs.
  long long integer(const Pair& p) {
    std::string_view s = trim(p.value);
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    long long v = 0;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec == std::errc() && r.ptr == s.data() + s.size()) return v;
    const double d = real(p);
    if (bad_number_) return 0;
    if (!(std::fabs(d) < 9e18)) {
      bad_number_ = true;
      return 0;
    }
    return static_cast<long long>(d);
  }
  int small(const Pair& p) {
    const long long v = integer(p);
    return static_cast<int>(std::clamp<long long>(v, -2147483647, 2147483647));
  }
  bool common(const Pair& g, Common& c) {
    switch (g.code) {
      case 8:
        c.layer = trim(g.value);
        return true;
      case 62:
        c.aci = small(g);
        return true;
      case 420:
        c.true_color = integer(g);
        return true;
      case 67:
        c.paper = integer(g) != 0;
        return true;
      case 6:
        c.line_type = trim(g.value);
        return true;
      case 48:
        c.line_type_scale = real(g);
        return true;
      case 370:
        c.line_weight = small(g);
        return true;
      case 210:
        c.nx = real(g);
        return true;
      case 220:
        c.ny = real(g);
        return true;
      case 230:
        c.nz = real(g);
        return true;
      default:
        return false;
    }
  }

  // --- Sections ----------------------------------------------------------------
  bool header();
  bool tables();
  bool blocks();
  bool entities();
  bool objects();
  bool skip_section();

  // --- Entities ----------------------------------------------------------------
  // The entity `name` whose pairs are in `pairs_`, into `target` (null: model
  // or paper space by its flag); `in_block` for BYBLOCK colours.
  void entity(std::string_view name, std::vector<DxfEntity>* target);
  DxfEntity make(DxfKind kind, const Common& c);
  // The index of the entity's dashed line type in the drawing's list, added
  // on first use; 0 for continuous, BYBLOCK, or a type the table lacks.
  std::uint16_t line_type_index(const Common& c) {
    std::string_view name = c.line_type;
    if (name.empty() || iequals(name, "BYLAYER")) {
      // Most entities say BYLAYER on the layer of the one before.
      if (c.layer == bylayer_name_) return bylayer_type_;
      auto layer = d_.layers.find(std::string(c.layer));
      const std::string& type = layer == d_.layers.end() ? std::string() : layer->second.line_type;
      Common named;
      named.layer = c.layer;
      named.line_type = type.empty() ? std::string_view("CONTINUOUS") : std::string_view(type);
      bylayer_type_ = line_type_index(named);
      bylayer_name_ = layer_names_seen_.insert(std::string(c.layer)).first->c_str();
      return bylayer_type_;
    }
    if (name.empty() || iequals(name, "BYBLOCK") || iequals(name, "CONTINUOUS")) return 0;
    auto type = d_.line_types.find(std::string(name));
    if (type == d_.line_types.end()) return 0;
    bool dashed = false;
    for (double dash : type->second.dashes) dashed = dashed || dash < 0;
    if (!dashed) return 0;
    for (std::size_t i = 1; i < d_.line_type_names.size(); ++i)
      if (d_.line_type_names[i] == type->first) return static_cast<std::uint16_t>(i);
    if (d_.line_type_names.size() >= UINT16_MAX) return 0;
    d_.line_type_names.push_back(type->first);
    return static_cast<std::uint16_t>(d_.line_type_names.size() - 1);
  }

  // The index of a layer name in the drawing's list, added on first use.
  std::uint32_t layer_index(std::string_view name) {
    if (name == last_layer_name_) return last_layer_;
    auto it = layer_indexes_.find(name);
    if (it == layer_indexes_.end()) {
      it = layer_indexes_
               .emplace(std::string(name), static_cast<std::uint32_t>(d_.layer_names.size()))
               .first;
      d_.layer_names.emplace_back(name);
    }
    last_layer_name_ = it->first;  // a view of the map's key, which stays
    return last_layer_ = it->second;
  }
  void keep(std::string_view name, DxfEntity&& e, const Common& c, std::vector<DxfEntity>* target);
  void apply_ocs(DxfEntity& e, const Common& c) const;
  void finish_polyline();
  bool hatch(DxfEntity& e);
  // A DIMENSION's definition points, code 1x/2x as at[x].
  struct Dimension {
    int type = 0;                 // code 70's low bits: 0 rotated ... 6 ordinate
    int flags = 0;                // code 70 whole (64: an ordinate along x)
    DxfPoint at[7];               // codes 10 to 16
    bool has_text_point = false;  // code 11 given
    double angle = 0, measurement = 0;
    std::string_view text;
  };
  // Builds a block for a DIMENSION whose file has none, from its definition
  // points: extension lines, the dimension line or arc, arrows and the text.
  // False when the points say nothing measurable.
  bool dimension_block(const Dimension& dim, std::string& name);
  int synthetic_dimensions_ = 0;
  void count(std::map<std::string, long>& m, std::string_view name) {
    ++m[std::string(name.substr(0, kMaxNameLength))];
  }

  // Tells the caller that the text before `p` is read, every few megabytes:
  // call only between entities, when no view into the text is kept.
  void read_up_to(const char* p) {
    if (done_ && p - begin_ >= reported_ + (std::ptrdiff_t{8} << 20)) {
      reported_ = p - begin_;
      done_(static_cast<std::size_t>(reported_));
    }
  }

  const char* begin_;
  const char* p_;
  const char* end_;
  DxfDrawing& d_;
  const std::function<void(std::size_t)>& done_;
  std::ptrdiff_t reported_ = 0;
  long long line_ = 0;      // lines read
  long long bad_line_ = 0;  // the line that is not a group code, or 0
  Pair peek_;
  bool has_peek_ = false;
  bool bad_number_ = false;  // in the entity being read
  bool in_block_ = false;
  std::vector<Pair> pairs_;
  std::vector<DxfEntity> paper_;  // paper-space entities of ENTITIES
  std::map<std::string, std::uint32_t, std::less<>> layer_indexes_{{"0", 0}};
  std::string_view last_layer_name_ = "0";
  // The line type of BYLAYER on the layer of the last entity that asked.
  std::set<std::string> layer_names_seen_;  // keeps bylayer_name_'s text
  std::string_view bylayer_name_ = "\x01";  // no layer is named so
  std::uint16_t bylayer_type_ = 0;
  std::uint32_t last_layer_ = 0;
  std::map<std::string, std::string> block_records_;  // handle -> block name
  std::map<std::string, std::string> image_files_;    // IMAGEDEF handle -> file
  // A text style's width factor and oblique angle (degrees), the defaults of
  // a TEXT that does not give its own; by the style's name in capitals.
  struct TextStyle {
    double width_factor = 1, oblique = 0;
  };
  std::map<std::string, TextStyle, std::less<>> text_styles_;
  static std::string capitals(std::string_view name) {
    std::string out(name);
    for (char& ch : out) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    return out;
  }
  // The POLYLINE taking VERTEX entities: its list and place, its vertices.
  std::vector<DxfEntity>* polyline_list_ = nullptr;
  std::size_t polyline_index_ = 0;
  bool polyline_bad_ = false;
  bool polyline_3d_ = false;
  Common polyline_common_;
  std::vector<DxfPoint> raw_;
  std::vector<double> bulges_;
  std::vector<DxfPoint> widths_;  // start and end width per vertex
  DxfPoint polyline_width_;       // the POLYLINE's default widths
};

bool Reader::read(const DxfLoadOptions& options, std::string& error) {
  // A UTF-8 byte order mark is not part of the first line.
  if (end_ - p_ >= 3 && std::memcmp(p_, "\xEF\xBB\xBF", 3) == 0) p_ += 3;
  Pair p;
  bool first = true;
  bool eof = false;
  std::string cut;
  while (next(p)) {
    if (p.code == 999) continue;  // comment
    const std::string_view v = trim(p.value);
    if (first && !(p.code == 0 && v == "SECTION")) break;
    first = false;
    if (p.code != 0) continue;
    if (v == "EOF") {
      eof = true;
      break;
    }
    if (v != "SECTION") continue;
    Pair name;
    if (!next(name)) break;
    const std::string_view section = trim(name.value);
    bool complete;
    if (name.code != 2) {
      push_back(name);
      complete = skip_section();
    } else if (section == "HEADER") {
      complete = header();
    } else if (section == "TABLES") {
      complete = tables();
    } else if (section == "BLOCKS") {
      complete = blocks();
    } else if (section == "ENTITIES") {
      complete = entities();
    } else if (section == "OBJECTS") {
      complete = objects();
    } else {
      complete = skip_section();
    }
    if (!complete) {
      cut = "inside " + std::string(section.substr(0, kMaxNameLength));
      break;
    }
  }
  finish_polyline();
  if (first) {
    error = d_.path + ": not a DXF file";
    return false;
  }
  if (bad_line_)
    d_.truncated = "at line " + std::to_string(bad_line_) + ", which is not a group code";
  else if (!cut.empty())
    d_.truncated = cut;
  else if (!eof)
    d_.truncated = "before its EOF";

  // IMAGEs named their IMAGEDEF by handle: now the file.
  auto name_images = [&](std::vector<DxfEntity>& list) {
    for (DxfEntity& e : list) {
      if (e.kind != DxfKind::image) continue;
      auto it = image_files_.find(e.detail().image);
      e.edit().image = it == image_files_.end() ? std::string() : it->second;
    }
  };
  name_images(d_.entities);
  name_images(paper_);
  for (auto& [block_name, block] : d_.blocks) name_images(block.entities);

  // Entities of the layouts not read: the paper-space ones of ENTITIES and
  // those of the other layouts' blocks.
  auto layout_entities = [&](const DxfLayout& layout) {
    auto block = d_.blocks.find(layout.block);
    return block == d_.blocks.end() ? 0L : static_cast<long>(block->second.entities.size());
  };
  d_.paper_space = static_cast<long>(paper_.size());
  for (const DxfLayout& layout : d_.layouts) d_.paper_space += layout_entities(layout);
  if (options.layout.empty() || iequals(options.layout, "Model")) return true;
  std::string names;
  for (const DxfLayout& layout : d_.layouts) {
    names += (names.empty() ? "" : ", ") + layout.name;
    if (!iequals(layout.name, options.layout)) continue;
    d_.paper_space -= layout_entities(layout);
    if (iequals(layout.block, "*Paper_Space")) {
      d_.paper_space -= static_cast<long>(paper_.size());
      d_.entities = std::move(paper_);
    } else {
      d_.entities.clear();
    }
    auto block = d_.blocks.find(layout.block);
    if (block != d_.blocks.end())
      d_.entities.insert(d_.entities.end(), block->second.entities.begin(),
                         block->second.entities.end());
    return true;
  }
  error = d_.path + ": no layout named '" + options.layout +
          "' (layouts: " + (names.empty() ? "none" : names) + ")";
  return false;
}

bool Reader::skip_section() {
  Pair p;
  while (next(p))
    if (p.code == 0 && trim(p.value) == "ENDSEC") return true;
  return false;
}

bool Reader::header() {
  Pair p;
  std::string_view variable;
  while (next(p)) {
    if (p.code == 0 && trim(p.value) == "ENDSEC") return true;
    if (p.code == 9) {
      variable = trim(p.value);
      continue;
    }
    bad_number_ = false;
    if ((variable == "$DIMASZ" || variable == "$DIMSCALE" || variable == "$DIMTXT") &&
        p.code == 40) {
      const double v = real(p);
      double& field = variable == "$DIMASZ"     ? d_.header.dimasz
                      : variable == "$DIMSCALE" ? d_.header.dimscale
                                                : d_.header.dimtxt;
      if (!bad_number_ && v > 0) field = v;
    } else if (variable == "$LWDISPLAY" && p.code == 290) {
      d_.header.lwdisplay = integer(p) != 0;
    } else if (variable == "$LTSCALE" && p.code == 40) {
      const double v = real(p);
      if (!bad_number_ && v > 0) d_.header.ltscale = v;
    } else if (variable == "$INSUNITS" && p.code == 70) {
      d_.header.insunits = small(p);
    } else if ((variable == "$EXTMIN" || variable == "$EXTMAX") && (p.code == 10 || p.code == 20)) {
      const double v = real(p);
      if (bad_number_) continue;
      DxfBounds& b = d_.header.extent;
      const bool min = variable == "$EXTMIN";
      // Kept apart from the empty rule: the file states each corner alone.
      if (p.code == 10) (min ? b.min_x : b.max_x) = v;
      if (p.code == 20) (min ? b.min_y : b.max_y) = v;
    }
  }
  return false;
}

bool Reader::tables() {
  Pair p;
  while (next(p)) {
    if (p.code != 0) continue;
    const std::string_view kind = trim(p.value);
    if (kind == "ENDSEC") return true;
    gather();
    bad_number_ = false;
    if (kind == "LAYER") {
      std::string_view name, line_type;
      int aci = 7, flags = 0, line_weight = kDefaultLineWeight;
      long long true_color = -1;
      for (const Pair& g : pairs_) {
        if (g.code == 370) line_weight = small(g);
        if (g.code == 2) name = trim(g.value);
        if (g.code == 6) line_type = trim(g.value);
        if (g.code == 62) aci = small(g);
        if (g.code == 70) flags = small(g);
        if (g.code == 420) true_color = integer(g);
      }
      if (name.empty()) continue;
      DxfLayer& layer = d_.layers[std::string(name)];
      layer.name = std::string(name);
      layer.line_type = std::string(line_type);
      // A layer's weight is a weight or the default; BYLAYER and BYBLOCK
      // mean nothing there.
      layer.line_weight = line_weight >= 0 && line_weight <= 211 ? line_weight : kDefaultLineWeight;
      layer.off = aci < 0;
      layer.frozen = (flags & 1) != 0;
      layer.color = true_color >= 0 ? static_cast<ZR_RGB32>(true_color) & 0xffffff
                                    : aci_color(aci == INT32_MIN ? 0 : std::abs(aci));
    } else if (kind == "LTYPE") {
      DxfLineType type;
      for (const Pair& g : pairs_) {
        if (g.code == 2) type.name = std::string(trim(g.value));
        if (g.code == 49) type.dashes.push_back(real(g));
      }
      if (!type.name.empty() && !bad_number_) d_.line_types[type.name] = std::move(type);
    } else if (kind == "STYLE") {
      std::string_view name;
      TextStyle style;
      for (const Pair& g : pairs_) {
        if (g.code == 2) name = trim(g.value);
        if (g.code == 41) style.width_factor = real(g);
        if (g.code == 50) style.oblique = real(g);
      }
      if (!name.empty() && !bad_number_) text_styles_[capitals(name)] = style;
    } else if (kind == "BLOCK_RECORD") {
      std::string_view handle, name;
      for (const Pair& g : pairs_) {
        if (g.code == 5) handle = trim(g.value);
        if (g.code == 2) name = trim(g.value);
      }
      if (!handle.empty()) block_records_[std::string(handle)] = std::string(name);
    }
  }
  return false;
}

bool Reader::objects() {
  Pair p;
  while (next(p)) {
    if (p.code != 0) continue;
    const std::string_view kind = trim(p.value);
    if (kind == "ENDSEC") return true;
    gather();
    if (kind == "IMAGEDEF") {
      std::string_view handle, file;
      for (const Pair& g : pairs_) {
        if (g.code == 5) handle = trim(g.value);
        if (g.code == 1) file = trim(g.value);
      }
      if (!handle.empty()) image_files_[std::string(handle)] = std::string(file);
    } else if (kind == "LAYOUT") {
      // The last 1 is the layout's name (the first, of its plot settings, may
      // be a page setup's); the last 330 its paper-space block record.
      std::string_view name, record;
      for (const Pair& g : pairs_) {
        if (g.code == 1) name = trim(g.value);
        if (g.code == 330) record = trim(g.value);
      }
      if (iequals(name, "Model")) continue;
      auto it = block_records_.find(std::string(record));
      d_.layouts.push_back({std::string(name), it == block_records_.end() ? "" : it->second});
    }
  }
  return false;
}

bool Reader::blocks() {
  Pair p;
  std::vector<DxfEntity>* target = nullptr;  // the block being read
  while (next(p)) {
    if (p.code != 0) continue;
    const std::string_view name = trim(p.value);
    if (name == "ENDSEC") {
      finish_polyline();
      return true;
    }
    gather();
    if (name == "BLOCK") {
      finish_polyline();
      std::string_view block_name;
      DxfPoint base;
      bad_number_ = false;
      for (const Pair& g : pairs_) {
        if (g.code == 2) block_name = trim(g.value);
        if (g.code == 10) base.x = real(g);
        if (g.code == 20) base.y = real(g);
      }
      if (bad_number_) base = {};
      DxfBlock& block = d_.blocks[std::string(block_name)];
      block.base = base;
      block.entities.clear();
      target = &block.entities;
      in_block_ = true;
    } else if (name == "ENDBLK") {
      finish_polyline();
      target = nullptr;
      in_block_ = false;
    } else if (target) {
      entity(name, target);
    }
  }
  in_block_ = false;
  return false;
}

bool Reader::entities() {
  Pair p;
  while (next(p)) {
    if (p.code != 0) continue;
    read_up_to(p.value.data() - 8);  // the code line before it, too
    const std::string_view name = trim(p.value);
    if (name == "ENDSEC") {
      finish_polyline();
      return true;
    }
    gather();
    entity(name, nullptr);
  }
  return false;
}

DxfEntity Reader::make(DxfKind kind, const Common& c) {
  DxfEntity e;
  e.kind = kind;
  e.layer = layer_index(c.layer);
  e.line_type = line_type_index(c);
  if (c.line_type_scale != 1 && c.line_type_scale > 0) e.edit().line_type_scale = c.line_type_scale;
  if (c.line_weight >= 0 && c.line_weight <= 211) {
    e.line_weight = static_cast<std::int16_t>(c.line_weight);
  } else if (c.line_weight == kByBlockLineWeight && in_block_) {
    e.line_weight = kByBlockLineWeight;
  } else if (c.line_weight == kDefaultLineWeight) {
    e.line_weight = kDefaultLineWeight;
  } else {  // BYLAYER, and what no table allows
    auto it = d_.layers.find(d_.layer_names[e.layer]);
    e.line_weight = static_cast<std::int16_t>(it == d_.layers.end() ? kDefaultLineWeight
                                                                    : it->second.line_weight);
  }
  if (c.true_color >= 0) {
    e.color = static_cast<ZR_RGB32>(c.true_color) & 0xffffff;
  } else if (c.aci == 256) {
    auto it = d_.layers.find(d_.layer_names[e.layer]);
    e.color = it == d_.layers.end() ? 0 : it->second.color;
  } else if (c.aci == 0) {
    e.by_block = in_block_;
    e.color = 0;
  } else {
    e.color = aci_color(c.aci == INT32_MIN ? 0 : std::abs(c.aci));
  }
  return e;
}

void Reader::apply_ocs(DxfEntity& e, const Common& c) const {
  const Ocs o = Ocs::from(c.nx, c.ny, c.nz);
  if (o.identity) return;
  for (DxfPoint& p : e.points) p = o.map(p);
  if (e.has_detail()) {
    for (auto& loop : e.edit().loops)
      for (DxfPoint& p : loop) p = o.map(p);
    e.edit().align_point = o.map(e.edit().align_point);
    for (DxfPatternLine& line : e.edit().pattern) {
      line.base = o.map(line.base);
      line.offset = o.map(line.offset);
      line.angle = o.direction(line.angle);
    }
  }
  switch (e.kind) {
    case DxfKind::circle:
    case DxfKind::arc: {
      if (o.tilted) {
        // A circle seen at a slant: its outline, projected.
        std::vector<DxfPoint> pts;
        const double start = e.kind == DxfKind::circle ? 0.0 : e.edit().start;
        double sweep = e.kind == DxfKind::circle ? 2 * kPi : e.edit().end - e.edit().start;
        if (sweep <= 0) sweep += 2 * kPi;
        pts.push_back({e.edit().center.x + e.edit().radius_x * std::cos(start),
                       e.edit().center.y + e.edit().radius_x * std::sin(start)});
        append_arc(pts, e.edit().center, e.edit().radius_x, e.edit().radius_x, 0, start, sweep);
        for (DxfPoint& p : pts) p = o.map(p);
        e.points = std::move(pts);
        e.kind = DxfKind::polyline;
        return;
      }
      e.edit().center = o.map(e.edit().center);
      if (o.mirrored) {
        // The plane's angle t lands at phi - t: the sweep runs the other way.
        const double start = e.edit().start;
        e.edit().rotation = o.phi - e.edit().rotation;
        e.edit().start = -e.edit().end;
        e.edit().end = -start;
      } else {
        e.edit().rotation += o.phi;
      }
      return;
    }
    case DxfKind::text:
    case DxfKind::attrib:
      e.edit().rotation = o.direction(e.edit().rotation);
      return;
    case DxfKind::insert:
      if (o.mirrored && !o.tilted) {
        // R(phi) M R(r) S = R(phi - r) M S, M the mirror of y.
        e.edit().rotation = o.phi - e.edit().rotation;
        e.edit().scale.y = -e.edit().scale.y;
        e.edit().spacing.y = -e.edit().spacing.y;
      } else {
        e.edit().rotation = o.direction(e.edit().rotation);
      }
      return;
    default:
      return;
  }
}

void Reader::keep(std::string_view name, DxfEntity&& e, const Common& c,
                  std::vector<DxfEntity>* target) {
  if (bad_number_) {
    count(d_.invalid, name);
    return;
  }
  if (!target) target = c.paper ? &paper_ : &d_.entities;
  target->push_back(std::move(e));
}

void Reader::finish_polyline() {
  if (!polyline_list_) return;
  std::vector<DxfEntity>& list = *polyline_list_;
  polyline_list_ = nullptr;
  DxfEntity& e = list[polyline_index_];
  if (polyline_bad_ || raw_.empty()) {
    if (polyline_bad_) count(d_.invalid, "POLYLINE");
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(polyline_index_));
    return;
  }
  if (has_width(widths_) && !polyline_3d_) {
    std::vector<double> widths;
    e.points = flatten_bulges(raw_, bulges_, e.closed, &widths_, &widths);
    e.edit().widths = std::move(widths);
  } else {
    e.points = flatten_bulges(raw_, bulges_, e.closed);
  }
  if (!polyline_3d_) apply_ocs(e, polyline_common_);
}

void Reader::entity(std::string_view name, std::vector<DxfEntity>* target) {
  Common c;
  bad_number_ = false;
  if (name == "VERTEX") {
    if (!polyline_list_) return;
    DxfPoint p;
    DxfPoint width = polyline_width_;
    double bulge = 0;
    int flags = 0;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 40:
          width.x = real(g);
          break;
        case 41:
          width.y = real(g);
          break;
        case 10:
          p.x = real(g);
          break;
        case 20:
          p.y = real(g);
          break;
        case 42:
          bulge = real(g);
          break;
        case 70:
          flags = small(g);
          break;
        default:
          break;
      }
    }
    polyline_bad_ = polyline_bad_ || bad_number_;
    if (flags & 16) return;  // a spline's frame, not its curve
    raw_.push_back(p);
    bulges_.push_back(bulge);
    widths_.push_back(width);
    return;
  }
  finish_polyline();
  if (name == "SEQEND") return;
  // Layer, colour, space and extrusion first: the entity's record needs them.
  for (const Pair& g : pairs_) common(g, c);

  if (name == "LINE" || name == "POINT") {
    DxfPoint a, b;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 10:
          a.x = real(g);
          break;
        case 20:
          a.y = real(g);
          break;
        case 11:
          b.x = real(g);
          break;
        case 21:
          b.y = real(g);
          break;
        default:
          break;
      }
    }
    // In world coordinates: the extrusion only sets a thickness's direction.
    DxfEntity e = make(name == "LINE" ? DxfKind::line : DxfKind::point, c);
    if (name == "LINE")
      e.points = {a, b};
    else
      e.points = {a};
    keep(name, std::move(e), c, target);
  } else if (name == "CIRCLE" || name == "ARC") {
    DxfEntity e = make(name == "ARC" ? DxfKind::arc : DxfKind::circle, c);
    double start = 0, end = 360;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 10:
          e.edit().center.x = real(g);
          break;
        case 20:
          e.edit().center.y = real(g);
          break;
        case 40:
          e.edit().radius_x = e.edit().radius_y = real(g);
          break;
        case 50:
          start = real(g);
          break;
        case 51:
          end = real(g);
          break;
        default:
          break;
      }
    }
    if (e.kind == DxfKind::arc) {
      e.edit().start = start * kDegree;
      e.edit().end = end * kDegree;
    } else {
      e.edit().end = 2 * kPi;
    }
    apply_ocs(e, c);
    keep(name, std::move(e), c, target);
  } else if (name == "ELLIPSE") {
    DxfPoint center, major;
    double ratio = 1, start = 0, end = 2 * kPi;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 10:
          center.x = real(g);
          break;
        case 20:
          center.y = real(g);
          break;
        case 11:
          major.x = real(g);
          break;
        case 21:
          major.y = real(g);
          break;
        case 40:
          ratio = real(g);
          break;
        case 41:
          start = real(g);
          break;
        case 42:
          end = real(g);
          break;
        default:
          break;
      }
    }
    DxfEntity e = make(DxfKind::ellipse, c);
    e.edit().center = center;
    e.edit().radius_x = std::hypot(major.x, major.y);
    e.edit().radius_y = e.edit().radius_x * ratio;
    e.edit().rotation = std::atan2(major.y, major.x);
    e.edit().start = start;
    e.edit().end = end;
    // World coordinates, but the minor axis is N x major: seen from below,
    // the parameter runs clockwise.
    if (c.nz < 0) {
      e.edit().start = -end;
      e.edit().end = -start;
    }
    keep(name, std::move(e), c, target);
  } else if (name == "LWPOLYLINE") {
    int flags = 0;
    double constant = 0;
    raw_.clear();
    bulges_.clear();
    widths_.clear();
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 10:
          raw_.push_back({real(g), 0});
          bulges_.push_back(0);
          widths_.push_back({-1, -1});  // the constant width unless given
          break;
        case 43:
          constant = real(g);
          break;
        case 40:
          if (!widths_.empty()) widths_.back().x = real(g);
          break;
        case 41:
          if (!widths_.empty()) widths_.back().y = real(g);
          break;
        case 20:
          if (!raw_.empty()) raw_.back().y = real(g);
          break;
        case 42:
          if (!bulges_.empty()) bulges_.back() = real(g);
          break;
        case 70:
          flags = small(g);
          break;
        default:
          break;
      }
    }
    DxfEntity e = make(DxfKind::polyline, c);
    e.closed = (flags & 1) != 0;
    for (DxfPoint& w : widths_) {
      if (w.x < 0) w.x = constant;
      if (w.y < 0) w.y = constant;
    }
    if (has_width(widths_)) {
      std::vector<double> widths;
      e.points = flatten_bulges(raw_, bulges_, e.closed, &widths_, &widths);
      e.edit().widths = std::move(widths);
    } else {
      e.points = flatten_bulges(raw_, bulges_, e.closed);
    }
    if (e.points.empty()) return;
    apply_ocs(e, c);
    keep(name, std::move(e), c, target);
  } else if (name == "POLYLINE") {
    int flags = 0;
    DxfPoint width;  // default start and end widths of the vertices
    for (const Pair& g : pairs_) {
      if (g.code == 70) flags = small(g);
      if (g.code == 40) width.x = real(g);
      if (g.code == 41) width.y = real(g);
    }
    if (flags & (16 | 64)) {  // polygon or polyface mesh
      count(d_.skipped, "POLYLINE (mesh)");
      return;
    }
    DxfEntity e = make(DxfKind::polyline, c);
    e.closed = (flags & 1) != 0;
    std::vector<DxfEntity>* list = target ? target : c.paper ? &paper_ : &d_.entities;
    list->push_back(std::move(e));
    polyline_list_ = list;
    polyline_index_ = list->size() - 1;
    polyline_bad_ = bad_number_;
    polyline_3d_ = (flags & 8) != 0;
    polyline_common_ = c;
    polyline_common_.layer = {};  // the views would outlive their pairs
    polyline_common_.line_type = {};
    raw_.clear();
    bulges_.clear();
    widths_.clear();
    polyline_width_ = width;
  } else if (name == "SOLID" || name == "TRACE") {
    DxfPoint corner[4];
    bool has_fourth = false;
    for (const Pair& g : pairs_) {
      if (g.code >= 10 && g.code <= 13) corner[g.code - 10].x = real(g);
      if (g.code >= 20 && g.code <= 23) corner[g.code - 20].y = real(g);
      if (g.code == 13 || g.code == 23) has_fourth = true;
    }
    if (!has_fourth) corner[3] = corner[2];
    DxfEntity e = make(DxfKind::solid, c);
    // The file's corners go 1, 2, 3, 4 in a Z: the outline is 1, 2, 4, 3.
    e.points = {corner[0], corner[1], corner[3], corner[2]};
    if (corner[3].x == corner[2].x && corner[3].y == corner[2].y)
      e.points.erase(e.points.begin() + 2);
    apply_ocs(e, c);
    keep(name, std::move(e), c, target);
  } else if (name == "TEXT" || name == "ATTRIB") {
    const bool attrib = name == "ATTRIB";
    DxfPoint at, align;
    double height = 0, angle = 0;
    // The style's width factor and slant unless the TEXT gives its own.
    double width_factor = 1, oblique = 0;
    bool own_width = false, own_oblique = false;
    std::string_view style = "STANDARD";
    int halign = 0, valign = 0, flags = 0;
    std::string_view text;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 7:
          style = trim(g.value);
          break;
        case 41:
          width_factor = real(g);
          own_width = true;
          break;
        case 51:
          oblique = real(g);
          own_oblique = true;
          break;
        case 10:
          at.x = real(g);
          break;
        case 20:
          at.y = real(g);
          break;
        case 11:
          align.x = real(g);
          break;
        case 21:
          align.y = real(g);
          break;
        case 40:
          height = real(g);
          break;
        case 50:
          angle = real(g);
          break;
        case 1:
          text = g.value;
          break;
        case 70:
          flags = small(g);
          break;
        case 72:
          halign = small(g);
          break;
        case 73:
          if (!attrib) valign = small(g);
          break;
        case 74:
          if (attrib) valign = small(g);
          break;
        default:
          break;
      }
    }
    if (attrib && (flags & 1)) return;  // invisible
    if (auto it = text_styles_.find(capitals(style)); it != text_styles_.end()) {
      if (!own_width) width_factor = it->second.width_factor;
      if (!own_oblique) oblique = it->second.oblique;
    }
    DxfEntity e = make(attrib ? DxfKind::attrib : DxfKind::text, c);
    e.points = {at};
    e.edit().align_point = align;
    e.edit().height = height;
    e.edit().rotation = angle * kDegree;
    e.edit().text = std::string(text);
    e.edit().halign = std::clamp(halign, 0, 5);
    e.edit().valign = std::clamp(valign, 0, 3);
    // CAD takes widths from 0.01 to 100 and slants within 85 degrees; a
    // factor of 0 or less means the default.
    e.edit().width_factor = width_factor > 0 ? std::clamp(width_factor, 0.01, 100.0) : 1.0;
    e.edit().oblique = std::clamp(oblique, -85.0, 85.0) * kDegree;
    apply_ocs(e, c);
    keep(name, std::move(e), c, target);
  } else if (name == "MTEXT") {
    DxfPoint at, direction;
    bool has_direction = false;
    double height = 0, angle = 0, spacing = 1, box = 0;
    int attachment = 1;
    std::string text;
    std::string_view last;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 10:
          at.x = real(g);
          break;
        case 20:
          at.y = real(g);
          break;
        case 11:
          direction.x = real(g);
          has_direction = true;
          break;
        case 21:
          direction.y = real(g);
          has_direction = true;
          break;
        case 40:
          height = real(g);
          break;
        case 44:
          spacing = real(g);
          break;
        case 41:
          box = real(g);
          break;
        case 50:
          angle = real(g);
          break;
        case 71:
          attachment = small(g);
          break;
        case 3:  // a chunk of 250 characters, before the last part
          text += g.value;
          break;
        case 1:
          last = g.value;
          break;
        default:
          break;
      }
    }
    DxfEntity e = make(DxfKind::mtext, c);
    e.points = {at};
    e.edit().height = height;
    e.edit().text = std::move(text);
    e.edit().text += last;
    e.edit().rotation = has_direction && (direction.x != 0 || direction.y != 0)
                            ? std::atan2(direction.y, direction.x)
                            : angle * kDegree;
    e.edit().attachment = attachment >= 1 && attachment <= 9 ? attachment : 1;
    e.edit().line_spacing = spacing > 0 ? spacing : 1.0;
    e.edit().box_width = box > 0 ? box : 0;
    keep(name, std::move(e), c, target);
  } else if (name == "INSERT") {
    DxfEntity e = make(DxfKind::insert, c);
    DxfPoint at;
    long long columns = 1, rows = 1;
    double angle = 0;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 2:
          e.edit().block = std::string(trim(g.value));
          break;
        case 10:
          at.x = real(g);
          break;
        case 20:
          at.y = real(g);
          break;
        case 41:
          e.edit().scale.x = real(g);
          break;
        case 42:
          e.edit().scale.y = real(g);
          break;
        case 50:
          angle = real(g);
          break;
        case 70:
          columns = integer(g);
          break;
        case 71:
          rows = integer(g);
          break;
        case 44:
          e.edit().spacing.x = real(g);
          break;
        case 45:
          e.edit().spacing.y = real(g);
          break;
        default:
          break;
      }
    }
    columns = std::clamp<long long>(columns, 1, kMaxArrayCells + 1);
    rows = std::clamp<long long>(rows, 1, kMaxArrayCells + 1);
    if (columns * rows > kMaxArrayCells) {
      count(d_.skipped, "INSERT (array over 65536 cells)");
      return;
    }
    e.points = {at};
    e.edit().rotation = angle * kDegree;
    e.edit().columns = static_cast<int>(columns);
    e.edit().rows = static_cast<int>(rows);
    apply_ocs(e, c);
    keep(name, std::move(e), c, target);
  } else if (name == "HATCH") {
    DxfEntity e = make(DxfKind::hatch, c);
    if (!hatch(e) && !bad_number_) {
      count(d_.skipped, "HATCH (pattern)");
      return;
    }
    apply_ocs(e, c);
    keep(name, std::move(e), c, target);
  } else if (name == "SPLINE") {
    int flags = 0, degree = 3;
    std::vector<DxfPoint> control, fit;
    DxfPoint start_tangent, end_tangent;  // (0, 0): none given
    std::vector<double> knots, weights;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 70:
          flags = small(g);
          break;
        case 71:
          degree = small(g);
          break;
        case 40:
          knots.push_back(real(g));
          break;
        case 41:
          weights.push_back(real(g));
          break;
        case 10:
          control.push_back({real(g), 0});
          break;
        case 20:
          if (!control.empty()) control.back().y = real(g);
          break;
        case 11:
          fit.push_back({real(g), 0});
          break;
        case 21:
          if (!fit.empty()) fit.back().y = real(g);
          break;
        case 12:
          start_tangent.x = real(g);
          break;
        case 22:
          start_tangent.y = real(g);
          break;
        case 13:
          end_tangent.x = real(g);
          break;
        case 23:
          end_tangent.y = real(g);
          break;
        default:
          break;
      }
    }
    DxfEntity e = make(DxfKind::spline, c);
    e.closed = (flags & 1) != 0;
    DxfDetail& x = e.edit();
    if (control.size() >= 2) {
      e.points = std::move(control);
      x.degree = std::clamp(degree, 1, 11);
      x.knots = std::move(knots);
      if (weights.size() == e.points.size()) x.weights = std::move(weights);
    } else if (fit.size() >= 2) {
      if (interpolate_fit_points(fit, start_tangent, end_tangent, e.closed, e.points, x.knots)) {
        x.degree = 3;
      } else {  // one point, repeated: a polyline of no length
        e.points = std::move(fit);
        x.degree = 1;
      }
    } else {
      count(d_.skipped, "SPLINE (no points)");
      return;
    }
    keep(name, std::move(e), c, target);
  } else if (name == "IMAGE") {
    DxfPoint at, u, v, size;
    std::string_view definition;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 10:
          at.x = real(g);
          break;
        case 20:
          at.y = real(g);
          break;
        case 11:
          u.x = real(g);
          break;
        case 21:
          u.y = real(g);
          break;
        case 12:
          v.x = real(g);
          break;
        case 22:
          v.y = real(g);
          break;
        case 13:
          size.x = real(g);
          break;
        case 23:
          size.y = real(g);
          break;
        case 340:
          definition = trim(g.value);
          break;
        default:
          break;
      }
    }
    // The frame: u and v are one pixel along the image's rows and columns.
    DxfEntity e = make(DxfKind::image, c);
    const DxfPoint w{u.x * size.x, u.y * size.x}, h{v.x * size.y, v.y * size.y};
    e.points = {at,
                {at.x + w.x, at.y + w.y},
                {at.x + w.x + h.x, at.y + w.y + h.y},
                {at.x + h.x, at.y + h.y}};
    e.closed = true;
    e.edit().image = std::string(definition);
    keep(name, std::move(e), c, target);
  } else if (name == "LEADER") {
    DxfEntity e = make(DxfKind::leader, c);
    bool arrow = true;
    for (const Pair& g : pairs_) {
      if (g.code == 10) e.points.push_back({real(g), 0});
      if (g.code == 20 && !e.points.empty()) e.points.back().y = real(g);
      if (g.code == 71) arrow = integer(g) != 0;
    }
    if (arrow) e.edit().height = d_.header.dimasz * d_.header.dimscale;
    if (e.points.size() < 2) {
      count(d_.skipped, "LEADER (no vertices)");
      return;
    }
    keep(name, std::move(e), c, target);
  } else if (name == "DIMENSION") {
    DxfEntity e = make(DxfKind::dimension, c);
    Dimension dim;
    for (const Pair& g : pairs_) {
      switch (g.code) {
        case 2:
          e.edit().block = std::string(trim(g.value));
          break;
        case 70:
          dim.flags = small(g);
          dim.type = dim.flags & 7;
          break;
        case 1:
          dim.text = g.value;
          break;
        case 50:
          dim.angle = real(g) * kDegree;
          break;
        case 42:
          dim.measurement = real(g);
          break;
        default:
          if ((g.code >= 10 && g.code <= 16) || (g.code >= 20 && g.code <= 26)) {
            DxfPoint& p = dim.at[g.code % 10];
            (g.code < 20 ? p.x : p.y) = real(g);
            if (g.code == 11) dim.has_text_point = true;
          }
          break;
      }
    }
    if (bad_number_) {
      count(d_.invalid, name);
      return;
    }
    // The block holds the dimension's lines, arrows and text in place; a
    // linear or aligned one without it is built from its points.
    if ((e.detail().block.empty() || !d_.blocks.count(e.detail().block)) &&
        !dimension_block(dim, e.edit().block)) {
      count(d_.skipped, "DIMENSION (no block)");
      return;
    }
    e.points = {{0, 0}};
    keep(name, std::move(e), c, target);
  } else {
    count(d_.skipped, name);
  }
}

namespace {

// The measurement where "<>" stands in a dimension's text (or all of it when
// the text is empty); " " suppresses the text.
std::string dimension_text(std::string_view given, const std::string& number) {
  std::string text(given);
  const std::size_t slot = text.find("<>");
  if (text.empty())
    text = number;
  else if (slot != std::string::npos)
    text.replace(slot, 2, number);
  return text;
}

std::string format_number(double v, const char* suffix = "") {
  char number[48];
  std::snprintf(number, sizeof number, "%.4g%s", v, suffix);
  return number;
}

// The angle `a` turned by half turns into (-90, 90] degrees: text reads
// left to right or bottom up.
double readable(double a) {
  a = std::remainder(a, 2 * kPi);
  if (a > kPi / 2 + 1e-9) a -= kPi;
  if (a <= -kPi / 2 + 1e-9) a += kPi;
  return a;
}

// `a` into [0, 2 pi).
double turn_of(double a) {
  a = std::fmod(a, 2 * kPi);
  return a < 0 ? a + 2 * kPi : a;
}

}  // namespace

bool Reader::dimension_block(const Dimension& dim, std::string& name) {
  // Every entity of the block, in the DIMENSION's layer and colour (BYBLOCK).
  std::vector<DxfEntity> parts;
  Common c;
  auto add = [&](DxfKind kind, std::vector<DxfPoint> points) -> DxfEntity& {
    DxfEntity& e = parts.emplace_back(make(kind, c));
    e.by_block = true;
    e.color = 0;
    e.points = std::move(points);
    return e;
  };
  const double size = d_.header.dimasz * d_.header.dimscale;
  // A closed filled arrow with its tip at `tip`, pointing along (dx, dy), a
  // unit vector: its back lies `size` behind the tip.
  auto arrow = [&](DxfPoint tip, double dx, double dy) {
    const DxfPoint back{tip.x - dx * size, tip.y - dy * size};
    add(DxfKind::solid, {tip,
                         {back.x - dy * size / 6, back.y + dx * size / 6},
                         {back.x + dy * size / 6, back.y - dx * size / 6}});
  };
  // The text, centred on `at` along `angle`; nothing for a suppressed one.
  auto label = [&](const std::string& text, DxfPoint at, double angle) {
    if (text == " " || text.empty()) return;
    DxfEntity& e = add(DxfKind::mtext, {at});
    DxfDetail& x = e.edit();
    x.text = text;
    x.height = d_.header.dimtxt * d_.header.dimscale;
    x.attachment = 5;  // middle centre
    x.rotation = readable(angle);
  };
  auto distance = [](DxfPoint a, DxfPoint b) { return std::hypot(b.x - a.x, b.y - a.y); };
  // Where a text the file does not place goes: above `p` on a line along
  // `angle`, clear of it.
  auto above = [&](DxfPoint p, double angle) {
    const double r = readable(angle), lift = 0.8 * d_.header.dimtxt * d_.header.dimscale;
    return DxfPoint{p.x - std::sin(r) * lift, p.y + std::cos(r) * lift};
  };
  const double given = dim.measurement > 0 ? dim.measurement : 0;

  switch (dim.type) {
    case 0:    // rotated, horizontal, vertical
    case 1: {  // aligned
      const DxfPoint p1 = dim.at[3], p2 = dim.at[4], on = dim.at[0];
      // The dimension line's direction: along the measured points (aligned)
      // or at the dimension's angle (rotated, horizontal, vertical).
      double ux = std::cos(dim.angle), uy = std::sin(dim.angle);
      if (dim.type == 1) {
        const double len = distance(p1, p2);
        if (!(len > 0)) return false;
        ux = (p2.x - p1.x) / len;
        uy = (p2.y - p1.y) / len;
      }
      // The measured points projected onto the line through `on`.
      auto project = [&](DxfPoint p) {
        const double t = (p.x - on.x) * ux + (p.y - on.y) * uy;
        return DxfPoint{on.x + ux * t, on.y + uy * t};
      };
      const DxfPoint q1 = project(p1), q2 = project(p2);
      const double length = distance(q1, q2);
      if (!(length > 0)) return false;
      add(DxfKind::line, {p1, q1});
      add(DxfKind::line, {p2, q2});
      add(DxfKind::line, {q1, q2});
      // Arrows inside the line, pointing out at its ends.
      const double dx = (q2.x - q1.x) / length, dy = (q2.y - q1.y) / length;
      arrow(q1, -dx, -dy);
      arrow(q2, dx, dy);
      const DxfPoint mid{(q1.x + q2.x) / 2, (q1.y + q2.y) / 2};
      label(dimension_text(dim.text, format_number(given > 0 ? given : length)),
            dim.has_text_point ? dim.at[1] : above(mid, std::atan2(dy, dx)), std::atan2(dy, dx));
      break;
    }
    case 2:    // angular between two lines
    case 5: {  // angular by three points
      // The vertex and the two rays; the arc through the location point
      // spans the sector between the rays that holds it.
      DxfPoint vertex, location;
      double a1, a2;
      std::vector<DxfPoint> ends;  // where the extension lines start, one a ray
      if (dim.type == 5) {
        vertex = dim.at[5];
        location = dim.at[0];
        a1 = std::atan2(dim.at[3].y - vertex.y, dim.at[3].x - vertex.x);
        a2 = std::atan2(dim.at[4].y - vertex.y, dim.at[4].x - vertex.x);
        if (!(distance(vertex, dim.at[3]) > 0) || !(distance(vertex, dim.at[4]) > 0)) return false;
        ends = {dim.at[3], dim.at[4]};
        // The sector from a1 counter-clockwise to a2 unless the location lies
        // in the other one.
        if (turn_of(std::atan2(location.y - vertex.y, location.x - vertex.x) - a1) >
            turn_of(a2 - a1))
          std::swap(a1, a2), std::swap(ends[0], ends[1]);
      } else {
        const DxfPoint s1 = dim.at[3], e1 = dim.at[4], s2 = dim.at[5], e2 = dim.at[0];
        location = dim.at[6];
        const double d1x = e1.x - s1.x, d1y = e1.y - s1.y, d2x = e2.x - s2.x, d2y = e2.y - s2.y;
        const double cross = d1x * d2y - d1y * d2x;
        if (!(std::fabs(cross) > 1e-12 * (d1x * d1x + d1y * d1y + d2x * d2x + d2y * d2y)))
          return false;  // parallel, or a line of no length
        const double t = ((s2.x - s1.x) * d2y - (s2.y - s1.y) * d2x) / cross;
        vertex = {s1.x + d1x * t, s1.y + d1y * t};
        const double at = turn_of(std::atan2(location.y - vertex.y, location.x - vertex.x));
        // The rays: each line's direction or its opposite, the pair whose
        // sector of less than half a turn holds the location.
        const double b1 = std::atan2(d1y, d1x), b2 = std::atan2(d2y, d2x);
        bool found = false;
        for (int k = 0; k < 4 && !found; ++k) {
          const double r1 = b1 + (k & 1 ? kPi : 0), r2 = b2 + (k & 2 ? kPi : 0);
          for (int order = 0; order < 2 && !found; ++order) {
            const double from = order ? r2 : r1, to = order ? r1 : r2;
            if (turn_of(to - from) < kPi && turn_of(at - from) <= turn_of(to - from)) {
              a1 = from;
              a2 = to;
              found = true;
            }
          }
        }
        if (!found) return false;
        // Extension lines start at each line's end nearer its arc end.
        for (double a : {a1, a2}) {
          const double r = distance(vertex, location);
          const DxfPoint tip{vertex.x + r * std::cos(a), vertex.y + r * std::sin(a)};
          DxfPoint best = s1;
          for (DxfPoint p : {s1, e1, s2, e2}) {
            const bool on_ray =
                std::fabs((p.x - vertex.x) * std::sin(a) - (p.y - vertex.y) * std::cos(a)) <=
                1e-9 * (1 + distance(p, vertex));
            if (on_ray && distance(p, tip) < distance(best, tip)) best = p;
          }
          ends.push_back(best);
        }
      }
      const double radius = distance(vertex, location);
      if (!(radius > 0)) return false;
      const double sweep = turn_of(a2 - a1);
      DxfEntity& arc = add(DxfKind::arc, {});
      arc.edit().center = vertex;
      arc.edit().radius_x = arc.edit().radius_y = radius;
      arc.edit().start = a1;
      arc.edit().end = a1 + sweep;
      const DxfPoint t1{vertex.x + radius * std::cos(a1), vertex.y + radius * std::sin(a1)};
      const DxfPoint t2{vertex.x + radius * std::cos(a2), vertex.y + radius * std::sin(a2)};
      // An extension line wherever the arc ends beyond its line.
      for (int k = 0; k < 2; ++k) {
        const DxfPoint tip = k ? t2 : t1;
        if (distance(vertex, ends[k]) < radius) add(DxfKind::line, {ends[k], tip});
      }
      // The arrows along the arc's tangents, pointing out of the sweep.
      arrow(t1, std::sin(a1), -std::cos(a1));
      arrow(t2, -std::sin(a2), std::cos(a2));
      const double middle = a1 + sweep / 2;
      const double lift = d_.header.dimtxt * d_.header.dimscale;
      const DxfPoint outside{vertex.x + (radius + lift) * std::cos(middle),
                             vertex.y + (radius + lift) * std::sin(middle)};
      label(dimension_text(dim.text, format_number(sweep / kDegree, "\xc2\xb0")),
            dim.has_text_point ? dim.at[1] : outside, middle - kPi / 2);
      break;
    }
    case 3:    // diameter: across the circle from code 15 to code 10
    case 4: {  // radius: from the centre (code 10) to the circle (code 15)
      const DxfPoint from = dim.at[dim.type == 3 ? 5 : 0], to = dim.at[dim.type == 3 ? 0 : 5];
      const double length = distance(from, to);
      if (!(length > 0)) return false;
      const double dx = (to.x - from.x) / length, dy = (to.y - from.y) / length;
      const DxfPoint centre =
          dim.type == 3 ? DxfPoint{(from.x + to.x) / 2, (from.y + to.y) / 2} : from;
      const DxfPoint text_at =
          dim.has_text_point
              ? dim.at[1]
              : above({(from.x + to.x) / 2, (from.y + to.y) / 2}, std::atan2(dy, dx));
      add(DxfKind::line, {from, to});
      // A text outside the circle gets a leader from the circle to it.
      const double radius = dim.type == 3 ? length / 2 : length;
      if (distance(centre, text_at) > radius) add(DxfKind::line, {to, text_at});
      arrow(to, dx, dy);
      if (dim.type == 3) arrow(from, -dx, -dy);
      // CAD's prefixes: "R" for a radius, the diameter sign for a diameter.
      const std::string number =
          std::string(dim.type == 3 ? "\xc3\x98" : "R") + format_number(given > 0 ? given : length);
      label(dimension_text(dim.text, number), text_at, std::atan2(dy, dx));
      break;
    }
    case 6: {  // ordinate: the feature's x (flag 64) or y from the origin
      const DxfPoint origin = dim.at[0], feature = dim.at[3], leader = dim.at[4];
      const bool along_x = (dim.flags & 64) != 0;
      const double value = along_x ? feature.x - origin.x : feature.y - origin.y;
      if (!(distance(feature, leader) > 0)) return false;
      add(DxfKind::line, {feature, leader});
      // The text beyond the leader's end, along the leader.
      const double angle = std::atan2(leader.y - feature.y, leader.x - feature.x);
      const double reach = d_.header.dimtxt * d_.header.dimscale;
      const std::string text =
          dimension_text(dim.text, format_number(dim.measurement != 0 ? dim.measurement : value));
      const double half = reach * 0.35 * static_cast<double>(text.size()) + reach / 2;
      const DxfPoint beyond{leader.x + half * std::cos(angle), leader.y + half * std::sin(angle)};
      label(text, dim.has_text_point ? dim.at[1] : beyond, angle);
      break;
    }
    default:
      return false;
  }
  name = "*DL_DIMENSION" + std::to_string(++synthetic_dimensions_);
  d_.blocks[name].entities = std::move(parts);
  return true;
}

// The boundary of a hatch into its loops, and a patterned one's pattern
// lines; false for a patterned hatch whose pattern the file lacks.
bool Reader::hatch(DxfEntity& e) {
  std::size_t i = 0;
  const std::vector<Pair>& v = pairs_;
  auto at = [&](int code) { return i < v.size() && v[i].code == code; };
  auto take = [&](int code, double fallback) {
    if (!at(code)) return fallback;
    return real(v[i++]);
  };
  bool solid = false;
  long long loops = 0;
  for (; i < v.size(); ++i) {
    if (v[i].code == 70) solid = integer(v[i]) != 0;
    if (v[i].code == 91) {
      loops = integer(v[i]);
      ++i;
      break;
    }
  }
  for (long long n = 0; n < loops && at(92); ++n) {
    const long long type = integer(v[i++]);
    std::vector<DxfPoint>& loop = e.edit().loops.emplace_back();
    if (type & 2) {  // a polyline: x, y and maybe a bulge per vertex
      const bool bulged = take(72, 0) != 0;
      take(73, 0);
      const long long count = count_of(take(93, 0));
      std::vector<DxfPoint> raw;
      std::vector<double> bulges;
      for (long long k = 0; k < count && at(10); ++k) {
        const double x = take(10, 0), y = take(20, 0);
        raw.push_back({x, y});
        bulges.push_back(bulged ? take(42, 0) : 0);
      }
      loop = flatten_bulges(raw, bulges, true);
    } else {
      const long long edges = count_of(take(93, 0));
      for (long long k = 0; k < edges && at(72); ++k) {
        const long long edge = integer(v[i++]);
        if (edge == 1) {
          const DxfPoint a{take(10, 0), take(20, 0)};
          const DxfPoint b{take(11, 0), take(21, 0)};
          if (loop.empty()) loop.push_back(a);
          loop.push_back(b);
        } else if (edge == 2 || edge == 3) {
          // Arc or elliptic arc, angles in degrees, counter-clockwise unless
          // the flag says otherwise; then the angles are mirrored.
          const bool arc = edge == 2;
          const DxfPoint c{take(10, 0), take(20, 0)};
          DxfPoint major{0, 0};
          double radius = 0, ratio = 1;
          if (arc) {
            radius = take(40, 0);
          } else {
            major = {take(11, 0), take(21, 0)};
            ratio = take(40, 1);
          }
          double a1 = take(50, 0) * kDegree, a2 = take(51, 360) * kDegree;
          const bool ccw = take(73, 1) != 0;
          const double rx = arc ? radius : std::hypot(major.x, major.y);
          const double ry = arc ? radius : rx * ratio;
          const double rot = arc ? 0.0 : std::atan2(major.y, major.x);
          if (!ccw) {
            a1 = -a1;
            a2 = -a2;
          }
          double sweep = a2 - a1;
          if (ccw && sweep < 0) sweep += 2 * kPi;
          if (!ccw && sweep > 0) sweep -= 2 * kPi;
          const double cs = std::cos(rot), sn = std::sin(rot);
          loop.push_back({c.x + cs * rx * std::cos(a1) - sn * ry * std::sin(a1),
                          c.y + sn * rx * std::cos(a1) + cs * ry * std::sin(a1)});
          append_arc(loop, c, rx, ry, rot, a1, sweep);
        } else if (edge == 4) {
          // A spline: its control polygon, a fair outline for a fill.
          while (i < v.size()) {
            const int code = v[i].code;
            if (code == 10) {
              const double x = take(10, 0), y = take(20, 0);
              loop.push_back({x, y});
              continue;
            }
            if (code == 94 || code == 73 || code == 74 || code == 95 || code == 96 || code == 40 ||
                code == 42 || code == 97 || code == 11 || code == 21 || code == 12 || code == 22 ||
                code == 13 || code == 23) {
              ++i;
              continue;
            }
            break;
          }
        } else {
          break;
        }
      }
    }
    // The boundary objects it came from: handles, not geometry.
    if (at(97)) {
      const long long sources = integer(v[i++]);
      for (long long k = 0; k < sources && at(330); ++k) ++i;
    }
  }
  if (solid) return true;
  // The pattern's line families, after style (75), type (76), angle (52),
  // scale (41) and double flag (77).
  while (i < v.size() && v[i].code != 78) ++i;
  if (i == v.size()) return false;
  const long long families = integer(v[i++]);
  for (long long n = 0; n < families && at(53); ++n) {
    DxfPatternLine line;
    line.angle = take(53, 0) * kDegree;
    line.base = {take(43, 0), take(44, 0)};
    line.offset = {take(45, 0), take(46, 0)};
    const long long dashes = count_of(take(79, 0));
    for (long long k = 0; k < dashes && at(49); ++k) line.dashes.push_back(take(49, 0));
    e.edit().pattern.push_back(std::move(line));
  }
  return !e.detail().pattern.empty();
}

}  // namespace

bool read_dxf_text(std::string_view text, DxfDrawing& drawing, const DxfLoadOptions& options,
                   std::string& error, const std::function<void(std::size_t)>& done) {
  Reader reader(text, drawing, done);
  return reader.read(options, error);
}

}  // namespace DL::dxf
