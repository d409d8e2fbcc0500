#pragma once

namespace vorn {

// What a program has brought for all runs of its process, such as more workers; until then nothing
// (null, an empty function). One for each type.
template <class T>
T& brought() {
  static T thing{};
  return thing;
}

}  // namespace vorn
