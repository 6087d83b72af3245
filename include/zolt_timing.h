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
 * sent to them, their identity is "ZOLT-TDC-<serial>" and their port
 * "ftdi://<serial>", where <serial> is that of the module's stream interface,
 * e.g. "ZT000001A"), then every serial port (/dev/serial/by-id/...,
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

/* ------------------------------------------------------------------------
 * Coincidence analysis on the host
 * ------------------------------------------------------------------------ */

/* How tags of the four inputs are matched. offset_ps[i] is added to every time
 * of input i before matching; |window_ps[i]| is the half-width of input i's
 * window (the sign is ignored). Bit i of group_mask lets input i take part;
 * only bits 0..3 count, and 0 means all four inputs. */
typedef struct tt_coincidence_window_config {
  int64_t offset_ps[4];
  int64_t window_ps[4];
  uint8_t group_mask;
} tt_coincidence_window_config;
ZOLT_TIMING_STATIC_ASSERT(sizeof(tt_coincidence_window_config) == 72,
                          tt_coincidence_window_config_is_72_bytes);

/* Result of tt_analyze_coincidences. pairs are inputs (0,1), (0,2), (0,3),
 * (1,2), (1,3), (2,3); triples are (0,1,2), (0,1,3), (0,2,3), (1,2,3). A tag
 * is never consumed: it takes part in every tuple it matches. offset_ps and
 * window_ps are copies of the configuration (window sign kept). */
typedef struct tt_coincidence_analysis {
  uint64_t singles[4];
  uint64_t total;
  uint64_t pairs[6];
  uint64_t triples[4];
  uint64_t quadruples;
  uint8_t effective_mask; /* group_mask & 15, or 15 when group_mask is 0 */
  int64_t offset_ps[4];
  int64_t window_ps[4];
} tt_coincidence_analysis;
ZOLT_TIMING_STATIC_ASSERT(sizeof(tt_coincidence_analysis) == 200,
                          tt_coincidence_analysis_is_200_bytes);

/* Counts singles and every pair, triple and quadruple of coincident tags in
 * tags[0..count). A tuple (one tag per input) counts when the closed
 * intervals [time + offset - |window|, time + offset + |window|] of all its
 * tags share at least one point. Tags of inputs above 3 or outside the mask
 * are ignored. config may be NULL: offsets 0, windows 0, all inputs. The
 * caller keeps ownership of everything; the tags are not modified (sorted
 * copies are made when needed). Returns -1 when out is NULL or tags is NULL
 * with count > 0, -2 when memory runs out; out is written only on success.
 * Does not block and keeps no last-error text. */
ZOLT_TIMING_API tt_status tt_analyze_coincidences(const tt_tag* tags, size_t count,
                                                  const tt_coincidence_window_config* config,
                                                  tt_coincidence_analysis* out);

/* ------------------------------------------------------------------------
 * Offline analysis functions
 *
 * Stateless functions on arrays already in memory. They return 0 on success
 * and -1 for every rejected argument (-2 only when memory runs out). Input
 * arrays are never modified: sorted copies are made when an input is not
 * already in ascending order. None of them blocks or keeps a last-error text.
 * Tag arguments are tt_tag records whose channel is read as a signed 32-bit
 * input number.
 * ------------------------------------------------------------------------ */

/* Weighted-moment estimate of a histogram peak (not an iterative fit). */
typedef struct zolt_analysis_gaussian_fit {
  uint64_t valid;   /* 1 when a positive width was found */
  uint64_t points;  /* histogram points used */
  double mean;      /* weighted mean position */
  double sigma;     /* weighted standard deviation; 0 when not valid */
  double fwhm;      /* 2.3548200450309493 * sigma; 0 when not valid */
  double amplitude; /* peak count minus baseline */
  double baseline;  /* smallest count among the points used */
  double area;      /* sum of weights times the mean positive position spacing */
} zolt_analysis_gaussian_fit;
ZOLT_TIMING_STATIC_ASSERT(sizeof(zolt_analysis_gaussian_fit) == 64,
                          zolt_analysis_gaussian_fit_is_64_bytes);

/* One closed window of a frequency trace. */
typedef struct zolt_analysis_frequency_point {
  double time_s;       /* end of the window, from the first time, in seconds */
  double frequency_hz; /* (count - 1) * 1e12 / (last_ps - first_ps), or 0 */
  uint64_t count;      /* times in the window */
  int64_t first_ps;    /* first time in the window; 0 for an empty window */
  int64_t last_ps;     /* last time in the window; 0 for an empty window */
} zolt_analysis_frequency_point;
ZOLT_TIMING_STATIC_ASSERT(sizeof(zolt_analysis_frequency_point) == 40,
                          zolt_analysis_frequency_point_is_40_bytes);

/* Result of zolt_analysis_count_coincidences. pairs are inputs 01, 02, 03,
 * 12, 13, 23. triples[] are the slots 012, 013, 023, 123; each counts events
 * in which the other three inputs were all present when the slot's missing
 * input arrived (so a four-input event lands in the slot of the input that
 * came last). quadruples is always 0. */
typedef struct zolt_analysis_coincidence_counts {
  uint64_t singles[4];
  uint64_t total;
  uint64_t pairs[6];
  uint64_t triples[4];
  uint64_t quadruples;
  uint64_t window_ps;
} zolt_analysis_coincidence_counts;
ZOLT_TIMING_STATIC_ASSERT(sizeof(zolt_analysis_coincidence_counts) == 136,
                          zolt_analysis_coincidence_counts_is_136_bytes);

/* Version of the analysis functions, "0.3.0". Constant; never NULL. */
ZOLT_TIMING_API const char* zolt_analysis_version(void);

/* Histogram of tag times per input: out[bin * channels + input] counts the
 * tags with 0 <= input < channels and start_ps + bin * bin_width_ps <= time <
 * start_ps + (bin + 1) * bin_width_ps, for bin < bins. out (channels * bins
 * values, caller-owned) is zeroed first. -1 when tags is NULL with count > 0,
 * channels < 1, bin_width_ps < 1, bins is 0, out is NULL or channels * bins
 * does not fit in 64 bits; out is untouched then. */
ZOLT_TIMING_API tt_status zolt_analysis_count_bins(const tt_tag* tags, size_t count, int channels,
                                                   int64_t start_ps, int64_t bin_width_ps,
                                                   size_t bins, uint64_t* out);

/* Number of bins of a cross-correlation over +-range_ps: 2 * H + 1 with
 * H = ceil(range_ps / bin_width_ps). -1 when bin_width_ps <= 0, range_ps < 0,
 * out is NULL or H overflows; *out is untouched then. */
ZOLT_TIMING_API tt_status zolt_analysis_xcorr_bin_count(int64_t range_ps, int64_t bin_width_ps,
                                                        size_t* out);

/* Cross-correlation histogram of every pair (t from a, u from b): the lag
 * u - t - offset_ps, divided by bin_width_ps and rounded half away from zero,
 * selects bin k + H of counts (nbins = 2 * H + 1 values, see
 * zolt_analysis_xcorr_bin_count). lags, when not NULL, receives the centre
 * of each bin, (i - H) * bin_width_ps. counts is zeroed first. -1 when a or b
 * is NULL with a non-zero length, bin_width_ps <= 0, range_ps < 0, counts is
 * NULL or nbins is not 2 * H + 1; counts and lags are untouched then. */
ZOLT_TIMING_API tt_status zolt_analysis_cross_correlation(const int64_t* a, size_t na,
                                                          const int64_t* b, size_t nb,
                                                          int64_t range_ps, int64_t bin_width_ps,
                                                          int64_t offset_ps, uint64_t* counts,
                                                          int64_t* lags, size_t nbins);

/* Estimates the peak of the histogram (positions[i], counts[i]) from weighted
 * moments over the points within fit_range of the highest count (all points
 * when fit_range is 0). Points at the baseline weigh their full count. With
 * n = 0 the result is all zero. -1 when out is NULL, when n > 0 and positions
 * or counts is NULL, or when fit_range < 0; *out is zeroed as soon as the
 * pointers are accepted, so a negative fit_range leaves it zeroed. */
ZOLT_TIMING_API tt_status zolt_analysis_fit_gaussian_peak(const int64_t* positions,
                                                          const uint64_t* counts, size_t n,
                                                          int64_t fit_range,
                                                          zolt_analysis_gaussian_fit* out);

/* g2 normalisation: out[i] = counts[i] / (f1 * f2 * f3 * bin_width_ps * 1e-12),
 * where two factors are the input rates in counts per second and one is the
 * measurement time in seconds (in any order). out holds n values. -1 when
 * counts is NULL with n > 0, out is NULL, a factor is <= 0 or not finite,
 * bin_width_ps < 1 or the norm is not a positive finite number; out is
 * untouched then. */
ZOLT_TIMING_API tt_status zolt_analysis_normalize_g2(const uint64_t* counts, size_t n,
                                                     int64_t bin_width_ps, double* out, double f1,
                                                     double f2, double f3);

/* Frequency trace of times in windows of window_ps starting at the earliest
 * time. Every closed window gives one point, empty windows included; the last
 * window (the one holding the latest time) is still open and gives none.
 * *out_count receives the number of points. When out is NULL or capacity is
 * 0 this is only a size query. Otherwise the points are copied when capacity
 * suffices; when it does not, -1 is returned with *out_count set and nothing
 * copied. Also -1 (out_count untouched) when times is NULL with n > 0,
 * window_ps < 1 or out_count is NULL. */
ZOLT_TIMING_API tt_status zolt_analysis_frequency_trace(const int64_t* times, size_t n,
                                                        int64_t window_ps,
                                                        zolt_analysis_frequency_point* out,
                                                        size_t capacity, size_t* out_count);

/* Streaming coincidence count in time order: each tag (time + offsets_ps[input],
 * offsets may be NULL) adds one to the pair with every other masked input that
 * had a tag within window_ps before it, however many. mask 0 means all four
 * inputs. See zolt_analysis_coincidence_counts for the triple slots. -1 when
 * tags is NULL with count > 0 or out is NULL (out untouched), or when
 * window_ps < 0 (out zeroed). */
ZOLT_TIMING_API tt_status zolt_analysis_count_coincidences(const tt_tag* tags, size_t count,
                                                           int64_t window_ps,
                                                           const int64_t* offsets_ps, uint8_t mask,
                                                           zolt_analysis_coincidence_counts* out);

/* ------------------------------------------------------------------------
 * Recording files: raw stream files and split tag files
 *
 * A stream file is the magic "ZOTIME1\n", a 32-bit little-endian length, a
 * one-line JSON header describing the capture, then the stream bytes exactly
 * as the instrument sent them. A tag file is a stream file whose payload is
 * decoded tags as 8-byte words (raw64, "ps" tag format); long recordings are
 * split into numbered parts: run.tags, run_0001.tags, run_0002.tags, ...
 * Nothing here blocks beyond ordinary file-system I/O. A failed open leaves
 * *out NULL and frees everything, so its text cannot be queried.
 * ------------------------------------------------------------------------ */

/* Header settings for tt_stream_file_writer_open. Zero selects the default
 * of a field, so a zero-initialised record is valid. */
typedef struct tt_stream_file_options {
  uint32_t stream_format;    /* tt_stream_format, 0..2 */
  uint32_t mode;             /* timestamp mode: 0 internal, 1 external */
  uint32_t stream_transport; /* 0 uart, 1 usb (usb_async cannot be chosen) */
  uint8_t channel_mask;      /* enabled inputs, bit n = input n; 0 selects 15 */
  uint8_t tdl_index;         /* delay line the stream was taken from */
  uint8_t delta_bits;        /* packed-delta field width; 0 selects 16 */
  uint16_t quantum_ps;       /* packed-delta time quantum; 0 selects 8 */
  const char* raw64_tag_format; /* "raw_cf" or "ps"; NULL/"" selects by mode:
                                   "raw_cf" for internal, "ps" for external */
} tt_stream_file_options;

/* What tt_stream_file_reader_info reports about an open stream file. */
typedef struct tt_stream_file_info {
  uint32_t stream_format;
  uint32_t mode;
  uint32_t stream_transport;
  uint8_t channel_mask;
  uint8_t tdl_index;
  uint8_t delta_bits;
  uint16_t quantum_ps;
  char raw64_tag_format[16]; /* cut to 15 bytes, NUL-terminated */
  char created_utc[32];      /* ISO 8601 UTC with microseconds, cut to 31 */
  uint64_t payload_offset;   /* file offset of the first payload byte */
} tt_stream_file_info;
ZOLT_TIMING_STATIC_ASSERT(sizeof(tt_stream_file_info) == 80, tt_stream_file_info_is_80_bytes);

/* Creates (or truncates) path and writes the header. options may be NULL
 * for packed_delta, external, usb, mask 15, tdl 0, 16 bits, 8 ps, "ps".
 * Returns -1 for NULL out/path and for an enum field out of range ("invalid
 * stream file option enum value"), -2 when the file cannot be written. The
 * caller owns *out and releases it with tt_stream_file_writer_free. */
ZOLT_TIMING_API tt_status tt_stream_file_writer_open(tt_stream_file_writer** out, const char* path,
                                                     const tt_stream_file_options* options);

/* Appends size payload bytes. *written (optional) is 0 on failure, size on
 * success. -6 once the writer is closed or after a failed write, -2 when the
 * file system refuses the bytes. */
ZOLT_TIMING_API tt_status tt_stream_file_writer_write(tt_stream_file_writer* writer, const void* data,
                                                      size_t size, size_t* written);

/* Payload bytes written so far (0 for NULL). */
ZOLT_TIMING_API uint64_t tt_stream_file_writer_payload_bytes(const tt_stream_file_writer* writer);

/* Flushes and closes the file; later writes fail with -6. A failure to flush
 * is not reported: returns 0 for any non-NULL writer. */
ZOLT_TIMING_API tt_status tt_stream_file_writer_close(tt_stream_file_writer* writer);

/* Closes (if still open) and destroys the writer. NULL is ignored. */
ZOLT_TIMING_API void tt_stream_file_writer_free(tt_stream_file_writer* writer);

/* Text of the writer's last failure; "" for none or NULL. Never NULL. */
ZOLT_TIMING_API const char* tt_stream_file_writer_last_error(const tt_stream_file_writer* writer);

/* Opens a stream file (also the older "TTSTRM1\n" magic) and reads its
 * header. -2 when the file cannot be opened or is truncated, -4 when it is
 * not a stream file. Missing or unknown header values fall back to
 * defaults. The caller owns *out (tt_stream_file_reader_free). */
ZOLT_TIMING_API tt_status tt_stream_file_reader_open(tt_stream_file_reader** out, const char* path);

/* Fills *info (zeroed first) from the header. -1 for NULL arguments. */
ZOLT_TIMING_API tt_status tt_stream_file_reader_info(const tt_stream_file_reader* reader, tt_stream_file_info* info);

/* The JSON header text exactly as stored in the file ("" for NULL); owned by
 * the reader. */
ZOLT_TIMING_API const char* tt_stream_file_reader_header_json(const tt_stream_file_reader* reader);

/* Reads up to capacity payload bytes into buffer; *count is the number read,
 * 0 at the end of the file (any number of times). -1 for NULL count, NULL
 * reader or NULL buffer with capacity; -2 on a read failure. */
ZOLT_TIMING_API tt_status tt_stream_file_reader_read_payload(tt_stream_file_reader* reader, void* buffer,
                                                             size_t capacity, size_t* count);

/* Goes back to the first payload byte. -2 if the file cannot seek. */
ZOLT_TIMING_API tt_status tt_stream_file_reader_rewind(tt_stream_file_reader* reader);

/* Closes and destroys the reader. NULL is ignored. */
ZOLT_TIMING_API void tt_stream_file_reader_free(tt_stream_file_reader* reader);

/* Text of the reader's last failure; "" for none or NULL. Never NULL. */
ZOLT_TIMING_API const char* tt_stream_file_reader_last_error(const tt_stream_file_reader* reader);

/* Texts for the header of every tag file part; NULL keeps the default
 * ("zolt_timing" for application, empty for the others). */
typedef struct tt_tag_file_writer_options {
  const char* application;
  const char* device_product;
  const char* device_serial;
  const char* device_port;
} tt_tag_file_writer_options;

/* What tt_tag_file_reader_info reports; each text is cut to fit and
 * NUL-terminated. */
typedef struct tt_tag_file_info {
  char created_utc[40];
  char application[32];
  char device_product[32];
  char device_serial[32];
  char device_port[128];
} tt_tag_file_info;
ZOLT_TIMING_STATIC_ASSERT(sizeof(tt_tag_file_info) == 264, tt_tag_file_info_is_264_bytes);

/* tt_tag_file_writer_open_ex with no options. */
ZOLT_TIMING_API tt_status tt_tag_file_writer_open(tt_tag_file_writer** out, const char* path);

/* Creates part 0 (path itself) of a tag file. Parts roll over at 1 GiB by
 * default (tt_tag_file_writer_set_max_file_size). options may be NULL. -1 for
 * NULL out/path, -2 when the file cannot be written. The caller owns *out
 * (tt_tag_file_writer_free). */
ZOLT_TIMING_API tt_status tt_tag_file_writer_open_ex(tt_tag_file_writer** out, const char* path,
                                                     const tt_tag_file_writer_options* options);

/* Writes count tags, opening new parts as the size limit requires (a part
 * always takes at least one tag). Times are stored modulo 0xD0500000000 ps
 * and unwrapped per input on reading, which holds while consecutive tags of
 * one input are less than half that apart. A channel above 3 anywhere fails
 * the whole call with -1 and writes nothing; a closed writer gives -6.
 * *written (optional) tells how many tags reached the files, also when a
 * failure (-2) stops the call part-way. */
ZOLT_TIMING_API tt_status tt_tag_file_writer_write(tt_tag_file_writer* writer, const tt_tag* tags, size_t count,
                                                   size_t* written);

/* Size limit per part in bytes, counting the file header; 0 = unlimited, a
 * negative value also means no limit; 1..7 fail with -1. Applies from the
 * next write. */
ZOLT_TIMING_API tt_status tt_tag_file_writer_set_max_file_size(tt_tag_file_writer* writer, int64_t max_bytes);

/* Number of the part being written, 0 for the first (0 for NULL). */
ZOLT_TIMING_API uint64_t tt_tag_file_writer_file_index(const tt_tag_file_writer* writer);

/* Path of the part being written ("" for NULL); owned by the writer, valid
 * until the next write. */
ZOLT_TIMING_API const char* tt_tag_file_writer_current_path(const tt_tag_file_writer* writer);

/* Tags written over all parts (0 for NULL). */
ZOLT_TIMING_API uint64_t tt_tag_file_writer_tag_count(const tt_tag_file_writer* writer);

/* Flushes and closes the current part; later writes fail with -6. A failure
 * to flush is not reported: returns 0 for any non-NULL writer. */
ZOLT_TIMING_API tt_status tt_tag_file_writer_close(tt_tag_file_writer* writer);

/* Closes (if still open) and destroys the writer. NULL is ignored. */
ZOLT_TIMING_API void tt_tag_file_writer_free(tt_tag_file_writer* writer);

/* Text of the writer's last failure; "" for none or NULL. Never NULL. */
ZOLT_TIMING_API const char* tt_tag_file_writer_last_error(const tt_tag_file_writer* writer);

/* Opens one tag file part for reading. Errors as tt_stream_file_reader_open.
 * The caller owns *out (tt_tag_file_reader_free). */
ZOLT_TIMING_API tt_status tt_tag_file_reader_open(tt_tag_file_reader** out, const char* path);

/* Fills *info (zeroed first) from the part's header. -1 for NULL arguments. */
ZOLT_TIMING_API tt_status tt_tag_file_reader_info(const tt_tag_file_reader* reader, tt_tag_file_info* info);

/* Reads up to capacity tags in file order; *count = 0 with status 0 means
 * the end of the file. Times are unwrapped per input from the start of the
 * file (or from the last rewind or seek). -1 for NULL arguments or capacity
 * 0; -2 on a read failure, with *count still telling how many tags were
 * delivered before it. A raw stream file is decoded by its own format. */
ZOLT_TIMING_API tt_status tt_tag_file_reader_read(tt_tag_file_reader* reader, tt_tag* tags, size_t capacity,
                                                  size_t* count);

/* Reads tags with index first <= i < end (at most capacity) after seeking to
 * first. -1 for NULL arguments, capacity 0 or end < first; first == end reads
 * nothing and does not move the reader. */
ZOLT_TIMING_API tt_status tt_tag_file_reader_read_tag_range(tt_tag_file_reader* reader, uint64_t first,
                                                            uint64_t end, tt_tag* tags, size_t capacity,
                                                            size_t* count);

/* Reads tags with start_ps <= time < end_ps (at most capacity), scanning from
 * the first tag at or after start_ps; the tag that ends the range is kept
 * for the next read. -1 for NULL arguments, capacity 0 or end_ps < start_ps;
 * start_ps == end_ps reads nothing and does not move the reader. */
ZOLT_TIMING_API tt_status tt_tag_file_reader_read_time_range(tt_tag_file_reader* reader, int64_t start_ps,
                                                             int64_t end_ps, tt_tag* tags, size_t capacity,
                                                             size_t* count);

/* Positions the reader before tag number index (0-based) by decoding from
 * the start; an index past the end leaves the reader at the end (status 0). */
ZOLT_TIMING_API tt_status tt_tag_file_reader_seek_tag(tt_tag_file_reader* reader, uint64_t index);

/* Positions the reader at the first tag with time >= time_ps by scanning from
 * the start; past the last tag the reader is left at the end (status 0). */
ZOLT_TIMING_API tt_status tt_tag_file_reader_seek_time(tt_tag_file_reader* reader, int64_t time_ps);

/* Back to the first tag, with the unwrapping started afresh. */
ZOLT_TIMING_API tt_status tt_tag_file_reader_rewind(tt_tag_file_reader* reader);

/* Closes and destroys the reader. NULL is ignored. */
ZOLT_TIMING_API void tt_tag_file_reader_free(tt_tag_file_reader* reader);

/* Text of the reader's last failure; "" for none or NULL. Never NULL. */
ZOLT_TIMING_API const char* tt_tag_file_reader_last_error(const tt_tag_file_reader* reader);

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

/* ------------------------------------------------------------------------
 * Decoding tags out of stream files
 * ------------------------------------------------------------------------ */

/* Decodes the next tags of the payload into out[0..capacity): tag files and
 * raw64 "ps" payloads word by word, the other encodings (raw64 "raw_cf",
 * delta32, packed delta) with the stream decoder set up from the file's
 * header. Tags come in stream order; *count is how many were written. At the
 * end of the payload the call succeeds with *count = 0; a stream that stops
 * making sense (lost lock, unknown words) is skipped, never guessed at.
 * tt_stream_file_reader_rewind starts decoding afresh. Any NULL argument
 * gives TT_ERR_INVALID_ARGUMENT (*count is set to 0 first when count is not
 * NULL); read failures give a status and a last-error text on the reader.
 * Blocks only on file reads. */
ZOLT_TIMING_API tt_status tt_stream_file_reader_read_tags(tt_stream_file_reader* reader, tt_tag* out,
                                                          size_t capacity, size_t* count);

/* What tt_stream_file_reader_summarize_tags found in a stream file. */
typedef struct tt_stream_tag_summary {
  uint64_t tags;          /* tags on inputs 0..3 */
  uint64_t input_tags[4]; /* per input */
  int64_t first_time_ps;  /* time of the first decoded tag; 0 when none */
  int64_t last_time_ps;   /* time of the last decoded tag; 0 when none */
  uint64_t payload_bytes; /* payload bytes scanned */
} tt_stream_tag_summary;
ZOLT_TIMING_STATIC_ASSERT(sizeof(tt_stream_tag_summary) == 64, tt_stream_tag_summary_is_64_bytes);

/* Decodes the whole payload from its start and fills *summary (zeroed
 * first), then leaves the reader rewound: the next read starts at the first
 * tag. NULL reader or summary: TT_ERR_INVALID_ARGUMENT. Failures give a
 * status and a last-error text on the reader. Blocks while it reads the
 * file. */
ZOLT_TIMING_API tt_status tt_stream_file_reader_summarize_tags(tt_stream_file_reader* reader,
                                                               tt_stream_tag_summary* summary);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* ZOLT_TIMING_H */
