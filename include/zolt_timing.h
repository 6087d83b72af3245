/*
 * zolt timing: host driver library for the ZOLT four-input time tagger.
 *
 * This header is the whole public interface. It is plain C (C99 and later)
 * and can be included from C++.
 *
 * Conventions that hold for every function below unless its comment says
 * otherwise:
 *  - Functions return a tt_status: TT_OK (0) on success, a negative code on
 *    failure. No C++ exception ever leaves the library.
 *  - A NULL handle or a NULL required pointer yields TT_ERR_INVALID_ARGUMENT
 *    at once, without touching any last-error text.
 *  - Open/create functions take an out-pointer, set it to NULL first and leave
 *    it NULL on failure. Handles are released by the matching *_free function
 *    or tt_close; all of them accept NULL.
 *  - Each handle keeps the text of its last failure (tt_last_error and the
 *    *_last_error functions). Returned strings are owned by the library and
 *    stay valid until the next call on the same handle.
 *  - A handle must not be used from two threads at once.
 *  - Times are signed 64-bit picoseconds; timeouts are milliseconds.
 */
#ifndef ZOLT_TIMING_H
#define ZOLT_TIMING_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define ZOLT_TIMING_API __attribute__((visibility("default")))
#else
#define ZOLT_TIMING_API
#endif

/* Compile-time layout checks that work in C99, C11 and C++. */
#if defined(__cplusplus)
#define ZOLT_TIMING_STATIC_ASSERT(cond, name) static_assert(cond, #name)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define ZOLT_TIMING_STATIC_ASSERT(cond, name) _Static_assert(cond, #name)
#else
#define ZOLT_TIMING_STATIC_ASSERT(cond, name) \
  typedef char zolt_timing_static_assert_##name[(cond) ? 1 : -1]
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Status codes, error texts and versions
 * ------------------------------------------------------------------------ */

/* Result of every fallible function: 0 on success, a negative code on failure. */
typedef int32_t tt_status;

enum tt_status_code {
  TT_OK = 0,
  TT_ERR_INVALID_ARGUMENT = -1,
  TT_ERR_IO = -2, /* input/output failure; also the catch-all */
  TT_ERR_TIMEOUT = -3,
  TT_ERR_PROTOCOL = -4,
  TT_ERR_NOT_FOUND = -5,
  TT_ERR_INVALID_STATE = -6,
  TT_ERR_UNSUPPORTED = -7
};

/* Opaque handles. */
typedef struct tt_device tt_device;
typedef struct tt_discovery tt_discovery;
typedef struct tt_stream_file_writer tt_stream_file_writer;
typedef struct tt_stream_file_reader tt_stream_file_reader;
typedef struct tt_tag_file_writer tt_tag_file_writer;
typedef struct tt_tag_file_reader tt_tag_file_reader;

/* Short constant text for a status ("ok", "timeout", ...); "unknown" for a
 * code outside -7..0. Never NULL. */
ZOLT_TIMING_API const char* tt_status_string(tt_status status);

/* Text of the device's last failure. A message set by the last failing
 * product-level call (e.g. "could not read device information") takes
 * precedence over the command layer's text; "" when there is none and for a
 * NULL device. Never NULL; valid until the next call on the same device. */
ZOLT_TIMING_API const char* tt_last_error(tt_device* device);

/* Version of this library, "0.3.0". Constant; never NULL. */
ZOLT_TIMING_API const char* tt_software_version(void);

/* Firmware revision the library was built against, "REV-001". This is a
 * constant of the library, not read from an instrument. Never NULL. */
ZOLT_TIMING_API const char* tt_firmware_version(void);

/* ------------------------------------------------------------------------
 * Shared records and enumerations
 * ------------------------------------------------------------------------ */

/* Link a timestamp stream travels over. */
typedef int32_t tt_stream_transport;
enum tt_stream_transport_value {
  TT_STREAM_TRANSPORT_UART = 0,      /* the serial command link */
  TT_STREAM_TRANSPORT_USB_FIFO = 1,  /* FTDI high-speed synchronous FIFO */
  TT_STREAM_TRANSPORT_USB_ASYNC = 2  /* withdrawn; kept so old files read back */
};

/* Wire encoding of time tags in a stream. */
typedef int32_t tt_stream_format;
enum tt_stream_format_value {
  TT_STREAM_FORMAT_RAW64 = 0,
  TT_STREAM_FORMAT_DELTA32 = 1,
  TT_STREAM_FORMAT_PACKED_DELTA = 2
};

/* One decoded time tag: the input (0..3) and its time in picoseconds. */
typedef struct tt_tag {
  uint32_t channel;
  int64_t time_ps;
} tt_tag;
ZOLT_TIMING_STATIC_ASSERT(sizeof(tt_tag) == 16, tt_tag_is_16_bytes);

/* ------------------------------------------------------------------------
 * Decoded stream records
 * ------------------------------------------------------------------------ */

/* One raw64 stream record as read by tt_read_raw64_tag. For calibration
 * streams coarse is the 32-bit coarse count (3,333 ps per count) and fine the
 * 13-bit fine code; for tag streams both are 0 and raw holds the whole word
 * (input in bits 62..61, picoseconds modulo 0xD0500000000 in bits 43..0). */
typedef struct tt_raw64_tag {
  uint8_t channel; /* input 0..3: bits 62..61 of raw */
  uint32_t coarse;
  uint16_t fine;
  uint64_t raw;
} tt_raw64_tag;

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* ZOLT_TIMING_H */
