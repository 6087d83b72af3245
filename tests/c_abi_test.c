/* Calls the library from C through the public header only, proving that the
 * header is valid C99 and that the exported names are unmangled. */
#include <stdio.h>
#include <string.h>

#include "zolt_timing.h"

static int passed;
static int failed;

static void expect_text(const char* what, const char* got, const char* want) {
  if (got != NULL && strcmp(got, want) == 0) {
    ++passed;
  } else {
    ++failed;
    fprintf(stderr, "FAIL %s: got \"%s\", want \"%s\"\n", what, got ? got : "(null)", want);
  }
}

int main(void) {
  tt_status size_check = TT_ERR_UNSUPPORTED;
  expect_text("status 0", tt_status_string(TT_OK), "ok");
  expect_text("status -7", tt_status_string(size_check), "unsupported");
  expect_text("status -8", tt_status_string(-8), "unknown");
  expect_text("last error of NULL", tt_last_error(NULL), "");
  expect_text("software version", tt_software_version(), "0.3.0");
  expect_text("firmware version", tt_firmware_version(), "REV-001");
  if (sizeof(tt_status) == 4) ++passed; else { ++failed; fprintf(stderr, "FAIL tt_status is not 32-bit\n"); }
  printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
