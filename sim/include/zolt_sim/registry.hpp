#pragma once

// The process-wide table of virtual instruments, by name. It lives in the
// zolt_sim shared library so that every user in the process sees the same
// table: a test program creates an instrument and registers it, and the
// emulated FTDI runtime (loaded later with dlopen) finds it by name.
//
// Names are free text; the emulated FTDI runtime uses a module's USB serial
// number. Registering under a name that is taken replaces the old entry.
// Thread-safe.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "zolt_sim/instrument.hpp"

namespace zolt_sim {

class Registry {
 public:
  static Registry& global();

  void add(const std::string& name, std::shared_ptr<Instrument> instrument);
  // nullptr when there is no such name.
  std::shared_ptr<Instrument> find(const std::string& name) const;
  void remove(const std::string& name);
  void clear();
  // Names in the order they were registered.
  std::vector<std::string> names() const;

 private:
  struct Entry {
    std::string name;
    std::shared_ptr<Instrument> instrument;
  };

  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace zolt_sim
