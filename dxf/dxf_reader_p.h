// The DXF reader inside dl_dxf: the text of a file to the records of
// dxf_loader.h. Not installed.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "dxf/dxf_loader.h"

namespace DL::dxf {

// Reads the text of an ASCII DXF file into `drawing`, whose path is set and
// whose other fields are empty. False with a one-line reason in `error` when
// the text is not a DXF file or the layout asked for is missing. A file cut
// short is read as far as it goes, with `drawing.truncated` set.
// `done` (may be empty) hears now and then how many bytes from the start the
// reader no longer looks at, so that a caller may drop them from memory.
bool read_dxf_text(std::string_view text, DxfDrawing& drawing, const DxfLoadOptions& options,
                   std::string& error, const std::function<void(std::size_t)>& done = {});

}  // namespace DL::dxf
