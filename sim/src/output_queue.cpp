#include "output_queue.hpp"

#include <algorithm>
#include <cstring>

namespace zolt_sim {

void OutputQueue::push(std::vector<std::uint8_t> bytes, Clock::time_point due) {
  if (bytes.empty()) return;
  {
    std::lock_guard lock(mutex_);
    if (closed_) return;
    due = std::max(due, last_due_);
    last_due_ = due;
    total_ += bytes.size();
    chunks_.push_back(Chunk{std::move(bytes), 0, due});
  }
  arrived_.notify_all();
}

std::size_t OutputQueue::copy_due(std::uint8_t* out, std::size_t capacity, Clock::time_point now) {
  std::size_t copied = 0;
  while (copied < capacity && !chunks_.empty() && chunks_.front().due <= now) {
    Chunk& chunk = chunks_.front();
    const std::size_t take = std::min(capacity - copied, chunk.bytes.size() - chunk.offset);
    std::memcpy(out + copied, chunk.bytes.data() + chunk.offset, take);
    chunk.offset += take;
    copied += take;
    total_ -= take;
    if (chunk.offset == chunk.bytes.size()) chunks_.pop_front();
  }
  return copied;
}

std::size_t OutputQueue::read(std::uint8_t* out, std::size_t capacity, int timeout_ms) {
  if (out == nullptr || capacity == 0) return 0;
  const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(timeout_ms, 0));
  std::unique_lock lock(mutex_);
  for (;;) {
    if (closed_) return 0;
    const auto now = Clock::now();
    if (const std::size_t copied = copy_due(out, capacity, now); copied > 0) return copied;
    if (now >= deadline) return 0;
    auto wake = deadline;
    if (!chunks_.empty()) wake = std::min(wake, chunks_.front().due);
    arrived_.wait_until(lock, wake);
  }
}

std::size_t OutputQueue::available() const {
  std::lock_guard lock(mutex_);
  const auto now = Clock::now();
  // Due times never decrease along the queue: when the last chunk is due,
  // every byte is.
  if (chunks_.empty() || chunks_.back().due <= now) return total_;
  std::size_t due_bytes = 0;
  for (const Chunk& chunk : chunks_) {
    if (chunk.due > now) break;
    due_bytes += chunk.bytes.size() - chunk.offset;
  }
  return due_bytes;
}

void OutputQueue::purge_due() {
  std::lock_guard lock(mutex_);
  const auto now = Clock::now();
  while (!chunks_.empty() && chunks_.front().due <= now) {
    total_ -= chunks_.front().bytes.size() - chunks_.front().offset;
    chunks_.pop_front();
  }
}

void OutputQueue::close() {
  {
    std::lock_guard lock(mutex_);
    closed_ = true;
    chunks_.clear();
    total_ = 0;
  }
  arrived_.notify_all();
}

}  // namespace zolt_sim
