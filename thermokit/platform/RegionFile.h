#pragma once
// Region files: text, one shape a line, the region being the union of them all.
//   rect X Y W H          pixels X..X+W-1, Y..Y+H-1
//   ellipse X Y W H       the ellipse inscribed in that rectangle
//   polygon X1 Y1 X2 Y2 X3 Y3 ...   at least three corners (at most 4096), alternate fill
// Blank lines and lines whose first word starts with '#' are ignored. Numbers
// are whole, within -65536..65536; W and H above 0. A file is at most 16 MiB,
// a line at most 65536 characters.
//
// The file is hostile until read: every shape is built inside the clip
// rectangle only (the image it will be used on), and the union is formed
// pairwise, so reading costs what the lines and the clipped shapes cost,
// whatever the coordinates.
#include <string>

#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"

namespace thermokit {

// Reads path into region, cut to clip. False with why (what is wrong, for
// "file NAME: ..." messages) when the file cannot be read, is not a region
// file or holds no shape; region is then left as it was.
bool ReadRegionFile(const std::string& path, const CRect& clip, CRgn& region, std::string& why);

}  // namespace thermokit
