#pragma once

// A private stand-in for /dev: discovery globs serial/by-id/*, ttyUSB* and
// ttyACM* under it instead of the machine's own ports. Links can point at
// pseudo-terminals served by virtual instruments.

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "link/discovery.hpp"

namespace zolt::timing::testing {

class DeviceTree {
 public:
  DeviceTree() {
    char pattern[] = "/tmp/zolt_dev_XXXXXX";
    // Canonical, so that resolved links compare equal to globbed paths.
    root_ = std::filesystem::canonical(::mkdtemp(pattern)).string();
    std::filesystem::create_directories(by_id());
    detail::set_serial_device_root(root_);
  }
  ~DeviceTree() {
    detail::set_serial_device_root("/dev");
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  DeviceTree(const DeviceTree&) = delete;
  DeviceTree& operator=(const DeviceTree&) = delete;

  const std::string& root() const { return root_; }
  std::string by_id() const { return root_ + "/serial/by-id"; }

  // root/<name> -> target; returns root/<name>.
  std::string link(const std::string& name, const std::string& target) const {
    const std::string path = root_ + "/" + name;
    std::filesystem::create_symlink(target, path);
    return path;
  }
  // A regular file: listed like a port, but nothing answers there.
  std::string file(const std::string& name) const {
    const std::string path = root_ + "/" + name;
    std::ofstream(path) << "not a terminal";
    return path;
  }

 private:
  std::string root_;
};

}  // namespace zolt::timing::testing
