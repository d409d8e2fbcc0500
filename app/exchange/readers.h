#pragma once

#include <string>

#include "app/exchange/reconstruction.h"
#include "app/exchange/source.h"

// One reader per format. What is broken, cut or contradictory, and what has no exact counterpart,
// throws an ExchangeError with file and line or byte. Nothing is left out without a count or a
// note.

namespace vorn::exchange {

// A folder of cameras, images and points3D; where both forms are there, the binary one, as COLMAP
// itself does.
Reconstruction read_colmap(const std::string& directory);
Reconstruction read_colmap_text(const Source& cameras, const Source& images, const Source& points);
Reconstruction read_colmap_binary(const Source& cameras, const Source& images,
                                  const Source& points);

// "Bundle Adjustment in the Large" (Agarwal et al. 2010): counts, observations, nine values per
// camera (rotation vector, translation, f, k1, k2), three per point.
Reconstruction read_bal(const Source& source);

// Bundler's output, version 0.3. Cameras with f = 0 are not registered and stay out.
Reconstruction read_bundler(const Source& source);

// OpenMVG's "sfm_data.json". Views without pose or intrinsic stay out.
Reconstruction read_openmvg(const Source& source);

// OpenSfM's folder with "reconstruction.json" and "tracks.csv"; of several reconstructions that
// with most images.
Reconstruction read_opensfm(const std::string& directory);
Reconstruction read_opensfm(const Source& reconstruction, const Source& tracks);

// Metashape's cameras as XML, the first chunk: cameras and orientations in the chunk's system,
// without points.
Reconstruction read_metashape(const Source& source);

}  // namespace vorn::exchange
