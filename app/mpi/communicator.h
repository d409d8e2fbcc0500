#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vorn::app {

// Another process has ended its run; this one cannot go on alone.
struct PartnerGone : std::runtime_error {
  PartnerGone() : std::runtime_error("another process has ended the run") {}
};

// The processes of one run. All of them call the operations in the same order, except `leave`:
// whoever ends its run early leaves, and the others get a PartnerGone from the next operation.
class Communicator {
 public:
  // MPI is initialised. From now on an error of MPI ends all processes with a message.
  Communicator();
  int rank() const { return rank_; }
  int size() const { return size_; }
  bool is_first() const { return rank_ == 0; }

  // Each value becomes its sum, added in the order of the processes, or its smallest.
  void add_up(std::span<double> values);
  double minimum(double value);
  void wait_for_all() { begin(); }
  // The values of the first process, to all.
  void broadcast(std::span<double> values);

  // Takes the bytes of every process to the first one, which visits them in the order of the
  // processes, its own first.
  using Visit = std::function<void(int rank, std::string_view bytes)>;
  void gather(std::string_view own, const Visit& visit);
  // Gives each process what the first one makes for it.
  using Make = std::function<std::string(int rank)>;
  std::string scatter(const Make& make);

  // This process takes part no longer; nothing is done when it or another has left before. What is
  // gathered from then on is last words, which all processes have.
  void leave(bool success);

 private:
  void begin();
  void send(int to, std::string_view bytes) const;
  std::string receive(int from) const;

  int rank_ = 0;
  int size_ = 1;
  bool has_left_ = false;
};

// ---- values in a row of bytes ----

template <class T>
void append(std::string& bytes, const T& value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof(T));
}
inline void append_text(std::string& bytes, std::string_view text) {
  append(bytes, static_cast<std::uint64_t>(text.size()));
  bytes += text;
}
template <class T>
T take(std::string_view& bytes) {
  T value;
  std::memcpy(&value, bytes.data(), sizeof(T));
  bytes.remove_prefix(sizeof(T));
  return value;
}
inline std::string_view take_text(std::string_view& bytes) {
  const auto size = static_cast<std::size_t>(take<std::uint64_t>(bytes));
  const std::string_view text = bytes.substr(0, size);
  bytes.remove_prefix(size);
  return text;
}

}  // namespace vorn::app
