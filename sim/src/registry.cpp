#include "zolt_sim/registry.hpp"

#include <algorithm>
#include <utility>

namespace zolt_sim {

Registry& Registry::global() {
  static Registry registry;
  return registry;
}

void Registry::add(const std::string& name, std::shared_ptr<Instrument> instrument) {
  std::lock_guard lock(mutex_);
  auto existing = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.name == name; });
  if (existing != entries_.end()) {
    existing->instrument = std::move(instrument);
  } else {
    entries_.push_back(Entry{name, std::move(instrument)});
  }
}

std::shared_ptr<Instrument> Registry::find(const std::string& name) const {
  std::lock_guard lock(mutex_);
  auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.name == name; });
  return found == entries_.end() ? nullptr : found->instrument;
}

void Registry::remove(const std::string& name) {
  std::lock_guard lock(mutex_);
  std::erase_if(entries_, [&](const Entry& e) { return e.name == name; });
}

void Registry::clear() {
  std::lock_guard lock(mutex_);
  entries_.clear();
}

std::vector<std::string> Registry::names() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> result;
  result.reserve(entries_.size());
  for (const Entry& entry : entries_) result.push_back(entry.name);
  return result;
}

}  // namespace zolt_sim
