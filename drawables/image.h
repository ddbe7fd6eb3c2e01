// An image of the rendering component placed on a world rectangle. The display
// list keeps the rectangle and a reference; the pixels and their scaling are
// the rendering component's. The one simple primitive that shares part of its
// content between copies: every copy has a handle of its own, from the default
// heap, on the one counted image body.
//
// Only the corner with the smallest x and the greatest y, the image's top-left
// corner when world y grows upward, goes to the device; no size is passed.
//
// Choices made here
// -----------------
// - If the handle cannot be allocated, `image` stays null: the draw then hands
//   the device a null image, and a clone gets a handle on no body.
// - A null body in the handle is valid: nothing is counted for it.
#pragma once

#include "drawables/drawable.h"

namespace DL {

// 56 bytes on a 64-bit host: the drawable part (32), bounds (16), image (8);
// and 8 bytes of handle.
class Image : public Drawable {
  DL_DRAWABLE(Image);

 public:
  WorldBounds bounds;  // world rectangle of the image
  ZR_Image* image;     // a handle of its own, owned; the body is shared

  // Copies `bounds`, and takes a handle of its own on the body of `image`, so
  // that the body's count grows by one in all.
  Image(const ColorData& color, const WorldBounds& bounds, ZR_Image image);
  ~Image();

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  // Merges `bounds`.
  void do_add_bounds(WorldBounds& b) const { b.merge(bounds); }
  // Equal `bounds`; the image is not compared.
  bool do_remove(const Search& search) const;
  // A new handle on the same body.
  Drawable* do_clone() const;
  int do_get_vector_count() const { return 4; }
  // The edges of `bounds`, counter-clockwise when y grows upward, from
  // (min.x, min.y); false, with the vector left alone, outside 0 to 3.
  bool do_get_vector(int index, WorldVector& vector) const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

}  // namespace DL
