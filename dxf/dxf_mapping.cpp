// The mapping of DXF entities to drawables; see dxf_mapping.h.
#include "dxf/dxf_mapping.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "drawables/dot.h"
#include "drawables/image.h"
#include "drawables/polything.h"
#include "drawables/polytriangle.h"
#include "dxf/dxf_hatch_p.h"
#include "dxf/dxf_mtext_p.h"
#include "dxf/text_label.h"
#include "ellipse/ellipse.h"
#include "nested/drawable_display_list.h"

namespace DL::dxf {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kCapitalHeight = 0.73;  // capital height of DejaVu Sans, in ems
constexpr int kMaxBlockDepth = 16;
// Pieces of one dashed entity at most; past it the entity is continuous.
constexpr double kMaxDashes = 100000;
// Dashes of one patterned hatch at most; past it the hatch shows its outline.
constexpr std::size_t kMaxHatchDashes = 100000;
constexpr double kBlockSide = 268435456.0;  // 2^28: the larger side of a block's world

DL::WorldPoint to_world(DxfPoint p) {
  return {DL::round_to_int32_saturated(p.x), DL::round_to_int32_saturated(p.y)};
}

// The points of an ellipse (radii rx, ry, tilt `rotation`) from `start` to
// `end` (parametric, counter-clockwise), chords of at most 5 degrees.
std::vector<DxfPoint> flatten(DxfPoint c, double rx, double ry, double rotation, double start,
                              double end) {
  // Into (0, 2 pi] without a loop: a file may give angles so large that adding
  // 2 pi changes nothing, or a difference that overflows.
  double sweep = end - start;
  if (!(sweep > 0)) sweep = std::isfinite(sweep) ? std::fmod(sweep, 2 * kPi) + 2 * kPi : 2 * kPi;
  if (!(sweep <= 2 * kPi)) sweep = 2 * kPi;
  const int n = std::max(2, static_cast<int>(std::ceil(sweep / (5.0 * kPi / 180.0))));
  const double cs = std::cos(rotation), sn = std::sin(rotation);
  std::vector<DxfPoint> out;
  for (int i = 0; i <= n; ++i) {
    const double t = start + sweep * i / n;
    const double x = rx * std::cos(t), y = ry * std::sin(t);
    out.push_back({c.x + cs * x - sn * y, c.y + sn * x + cs * y});
  }
  return out;
}

class Mapper {
 public:
  Mapper(const DxfDrawing& d, SheetContext& context, MappingReport& report, DL::DisplayList& top)
      : d_(d), cx_(context), report_(report), top_(&top) {}

  // Maps `e` into `list` through `m`; false when it shows nothing. `layer` is
  // the layer to give the drawables, `by_block` the colour BYBLOCK takes.
  bool map(const DxfEntity& e, const Affine& m, DL::DisplayList& list, DL::Extra_Layer_Info* layer,
           ZR_RGB32 by_block, int by_block_weight, int depth) {
    if (points_ >= cx_.max_points) return false;
    ZR_RGB32 color = e.by_block ? by_block : e.color;
    const int weight = device_weight(e.line_weight, by_block_weight);
    if (strokes(e)) color = inked(color, e.line_weight);
    list_ = &route(list, weight);
    layer_ = layer;
    weight_ = weight;
    if (e.line_type != 0 && dashed(e, m, color)) return true;
    switch (e.kind) {
      case DxfKind::leader:
        return leader(e, m, color);
      case DxfKind::image:
        if (image(e, m, color)) return true;
        [[fallthrough]];  // its frame
      case DxfKind::line:
      case DxfKind::spline:
      case DxfKind::polyline: {
        if (!e.detail().widths.empty()) return wide_polyline(e, m, color);
        std::vector<DxfPoint> pts = e.points;
        if (e.closed && pts.size() > 2) pts.push_back(pts.front());
        return polyline(pts, m, color);
      }
      case DxfKind::point: {
        const DL::WorldPoint p = to_world(m.apply(e.points[0]));
        add(new DL::Dot(color, p), {p, p});
        return true;
      }
      case DxfKind::circle:
      case DxfKind::arc:
      case DxfKind::ellipse:
        return curve(e, m, color);
      case DxfKind::text:
      case DxfKind::attrib:
        return text(e, m, color);
      case DxfKind::mtext:
        return mtext(e, m, color);
      case DxfKind::solid: {
        if (e.points.size() < 3) return false;
        // Outline order 1, 2, 4, 3 back to the strip order 1, 2, 3, 4.
        std::vector<DL::WorldPoint> strip;
        for (std::size_t i : {std::size_t{0}, std::size_t{1}, std::size_t{3}, std::size_t{2}})
          if (i < e.points.size()) strip.push_back(to_world(m.apply(e.points[i])));
        add(new DL::PolytriangleWithNoBorder(color, static_cast<int>(strip.size()), strip.data()),
            bounds_of(strip));
        return true;
      }
      case DxfKind::hatch:
        return hatch(e, m, color);
      case DxfKind::insert:
      case DxfKind::dimension:
        return insert(e, m, color, depth);
    }
    return false;
  }

 private:
  // `points`: what a draw of the drawable hands on (see max_points).
  // An IMAGE as an `Image` over its rectangle, when the host reads images
  // (`SheetContext::read_image`) and the image stands upright under the map
  // (rows along +x, columns along +y): an `Image` has no turn. Each gets a
  // body of its own, the pixels copied, with the world size it covers. False
  // otherwise: its frame is drawn.
  bool image(const DxfEntity& e, const Affine& m, ZR_RGB32 color) {
    if (!cx_.read_image || e.points.size() != 4) return false;
    const auto found = d_.image_paths.find(e.detail().image);
    if (found == d_.image_paths.end()) return false;
    auto [it, fresh] = cx_.images.try_emplace(found->second);
    if (fresh) it->second = cx_.read_image(found->second);
    const ZR_Image& read = it->second;
    if (!read || read->width <= 0 || read->height <= 0 ||
        read->pixels.size() != static_cast<std::size_t>(read->width) * read->height)
      return false;
    const DxfPoint p0 = m.apply(e.points[0]), p1 = m.apply(e.points[1]);
    const DxfPoint p3 = m.apply(e.points[3]);
    const double ux = p1.x - p0.x, uy = p1.y - p0.y, vx = p3.x - p0.x, vy = p3.y - p0.y;
    if (!(ux > 0) || !(vy > 0) || std::fabs(uy) > 1e-9 * ux || std::fabs(vx) > 1e-9 * vy)
      return false;
    const DL::WorldPoint lo = to_world(p0), hi = to_world({p0.x + ux, p0.y + vy});
    if (!(lo.x < hi.x) || !(lo.y < hi.y)) return false;
    auto* body = new ZR_Image_Data;
    body->width = read->width;
    body->height = read->height;
    body->pixels = read->pixels;
    body->world_width = static_cast<double>(hi.x) - lo.x;
    body->world_height = static_cast<double>(hi.y) - lo.y;
    const DL::WorldBounds rect{lo, hi};
    add(new DL::Image(color, rect, ZR_Image(body)), rect);
    return true;
  }

  void add(DL::Drawable* drawable, const DL::WorldBounds& b, long points = 1) {
    drawable->set_layer(layer_);
    if (list_ == top_) report_.bounds.merge(b);
    list_->add(drawable, b);
    if (!run_bounds_.empty()) {
      auto run = run_bounds_.find(list_);
      if (run != run_bounds_.end()) run->second.merge(b);
    }
    ++report_.drawables;
    points_ += points;
  }

  static DL::WorldBounds bounds_of(const std::vector<DL::WorldPoint>& pts) {
    DL::WorldBounds b = DL::WorldBounds::empty();
    for (const DL::WorldPoint& p : pts) b.merge(DL::WorldBounds{p, p});
    return b;
  }

  bool polyline(const std::vector<DxfPoint>& pts, const Affine& m, ZR_RGB32 color) {
    if (pts.empty()) return false;
    std::vector<DL::WorldPoint> world;
    world.reserve(pts.size());
    for (const DxfPoint& p : pts) world.push_back(to_world(m.apply(p)));
    const DL::WorldBounds b = bounds_of(world);
    if (b.min == b.max) {
      // Counted by the points mapped: a curve that shrinks to a dot still cost them.
      add(new DL::Dot(color, b.min), b, static_cast<long>(world.size()));
      return true;
    }
    add(new DL::Polyline(color, static_cast<int>(world.size()), world.data()), b,
        static_cast<long>(world.size()));
    return true;
  }

  // A leader: its line, and a closed filled arrow head at its first vertex,
  // as long as the leader's `height` and a third of that wide, pointing
  // from the second vertex to the first.
  bool leader(const DxfEntity& e, const Affine& m, ZR_RGB32 color) {
    const bool drawn = polyline(e.points, m, color);
    const double size = e.detail().height;
    if (!drawn || !(size > 0) || e.points.size() < 2) return drawn;
    const DxfPoint tip = e.points[0], from = e.points[1];
    const double len = std::hypot(tip.x - from.x, tip.y - from.y);
    if (!(len > 0)) return drawn;
    const double ux = (tip.x - from.x) / len, uy = (tip.y - from.y) / len;
    const DxfPoint back{tip.x - ux * size, tip.y - uy * size};
    const double half = size / 6;
    std::vector<DL::WorldPoint> strip{to_world(m.apply(tip)),
                                      to_world(m.apply({back.x - uy * half, back.y + ux * half})),
                                      to_world(m.apply({back.x + uy * half, back.y - ux * half}))};
    add(new DL::PolytriangleWithNoBorder(color, 3, strip.data()), bounds_of(strip), 3);
    return true;
  }

  // An entity with a dashed line type: its path (curves flattened) cut into
  // a `Polyline` a dash and a `Dot` a dot, the pattern's lengths times
  // $LTSCALE and the entity's own scale, starting at the path's start; a
  // polyline with widths into a filled strip a dash (its widths taken where
  // the dash starts and ends) and a square as wide as the line a dot. False
  // (drawn continuous) for kinds without a path, or a pattern so fine
  // against the path that it would give over kMaxDashes pieces, as CAD
  // draws such lines continuous too.
  bool dashed(const DxfEntity& e, const Affine& m, ZR_RGB32 color) {
    std::vector<DxfPoint> path;
    const DxfDetail& x = e.detail();
    // A polyline with widths: two a segment of the path, start and end.
    const std::vector<double>* widths = nullptr;
    switch (e.kind) {
      case DxfKind::line:
      case DxfKind::polyline:
      case DxfKind::spline:
      case DxfKind::leader:
        path = e.points;
        if (!x.widths.empty()) {
          if (e.closed && path.size() > 1 &&
              (path.back().x != path.front().x || path.back().y != path.front().y))
            path.push_back(path.front());
          if (path.size() < 2 || x.widths.size() != 2 * (path.size() - 1)) return false;
          widths = &x.widths;
        } else if (e.closed && path.size() > 2) {
          path.push_back(path.front());
        }
        break;
      case DxfKind::circle:
      case DxfKind::arc:
      case DxfKind::ellipse: {
        const bool whole =
            e.kind == DxfKind::circle ||
            (e.kind == DxfKind::ellipse && std::fabs(x.end - x.start) >= 2 * kPi - 1e-9);
        path = flatten(x.center, x.radius_x, x.radius_y, x.rotation, whole ? 0.0 : x.start,
                       whole ? 2 * kPi : x.end);
        break;
      }
      default:
        return false;
    }
    auto type = d_.line_types.find(d_.line_type_names[e.line_type]);
    if (type == d_.line_types.end() || path.size() < 2) return false;
    const double scale = d_.header.ltscale * x.line_type_scale;
    std::vector<double> dashes;
    double period = 0;
    for (double dash : type->second.dashes) {
      dashes.push_back(dash * scale);
      period += std::fabs(dash * scale);
    }
    double length = 0;
    for (std::size_t i = 1; i < path.size(); ++i)
      length += std::hypot(path[i].x - path[i - 1].x, path[i].y - path[i - 1].y);
    if (!(period > 0) || !(length / period * static_cast<double>(dashes.size()) < kMaxDashes))
      return false;
    // Walk the path: `k` the dash being laid, `left` of it; `run` the points
    // of the dash so far and, with widths, `run_width` the width at each.
    std::vector<DxfPoint> run;
    std::vector<double> run_width;
    std::size_t k = 0;
    double left = std::fabs(dashes[0]);
    DxfPoint along{1, 0};  // the direction of the segment being walked
    auto flush = [&]() {
      if (widths) {
        if (dashes[k] > 0 && run.size() >= 2) {
          std::vector<double> w;  // two a segment, as `strip` takes them
          for (std::size_t i = 0; i + 1 < run.size(); ++i) {
            w.push_back(run_width[i]);
            w.push_back(run_width[i + 1]);
          }
          strip(run, w, m, color);
        }
        // A dot of a wide line: a square as wide as the line there.
        if (dashes[k] == 0 && !run.empty() && run_width.front() > 0) {
          const double h = run_width.front() / 2;
          const DxfPoint p = run.front();
          strip({{p.x - along.x * h, p.y - along.y * h}, {p.x + along.x * h, p.y + along.y * h}},
                {2 * h, 2 * h}, m, color);
        }
      } else {
        if (dashes[k] > 0 && run.size() >= 2) polyline(run, m, color);
        if (dashes[k] == 0 && !run.empty()) {
          const DL::WorldPoint p = to_world(m.apply(run.front()));
          add(new DL::Dot(color, p), {p, p});
        }
      }
      run.clear();
      run_width.clear();
    };
    // The point and width `t` along segment i (of length `segment`).
    auto lay = [&](std::size_t i, double t, double segment) {
      const DxfPoint a = path[i - 1], b = path[i];
      const double f = segment > 0 ? t / segment : 0;
      run.push_back({a.x + (b.x - a.x) * f, a.y + (b.y - a.y) * f});
      if (widths) run_width.push_back((*widths)[2 * i - 2] * (1 - f) + (*widths)[2 * i - 1] * f);
    };
    if (dashes[k] >= 0) lay(1, 0, 0);
    for (std::size_t i = 1; i < path.size(); ++i) {
      const DxfPoint a = path[i - 1], b = path[i];
      const double segment = std::hypot(b.x - a.x, b.y - a.y);
      if (segment > 0) along = {(b.x - a.x) / segment, (b.y - a.y) / segment};
      double t = 0;  // how far along the segment the walk is
      while (segment - t >= left) {
        t += left;
        if (dashes[k] >= 0) lay(i, t, segment);
        flush();
        k = (k + 1) % dashes.size();
        left = std::fabs(dashes[k]);
        if (dashes[k] >= 0) lay(i, t, segment);
        if (left == 0) {  // a dot: laid where it falls
          flush();
          k = (k + 1) % dashes.size();
          left = std::fabs(dashes[k]);
          if (dashes[k] >= 0) lay(i, t, segment);
        }
        if (points_ >= cx_.max_points) return true;
      }
      left -= segment - t;
      if (dashes[k] > 0) lay(i, segment, segment);
    }
    flush();
    return true;
  }

  // A polyline with widths: one triangle strip, a quad a segment from its
  // start width to its end width, the triangles between quads filling the
  // joints' inner wedge.
  bool wide_polyline(const DxfEntity& e, const Affine& m, ZR_RGB32 color) {
    const std::vector<double>& widths = e.detail().widths;
    std::vector<DxfPoint> pts = e.points;
    if (e.closed && pts.size() > 1 &&
        (pts.back().x != pts.front().x || pts.back().y != pts.front().y))
      pts.push_back(pts.front());
    if (pts.size() < 2 || widths.size() != 2 * (pts.size() - 1))
      return polyline(e.points, m, color);
    return strip(pts, widths, m, color) || polyline(e.points, m, color);
  }

  // The strip of `pts` with `widths` (start and end of each segment); false
  // when it has no area to show.
  bool strip(const std::vector<DxfPoint>& pts, const std::vector<double>& widths, const Affine& m,
             ZR_RGB32 color) {
    std::vector<DL::WorldPoint> strip;
    strip.reserve(4 * (pts.size() - 1));
    for (std::size_t k = 0; k + 1 < pts.size(); ++k) {
      const DxfPoint a = pts[k], b = pts[k + 1];
      const double len = std::hypot(b.x - a.x, b.y - a.y);
      if (!(len > 0)) continue;
      const double nx = -(b.y - a.y) / len, ny = (b.x - a.x) / len;  // left normal
      const double h0 = widths[2 * k] / 2, h1 = widths[2 * k + 1] / 2;
      for (DxfPoint p :
           {DxfPoint{a.x + nx * h0, a.y + ny * h0}, DxfPoint{a.x - nx * h0, a.y - ny * h0},
            DxfPoint{b.x + nx * h1, b.y + ny * h1}, DxfPoint{b.x - nx * h1, b.y - ny * h1}})
        strip.push_back(to_world(m.apply(p)));
    }
    if (strip.size() < 3) return false;
    add(new DL::PolytriangleWithNoBorder(color, static_cast<int>(strip.size()), strip.data()),
        bounds_of(strip), static_cast<long>(strip.size()));
    return true;
  }

  bool curve(const DxfEntity& e, const Affine& m, ZR_RGB32 color) {
    const bool whole = e.kind == DxfKind::circle ||
                       (e.kind == DxfKind::ellipse &&
                        std::fabs(e.detail().end - e.detail().start) >= 2 * kPi - 1e-9);
    if (!m.conformal()) {
      std::vector<DxfPoint> pts =
          flatten(e.detail().center, e.detail().radius_x, e.detail().radius_y, e.detail().rotation,
                  whole ? 0.0 : e.detail().start, whole ? 2 * kPi : e.detail().end);
      return polyline(pts, m, color);
    }
    const double k = std::hypot(m.a, m.c);
    const double turn = std::atan2(m.c, m.a);
    const DL::WorldPoint c = to_world(m.apply(e.detail().center));
    const DL::WorldPoint r{DL::round_to_int32_saturated(std::fabs(e.detail().radius_x) * k),
                           DL::round_to_int32_saturated(std::fabs(e.detail().radius_y) * k)};
    const auto rotation = static_cast<float>(std::remainder(e.detail().rotation + turn, 2 * kPi));
    DL::Drawable* drawable;
    if (whole) {
      drawable = new DL::Ellipse(color, c, r, rotation, list_);
    } else {
      drawable = new DL::EllipticalArc(color, c, r, rotation, static_cast<float>(e.detail().start),
                                       static_cast<float>(e.detail().end), list_);
    }
    DL::WorldBounds b = DL::WorldBounds::empty();
    drawable->add_bounds(b);
    if (!b.is_valid()) b = {c, c};
    add(drawable, b);
    return true;
  }

  bool text(const DxfEntity& e, const Affine& m, ZR_RGB32 color) {
    ZR_Text_Engine* engine = cx_.engine();
    if (!engine) return false;
    const double k = std::sqrt(std::fabs(m.a * m.d - m.b * m.c));
    const double cap = e.detail().height * k;  // capital height in world units
    if (!(cap > 0)) return false;
    const double em = cap / kCapitalHeight;
    // The writing direction: the entity's angle carried through the map.
    const DxfPoint dir = {
        m.a * std::cos(e.detail().rotation) + m.b * std::sin(e.detail().rotation),
        m.c * std::cos(e.detail().rotation) + m.d * std::sin(e.detail().rotation)};

    const std::vector<std::string> lines{text_codes(e.detail().text)};
    double angle = std::atan2(dir.y, dir.x);
    double em_used = em, cap_used = cap;
    double width_factor = e.detail().width_factor;
    const int halign = e.detail().halign;
    if (halign == 3 || halign == 5) {
      // Aligned: the text runs from its first point to its second, its
      // height scaled with its width to fit. Fit: the same run at the
      // height given, its width factor chosen to fit.
      const DxfPoint a = m.apply(e.points[0]), b = m.apply(e.detail().align_point);
      const double length = std::hypot(b.x - a.x, b.y - a.y);
      const double width = label_width(engine, cx_.font(), to_utf16(lines[0]), em) * width_factor;
      if (length > 0 && width > 0) {
        if (halign == 3) {
          em_used = em * length / width;
          cap_used = cap * length / width;
        } else {
          width_factor *= length / width;
        }
        angle = std::atan2(b.y - a.y, b.x - a.x);
      }
    }
    return place_lines(e, m, color, lines, angle, em_used, cap_used, width_factor,
                       e.detail().oblique);
  }

  // `width_factor` and `oblique` other than 1 and 0 draw the lines as their
  // glyphs' outlines: a `Text` shows neither.
  bool place_lines(const DxfEntity& e, const Affine& m, ZR_RGB32 color,
                   const std::vector<std::string>& lines, double angle, double em, double cap,
                   double width_factor, double oblique) {
    const bool outlined = width_factor != 1.0 || oblique != 0.0;
    ZR_Text_Engine* engine = cx_.engine();
    const double cs = std::cos(angle), sn = std::sin(angle);
    // Baseline offsets in the text's own frame, world units.
    bool any = false;
    const double spacing = cap * 5.0 / 3.0 * e.detail().line_spacing;
    DxfPoint anchor = e.points[0];
    int column = 0;
    double first_y = 0;
    if (e.detail().halign != 0 || e.detail().valign != 0) {
      anchor = e.detail().align_point;
      column = e.detail().halign == 1 || e.detail().halign == 4 ? 1
               : e.detail().halign == 2                         ? 2
                                                                : 0;
      if (e.detail().halign == 3 || e.detail().halign == 5)
        anchor = e.points[0];  // aligned, fit: from the start
      first_y = e.detail().valign == 3                             ? -cap
                : e.detail().valign == 2 || e.detail().halign == 4 ? -cap / 2
                : e.detail().valign == 1 ? 0.21 * em  // the descender of the face
                                         : 0.0;
    }
    const DxfPoint origin = m.apply(anchor);
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const std::u16string s = to_utf16(lines[i]);
      if (s.empty()) continue;
      double x = 0;
      if (column)
        x = -label_width(engine, cx_.font(), s, em) * width_factor * (column == 1 ? 0.5 : 1.0);
      const double y = first_y - spacing * static_cast<double>(i);
      const DL::DoublePoint at{origin.x + cs * x - sn * y, origin.y + sn * x + cs * y};
      if (outlined) {
        any |= outlines(label_outlines(engine, cx_.font(), s, em, width_factor, oblique, angle, at),
                        color);
        continue;
      }
      DL::WorldBounds b;
      DL::Text* t = make_label(*list_, engine, cx_.font(), color, at, em, angle, s, b);
      if (!t) continue;
      add(t, b);
      any = true;
    }
    return any;
  }

  // MTEXT: its paragraphs' runs (dxf_mtext_p.h) wrapped at its width and
  // set line by line. A piece of a line is a word's part in one style, a
  // space, or a stack; its width is measured in its own font and height,
  // times its width factor and tracking.
  struct Piece {
    const MtextRun* run;  // its style (and a stack's parts)
    std::string text;     // a word's part, or " " for a space; empty for a stack
    double width = 0;     // world units along the line
  };

  // The sub-height of a stack's parts, in the run's capitals.
  static constexpr double kStackScale = 0.7;

  // The width of `text` in `style` at `scale` of its height; k: world units a
  // drawing unit.
  double run_width(const MtextStyle& style, const std::string& text, double k, double scale) {
    const double em = style.height * k * scale / kCapitalHeight;
    return label_width(cx_.engine(), cx_.font_for(style.family, style.bold, style.italic),
                       to_utf16(text), em) *
           style.width * style.tracking;
  }

  double piece_width(const Piece& p, double k) {
    const MtextRun& r = *p.run;
    if (!r.stack) return run_width(r.style, p.text, k, 1);
    const double top = run_width(r.style, r.text, k, kStackScale);
    const double below = run_width(r.style, r.below, k, kStackScale);
    if (r.stack != '#') return std::max(top, below);
    return top + run_width(r.style, "/", k, 1) + below;
  }

  // The paragraphs into lines: greedy, at spaces (not at \~), a word wider
  // than the box keeping a line of its own; spaces at a break are dropped.
  std::vector<std::vector<Piece>> mtext_lines_of(const std::vector<MtextParagraph>& paragraphs,
                                                 double box, double k) {
    std::vector<std::vector<Piece>> lines;
    for (const MtextParagraph& paragraph : paragraphs) {
      std::vector<Piece> line, word, spaces;
      double line_w = 0, word_w = 0, spaces_w = 0;
      auto end_word = [&] {
        if (word.empty()) return;
        if (!line.empty() && box > 0 && line_w + spaces_w + word_w > box) {
          lines.push_back(std::move(line));
          line = std::move(word);
          line_w = word_w;
        } else {
          line.insert(line.end(), spaces.begin(), spaces.end());
          line.insert(line.end(), word.begin(), word.end());
          line_w += spaces_w + word_w;
        }
        word.clear();
        spaces.clear();
        word_w = spaces_w = 0;
      };
      for (const MtextRun& run : paragraph) {
        if (run.stack) {
          Piece p{&run, {}};
          p.width = piece_width(p, k);
          word_w += p.width;
          word.push_back(std::move(p));
          continue;
        }
        std::size_t start = 0;
        while (start < run.text.size()) {
          const std::size_t space = run.text.find(' ', start);
          if (space == start) {
            end_word();
            Piece p{&run, " "};
            p.width = piece_width(p, k);
            spaces_w += p.width;
            spaces.push_back(std::move(p));
            ++start;
            continue;
          }
          const std::size_t end = space == std::string::npos ? run.text.size() : space;
          Piece p{&run, run.text.substr(start, end - start)};
          p.width = piece_width(p, k);
          word_w += p.width;
          word.push_back(std::move(p));
          start = end;
        }
      }
      end_word();
      lines.push_back(std::move(line));
    }
    return lines;
  }

  bool mtext(const DxfEntity& e, const Affine& m, ZR_RGB32 color) {
    ZR_Text_Engine* engine = cx_.engine();
    if (!engine) return false;
    const double k = std::sqrt(std::fabs(m.a * m.d - m.b * m.c));
    const double base = e.detail().height * k;  // the entity's capital height, world units
    if (!(base > 0)) return false;
    const DxfPoint dir = {
        m.a * std::cos(e.detail().rotation) + m.b * std::sin(e.detail().rotation),
        m.c * std::cos(e.detail().rotation) + m.d * std::sin(e.detail().rotation)};
    const double angle = std::atan2(dir.y, dir.x);
    const double cs = std::cos(angle), sn = std::sin(angle);

    const std::vector<MtextParagraph> paragraphs =
        mtext_paragraphs(e.detail().text, e.detail().height);
    const std::vector<std::vector<Piece>> lines =
        mtext_lines_of(paragraphs, e.detail().box_width * k, k);
    // Baselines: a line reaches its tallest capitals (a stack 1.25 times
    // its run's) above its baseline and 2/3 of them below, so lines of one
    // height stand 5/3 of it apart; times the spacing factor between lines.
    // The first stands its own reach below the top; the attachment's row
    // moves them all.
    std::vector<double> baseline(lines.size()), width(lines.size(), 0.0);
    double y = 0, below = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      double cap = 0, reach = 0;
      for (const Piece& p : lines[i]) {
        const double c = p.run->style.height * k;
        cap = std::max(cap, c);
        reach = std::max(reach, p.run->stack ? 1.25 * c : c);
        width[i] += p.width;
      }
      if (!(cap > 0)) cap = reach = base;
      y -= i == 0 ? reach : (below + reach) * e.detail().line_spacing;
      below = cap * 2.0 / 3.0;
      baseline[i] = y;
    }
    const int row = (e.detail().attachment - 1) / 3;
    const double column = ((e.detail().attachment - 1) % 3) / 2.0;
    const double shift = row == 0 ? 0.0 : row == 1 ? -y / 2 : -y;
    const DxfPoint origin = m.apply(e.points[0]);
    auto at = [&](double x, double v) {
      return DL::DoublePoint{origin.x + cs * x - sn * v, origin.y + sn * x + cs * v};
    };

    bool any = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      double x = -width[i] * column;
      const double v = baseline[i] + shift;
      // Underline, overline, strike: one stroke over consecutive pieces of
      // one colour and height.
      struct Stroke {
        double x0 = 0, x1 = 0, v = 0;
        ZR_RGB32 color = 0;
        bool open = false;
      } strokes[3];
      auto flush = [&](Stroke& st) {
        if (st.open && st.x1 > st.x0) any |= stroke(at(st.x0, st.v), at(st.x1, st.v), st.color);
        st.open = false;
      };
      for (const Piece& p : lines[i]) {
        const MtextStyle& style = p.run->style;
        const ZR_RGB32 c = style.colored ? style.color : color;
        const double cap = style.height * k;
        const bool marks[3] = {style.underline, style.overline, style.strike};
        const double heights[3] = {-0.2 * cap, 1.2 * cap, 0.5 * cap};
        for (int j = 0; j < 3; ++j) {
          Stroke& st = strokes[j];
          const double sv = v + heights[j];
          if (st.open && (!marks[j] || st.color != c || st.v != sv || st.x1 != x)) flush(st);
          if (!marks[j]) continue;
          if (!st.open) st = {x, x, sv, c, true};
          st.x1 = x + p.width;
        }
        if (p.run->stack)
          any |= stack(*p.run, c, x, v, p.width, k, angle, at);
        else if (p.text != " ")
          any |= glyph_run(style, c, p.text, k, 1, angle, at(x, v));
        x += p.width;
      }
      for (Stroke& st : strokes) flush(st);
    }
    return any;
  }

  // A run's text at `scale` of its height from `origin`: a `Text`, or its
  // glyphs' outlines when its width, slant or tracking is not plain.
  bool glyph_run(const MtextStyle& style, ZR_RGB32 color, const std::string& text, double k,
                 double scale, double angle, DL::DoublePoint origin) {
    std::u16string s = to_utf16(text);
    std::replace(s.begin(), s.end(), u'\u00a0', u' ');  // \~, kept from the wrapping
    if (s.find_first_not_of(u' ') == std::u16string::npos) return false;
    const double em = style.height * k * scale / kCapitalHeight;
    const ZR_Font& font = cx_.font_for(style.family, style.bold, style.italic);
    if (!style.plain_glyphs())
      return outlines(label_outlines(cx_.engine(), font, s, em, style.width, style.oblique, angle,
                                     origin, style.tracking),
                      color);
    DL::WorldBounds b;
    DL::Text* t = make_label(*list_, cx_.engine(), font, color, origin, em, angle, s, b);
    if (!t) return false;
    add(t, b);
    return true;
  }

  // A stacked fraction `width` wide from x on the baseline v, its parts at
  // 0.7 of the run's height: "a/b" the upper part centred over a bar and
  // the lower part, "a^b" the two left-aligned without a bar, "a#b" side by
  // side across a slash, the upper part raised.
  template <class At>
  bool stack(const MtextRun& r, ZR_RGB32 color, double x, double v, double width, double k,
             double angle, const At& at) {
    const double cap = r.style.height * k;
    const double top = run_width(r.style, r.text, k, kStackScale);
    bool any = false;
    if (r.stack == '#') {
      const double slash = run_width(r.style, "/", k, 1);
      any |= glyph_run(r.style, color, r.text, k, kStackScale, angle, at(x, v + 0.45 * cap));
      any |= glyph_run(r.style, color, "/", k, 1, angle, at(x + top, v));
      any |= glyph_run(r.style, color, r.below, k, kStackScale, angle, at(x + top + slash, v));
      return any;
    }
    const double below = run_width(r.style, r.below, k, kStackScale);
    const double centre = r.stack == '/' ? 0.5 : 0.0;
    any |= glyph_run(r.style, color, r.text, k, kStackScale, angle,
                     at(x + (width - top) * centre, v + 0.55 * cap));
    any |= glyph_run(r.style, color, r.below, k, kStackScale, angle,
                     at(x + (width - below) * centre, v - 0.45 * cap));
    if (r.stack == '/') any |= stroke(at(x, v + 0.4 * cap), at(x + width, v + 0.4 * cap), color);
    return any;
  }

  // A line from a to b (world units) as a two-point `Polyline`.
  bool stroke(DL::DoublePoint a, DL::DoublePoint b, ZR_RGB32 color) {
    std::vector<DL::WorldPoint> pts{to_world({a.x, a.y}), to_world({b.x, b.y})};
    if (pts[0] == pts[1]) return false;
    add(new DL::Polyline(color, 2, pts.data()), bounds_of(pts), 2);
    return true;
  }

  // Glyph outlines as one `Polygon` a glyph, its contours chained as a
  // hatch's loops are (see hatch), so the even-odd fill leaves the counters
  // of "O" and "A" open.
  bool outlines(const std::vector<std::vector<std::vector<DL::DoublePoint>>>& glyphs,
                ZR_RGB32 color) {
    bool any = false;
    for (const auto& glyph : glyphs) {
      std::vector<DL::WorldPoint> pts;
      for (const auto& contour : glyph) {
        if (contour.size() < 3) continue;
        const std::size_t start = pts.size();
        for (const DL::DoublePoint& p : contour) pts.push_back(to_world({p.x, p.y}));
        pts.push_back(pts[start]);
        if (start != 0) pts.push_back(pts[0]);
      }
      if (pts.size() < 3) continue;
      add(new DL::Polygon(color, static_cast<int>(pts.size()), pts.data()), bounds_of(pts),
          static_cast<long>(pts.size()));
      any = true;
    }
    return any;
  }

  bool hatch(const DxfEntity& e, const Affine& m, ZR_RGB32 color) {
    if (!e.detail().pattern.empty()) return pattern(e, m, color);
    std::vector<DL::WorldPoint> pts;
    DL::WorldPoint anchor{};
    for (const auto& loop : e.detail().loops) {
      if (loop.size() < 3) continue;
      const std::size_t start = pts.size();
      for (const DxfPoint& p : loop) pts.push_back(to_world(m.apply(p)));
      pts.push_back(pts[start]);  // closed
      if (start == 0) {
        anchor = pts[0];
      } else {
        pts.push_back(anchor);  // the bridge back to the first loop
      }
    }
    if (pts.size() < 3) return false;
    add(new DL::Polygon(color, static_cast<int>(pts.size()), pts.data()), bounds_of(pts),
        static_cast<long>(pts.size()));
    return true;
  }

  // A patterned hatch: a `Polyline` a dash (a `Dot` a dot), or the boundary's
  // outlines when the pattern would give more than kMaxHatchDashes.
  bool pattern(const DxfEntity& e, const Affine& m, ZR_RGB32 color) {
    std::vector<DxfSegment> dashes;
    if (!hatch_segments(e.detail(), kMaxHatchDashes, dashes)) {
      bool any = false;
      for (const auto& loop : e.detail().loops) {
        if (loop.size() < 2) continue;
        std::vector<DxfPoint> closed = loop;
        closed.push_back(loop.front());
        any = polyline(closed, m, color) || any;
      }
      return any;
    }
    bool any = false;
    for (const DxfSegment& s : dashes) {
      if (points_ >= cx_.max_points) break;
      any = polyline({s.first, s.second}, m, color) || any;
    }
    return any;
  }

  bool insert(const DxfEntity& e, const Affine& m, ZR_RGB32 color, int depth) {
    auto block = d_.blocks.find(e.detail().block);
    if (block == d_.blocks.end() || depth >= kMaxBlockDepth) return false;
    // A block expanded inside itself: cyclic, not shown (the shared lists
    // catch their cycles while they are built).
    if (std::find(expanding_.begin(), expanding_.end(), &block->second) != expanding_.end())
      return false;
    const double turn = std::remainder(e.detail().rotation, 2 * kPi);
    const bool nest = m.axis_aligned() && std::fabs(turn) < 1e-12 && e.detail().scale.x > 0 &&
                      e.detail().scale.y > 0;
    DL::DisplayList& list = *list_;
    DL::Extra_Layer_Info* layer = layer_;
    const int weight = weight_;
    bool any = false;
    const double cs = std::cos(e.detail().rotation), sn = std::sin(e.detail().rotation);
    for (int col = 0; col < e.detail().columns; ++col) {
      for (int row = 0; row < e.detail().rows; ++row) {
        if (points_ >= cx_.max_points) return any;
        // Block point p lands at ip + R (S (p - base) + cell).
        const double cell_x = col * e.detail().spacing.x, cell_y = row * e.detail().spacing.y;
        const DxfPoint base = block->second.base;
        const double sx = e.detail().scale.x, sy = e.detail().scale.y;
        Affine local{cs * sx,
                     -sn * sy,
                     sn * sx,
                     cs * sy,
                     e.points[0].x + cs * (cell_x - sx * base.x) - sn * (cell_y - sy * base.y),
                     e.points[0].y + sn * (cell_x - sx * base.x) + cs * (cell_y - sy * base.y)};
        if (nest) {
          SheetContext::BlockList* bl = block_list(e.detail().block, color, weight, depth);
          if (!bl || !bl->list) continue;
          // Each cell draws the whole block list: within the budget or not at all.
          if (bl->points + 1 > cx_.max_points - points_) return any;
          // Outer = m(local(block)), block world = (p - base) * scale.
          const Affine to_outer = m.after(local);
          const DxfPoint o = to_outer.apply(bl->base);
          auto* drawable = new DL::DrawableDisplayList(
              color, bl->list.get(), nullptr, DL::DrawableDisplayList::Ownership::borrowed);
          drawable->set_scale({to_outer.a / bl->scale, to_outer.d / bl->scale});
          drawable->set_offset({o.x, o.y});
          list_ = &list;
          layer_ = layer;
          if (!drawable->mapped_bounds().is_valid()) {
            drawable->destroy();
            continue;
          }
          add(drawable, drawable->mapped_bounds(), bl->points + 1);
          any = true;
        } else {
          const Affine composed = m.after(local);
          expanding_.push_back(&block->second);
          for (const DxfEntity& inner : block->second.entities) {
            if (!map(inner, composed, list, nullptr, color, weight, depth + 1))
              ++report_.not_shown_in_blocks[static_cast<int>(inner.kind)];
            else
              any = true;
          }
          expanding_.pop_back();
          list_ = &list;
          layer_ = layer;
        }
      }
    }
    return any;
  }

  // The shared list of a block; see SheetContext::blocks.
  SheetContext::BlockList* block_list(const std::string& name, ZR_RGB32 by_block,
                                      int by_block_weight, int depth) {
    auto key = std::make_tuple(&d_, name, by_block, by_block_weight);
    auto found = cx_.blocks.find(key);
    if (found != cx_.blocks.end()) return found->second.building ? nullptr : &found->second;
    SheetContext::BlockList& bl = cx_.blocks[key];
    const DxfBlock& block = d_.blocks.at(name);
    auto extent = d_.block_extents.find(name);
    if (extent == d_.block_extents.end() || extent->second.empty()) return &bl;  // no list
    const DxfBounds& x = extent->second;
    const double side =
        std::max({x.max_x - x.min_x, x.max_y - x.min_y, std::fabs(x.max_x - block.base.x),
                  std::fabs(x.min_x - block.base.x), std::fabs(x.max_y - block.base.y),
                  std::fabs(x.min_y - block.base.y)});
    bl.scale = side > 0 ? kBlockSide / side : 1.0;
    bl.base = block.base;
    bl.building = true;
    auto list = std::make_unique<DL::DisplayList>();
    list->saturate_device_points = true;
    // BYBLOCK lines draw at the list's own weight; the others in runs.
    list->rendition.set_line_weight(by_block_weight, false);
    const Affine to_block{bl.scale, 0, 0, bl.scale, -bl.base.x * bl.scale, -bl.base.y * bl.scale};
    const long drawables_before = report_.drawables;
    const long points_before = points_;
    DL::DisplayList* outer_list = list_;
    DL::Extra_Layer_Info* outer_layer = layer_;
    for (const DxfEntity& e : block.entities) {
      DL::Extra_Layer_Info* layer =
          e.layer == 0 ? nullptr
                       : cx_.layers.find_or_add(d_.layer_of(e), layer_shown(d_.layer_of(e)));
      if (!map(e, to_block, *list, layer, by_block, by_block_weight, depth + 1))
        ++report_.not_shown_in_blocks[static_cast<int>(e.kind)];
    }
    finish_run(*list);
    list_ = outer_list;
    layer_ = outer_layer;
    bl.building = false;  // map nodes stay put: `bl` is still the entry
    ++report_.block_lists;
    if (report_.drawables > drawables_before) bl.list = std::move(list);
    bl.points = points_ - points_before;
    return &bl;
  }

 public:
  // Closes the open run of `parent` (and the runs inside it): its nested
  // list goes into `parent` as one drawable over what the run drew.
  void finish_run(DL::DisplayList& parent) {
    auto it = runs_.find(&parent);
    if (it == runs_.end()) return;
    std::unique_ptr<DL::DisplayList> nested = std::move(it->second);
    runs_.erase(it);
    finish_run(*nested);
    DL::DisplayList* saved_list = list_;
    DL::Extra_Layer_Info* saved_layer = layer_;
    list_ = &parent;
    layer_ = nullptr;  // its drawables carry their own layers
    auto bounds = run_bounds_.find(nested.get());
    // The nested view clips to its region: grown by the run's larger side on
    // every side, so a wide line keeps its whole width until the run is a
    // few pixels across.
    const DL::WorldBounds drawn = bounds->second;
    DL::WorldBounds b = drawn;
    run_bounds_.erase(bounds);
    if (b.is_valid()) {
      const std::int64_t grow = std::max<std::int64_t>(
          {std::int64_t{b.max.x} - b.min.x, std::int64_t{b.max.y} - b.min.y, 1});
      auto clamp = [](std::int64_t v) {
        return static_cast<DL::WorldCoord>(std::clamp<std::int64_t>(v, INT32_MIN, INT32_MAX));
      };
      b = {{clamp(b.min.x - grow), clamp(b.min.y - grow)},
           {clamp(b.max.x + grow), clamp(b.max.y + grow)}};
    }
    if (b.is_valid()) {
      auto* drawable = new DL::DrawableDisplayList(ZR_RGB32{0}, nested.release(), &b);
      // What is drawn frames the view, not the clip's margin.
      const DL::WorldBounds framed = report_.bounds;
      add(drawable, drawable->mapped_bounds());
      if (&parent == top_) {
        report_.bounds = framed;
        report_.bounds.merge(drawn);
      }
    }
    list_ = saved_list;
    layer_ = saved_layer;
  }

  bool layer_shown(const std::string& name) const {
    auto it = d_.layers.find(name);
    return it == d_.layers.end() || !(it->second.off || it->second.frozen);
  }

 private:
  // The device width of a lineweight (see SheetContext::lineweight_dpi): 1
  // when the drawing does not show lineweights.
  // The entities a lineweight widens: not texts, fills, images, points,
  // nor INSERTs (whose BYBLOCK width goes whole to their block).
  static bool strokes(const DxfEntity& e) {
    switch (e.kind) {
      case DxfKind::line:
      case DxfKind::spline:
      case DxfKind::circle:
      case DxfKind::arc:
      case DxfKind::ellipse:
      case DxfKind::leader:
        return true;
      case DxfKind::polyline:
        return e.detail().widths.empty();  // a wide one is a fill
      default:
        return false;
    }
  }

  // A lineweight finer than the default (0.25 mm, the finest CAD shows
  // at one pixel) whose width is under one device unit: its colour mixed
  // towards the white paper by that width, so a one-unit line carries the
  // ink of the finer one (at 96 units an inch, 0.13 mm 49%, 0.20 mm 76%),
  // but never under a quarter, so 0.05 mm still shows. The rendition's width
  // is a whole number of device units: this is how a finer line tells.
  ZR_RGB32 inked(ZR_RGB32 color, int line_weight) const {
    if (!d_.header.lwdisplay || !(cx_.lineweight_dpi > 0) || line_weight <= 0 || line_weight >= 25)
      return color;
    const double ink =
        std::max(0.25, line_weight / 100.0 / 25.4 * std::min(cx_.lineweight_dpi, 10000.0));
    if (ink >= 1) return color;
    auto mix = [&](int shift) {
      const double c = static_cast<double>((color >> shift) & 0xff);
      return static_cast<ZR_RGB32>(std::lround(255 - (255 - c) * ink)) << shift;
    };
    return mix(16) | mix(8) | mix(0);
  }

  int device_weight(int line_weight, int by_block_weight) const {
    if (!d_.header.lwdisplay || !(cx_.lineweight_dpi > 0)) return 1;
    if (line_weight == kByBlockLineWeight) return by_block_weight;
    if (line_weight < 0) line_weight = 25;  // the default: 0.25 mm, as CAD's $LWDEFAULT
    const double pixels = line_weight / 100.0 / 25.4 * std::min(cx_.lineweight_dpi, 10000.0);
    return std::max(1, static_cast<int>(std::lround(pixels)));
  }

  // The list an entity of device width `weight` goes into, in `list`: the
  // list itself when it draws at that width, else the open run of `list`
  // at that width, opened here (closing the run before it).
  DL::DisplayList& route(DL::DisplayList& list, int weight) {
    auto it = runs_.find(&list);
    if (weight == list.rendition.line_weight()) {
      if (it != runs_.end()) finish_run(list);
      return list;
    }
    if (it != runs_.end() && it->second->rendition.line_weight() == weight) return *it->second;
    if (it != runs_.end()) finish_run(list);
    auto nested = std::make_unique<DL::DisplayList>();
    nested->saturate_device_points = list.saturate_device_points;
    nested->rendition.set_line_weight(weight, false);
    run_bounds_[nested.get()] = DL::WorldBounds::empty();
    return *(runs_[&list] = std::move(nested));
  }

  const DxfDrawing& d_;
  SheetContext& cx_;
  MappingReport& report_;
  DL::DisplayList* top_;  // the list whose drawables `report_.bounds` covers
  DL::DisplayList* list_ = nullptr;
  DL::Extra_Layer_Info* layer_ = nullptr;
  // Points a draw of everything added so far hands on (see max_points).
  long points_ = 0;
  // The blocks being expanded by turned or mirrored INSERTs, outermost first.
  std::vector<const DxfBlock*> expanding_;
  int weight_ = 1;  // the device width of the entity being mapped
  // The open run of each list: the entities of one width other than the
  // list's own, consecutive in the file, gathered in a nested list.
  std::map<DL::DisplayList*, std::unique_ptr<DL::DisplayList>> runs_;
  // What each open run's list holds, in its world (that of its parent).
  std::map<const DL::DisplayList*, DL::WorldBounds> run_bounds_;
};

}  // namespace

Affine Affine::after(const Affine& q) const {
  return {a * q.a + b * q.c, a * q.b + b * q.d,     c * q.a + d * q.c,
          c * q.b + d * q.d, a * q.e + b * q.f + e, c * q.e + d * q.f + f};
}

bool Affine::conformal() const {
  const double scale = std::max({std::fabs(a), std::fabs(b), std::fabs(c), std::fabs(d)});
  const double tolerance = 1e-9 * scale;
  return std::fabs(a - d) <= tolerance && std::fabs(b + c) <= tolerance && a * d - b * c > 0;
}

SheetContext::SheetContext(ZR_Text_Engine* engine, ZR_Font font)
    : engine_(engine), font_(std::move(font)) {
  if (engine_) add_ref(engine_);
}

const ZR_Font& SheetContext::font_for(const std::string& family, bool bold, bool italic) {
  if (family.empty() && !bold && !italic) return font_;
  std::string name;
  if (family.empty()) {
    if (font_) name = font_->name.text();
  } else {
    for (char c : family) {
      if (c == '-' || c == ':' || c == ',' || c == '\\') name += '\\';
      name += c;
    }
  }
  if (bold) name += ":bold";
  if (italic) name += ":italic";
  ZR_Font& font = fonts_[name];
  if (!font) {
    auto* data = new ZR_Font_Data;
    data->name = ZR_String(name);
    font = ZR_Font(data);
  }
  return font;
}

SheetContext::~SheetContext() {
  blocks.clear();
  if (engine_) release(engine_);
}

namespace {

// The model-space entities of `drawing` into `list`; with `consume`, each
// entity's points and detail are let go once it is mapped.
MappingReport map_entities(const DxfDrawing& drawing, std::vector<DxfEntity>* consume,
                           const Placement& placement, SheetContext& context,
                           DL::DisplayList& list) {
  MappingReport report;
  Mapper mapper(drawing, context, report, list);
  const Affine m = Affine::from(placement);
  for (std::size_t i = 0; i < drawing.entities.size(); ++i) {
    const DxfEntity& e = drawing.entities[i];
    DL::Extra_Layer_Info* layer =
        context.layers.find_or_add(drawing.layer_of(e), mapper.layer_shown(drawing.layer_of(e)));
    const int kind = static_cast<int>(e.kind);
    if (mapper.map(e, m, list, layer, 0, 1, 0))
      ++report.shown[kind];
    else
      ++report.not_shown[kind];
    if (!consume) continue;
    (*consume)[i].release();
#ifdef __GLIBC__
    // The freed points lie all over the heap: hand their pages back now and
    // then, or the list grows beside memory nobody uses.
    if (i % 65536 == 65535) ::malloc_trim(0);
#endif
  }
  mapper.finish_run(list);
  return report;
}

}  // namespace

MappingReport add_to_display_list(const DxfDrawing& drawing, const Placement& placement,
                                  SheetContext& context, DL::DisplayList& list) {
  return map_entities(drawing, nullptr, placement, context, list);
}

MappingReport consume_into_display_list(DxfDrawing& drawing, const Placement& placement,
                                        SheetContext& context, DL::DisplayList& list) {
  MappingReport report = map_entities(drawing, &drawing.entities, placement, context, list);
  std::vector<DxfEntity>().swap(drawing.entities);
#ifdef __GLIBC__
  ::malloc_trim(0);
#endif
  return report;
}

std::string text_codes(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && text[i + 1] == '%') {
      const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(text[i + 2])));
      const char* sub = c == 'd'                 ? "\u00b0"
                        : c == 'p'               ? "\u00b1"
                        : c == 'c'               ? "\u2300"
                        : c == '%'               ? "%"
                        : (c == 'u' || c == 'o') ? ""
                                                 : nullptr;
      if (sub) {
        out += sub;
        i += 2;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

std::vector<std::string> mtext_lines(const std::string& text) {
  std::vector<std::string> lines;
  for (const MtextParagraph& p : mtext_paragraphs(text, 1)) {
    std::string& line = lines.emplace_back();
    for (const MtextRun& r : p) {
      // A \~ back to a plain space, a stack as "a/b".
      for (std::size_t i = 0; i < r.text.size(); ++i) {
        const bool nbsp = r.text.compare(i, 2, "\u00a0") == 0;
        line += nbsp ? ' ' : r.text[i];
        i += nbsp;
      }
      if (r.stack) line.append("/").append(r.below);
    }
  }
  return lines;
}

}  // namespace DL::dxf
