// The drawable protocol: the record every primitive starts with, its table of
// operations, the colour word, layers, type tokens, the Search record and the
// minimal DummyDrawable.
//
// Tables instead of C++ virtual functions
// ---------------------------------------
// A drawable changes class in place: `make_hidden` turns it into its hidden twin,
// whose draws do nothing, and `make_visible` turns it back, while it keeps its
// place in the tree. So the operations live in an explicit table (`DrawableTable`)
// that the object points to, and a change of class is one store of that pointer.
// The C++ type of an object never changes, which keeps this well-defined C++:
// no placement-new over a live object, no pointer that needs laundering, and no
// hidden flag tested in any draw. A table entry costs what a virtual call costs.
//
// Each concrete class gets both tables from its own member functions by two
// macros: `DL_DRAWABLE(Class)` inside the class and `DL_DRAWABLE_DEFINE(Class)`
// in its source file. An operation a class does not define is looked up in its
// base class, as with virtual functions. The implementations are named
// `do_<operation>` and are protected; callers use the public wrappers, which go
// through the table, so a hidden object never draws, whatever its static type.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "foundation/geometry.h"
#include "foundation/rendering.h"
#include "foundation/storage.h"

namespace DL {

class DisplayList;
class Drawable;
class DrawableVectorIterator;
struct Search;

// A layer: a record owned by the host, of which the library reads only the first
// byte. Not zero means that the drawables on the layer are shown; the byte is
// tested anew in every traversal, so one store shows or hides a whole layer.
struct Extra_Layer_Info {
  unsigned char shown;  // not zero: the layer's drawables are drawn
};

// Counts and sizes gathered by the dumps; the host zeroes it, and may sum
// several dumps in one record. The fields are ints, and a total past INT_MAX
// (some 33.5 million groups' bytes, or several large dumps summed) wraps modulo
// 2^32 as unsigned arithmetic does: the dumps add through `add_to_dump_count`,
// never with a signed `+=`, whose overflow would be undefined.
struct DisplayListDebug {
  int group_count;            // groups dumped
  int drawable_count;         // drawables dumped
  int group_bytes;            // bytes of their records
  int drawable_bytes;         // bytes of the drawables, with what they own
  int drawable_common_bytes;  // of those, the bytes of the common part
};

// `field += amount`, wrapping modulo 2^32 (see `DisplayListDebug`).
inline void add_to_dump_count(int& field, int amount) {
  field = static_cast<int>(static_cast<unsigned>(field) + static_cast<unsigned>(amount));
}

// The table of operations of a drawable class. Every entry is set in every
// table; the order is fixed. `Drawable*` is the object the operation runs on.
struct DrawableTable {
  // Draws through the rendering component: the `_clipped` entry where the
  // traversal found that the primitive may cross the clip rectangle. A hidden
  // twin's two plain draws do nothing.
  void (*draw_unclipped)(Drawable*, DisplayList&);
  void (*draw_clipped)(Drawable*, DisplayList&);  // see draw_unclipped
  // The draws of a selection traversal; by default the plain draws.
  void (*draw_unclipped_selection)(Drawable*, DisplayList&);
  void (*draw_clipped_selection)(Drawable*, DisplayList&);  // see draw_unclipped_selection
  // The rendition to draw with; by default the list's, with `color` set on it.
  ZR_Rendition* (*rendition)(Drawable*, DisplayList&);
  // Extends the rectangle to cover the primitive; never shrinks it.
  void (*add_bounds)(const Drawable*, WorldBounds&);
  // Whether the object equals `search.pattern`; removes nothing.
  bool (*remove)(const Drawable*, const Search&);
  // A deep copy from the default heap, no sibling, no layer, hidden exactly
  // when the source is; null when allocation fails.
  Drawable* (*clone)(const Drawable*);
  // A visible primitive holding vectors first..first+count-1; null by default.
  Drawable* (*partial_clone)(const Drawable*, int first, int count);
  // Whether the colour word is a rendition pointer (the rendition form of
  // Text).
  bool (*has_rendition)(const Drawable*);
  // Whether the vectors are fixed, not made anew for each view (false for
  // the ellipses). For hosts: the library does not call it.
  bool (*has_fixed_representation)(const Drawable*);
  // Whether `get_vector` reads the vectors by index; by default when there
  // are any.
  bool (*supports_fast_vector_iterator)(const Drawable*);
  // How many vectors (straight pieces) the primitive has; 0 by default.
  int (*get_vector_count)(const Drawable*);
  // Vector `index`, in world coordinates; false when there is none.
  bool (*get_vector)(const Drawable*, int index, WorldVector&);
  // A test of vector `index` left to hosts; false by default.
  bool (*vector_predicate)(Drawable*, int);
  // A new walk over the vectors (null when out of memory); the flag is
  // read by Text only.
  DrawableVectorIterator* (*create_vector_iterator)(Drawable*, bool);
  // Writes the object's dump line and adds to the counts.
  void (*dump)(const Drawable*, std::ostream&, int indent, DisplayListDebug&);
  // The deleting destructor: destroys the object and releases its memory.
  void (*destroy)(Drawable*);
  // Identity of the class: the address of its `_drawable_type_dummy`; a twin has
  // its visible class's. Null for DummyDrawable.
  void* type;
  // The table of the twin class: hidden for a visible table and back. A class
  // without a twin names its own table.
  const DrawableTable* twin;
  bool hidden;  // whether this is a hidden class, which draws nothing
  // Where the visible draws first read data kept outside the record (a point
  // list's array), so that a walk that knows it will draw the object some
  // steps ahead can ask for that memory early; null when the record holds
  // what a draw reads, and in hidden tables. A hint only: never written
  // through, and a null result is fine.
  const void* (*draw_data)(const Drawable*);
};

// Base of everything a display list holds. A Dot is 40 bytes on a 64-bit host:
// table, sibling, colour, layer (8 each), point (8).
class Drawable : public HeapObject {
 public:
  using Table = DrawableTable;  // the type of the class tables

  // The colour of a primitive in one word: an RGB value, or, for the rendition
  // form of Text, a rendition pointer. Copied and compared as one word, so an
  // RGB value keeps the upper bits of the word zero.
  class ColorData {
   public:
    constexpr ColorData() = default;
    constexpr ColorData(ZR_RGB32 rgb) : word_(rgb) {}  // NOLINT: a colour is a ColorData
    // The rendition form.
    explicit ColorData(ZR_Rendition* rendition)
        : word_(reinterpret_cast<std::uintptr_t>(rendition)) {}
    // The word as a colour.
    ZR_RGB32 rgb() const { return static_cast<ZR_RGB32>(word_); }
    // The word as a rendition pointer.
    ZR_Rendition* rendition() const { return reinterpret_cast<ZR_Rendition*>(word_); }
    // The word itself.
    std::uintptr_t word() const { return word_; }
    // Equal when the words are.
    friend bool operator==(const ColorData&, const ColorData&) = default;

   private:
    std::uintptr_t word_ = 0;
  };

  // -- The record ------------------------------------------------------------
  // The class of the object; changed only by make_hidden and make_visible.
  const DrawableTable* table;
  // Next drawable of the same bottom group, null at the tail; written only by
  // the group code.
  Drawable* sibling;
  ColorData color;  // the colour word
  // The layer, null for none; not owned.
  Extra_Layer_Info* layer_info;

  // -- Operations (through the table) ----------------------------------------
  Extra_Layer_Info* layer() const { return layer_info; }
  void set_layer(Extra_Layer_Info* layer) { layer_info = layer; }  // null for none; not owned
  // Whether traversals draw this object: no layer, or the layer's byte not zero.
  bool shown() const { return !layer_info || layer_info->shown != 0; }

  // Draws the primitive (the table's entries, called on this object).
  void draw_unclipped(DisplayList& list) { table->draw_unclipped(this, list); }
  // Draws, cut to the hard clip.
  void draw_clipped(DisplayList& list) { table->draw_clipped(this, list); }
  // Draws in a selection traversal.
  void draw_unclipped_selection(DisplayList& list) { table->draw_unclipped_selection(this, list); }
  // Draws in a selection traversal, cut to the hard clip.
  void draw_clipped_selection(DisplayList& list) { table->draw_clipped_selection(this, list); }
  // The rendition to draw with.
  ZR_Rendition* rendition(DisplayList& list) { return table->rendition(this, list); }
  // Extends `bounds` to cover the primitive.
  void add_bounds(WorldBounds& bounds) const { table->add_bounds(this, bounds); }
  // Whether the object equals the search's pattern.
  bool remove(const Search& search) const { return table->remove(this, search); }
  // The identity of the class.
  void* type() const { return table->type; }
  // A deep copy; null when out of memory.
  Drawable* clone() const { return table->clone(this); }
  // A primitive of vectors first..first+count-1, or null.
  Drawable* partial_clone(int first, int count) const {
    return table->partial_clone(this, first, count);
  }
  // Turns the object into its hidden twin in place; nothing if it is one.
  void make_hidden() {
    if (!table->hidden) table = table->twin;
  }
  // Turns a hidden twin back into its visible class; nothing if visible.
  void make_visible() {
    if (table->hidden) table = table->twin;
  }
  bool is_hidden() const { return table->hidden; }  // whether this is a hidden twin
  // See DrawableTable::has_rendition.
  bool has_rendition() const { return table->has_rendition(this); }
  // See DrawableTable::has_fixed_representation.
  bool has_fixed_representation() const { return table->has_fixed_representation(this); }
  // See DrawableTable::supports_fast_vector_iterator.
  bool supports_fast_vector_iterator() const { return table->supports_fast_vector_iterator(this); }
  // The number of vectors.
  int get_vector_count() const { return table->get_vector_count(this); }
  // Vector `index`; false when there is none.
  bool get_vector(int index, WorldVector& vector) const {
    return table->get_vector(this, index, vector);
  }
  // See DrawableTable::vector_predicate.
  bool vector_predicate(int index) { return table->vector_predicate(this, index); }
  // A new walk over the vectors; null when out of memory.
  DrawableVectorIterator* create_vector_iterator(bool flag) {
    return table->create_vector_iterator(this, flag);
  }
  // Writes the dump line and adds to the counts.
  void dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
    table->dump(this, out, indent, debug);
  }
  // Destroys the object through its class and releases its memory.
  void destroy() { table->destroy(this); }

  // An empty rectangle grown by add_bounds.
  WorldBounds bounds_of() const {
    WorldBounds b = WorldBounds::empty();
    add_bounds(b);
    return b;
  }

  // The four corners of bounds_of() in device points, in triangle strip order
  // (min.x,min.y), (max.x,min.y), (min.x,max.y), (max.x,max.y), written to
  // `target`; null when the bounds are empty on x.
  ZR_DCI_Point* bounds_strip(DisplayList& list, ZR_DCI_Point* target) const;
  // The bounds drawn as a filled strip of four points, through the triangles
  // entry of the draw; nothing for empty bounds.
  void draw_bounds_unclipped(DisplayList& list);
  void draw_bounds_clipped(DisplayList& list);  // the same, cut to the hard clip

  // Builds the table of class T (visible or hidden) from T's `do_` members.
  template <class T>
  static constexpr typename T::Table make_table(bool hidden, const DrawableTable* twin);

 protected:
  Drawable(const DrawableTable* t, const ColorData& c)
      : table(t), sibling(nullptr), color(c), layer_info(nullptr) {}
  Drawable(const Drawable&) = delete;
  Drawable& operator=(const Drawable&) = delete;
  ~Drawable() = default;

  // Defaults of the operations a class may leave alone.
  void do_draw_unclipped_selection(DisplayList& list) { draw_unclipped(list); }
  void do_draw_clipped_selection(DisplayList& list) { draw_clipped(list); }
  ZR_Rendition* do_rendition(DisplayList& list);
  Drawable* do_partial_clone(int, int) const { return nullptr; }
  bool do_has_rendition() const { return false; }
  bool do_has_fixed_representation() const { return true; }
  bool do_supports_fast_vector_iterator() const { return get_vector_count() > 0; }
  int do_get_vector_count() const { return 0; }
  bool do_get_vector(int, WorldVector&) const { return false; }
  bool do_vector_predicate(int) { return false; }
  DrawableVectorIterator* do_create_vector_iterator(bool);
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;

  // Writes "<label><indent>, this = <address>" and ends the line; the common
  // part of most dump lines.
  void dump_line(std::ostream& out, int indent, const char* label) const;
  // Adds a record of `bytes` to the counts of a dump.
  static void count_dump(DisplayListDebug& debug, int bytes);
};

// Declares the token and the two tables of a concrete drawable class; goes
// inside the class body. Leaves the class's access at private.
#define DL_DRAWABLE(Class)           \
 public:                             \
  static int _drawable_type_dummy;   \
  static const Table visible_table_; \
  static const Table hidden_table_;  \
                                     \
 private:                            \
  friend class ::DL::Drawable

// Defines them; goes in the class's source file.
#define DL_DRAWABLE_DEFINE(Class)                                      \
  int Class::_drawable_type_dummy = 0;                                 \
  constinit const Class::Table Class::visible_table_ =                 \
      ::DL::Drawable::make_table<Class>(false, &Class::hidden_table_); \
  constinit const Class::Table Class::hidden_table_ =                  \
      ::DL::Drawable::make_table<Class>(true, &Class::visible_table_)

template <class T>
constexpr typename T::Table Drawable::make_table(bool hidden, const DrawableTable* twin) {
  typename T::Table t{};
  if (hidden) {
    t.draw_unclipped = [](Drawable*, DisplayList&) {};
    t.draw_clipped = [](Drawable*, DisplayList&) {};
    // The copy of a hidden object: a visible copy, hidden afterwards.
    t.clone = [](const Drawable* d) {
      Drawable* copy = d->table->twin->clone(d);
      if (copy) copy->make_hidden();
      return copy;
    };
  } else {
    t.draw_unclipped = [](Drawable* d, DisplayList& l) {
      static_cast<T*>(d)->do_draw_unclipped(l);
    };
    t.draw_clipped = [](Drawable* d, DisplayList& l) { static_cast<T*>(d)->do_draw_clipped(l); };
    t.clone = [](const Drawable* d) -> Drawable* { return static_cast<const T*>(d)->do_clone(); };
  }
  t.draw_unclipped_selection = [](Drawable* d, DisplayList& l) {
    static_cast<T*>(d)->do_draw_unclipped_selection(l);
  };
  t.draw_clipped_selection = [](Drawable* d, DisplayList& l) {
    static_cast<T*>(d)->do_draw_clipped_selection(l);
  };
  t.rendition = [](Drawable* d, DisplayList& l) { return static_cast<T*>(d)->do_rendition(l); };
  t.add_bounds = [](const Drawable* d, WorldBounds& b) {
    static_cast<const T*>(d)->do_add_bounds(b);
  };
  t.remove = [](const Drawable* d, const Search& s) {
    return static_cast<const T*>(d)->do_remove(s);
  };
  t.partial_clone = [](const Drawable* d, int first, int count) {
    return static_cast<const T*>(d)->do_partial_clone(first, count);
  };
  t.has_rendition = [](const Drawable* d) { return static_cast<const T*>(d)->do_has_rendition(); };
  t.has_fixed_representation = [](const Drawable* d) {
    return static_cast<const T*>(d)->do_has_fixed_representation();
  };
  t.supports_fast_vector_iterator = [](const Drawable* d) {
    return static_cast<const T*>(d)->do_supports_fast_vector_iterator();
  };
  t.get_vector_count = [](const Drawable* d) {
    return static_cast<const T*>(d)->do_get_vector_count();
  };
  t.get_vector = [](const Drawable* d, int i, WorldVector& v) {
    return static_cast<const T*>(d)->do_get_vector(i, v);
  };
  t.vector_predicate = [](Drawable* d, int i) {
    return static_cast<T*>(d)->do_vector_predicate(i);
  };
  t.create_vector_iterator = [](Drawable* d, bool f) {
    return static_cast<T*>(d)->do_create_vector_iterator(f);
  };
  t.dump = [](const Drawable* d, std::ostream& o, int indent, DisplayListDebug& debug) {
    static_cast<const T*>(d)->do_dump(o, indent, debug);
  };
  t.destroy = [](Drawable* d) { delete static_cast<T*>(d); };
  if constexpr (requires(const T* p) { p->do_draw_data(); })
    if (!hidden)
      t.draw_data = [](const Drawable* d) { return static_cast<const T*>(d)->do_draw_data(); };
  t.type = &T::_drawable_type_dummy;
  t.twin = twin;
  t.hidden = hidden;
  // A class whose table has entries beyond these (`using Table = ...` naming a
  // struct derived from DrawableTable) fills them in a static member
  // `template <class U> static constexpr void fill_extra_entries(Table&, bool hidden)`.
  if constexpr (requires { T::template fill_extra_entries<T>(t, hidden); })
    T::template fill_extra_entries<T>(t, hidden);
  return t;
}

// The record a removal by likeness is given; the host fills it in and the
// library never writes it.
struct Search {
  // An object built to look like the drawable sought; compared, never stored.
  Drawable* pattern;
  // pattern->type().
  void* pattern_type;
  // The rectangle of the drawable sought: a group is entered only if this lies
  // inside the group's rectangle.
  WorldBounds search_bounds;
  // Zero: the match is unlinked and destroyed. Not zero: it stays, and only the
  // count of its group is taken anew.
  unsigned char keep_drawable;
};

// The stand-in current item of an empty walk: draws nothing, has no bounds,
// matches nothing, has no type and cannot be cloned. Has no twin.
class DummyDrawable final : public Drawable {
 public:
  DummyDrawable();
  static const DrawableTable table_;  // the class's only table
};

}  // namespace DL
