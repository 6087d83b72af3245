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
 * delivered before it; -7 for a stream file whose payload is not tags. */
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
