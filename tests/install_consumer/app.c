/* An application as a user writes it: only the installed header and library. */
#include <stdio.h>
#include <string.h>

#include <zolt_timing.h>

int main(void) {
  printf("zolt timing %s (firmware %s)\n", tt_software_version(), tt_firmware_version());
  return strcmp(tt_status_string(TT_ERR_TIMEOUT), "timeout") == 0 ? 0 : 1;
}
