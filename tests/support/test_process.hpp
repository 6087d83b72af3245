#pragma once

// Process-level helpers for tests: descriptor counts, a private TMPDIR and a
// forked second process.

#include <dirent.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace zolt::timing::testing {

// Descriptors the process holds now: leak checks compare it before and after.
inline int open_descriptor_count() {
  int count = 0;
  DIR* directory = opendir("/proc/self/fd");
  while (dirent* entry = readdir(directory)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(directory);
  return count;
}

// Points TMPDIR at a fresh directory so that claim files of parallel test
// programs never meet; restores the old value afterwards.
class PrivateTmpdir {
 public:
  PrivateTmpdir() {
    if (const char* old = std::getenv("TMPDIR")) old_ = old;
    char pattern[] = "/tmp/zolt_usb_test_XXXXXX";
    path_ = ::mkdtemp(pattern) ? pattern : "/tmp";
    ::setenv("TMPDIR", path_.c_str(), 1);
  }
  ~PrivateTmpdir() {
    if (old_) ::setenv("TMPDIR", old_->c_str(), 1);
    else ::unsetenv("TMPDIR");
    std::error_code ignored;
    if (path_ != "/tmp") std::filesystem::remove_all(path_, ignored);
  }
  PrivateTmpdir(const PrivateTmpdir&) = delete;
  PrivateTmpdir& operator=(const PrivateTmpdir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::optional<std::string> old_;
};

// Runs `body` in a forked child and returns the text it produced.
inline std::string in_child_process(const std::function<std::string()>& body) {
  int pipe_fds[2];
  if (::pipe(pipe_fds) != 0) return "pipe failed";
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(pipe_fds[0]);
    const std::string text = body();
    const ssize_t ignored = ::write(pipe_fds[1], text.data(), text.size());
    (void)ignored;
    ::_exit(0);
  }
  ::close(pipe_fds[1]);
  std::string text;
  char buffer[256];
  ssize_t n = 0;
  while ((n = ::read(pipe_fds[0], buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<std::size_t>(n));
  ::close(pipe_fds[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  return text;
}

}  // namespace zolt::timing::testing
