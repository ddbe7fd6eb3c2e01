// Tree diagnostics: the dump of a subtree, one line per group and drawable, and
// the validity walk.
//
// The dump line of a group is
//
//     <indent x 4 blanks><label><level>, this = <address>, sibling = <address>
//
// with the label "Group: level  ", "BottomGroup: level  " or
// "*OpenBottomGroup*: level  ". The level of an interior or closed group comes
// in the base the stream is in when the line starts (so a host that left the
// stream in hex sees it in hex), that of the open group always in decimal; both
// addresses are in hex, and the line leaves the stream in decimal, so every line
// after a group's line, the drawables' included, writes its numbers in decimal.
// The counts of the group the host calls first are not taken: a group is counted
// by its parent.
#include <cstdint>
#include <ostream>

#include "displaylist/group_p.h"

namespace DL::group_detail {

namespace {

constexpr const char* kIndent = "    ";

void write_indent(std::ostream& out, int indent) {
  for (int i = 0; i < indent; ++i) out << kIndent;
}

// The group's own line; `decimal_level` writes the level in decimal whatever
// the stream's base.
void write_group_line(const Group* g, std::ostream& out, int indent, const char* label,
                      bool decimal_level) {
  write_indent(out, indent);
  out << label;
  if (decimal_level) out << std::dec;
  out << g->level() << ", this = " << std::hex << reinterpret_cast<std::uintptr_t>(g)
      << ", sibling = " << std::hex << reinterpret_cast<std::uintptr_t>(g->sibling) << std::dec
      << std::endl;
}

// The drawables of a bottom group, one indent deeper, each counted.
void dump_drawables(const Group* g, std::ostream& out, int indent, DisplayListDebug& debug) {
  for (const Drawable* d = g->first_drawable(); d; d = d->sibling) {
    add_to_dump_count(debug.drawable_count, 1);
    d->dump(out, indent + 1, debug);
  }
}

}  // namespace

void interior_dump_subtree(const Group* g, std::ostream& out, int indent, DisplayListDebug& debug) {
  write_group_line(g, out, indent, "Group: level  ", false);
  for (const Group* c = g->first_group(); c; c = c->sibling) {
    add_to_dump_count(debug.group_count, 1);
    add_to_dump_count(debug.group_bytes, static_cast<int>(sizeof(Group)));
    c->dump_subtree(out, indent + 1, debug);
  }
}

void bottom_dump_subtree(const Group* g, std::ostream& out, int indent, DisplayListDebug& debug) {
  write_group_line(g, out, indent, "BottomGroup: level  ", false);
  dump_drawables(g, out, indent, debug);
}

void open_dump_subtree(const Group* g, std::ostream& out, int indent, DisplayListDebug& debug) {
  write_group_line(g, out, indent, "*OpenBottomGroup*: level  ", true);
  dump_drawables(g, out, indent, debug);
}

void interior_assert_valid(const Group* g) {
  for (const Group* c = g->first_group(); c; c = c->sibling) {
    DL_ASSERT(c->parent == g);
    c->assert_valid();
  }
}

// A closed group's chain was counted and its tail set when it was closed.
void bottom_assert_valid(const Group*) {}

// The open group's tail is where the next drawable goes: it must be on the chain.
void open_assert_valid(const Group* g) {
  const Drawable* d = g->first_drawable();
  while (d && d != g->last_child) d = d->sibling;
  DL_ASSERT(!g->first_child || d == g->last_child);
}

}  // namespace DL::group_detail
