// The complex clip of the list being drawn, held by a renderer for the lists
// nested in it.
//
// A nested list (`DrawableDisplayList`) draws through the outer list's
// renderer under a rendition of its own, which gets the outer list's hard
// clip rectangle but never its complex clip. So that a circle or polygon clip
// holds for blocks and symbols too, a renderer is told which rendition is the
// outer list's (`set_source`), and cuts every entry drawn under any other
// rendition to the complex clip the source carries at that moment. Reading the
// source at each entry, instead of keeping a copy, follows the library's
// walk: where it lifts the clip off a group wholly inside it, nested lists in
// that group are not cut either; where the renderer clips everything itself,
// the clip stays on the source throughout.
//
// Cutting costs a cairo clip per entry, so an entry is first classified by its
// own rendition's hard clip rectangle (the nested list's screen region, which
// the library sets for each draw), grown by a margin for line widths: wholly
// inside the clip it is drawn as it is, wholly outside it is dropped, and only
// a rectangle across the clip's edge is cut. The last classification is kept,
// so the entries of one nested draw classify once.
#pragma once

#include "foundation/rendering.h"

namespace DL {

class OuterClip {
 public:
  // What the outer clip does to one entry.
  enum class Reach {
    none,  // nothing to cut: draw as usual
    skip,  // wholly outside the clip: draw nothing
    cut    // across the clip's edge: cut to `contours()`
  };

  // The outer list's rendition, or null for none. Not owned: it must outlive
  // the draws made while it is set (a `DisplayList`'s `rendition` member is).
  void set_source(const ZR_Rendition* source) {
    source_ = source;
    cached_.clear();
  }
  const ZR_Rendition* source() const { return source_; }

  // The reach of the outer clip on an entry drawn under `rendition` whose
  // marks may stand `margin` device units beyond the points it was given.
  Reach reach(const ZR_Rendition* rendition, int margin);
  // The contours to cut to after `reach` gave `cut`.
  ZR_Contour_Set_Data* contours() const { return cached_.get(); }

 private:
  const ZR_Rendition* source_ = nullptr;
  // The last classification: of `rect_` grown by `margin_` against `cached_`.
  ZR_Contour_Set cached_;  // held, so its address is not reused meanwhile
  ZR_Int_Rectangle rect_{};
  int margin_ = 0;
  Reach reach_ = Reach::none;
};

}  // namespace DL
