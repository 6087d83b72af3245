#include "api/env_switch.hpp"

#include <cstdlib>

namespace zolt::timing {

bool EnvSwitch::evaluate(const char* value, Rule rule) noexcept {
  if (!value) return false;
  if (rule == Rule::set_at_all) return true;
  return value[0] != '\0' && value[0] != '0';
}

bool EnvSwitch::on() const {
  std::call_once(once_, [this] { on_ = evaluate(std::getenv(name_), rule_); });
  return on_;
}

}  // namespace zolt::timing
