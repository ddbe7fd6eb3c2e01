// Device point buffers of the point-list draws, and the owned arrays of the
// point-list records. Internal to drawables/.
#pragma once

#include <cstddef>
#include <cstring>

#include "displaylist/display_list.h"
#include "drawables/drawable.h"
#include "foundation/assert.h"
#include "foundation/rendering.h"
#include "foundation/zephal.h"

namespace DL::detail {

// Device points a draw keeps on its stack; a list of more points takes a buffer
// from the default heap for the length of that one draw.
inline constexpr int kStackDevicePoints = 256;

// The device point buffer of one draw for a list of `count` points. Up to
// kStackDevicePoints it is the stack array, which has room for `Extra` points
// more (the closed outline of a strip needs count + 1). Beyond that it is a
// block of `count + Extra` points from the default heap, released when the
// buffer goes out of scope. The stack array is left uninitialised: filling
// 3 KiB per draw would cost more than the conversion of a short list.
template <int Extra>
class DevicePointBuffer {
 public:
  explicit DevicePointBuffer(int count) : data_(stack_) {
    if (count > kStackDevicePoints) {
      const std::size_t n = static_cast<std::size_t>(count) + Extra;
      data_ = static_cast<ZR_DCI_Point*>(ZP_AllocateMemory(n * sizeof(ZR_DCI_Point), nullptr));
    }
  }
  ~DevicePointBuffer() {
    if (data_ != stack_) ZP_ReleaseMemory(data_);
  }
  DevicePointBuffer(const DevicePointBuffer&) = delete;
  DevicePointBuffer& operator=(const DevicePointBuffer&) = delete;

  // The points; null only when the heap could not deliver.
  ZR_DCI_Point* data() const { return data_; }

 private:
  ZR_DCI_Point* data_;
  ZR_DCI_Point stack_[kStackDevicePoints + Extra];
};

// The common shape of the draws that send every point: converts the `count`
// points into a device buffer, takes the drawable's rendition once, and hands
// both to `send`, which calls the action entry. Nothing is drawn when the heap
// cannot deliver the buffer, nor for a list without points (what a failed
// point array leaves: `points` null, `count` 0).
template <class Send>
void draw_converted(Drawable& d, DisplayList& list, int count, const WorldPoint* points,
                    Send send) {
  if (count < 1) return;
  DevicePointBuffer<0> buffer(count);
  ZR_DCI_Point* device = buffer.data();
  if (!device) return;
  list.world_to_screen_points(count, points, device);
  ZR_Rendition* r = d.rendition(list);
  send(r, device);
}

// An owned array of `count` items from the default heap, the heap of the
// classes' plain operator new, filled from `source`, or with zero bytes when
// that is null (a broken precondition then hands the renderer zeros, not
// uninitialised memory). Null when the heap cannot deliver.
template <class T>
T* copy_array(int count, const T* source) {
  const std::size_t n = count > 0 ? static_cast<std::size_t>(count) : 0;
  T* array = static_cast<T*>(ZP_AllocateMemory(n * sizeof(T), nullptr));
  if (array && n) {
    if (source)
      std::memcpy(array, source, n * sizeof(T));
    else
      std::memset(static_cast<void*>(array), 0, n * sizeof(T));
  }
  return array;
}

}  // namespace DL::detail
