// Exported discovery functions.

#include <memory>

#include "api/boundary.hpp"
#include "api/discovery_handle.hpp"
#include "link/identity_record.hpp"

namespace {

constexpr int kDiscoveryBaud = 3000000;
constexpr int kDiscoveryTimeoutMs = 250;

bool valid_index(const tt_discovery* discovery, size_t index) {
  return discovery != nullptr && index < discovery->count();
}

}  // namespace

extern "C" {

ZOLT_TIMING_API tt_status tt_discover(tt_discovery** out) {
  if (zolt::timing::detail::any_null(out)) return TT_ERR_INVALID_ARGUMENT;
  *out = nullptr;
  return zolt::timing::detail::guarded([&]() -> tt_status {
    auto discovery = std::make_unique<tt_discovery>();
    discovery->found = zolt::timing::discover_all(kDiscoveryBaud, kDiscoveryTimeoutMs);
    *out = discovery.release();
    return TT_OK;
  });
}

ZOLT_TIMING_API size_t tt_discover_count(const tt_discovery* discovery) {
  return discovery != nullptr ? discovery->count() : 0;
}

ZOLT_TIMING_API const char* tt_discover_port(const tt_discovery* discovery, size_t index) {
  return valid_index(discovery, index) ? discovery->found.devices[index].port.c_str() : nullptr;
}

ZOLT_TIMING_API const tt_identity* tt_discover_identity(const tt_discovery* discovery, size_t index) {
  return valid_index(discovery, index) ? &discovery->found.identities[index] : nullptr;
}

ZOLT_TIMING_API tt_status tt_discover_info(const tt_discovery* discovery, size_t index, tt_device_info* info) {
  if (info == nullptr || !valid_index(discovery, index)) return TT_ERR_INVALID_ARGUMENT;
  *info = zolt::timing::detail::device_info_from(discovery->found.identities[index],
                                                  discovery->found.devices[index].port);
  return TT_OK;
}

ZOLT_TIMING_API void tt_discover_free(tt_discovery* discovery) { delete discovery; }

}  // extern "C"
