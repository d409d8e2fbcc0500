#pragma once

namespace vorn::app {

// Whether the command was built with METIS.
bool has_metis();
// From now on networks of thousands of images are cut by METIS (Karypis and Kumar 1998) where its
// cuts are better than the library's own. Nothing changes without it.
void use_metis();

}  // namespace vorn::app
