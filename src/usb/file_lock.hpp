#pragma once

// An exclusive advisory lock on a file (flock), held until unlock() or
// destruction. Used to claim a USB module between processes; the kernel drops
// the lock when the holding process ends, so a crash never leaves a stale
// claim behind.

#include <string>

namespace zolt::timing {

class FileLock {
 public:
  enum class Outcome {
    locked,       // we hold the lock
    busy,         // another open file description holds it
    open_failed,  // the lock file could not be created or opened
    lock_failed,  // flock failed for another reason
  };

  // Creates `directory` (mode 0777; an existing one is fine), opens or
  // creates `directory/file_name` (mode 0666) and tries to lock it without
  // waiting. `error_number` receives errno for the two failure outcomes.
  static Outcome try_lock(const std::string& directory, const std::string& file_name, FileLock& lock,
                          int& error_number);

  FileLock() = default;
  ~FileLock();
  FileLock(FileLock&& other) noexcept;
  FileLock& operator=(FileLock&& other) noexcept;
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  bool held() const noexcept { return fd_ >= 0; }
  // Releases the lock and closes the file; the file itself stays.
  void unlock() noexcept;

 private:
  explicit FileLock(int fd) noexcept : fd_(fd) {}
  int fd_ = -1;
};

}  // namespace zolt::timing
