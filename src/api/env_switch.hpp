#pragma once

// Debug and behaviour switches taken from the environment. Each is read once
// per process, on first use, so that a running stream never changes mode
// because something called setenv().

#include <mutex>

namespace zolt::timing {

class EnvSwitch {
 public:
  enum class Rule {
    first_char_not_zero,  // on when set and its first character is not '0'
    set_at_all,           // on whenever the variable exists, even if empty
  };

  constexpr explicit EnvSwitch(const char* name, Rule rule = Rule::first_char_not_zero) noexcept
      : name_(name), rule_(rule) {}
  EnvSwitch(const EnvSwitch&) = delete;
  EnvSwitch& operator=(const EnvSwitch&) = delete;

  // Thread-safe; the first call reads the environment, later calls do not.
  bool on() const;
  const char* name() const noexcept { return name_; }

  // The rule applied to a value as getenv returns it (nullptr when unset).
  static bool evaluate(const char* value, Rule rule) noexcept;

 private:
  const char* name_;
  Rule rule_;
  mutable std::once_flag once_;
  mutable bool on_ = false;
};

}  // namespace zolt::timing
