// What a renderer needs to know of the list it draws: its complex clip, for
// the lists nested in it, and its scale, for images.
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
//
// Images: the library hands the renderer an image's top-left corner only, and
// the image body says how much of the world it covers (`ZR_Image_Data`'s
// `world_width` and `world_height`); the list's scale turns that into device
// units (`image_size`). An image in a nested list is sized by the outer list's
// scale, since the renderer does not see the nested list's own: hosts that
// nest images give their bodies the world size the outer list sees.
#pragma once

#include "displaylist/display_list.h"
#include "foundation/rendering.h"

namespace DL {

// The outer list as a renderer sees it: the reach of its complex clip on an
// entry, and the device size of images (see the file comment).
class OuterView {
 public:
  // What the outer clip does to one entry.
  enum class Reach {
    none,  // nothing to cut: draw as usual
    skip,  // wholly outside the clip: draw nothing
    cut    // across the clip's edge: cut to `contours()`
  };

  // The outer list, or null for none; with `cut_nested` false only its scale
  // is read (for images), its clip cuts nothing. Not owned: it must outlive
  // the draws made while it is set.
  void set_list(const DisplayList* list, bool cut_nested = true) {
    list_ = list;
    set_source(list && cut_nested ? &list->rendition : nullptr);
  }
  // Only the rendition whose complex clip cuts the others, for a host that has
  // no list (images then keep one device unit per pixel).
  void set_source(const ZR_Rendition* source) {
    source_ = source;
    cached_.clear();
  }
  // The rendition whose complex clip cuts the others, or null.
  const ZR_Rendition* source() const { return source_; }

  // The size in device units of `image` drawn now: its world size times the
  // list's scale, or its pixel size when the body has no world size or no
  // list is set. Never negative.
  void image_size(const ZR_Image_Data& image, double& width, double& height) const;

  // The reach of the outer clip on an entry drawn under `rendition` whose
  // marks may stand `margin` device units beyond the points it was given.
  Reach reach(const ZR_Rendition* rendition, int margin);
  // The contours to cut to after `reach` gave `cut`.
  ZR_Contour_Set_Data* contours() const { return cached_.get(); }

 private:
  const DisplayList* list_ = nullptr;
  const ZR_Rendition* source_ = nullptr;
  // The last classification: of `rect_` grown by `margin_` against `cached_`.
  ZR_Contour_Set cached_;  // held, so its address is not reused meanwhile
  ZR_Int_Rectangle rect_{};
  int margin_ = 0;
  Reach reach_ = Reach::none;
};

}  // namespace DL
