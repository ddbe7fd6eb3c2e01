// Loading a DXF file (see dxf_reader.cpp for the reader), the extents, the
// layout of a sheet and the colour table.
#include "dxf/dxf_loader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "dxf/dxf_reader_p.h"

namespace DL::dxf {

namespace {

std::string upper(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return s;
}

// The whole file at `path` into `text`; false with a reason in `error`.
bool read_file(const std::string& path, std::string& text, std::string& error) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    error = path + " is a directory, not a DXF file";
    return false;
  }
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) {
    error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  text.clear();
  if (S_ISREG(st.st_mode) && st.st_size > 0) text.reserve(static_cast<std::size_t>(st.st_size));
  char buffer[1 << 16];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
  const bool failed = std::ferror(f) != 0;
  std::fclose(f);
  if (failed) {
    error = "cannot read " + path;
    return false;
  }
  return true;
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

bool load_dxf(const std::string& path, DxfDrawing& drawing, std::string& error,
              const DxfLoadOptions& options) {
  drawing = DxfDrawing{};
  drawing.path = path;
  std::string text;
  if (!read_file(path, text, error)) return false;
  if (text.rfind("AutoCAD Binary DXF", 0) == 0) {
    error = path + ": binary DXF is not supported (save it as ASCII DXF)";
    return false;
  }
  if (!read_dxf_text(text, drawing, options, error)) return false;
  text = std::string();  // the entities own their strings: the text can go
  BlockExtents extents{drawing, {}, {}};
  for (const DxfEntity& e : drawing.entities) extents.add_entity(e, drawing.extent);
  drawing.block_extents = extents.done;
  if (drawing.entities.empty() || drawing.extent.empty()) {
    error = path + ": empty drawing (no entity in " +
            (options.layout.empty() ? std::string("model space") : "layout " + options.layout) +
            ")";
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

}  // namespace DL::dxf
