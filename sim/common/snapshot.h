// Still picture of the simulated sensor: a colour-bar test card with the
// current lens and head positions written on it, saved as a baseline JPEG.
#pragma once

#include <string>

namespace sim {

struct HeadPosition {
    int pan = 0, tilt = 0, zoom = 0, focus = 0;
};

// Writes the picture to `path` through a temporary name and a rename, so a
// reader never sees a half-written file. Returns true on success.
bool write_snapshot(const std::string& path, int width, int height, const HeadPosition& pos);

}  // namespace sim
