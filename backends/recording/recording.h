// A renderer that records every action call with its arguments and the state of
// the rendition that matters at call time. Tests compare these traces; a host
// can print them to see what its list sends to a device.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/rendering.h"

namespace DL {

// One action call.
struct RecordedCall {
  std::string entry;                 // "dot_unclipped", "polyline_clipped", ...
  int count = 0;                     // the count argument, where the entry has one
  std::vector<ZR_DCI_Point> points;  // device points in order; ellipses: centre, radii
  double angles[3] = {0, 0, 0};      // ellipses: start, end, rotation
  // The pointer arguments behind the points, in order (colours, vertex arrays,
  // the image handle), as addresses; null where the call passed null.
  std::vector<const void*> extra;
  bool has_color = false;  // the entry passed a non-null colour pointer
  ZR_RGB32 color = 0;      // the colour it points to

  // The rendition at call time.
  ZR_RGB32 rendition_color = 0;
  int line_weight = 0;                      // its line weight
  int face_mode = 0;                        // its face mode
  ZR_Int_Rectangle hard_clip{};             // its hard clip
  const void* complex_clip = nullptr;       // body of the complex clip, null for none
  const void* selector_drawable = nullptr;  // the option source's drawable in a selection traversal

  // "entry count (x,y) (x,y) ... [color=0xRRGGBB]": the call without state.
  std::string to_string() const;
};

// A renderer whose every entry appends a RecordedCall; it draws nothing.
class RecordingRenderer : public ZR_Renderer {
 public:
  // Every entry set to record.
  RecordingRenderer();

  std::vector<RecordedCall> calls;  // every call, in order

  // The calls as lines of `RecordedCall::to_string`.
  std::vector<std::string> trace() const;
  // The entry names alone, in order.
  std::vector<std::string> entries() const;
  void clear() { calls.clear(); }  // forgets the calls
  // Turns the "Is Selector" option on or off.
  void set_selector(bool on);
  // Whether the device clips to complex clips by itself.
  void set_complex_clip_supported(bool on) { options.complex_clip = on; }
};

}  // namespace DL
