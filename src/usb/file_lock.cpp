#include "usb/file_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace zolt::timing {

FileLock::Outcome FileLock::try_lock(const std::string& directory, const std::string& file_name,
                                     FileLock& lock, int& error_number) {
  lock.unlock();
  // Mode 0777 (subject to the umask) so that every user's processes can
  // claim modules; EEXIST is the usual case and harmless.
  ::mkdir(directory.c_str(), 0777);
  const std::string path = directory + "/" + file_name;
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) {
    error_number = errno;
    return Outcome::open_failed;
  }
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    error_number = errno;
    ::close(fd);
    return error_number == EWOULDBLOCK ? Outcome::busy : Outcome::lock_failed;
  }
  lock = FileLock(fd);
  return Outcome::locked;
}

FileLock::~FileLock() { unlock(); }

FileLock::FileLock(FileLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
  if (this != &other) {
    unlock();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

void FileLock::unlock() noexcept {
  if (fd_ < 0) return;
  ::flock(fd_, LOCK_UN);
  ::close(fd_);
  fd_ = -1;
}

}  // namespace zolt::timing
