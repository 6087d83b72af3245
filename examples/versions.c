/* Prints the library and firmware versions and the meaning of every status
 * code: the smallest useful program against zolt timing. */
#include <stdio.h>

#include "zolt_timing.h"

int main(void) {
  tt_status status;
  printf("zolt timing %s, built for firmware %s\n", tt_software_version(), tt_firmware_version());
  printf("status codes:\n");
  for (status = TT_OK; status >= TT_ERR_UNSUPPORTED; --status) {
    printf("  %3d  %s\n", (int)status, tt_status_string(status));
  }
  return 0;
}
