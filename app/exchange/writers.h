#pragma once

#include <string>
#include <vector>

#include "app/exchange/reconstruction.h"

// One writer per format, of a model that `model_of_project` has made for it. They throw
// ExchangeError when a file cannot be written; earlier files are as they were then.

namespace vorn::exchange {

// A folder, made when it is not there, of cameras, images and points3D. Each camera has the
// smallest model that holds its lens.
void write_colmap(const Reconstruction& model, const std::string& directory, bool binary);
std::vector<std::string> colmap_files(const std::string& directory, bool binary);

// One camera per image: rotation vector, translation, f, k1, k2.
void write_bal(const Reconstruction& model, const std::string& path);

// "bundle.out", version 0.3.
void write_bundler(const Reconstruction& model, const std::string& path);

}  // namespace vorn::exchange
