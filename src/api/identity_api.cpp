// Exported identity functions.

#include "api/boundary.hpp"
#include "api/device_handle.hpp"
#include "link/identity_record.hpp"

namespace {

constexpr int kIdentityTimeoutMs = 250;

}  // namespace

extern "C" {

ZOLT_TIMING_API tt_status tt_identify(tt_device* device, tt_identity* identity) {
  if (zolt::timing::detail::any_null(device, identity)) return TT_ERR_INVALID_ARGUMENT;
  return zolt::timing::detail::guarded(device->last_error,
                                       [&]() -> tt_status { return device->impl.identify(*identity, kIdentityTimeoutMs); });
}

ZOLT_TIMING_API tt_status tt_get_device_info(tt_device* device, tt_device_info* info) {
  if (zolt::timing::detail::any_null(device, info)) return TT_ERR_INVALID_ARGUMENT;
  *info = tt_device_info{};
  tt_identity identity{};
  const tt_status status = tt_identify(device, &identity);
  if (status == TT_OK) *info = zolt::timing::detail::device_info_from(identity, device->locator);
  return zolt::timing::detail::product_status(device, status, "could not read device information");
}

}  // extern "C"
