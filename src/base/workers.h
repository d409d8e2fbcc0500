#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>

namespace vorn {

// Who does work that falls into parts which do not depend on one another. The library itself has
// one worker, the thread of its caller. A program may bring more (`use_workers`); results must not
// tell how many there were: whoever divides work gives each part memory of its own and adds up in
// the order of the parts.
class Workers {
 public:
  Workers() = default;
  virtual ~Workers() = default;
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // How many there are, at least 1.
  virtual std::size_t count() const = 0;
  // Calls part(k, worker) once for each k below `num_parts`, in any order, at any time, each on the
  // thread of a worker below `count()`; returns when all are done. When a part throws, parts that
  // were not begun may be left out, and one of the exceptions leaves `run`. Parts neither call
  // `run` nor print.
  using Part = std::function<void(std::size_t k, std::size_t worker)>;
  virtual void run(std::size_t num_parts, const Part& part) = 0;
};

// Those at work: the caller alone, unless `use_workers` has brought others.
Workers& workers();
// From now on these are at work; null stands for the caller alone. They outlive what they work at.
// Not while a project is being adjusted.
void use_workers(Workers* workers);

// Calls visit(begin, end, worker) for consecutive ranges of about `grain` elements that make up [0,
// count).
template <class Visit>
void for_each_range(std::size_t count, std::size_t grain, Visit visit) {
  workers().run((count + grain - 1) / grain, [&](std::size_t k, std::size_t worker) {
    visit(k * grain, std::min((k + 1) * grain, count), worker);
  });
}

}  // namespace vorn
