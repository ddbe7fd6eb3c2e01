// Builds group trees record by record, so that a test knows the class, level
// and rectangle of every group, and a recording renderer under an identity view
// (world point = screen point) to take traces from.
#pragma once

#include <initializer_list>
#include <vector>

#include "backends/recording/recording.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"

namespace DL::test {

class HandTree {
 public:
  // Empties the list's tree (its open group goes) and shows world 0..1000 on
  // screen 0..1000, with a recording renderer.
  explicit HandTree(DisplayList& list) : list_(list), renderer_(new RecordingRenderer) {
    list.root->remove_all();
    list.set_world_bounds({{0, 0}, {1000, 1000}});
    list.set_screen_bounds({{0, 0}, {1000, 1000}});
    list.set_renderer(renderer_.get());
  }

  RecordingRenderer& renderer() { return *renderer_; }
  std::vector<const Drawable*>& order() { return order_; }

  // A new dot (colour 1) remembered in insertion order; placed by the calls below.
  Dot* dot(WorldCoord x, WorldCoord y) { return new Dot(ZR_RGB32{1}, {x, y}); }

  // An interior group at the tail of `parent`; its rectangle is the union of its
  // children once `finish` has run.
  Group* interior(Group* parent) {
    Group* g = open_at(parent, WorldBounds::everything());
    g->set_level_word(parent->level() + 1);
    g->table = &Group::table_;
    g->bounds.make_empty();
    list_.open_group = nullptr;
    return g;
  }
  // A closed bottom group with the dots, in order, at the tail of `parent`.
  Group* bottom(Group* parent, std::initializer_list<Dot*> dots) {
    Group* g = open(parent, dots);
    g->close();
    list_.open_group = nullptr;
    return g;
  }
  // The open group at the tail of `parent`, with the cell of the dots' union.
  Group* open(Group* parent, std::initializer_list<Dot*> dots) {
    WorldBounds b = WorldBounds::empty();
    for (Dot* d : dots) b.merge(d->point);
    Group* g = open_at(parent, dots.size() ? b : parent->bounds);
    for (Dot* d : dots) {
      OpenBottomGroup::append_drawable(*g, d, d->bounds_of());
      order_.push_back(d);
    }
    return g;
  }
  // Gives every interior group below the root the union of its children.
  void finish() { tighten(list_.root); }

 private:
  Group* open_at(Group* parent, const WorldBounds& b) {
    Group* g = Group::open(&list_, parent->bounds, b, parent, parent->level() + 1);
    if (parent->last_child)
      parent->last_group()->sibling = g;
    else
      parent->first_child = g;
    parent->last_child = g;
    return g;
  }
  void tighten(Group* g) {
    if (g->contains_drawables()) return;
    WorldBounds b = WorldBounds::empty();
    for (Group* c = g->first_group(); c; c = c->sibling) {
      tighten(c);
      b.merge(c->bounds);
    }
    if (g->parent) g->bounds = b;
  }

  DisplayList& list_;
  ZR_Handle<RecordingRenderer> renderer_;
  std::vector<const Drawable*> order_;
};

// The device points of the recorded calls, as "entry x,y" lines.
inline std::vector<std::string> dots_of(const RecordingRenderer& r) {
  std::vector<std::string> out;
  for (const RecordedCall& c : r.calls)
    out.push_back(c.entry + " " + std::to_string(c.points[0].x) + "," +
                  std::to_string(c.points[0].y));
  return out;
}

}  // namespace DL::test
