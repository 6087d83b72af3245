/*
 * Control of the emulated FTDI D2XX runtime (libftd2xx.so built in sim/d2xx).
 *
 * The emulated runtime presents FT2232H modules whose interface A is wired to
 * a virtual instrument: the instrument registered in zolt_sim::Registry under
 * the module's serial number when the interface is opened. Bytes written are
 * handed to the instrument (command frames in the asynchronous bridge mode),
 * reads return what the instrument sends to the host (its replies, or its
 * stream after FT_SetBitMode(0xFF, 0x40)). Interface B is wired to nothing.
 *
 * Tests call these functions in-process; the host library loads the runtime
 * with dlopen and both see the same module table. For standalone use the
 * table is filled from ZOLT_SIM_FTDI when the runtime is first used:
 *   ZOLT_SIM_FTDI="ZT000001=Digilent USB Device;ZT000002=FT2232H MiniModule"
 * (each entry a dual-channel module; a default instrument is registered for
 * it when none is).
 *
 * Module serials are the base serials; the interfaces report "<serial>A" /
 * "<serial>B" and "<description> A" / "<description> B". All functions are
 * thread-safe and return 0 on success, -1 when no such module exists or an
 * argument is invalid.
 */
#ifndef ZOLT_SIM_FTDI_CONTROL_H
#define ZOLT_SIM_FTDI_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

/* D2XX status values the emulation returns (the runtime's own numbering). */
#define ZOLT_SIM_FT_OK 0u
#define ZOLT_SIM_FT_INVALID_HANDLE 1u
#define ZOLT_SIM_FT_DEVICE_NOT_FOUND 2u
#define ZOLT_SIM_FT_DEVICE_NOT_OPENED 3u
#define ZOLT_SIM_FT_IO_ERROR 4u
#define ZOLT_SIM_FT_INVALID_PARAMETER 6u

/* Calls whose result can be forced, per module. */
typedef enum zolt_sim_ftdi_call {
  ZOLT_SIM_FTDI_OPEN_EX = 0,
  ZOLT_SIM_FTDI_SET_BIT_MODE_RESET, /* FT_SetBitMode with mode 0x00 */
  ZOLT_SIM_FTDI_SET_BIT_MODE_OTHER, /* FT_SetBitMode with any other mode */
  ZOLT_SIM_FTDI_SET_USB_PARAMETERS,
  ZOLT_SIM_FTDI_SET_LATENCY_TIMER,
  ZOLT_SIM_FTDI_SET_TIMEOUTS,
  ZOLT_SIM_FTDI_PURGE,
  ZOLT_SIM_FTDI_GET_QUEUE_STATUS,
  ZOLT_SIM_FTDI_READ,
  ZOLT_SIM_FTDI_WRITE,
  ZOLT_SIM_FTDI_CALL_COUNT
} zolt_sim_ftdi_call;

/* What one interface was last configured to, for tests. */
typedef struct zolt_sim_ftdi_interface_state {
  int open;
  unsigned char bit_mask;
  unsigned char bit_mode;
  unsigned char latency_ms;
  unsigned read_timeout_ms;
  unsigned write_timeout_ms;
  unsigned in_transfer_size;
  unsigned out_transfer_size;
  unsigned purge_count; /* FT_Purge calls since the module was added */
  unsigned open_count;  /* successful FT_OpenEx calls */
} zolt_sim_ftdi_interface_state;

/* Adds a module. dual_channel != 0: an FT2232H with interfaces A and B;
   0: one interface reporting the serial and description unchanged. A module
   with the same serial is replaced (its open handles fail from then on). */
int zolt_sim_ftdi_add_module(const char* serial, const char* description, int dual_channel);
/* The module disappears, as when unplugged: it is no longer listed and calls
   on its open handles fail with FT_IO_ERROR. */
int zolt_sim_ftdi_remove_module(const char* serial);
/* Removes every module and clears every fault. */
void zolt_sim_ftdi_reset(void);

/* From now on `call` on this module's handles returns `status` (0 restores
   normal behaviour). */
int zolt_sim_ftdi_fail_call(const char* serial, zolt_sim_ftdi_call call, unsigned status);
/* FT_Write accepts nothing: it returns FT_OK with 0 bytes written after the
   write timeout, as a chip whose FIFO is never drained does. */
int zolt_sim_ftdi_set_write_stall(const char* serial, int stalled);

/* State of one interface, by its own serial ("ZT000001A"). */
int zolt_sim_ftdi_interface_state_of(const char* interface_serial, zolt_sim_ftdi_interface_state* state);

#ifdef __cplusplus
}
#endif

#endif
