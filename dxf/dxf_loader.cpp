// Loading a DXF file (see dxf_reader.cpp for the reader), the extents, the
// layout of a sheet and the colour table.
#include "dxf/dxf_loader.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <set>
#include <utility>
#include <vector>

#include "dxf/dxf_mapping.h"
#include "dxf/dxf_reader_p.h"
#include "dxf/dxf_spline_p.h"

namespace DL::dxf {

namespace {

constexpr double kPi = 3.14159265358979323846;

std::string upper(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return s;
}

// A file's bytes, mapped into memory when it is a regular file (read into a
// string otherwise): the pages the reader is done with are given back as it
// goes, so a large file never sits in memory whole.
class FileText {
 public:
  FileText() = default;
  FileText(const FileText&) = delete;
  FileText& operator=(const FileText&) = delete;
  ~FileText() {
    if (map_) ::munmap(map_, size_);
  }

  // False with a reason in `error`.
  bool open(const std::string& path, std::string& error) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
      error = "cannot open " + path + ": " + std::strerror(errno);
      return false;
    }
    if (S_ISDIR(st.st_mode)) {
      error = path + " is a directory, not a DXF file";
      return false;
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      error = "cannot open " + path + ": " + std::strerror(errno);
      return false;
    }
    if (S_ISREG(st.st_mode) && st.st_size > 0) {
      void* map =
          ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
      if (map != MAP_FAILED) {
        ::madvise(map, static_cast<std::size_t>(st.st_size), MADV_SEQUENTIAL);
        ::close(fd);
        map_ = map;
        size_ = static_cast<std::size_t>(st.st_size);
        return true;
      }
    }
    // Pipes, devices and whatever cannot be mapped: read.
    char buffer[1 << 16];
    ssize_t n;
    while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
      copy_.append(buffer, static_cast<std::size_t>(n));
    const int read_errno = errno;
    ::close(fd);
    if (n < 0) {
      error = "cannot read " + path + ": " + std::strerror(read_errno);
      return false;
    }
    return true;
  }

  std::string_view text() const {
    return map_ ? std::string_view(static_cast<const char*>(map_), size_) : std::string_view(copy_);
  }

  // The first `bytes` are read: their whole pages leave memory.
  void done(std::size_t bytes) {
    if (!map_) return;
    const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t end = std::min(bytes, size_) / page * page;
    if (end > released_)
      ::madvise(static_cast<char*>(map_) + released_, end - released_, MADV_DONTNEED);
    released_ = std::max(released_, end);
  }

 private:
  void* map_ = nullptr;
  std::size_t size_ = 0;
  std::size_t released_ = 0;
  std::string copy_;
};

// The box of an ellipse's sweep: its end points and the extremes along x and
// y that the sweep passes (a whole ellipse has all four).
void curve_box(const DxfEntity& e, DxfBounds& b) {
  const DxfDetail& x = e.detail();
  const double cs = std::cos(x.rotation), sn = std::sin(x.rotation);
  auto at = [&](double t) {
    const double u = x.radius_x * std::cos(t), v = x.radius_y * std::sin(t);
    b.add(x.center.x + cs * u - sn * v, x.center.y + sn * u + cs * v);
  };
  double sweep = x.end - x.start;
  const bool whole = e.kind == DxfKind::circle || !(std::fabs(sweep) < 2 * kPi - 1e-12);
  if (!whole) {
    sweep = std::fmod(sweep, 2 * kPi);
    if (sweep <= 0) sweep += 2 * kPi;
    at(x.start);
    at(x.start + sweep);
  }
  // dx/dt = 0 and dy/dt = 0, each twice a turn.
  const double tx = std::atan2(-x.radius_y * sn, x.radius_x * cs);
  const double ty = std::atan2(x.radius_y * cs, x.radius_x * sn);
  for (double t : {tx, tx + kPi, ty, ty + kPi}) {
    if (whole) {
      at(t);
      continue;
    }
    double from_start = std::fmod(t - x.start, 2 * kPi);
    if (from_start < 0) from_start += 2 * kPi;
    if (from_start <= sweep) at(t);
  }
}

// An estimate of a text's box before any font is at hand: 0.6 em a character
// (DejaVu Sans averages a little less), em = height / 0.73, lines and
// justification as the mapping sets them. The view is framed by the measured
// drawables; this only sets the sheet's scale.
void text_box(const DxfEntity& e, DxfBounds& b) {
  const DxfDetail& x = e.detail();
  const double cap = x.height, em = cap / 0.73;
  const std::vector<std::string> lines =
      e.kind == DxfKind::mtext ? mtext_lines(x.text) : std::vector<std::string>{text_codes(x.text)};
  double width = 0;
  for (const std::string& line : lines) {
    double chars = 0;
    for (unsigned char c : line) chars += (c & 0xc0) != 0x80;  // code points, not bytes
    width = std::max(width, 0.6 * em * chars);
  }
  const double spacing = cap * 5.0 / 3.0 * x.line_spacing;
  const double total = cap + spacing * static_cast<double>(lines.size() - 1);
  DxfPoint anchor = e.points[0];
  double column = 0, top = cap;  // the box spans [-column w, (1 - column) w] x [top - total, top]
  if (e.kind == DxfKind::mtext) {
    const int row = (x.attachment - 1) / 3;
    column = ((x.attachment - 1) % 3) / 2.0;
    top = row == 0 ? 0 : row == 1 ? total / 2 : total;
  } else if (x.halign != 0 || x.valign != 0) {
    if (x.halign != 3 && x.halign != 5) anchor = x.align_point;
    column = x.halign == 1 || x.halign == 4 ? 0.5 : x.halign == 2 ? 1 : 0;
    top = x.valign == 3 ? 0 : x.valign == 2 || x.halign == 4 ? cap / 2 : cap;
  }
  const double cs = std::cos(x.rotation), sn = std::sin(x.rotation);
  for (double u : {-column * width, (1 - column) * width})
    for (double v : {top - total - 0.21 * em, top})
      b.add(anchor.x + cs * u - sn * v, anchor.y + sn * u + cs * v);
}

struct BlockExtents {
  const DxfDrawing& d;
  std::map<std::string, DxfBounds> done;
  std::vector<std::string> open;  // blocks being measured, against cycles

  void add_entity(const DxfEntity& e, DxfBounds& b) {
    switch (e.kind) {
      case DxfKind::circle:
      case DxfKind::arc:
      case DxfKind::ellipse:
        curve_box(e, b);
        break;
      case DxfKind::text:
      case DxfKind::attrib:
      case DxfKind::mtext:
        text_box(e, b);
        break;
      case DxfKind::dimension:
      case DxfKind::insert: {
        auto it = d.blocks.find(e.detail().block);
        if (it == d.blocks.end()) break;
        DxfBounds inner = block(e.detail().block);
        if (inner.empty()) break;
        const DxfPoint base = it->second.base;
        const double cs = std::cos(e.detail().rotation), sn = std::sin(e.detail().rotation);
        for (int col = 0; col < e.detail().columns; ++col)
          for (int row = 0; row < e.detail().rows; ++row)
            for (DxfPoint c :
                 {DxfPoint{inner.min_x, inner.min_y}, DxfPoint{inner.max_x, inner.min_y},
                  DxfPoint{inner.min_x, inner.max_y}, DxfPoint{inner.max_x, inner.max_y}}) {
              double x = (c.x - base.x) * e.detail().scale.x + col * e.detail().spacing.x;
              double y = (c.y - base.y) * e.detail().scale.y + row * e.detail().spacing.y;
              b.add(e.points[0].x + cs * x - sn * y, e.points[0].y + sn * x + cs * y);
            }
        break;
      }
      default:
        for (const DxfPoint& p : e.points) b.add(p.x, p.y);
        for (const auto& loop : e.detail().loops)
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

// A far-away entity is one that reaches this many times farther than the
// one before it in the outer half (see DxfDrawing::too_far).
constexpr double kFarRatio = 65536.0;

// The extent of model space without the entities too far from the rest,
// which leave the list and are counted.
void measure(DxfDrawing& d, BlockExtents& extents) {
  // Boxes are measured again in each pass rather than kept: 32 bytes an
  // entity would be the largest block of the load.
  const std::size_t n = d.entities.size();
  auto box = [&](std::size_t i) {
    DxfBounds b;
    extents.add_entity(d.entities[i], b);
    return b;
  };
  double mx = 0, my = 0;
  {
    std::vector<double> xs, ys;
    xs.reserve(n);
    ys.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
      const DxfBounds b = box(i);
      if (b.empty()) continue;
      xs.push_back(b.min_x / 2 + b.max_x / 2);
      ys.push_back(b.min_y / 2 + b.max_y / 2);
    }
    if (xs.empty()) return;
    const auto mid = static_cast<std::ptrdiff_t>((xs.size() - 1) / 2);
    std::nth_element(xs.begin(), xs.begin() + mid, xs.end());
    std::nth_element(ys.begin(), ys.begin() + mid, ys.end());
    mx = xs[static_cast<std::size_t>(mid)];
    my = ys[static_cast<std::size_t>(mid)];
  }
  // (reach, entity), the reach in float: only its ratios matter.
  std::vector<std::pair<float, std::uint32_t>> reach;
  reach.reserve(n);
  for (std::size_t i = 0; i < n && i < UINT32_MAX; ++i) {
    const DxfBounds b = box(i);
    if (b.empty()) continue;
    const double r = std::max({std::fabs(b.min_x - mx), std::fabs(b.max_x - mx),
                               std::fabs(b.min_y - my), std::fabs(b.max_y - my)});
    const float f = r <= std::numeric_limits<float>::max() ? static_cast<float>(r)
                                                           : std::numeric_limits<float>::infinity();
    reach.emplace_back(f, static_cast<std::uint32_t>(i));
  }
  std::sort(reach.begin(), reach.end());
  std::vector<bool> far(n, false);
  for (std::size_t k = (reach.size() - 1) / 2; k + 1 < reach.size(); ++k) {
    if (!(reach[k].first > 0 && reach[k + 1].first > kFarRatio * reach[k].first)) continue;
    for (std::size_t j = k + 1; j < reach.size(); ++j) {
      far[reach[j].second] = true;
      ++d.too_far[dxf_kind_name(d.entities[reach[j].second].kind)];
    }
    break;
  }
  reach = {};
  std::size_t kept = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (far[i]) continue;
    const DxfBounds b = box(i);
    if (!b.empty()) {
      d.extent.add(b.min_x, b.min_y);
      d.extent.add(b.max_x, b.max_y);
    }
    if (kept != i) d.entities[kept] = std::move(d.entities[i]);
    ++kept;
  }
  d.entities.resize(kept);
}

// Whether the image an IMAGE names can be found, as dxf_loader.h says.
void find_images(DxfDrawing& d) {
  const std::size_t slash = d.path.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "" : d.path.substr(0, slash + 1);
  auto exists = [](const std::string& path) {
    struct stat st;
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
  };
  std::set<std::string> seen;
  auto check = [&](const std::vector<DxfEntity>& list) {
    for (const DxfEntity& e : list) {
      if (e.kind != DxfKind::image || !seen.insert(e.detail().image).second) continue;
      const std::string& name = e.detail().image;
      std::string base = name.substr(
          name.find_last_of("/\\") == std::string::npos ? 0 : name.find_last_of("/\\") + 1);
      std::string path;
      if (!name.empty() && name[0] == '/' && exists(name))
        path = name;
      else if (exists(folder + name))
        path = folder + name;
      else if (exists(folder + base))
        path = folder + base;
      if (path.empty())
        d.missing_images.push_back(name.empty() ? "(no IMAGEDEF)" : name);
      else
        d.image_paths[name] = path;
    }
  };
  check(d.entities);
  for (const auto& [block_name, block] : d.blocks) check(block.entities);
}

// Every SPLINE's curve into its points, to 1/16384 of the drawing's larger
// side. Until then its points were its control points, which bound the
// curve for the extent.
void flatten_splines(DxfDrawing& d) {
  const double side = std::max(d.extent.max_x - d.extent.min_x, d.extent.max_y - d.extent.min_y);
  auto flatten_all = [&](std::vector<DxfEntity>& list) {
    for (DxfEntity& e : list) {
      if (e.kind != DxfKind::spline) continue;
      DxfDetail& x = e.edit();
      // A layout's copies share their detail: the control points move once.
      if (x.control.empty()) x.control = std::move(e.points);
      double tolerance = side > 0 ? side / 16384 : 0;
      if (!(tolerance > 0)) {
        DxfBounds b;
        for (const DxfPoint& p : x.control) b.add(p.x, p.y);
        tolerance = std::max(b.max_x - b.min_x, b.max_y - b.min_y) / 16384;
      }
      e.points = flatten_spline(x, x.control, tolerance);
    }
  };
  flatten_all(d.entities);
  for (auto& [name, block] : d.blocks) flatten_all(block.entities);
}

}  // namespace

const char* dxf_kind_name(DxfKind kind) {
  static const char* const names[] = {
      "LINE",  "POLYLINE", "CIRCLE", "ARC",    "ELLIPSE", "POINT",  "TEXT",      "MTEXT",
      "SOLID", "HATCH",    "INSERT", "ATTRIB", "SPLINE",  "LEADER", "DIMENSION", "IMAGE"};
  static_assert(std::size(names) == kDxfKindCount, "a name for every kind");
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

// The size the header states, on the 64-bit hosts it is stated for.
static_assert(sizeof(void*) != 8 || sizeof(DxfEntity) == 56, "DxfEntity grew");

const DxfDetail& DxfEntity::detail() const {
  static const DxfDetail none;
  return detail_ ? *detail_ : none;
}

DxfDetail& DxfEntity::edit() {
  if (!detail_) detail_ = std::make_shared<DxfDetail>();
  return *detail_;
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
  FileText file;
  if (!file.open(path, error)) return false;
  const std::string_view text = file.text();
  if (text.rfind("AutoCAD Binary DXF", 0) == 0) {
    error = path + ": binary DXF is not supported (save it as ASCII DXF)";
    return false;
  }
  if (!read_dxf_text(text, drawing, options, error, [&](std::size_t n) { file.done(n); }))
    return false;
  BlockExtents extents{drawing, {}, {}};
  measure(drawing, extents);
  drawing.block_extents = extents.done;
  flatten_splines(drawing);
  find_images(drawing);
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
