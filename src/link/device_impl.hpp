#pragma once

#include <string>
#include <utility>

namespace zolt::timing {

// The instrument seen through its command link. Owns the links and speaks the
// 9-byte command frame protocol; every device operation goes through it.
class DeviceImpl {
 public:
  const std::string& last_error() const noexcept { return last_error_; }
  void set_last_error(std::string text) { last_error_ = std::move(text); }
  void clear_last_error() noexcept { last_error_.clear(); }

 private:
  std::string last_error_;
};

}  // namespace zolt::timing
