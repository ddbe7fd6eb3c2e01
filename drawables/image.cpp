#include "drawables/image.h"

#include <new>

#include "displaylist/display_list.h"

namespace DL {

DL_DRAWABLE_DEFINE(Image);

namespace {

using ImageEntry = ZR_Action<ZR_Image_Action> ZR_Renderer::*;

template <ImageEntry Entry>
void draw_image(Image& d, DisplayList& list) {
  ZR_DCI_Point corner;
  list.world_to_screen({d.bounds.min.x, d.bounds.max.y}, corner);
  ZR_Rendition* r = d.rendition(list);
  (list.renderer->*Entry)(r, &corner, d.image);
}

}  // namespace

Image::Image(const ColorData& c, const WorldBounds& b, ZR_Image source)
    : Drawable(&visible_table_, c), bounds(b), image(nullptr) {
  // The handle comes from the default heap, like everything the class owns.
  if (void* memory = ZP_AllocateMemory(sizeof(ZR_Image), nullptr))
    image = new (memory) ZR_Image(source);
}

Image::~Image() {
  if (!image) return;
  image->~ZR_Image();  // releases the body, if any
  ZP_ReleaseMemory(image);
}

void Image::do_draw_unclipped(DisplayList& list) {
  draw_image<&ZR_Renderer::image_unclipped>(*this, list);
}

void Image::do_draw_clipped(DisplayList& list) {
  draw_image<&ZR_Renderer::image_clipped>(*this, list);
}

bool Image::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  return static_cast<const Image*>(search.pattern)->bounds == bounds;
}

Drawable* Image::do_clone() const {
  return new Image(color, bounds, image ? *image : ZR_Image());
}

bool Image::do_get_vector(int index, WorldVector& v) const {
  const WorldPoint corners[4] = {
      {bounds.min.x, bounds.min.y},
      {bounds.max.x, bounds.min.y},
      {bounds.max.x, bounds.max.y},
      {bounds.min.x, bounds.max.y},
  };
  if (index < 0 || index > 3) return false;
  v.start = corners[index];
  v.end = corners[(index + 1) & 3];
  return true;
}

void Image::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_line(out, indent, "Image: level  ");
  count_dump(debug, sizeof(Image));
}

}  // namespace DL
