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
 * Identity, discovery, opening and closing instruments
 * ------------------------------------------------------------------------ */

/* What an instrument says it is: three short texts and their joined form
 * "<manufacturer>-<device_class>-<serial>". All fields are NUL-terminated. */
typedef struct tt_identity {
  char manufacturer[16];
  char device_class[16];
  char serial[16];
  char identity[48];
} tt_identity;
ZOLT_TIMING_STATIC_ASSERT(sizeof(tt_identity) == 96, tt_identity_is_96_bytes);

/* Where an instrument is and what it is, for display. port is the locator
 * the device was opened with (or the discovered port); model is the
 * manufacturer, a blank and the device class (the manufacturer alone when
 * the class is empty). All fields are NUL-terminated, cut to fit. */
typedef struct tt_device_info {
  char port[64];
  char model[32];
  char serial[16];
} tt_device_info;
ZOLT_TIMING_STATIC_ASSERT(sizeof(tt_device_info) == 112, tt_device_info_is_112_bytes);

/* Finds the instruments this host can reach: FTDI USB stream modules first
 * (listed through the FTDI D2XX runtime when it is installed; no command is
 * sent to them, their identity is "ZOLT-TDC-<module serial>" and their port
 * "ftdi://<module serial>"), then every serial port (/dev/serial/by-id/...,
 * /dev/ttyUSB*, /dev/ttyACM*) that answers the identity commands at
 * 3000000 baud within 250 ms. Ports that do not answer are left out.
 * Blocks: up to about 250 ms per silent serial port.
 * On success *out is a new handle, also when nothing was found; the caller
 * frees it with tt_discover_free. Returns TT_ERR_INVALID_ARGUMENT for a
 * NULL out and TT_ERR_IO when memory runs out (*out stays NULL). */
ZOLT_TIMING_API tt_status tt_discover(tt_discovery** out);

/* Number of instruments found; 0 for NULL. */
ZOLT_TIMING_API size_t tt_discover_count(const tt_discovery* discovery);

/* Port or locator of entry `index`, suitable for tt_open; NULL for a NULL
 * handle or an index out of range. Owned by the discovery handle. */
ZOLT_TIMING_API const char* tt_discover_port(const tt_discovery* discovery, size_t index);

/* Identity of entry `index`; NULL for a NULL handle or an index out of
 * range. Owned by the discovery handle. */
ZOLT_TIMING_API const tt_identity* tt_discover_identity(const tt_discovery* discovery, size_t index);

/* Fills *info for entry `index` (port, model, serial). TT_ERR_INVALID_ARGUMENT
 * for a NULL pointer or an index out of range. Does not block. */
ZOLT_TIMING_API tt_status tt_discover_info(const tt_discovery* discovery, size_t index, tt_device_info* info);

/* Releases a discovery handle and everything it owns. NULL is allowed. */
ZOLT_TIMING_API void tt_discover_free(tt_discovery* discovery);

/* Opens an instrument. `locator` is a serial device path ("/dev/ttyUSB0"),
 * opened at `baud` (one of the instrument's rates, 9600 ... 3000000; 0 or
 * an unsupported rate fails with TT_ERR_IO), or a USB locator starting with
 * "ftdi", "usb-fifo" or "usb_fifo" (any case): the text after "://" (or
 * else after the first ":") selects the FTDI module by serial number or
 * description, and `baud` is ignored. A serial open sends nothing to the
 * instrument. A USB open claims the module for this process, brings the
 * instrument to an idle state over the FTDI command bridge (about 0.1 to
 * 1 s) and, when ZOLT_FORCE_INTERNAL_ON_OPEN is set, selects its internal
 * reference clock.
 * Sets *out to NULL first; on success *out is a new handle that the caller
 * releases with tt_close. On failure *out stays NULL and nothing is kept:
 * TT_ERR_INVALID_ARGUMENT for NULL arguments, TT_ERR_IO when the link cannot
 * be opened, TT_ERR_UNSUPPORTED for a USB locator without the FTDI runtime.
 * The reason is not kept (there is no handle); open with a known-good
 * locator or use tt_discover to see what is reachable. */
ZOLT_TIMING_API tt_status tt_open(tt_device** out, const char* locator, int baud);

/* Discovers (see tt_discover) and opens the first instrument found, at
 * 3000000 baud. TT_ERR_NOT_FOUND when nothing was found; otherwise as
 * tt_open. Blocks while discovering. */
ZOLT_TIMING_API tt_status tt_open_first(tt_device** out);

/* Opens the instrument with this serial number, or this locator.
 * A text starting with "ftdi://" or "FTDI://", "COM", "\\.\" or "/dev/" is
 * opened directly with tt_open at 3000000 baud. Anything else is looked up
 * with tt_discover: an instrument whose identity serial equals the text
 * (a USB module preferred over a serial port with the same serial), else a
 * USB module whose serial, module serial or description matches the text
 * regardless of case. TT_ERR_NOT_FOUND when none matches; otherwise as
 * tt_open. May block while discovering. */
ZOLT_TIMING_API tt_status tt_open_serial(tt_device** out, const char* serial_or_locator);

/* Closes the instrument and releases the handle: stops what the handle runs
 * on the host, closes the FTDI module (releasing its claim) and the serial
 * port. No command is sent to the instrument. NULL is allowed. */
ZOLT_TIMING_API void tt_close(tt_device* device);

/* Reads the instrument's identity (commands 0x41..0x43, 250 ms each).
 * Trailing NULs and blanks of each text are dropped; each must be non-empty
 * printable ASCII, else TT_ERR_PROTOCOL with the three replies in hex in
 * tt_last_error. A device opened over USB reports "ZOLT-TDC-<USB serial>"
 * (also when its replies are unreadable). Blocks up to 750 ms.
 * TT_ERR_INVALID_ARGUMENT for NULL; the link's TT_ERR_TIMEOUT / TT_ERR_IO. */
ZOLT_TIMING_API tt_status tt_identify(tt_device* device, tt_identity* identity);

/* Fills *info from tt_identify and the locator the device was opened with.
 * On failure returns tt_identify's status and tt_last_error reads "could not
 * read device information". Blocks like tt_identify. */
ZOLT_TIMING_API tt_status tt_get_device_info(tt_device* device, tt_device_info* info);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* ZOLT_TIMING_H */
