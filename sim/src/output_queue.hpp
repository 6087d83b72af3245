#pragma once

// Bytes on their way from the instrument to the host. Each chunk carries the
// time it becomes due (replies may be delayed on purpose); chunks stay in
// order, so a chunk is never due before the one in front of it.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

namespace zolt_sim {

class OutputQueue {
 public:
  using Clock = std::chrono::steady_clock;

  void push(std::vector<std::uint8_t> bytes, Clock::time_point due);
  // Waits up to timeout_ms for a due byte; copies the due bytes, up to
  // capacity. 0 on timeout or once closed.
  std::size_t read(std::uint8_t* out, std::size_t capacity, int timeout_ms);
  std::size_t available() const;
  // Drops the due bytes; chunks not yet due stay.
  void purge_due();
  // Drops everything; later pushes are ignored and reads return 0 at once.
  void close();

 private:
  struct Chunk {
    std::vector<std::uint8_t> bytes;
    std::size_t offset = 0;
    Clock::time_point due;
  };

  std::size_t copy_due(std::uint8_t* out, std::size_t capacity, Clock::time_point now);

  mutable std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Chunk> chunks_;
  std::size_t total_ = 0;
  Clock::time_point last_due_{};
  bool closed_ = false;
};

}  // namespace zolt_sim
