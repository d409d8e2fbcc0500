#pragma once

namespace vorn::app {

// The page before and after its data, bundled from the sources in web/.
extern const char kPageHead[];
extern const char kPageTail[];

}  // namespace vorn::app
