/* Calls the library from C through the public header only, proving that the
 * header is valid C99 and that the exported names are unmangled. */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <unistd.h>

#include "zolt_timing.h"

static int passed;
static int failed;

static void expect(const char* what, int ok) {
  if (ok) {
    ++passed;
  } else {
    ++failed;
    fprintf(stderr, "FAIL %s\n", what);
  }
}

static void expect_text(const char* what, const char* got, const char* want) {
  if (got != NULL && strcmp(got, want) == 0) {
    ++passed;
  } else {
    ++failed;
    fprintf(stderr, "FAIL %s: got \"%s\", want \"%s\"\n", what, got ? got : "(null)", want);
  }
}

/* Tags written through a tag file come back equal, read through C records
 * (times within the first wrap period read back unchanged). */
static void tag_file_round_trip(void) {
  const tt_tag written[3] = {{0, 5000}, {3, 12}, {1, 7000000000000LL}};
  tt_tag read_back[8];
  char path[] = "/tmp/zolt_c_abi_XXXXXX";
  int fd = mkstemp(path);
  tt_tag_file_writer* writer = NULL;
  tt_tag_file_reader* reader = NULL;
  size_t count = 0;
  size_t i;
  int same = 1;
  if (fd >= 0) close(fd);
  expect("tag file writer opens", tt_tag_file_writer_open(&writer, path) == TT_OK && writer != NULL);
  expect("tags written", tt_tag_file_writer_write(writer, written, 3, &count) == TT_OK && count == 3);
  expect("writer closes", tt_tag_file_writer_close(writer) == TT_OK);
  tt_tag_file_writer_free(writer);
  expect("tag file reader opens", tt_tag_file_reader_open(&reader, path) == TT_OK && reader != NULL);
  expect("tags read", tt_tag_file_reader_read(reader, read_back, 8, &count) == TT_OK && count == 3);
  for (i = 0; i < 3 && i < count; ++i) {
    same = same && read_back[i].channel == written[i].channel && read_back[i].time_ps == written[i].time_ps;
  }
  expect("tags equal after the round trip", same);
  tt_tag_file_reader_free(reader);
  tt_tag_file_reader_free(NULL);
  remove(path);

  reader = (tt_tag_file_reader*)&count; /* any non-null value: a failing open must reset it */
  expect("missing file fails", tt_tag_file_reader_open(&reader, "/nonexistent/zolt.tags") != TT_OK);
  expect("failed open leaves NULL", reader == NULL);
}

/* A coincidence of inputs 0 and 1 within 1 ns, configured from C. */
static void coincidences(void) {
  const tt_tag tags[4] = {{0, 1000}, {1, 1400}, {2, 50000}, {1, 90000}};
  tt_coincidence_window_config config;
  tt_coincidence_analysis result;
  memset(&config, 0, sizeof config);
  config.window_ps[0] = config.window_ps[1] = config.window_ps[2] = config.window_ps[3] = 500;
  expect("analysis succeeds", tt_analyze_coincidences(tags, 4, &config, &result) == TT_OK);
  expect("singles counted", result.singles[0] == 1 && result.singles[1] == 2 && result.singles[2] == 1);
  expect("one (0,1) pair", result.pairs[0] == 1 && result.pairs[1] == 0 && result.pairs[3] == 0);
  expect("NULL result rejected", tt_analyze_coincidences(tags, 4, &config, NULL) == TT_ERR_INVALID_ARGUMENT);
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
  tag_file_round_trip();
  coincidences();
  printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
