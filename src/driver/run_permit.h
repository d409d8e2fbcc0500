#pragma once

namespace vorn {

// Leave to run a project or to check one, as long as the object lives, if it could be had. There is
// one in a process: the current directory, the least-squares parameters and the console belong to
// the process, so a second run would mix its files with those of the first.
class RunPermit {
 public:
  RunPermit();
  ~RunPermit();
  RunPermit(const RunPermit&) = delete;
  RunPermit& operator=(const RunPermit&) = delete;
  [[nodiscard]] bool granted() const { return granted_; }

 private:
  bool granted_;
};

}  // namespace vorn
