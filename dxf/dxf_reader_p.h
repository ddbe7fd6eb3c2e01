// The DXF reader inside dl_dxf: the text of a file to the records of
// dxf_loader.h. Not installed.
#pragma once

#include <string>
#include <string_view>

#include "dxf/dxf_loader.h"

namespace DL::dxf {

// Reads the text of an ASCII DXF file into `drawing`, whose path is set and
// whose other fields are empty. False with a one-line reason in `error` when
// the text is not a DXF file or the layout asked for is missing. A file cut
// short is read as far as it goes, with `drawing.truncated` set.
bool read_dxf_text(std::string_view text, DxfDrawing& drawing, const DxfLoadOptions& options,
                   std::string& error);

}  // namespace DL::dxf
