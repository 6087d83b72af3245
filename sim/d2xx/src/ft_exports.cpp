// The D2XX entry points of the emulated runtime, with the runtime's ABI on
// x86-64 Linux: DWORD, ULONG and FT_STATUS are 32-bit unsigned, handles are
// pointers. Built three times: complete, and once each without
// FT_SetBitMode and without FT_CyclePort, to exercise the host's loader.

#include <cstdint>

#include "emulated_ftdi.hpp"

using zolt_sim::d2xx::EmulatedFtdi;

#define ZOLT_SIM_FT_EXPORT extern "C" __attribute__((visibility("default")))

using FT_STATUS = std::uint32_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using UCHAR = unsigned char;
using FT_HANDLE = void*;

namespace {
EmulatedFtdi& runtime() { return EmulatedFtdi::instance(); }
}  // namespace

ZOLT_SIM_FT_EXPORT FT_STATUS FT_CreateDeviceInfoList(DWORD* count) { return runtime().create_device_info_list(count); }

ZOLT_SIM_FT_EXPORT FT_STATUS FT_GetDeviceInfoDetail(DWORD index, DWORD* flags, DWORD* type, DWORD* id,
                                                   DWORD* location, void* serial, void* description,
                                                   FT_HANDLE* handle) {
  return runtime().get_device_info_detail(index, flags, type, id, location, serial, description, handle);
}

ZOLT_SIM_FT_EXPORT FT_STATUS FT_OpenEx(void* argument, DWORD flags, FT_HANDLE* handle) {
  return runtime().open_ex(argument, flags, handle);
}

ZOLT_SIM_FT_EXPORT FT_STATUS FT_Close(FT_HANDLE handle) { return runtime().close(handle); }

ZOLT_SIM_FT_EXPORT FT_STATUS FT_Read(FT_HANDLE handle, void* buffer, DWORD to_read, DWORD* read) {
  return runtime().read(handle, buffer, to_read, read);
}

ZOLT_SIM_FT_EXPORT FT_STATUS FT_Write(FT_HANDLE handle, void* buffer, DWORD to_write, DWORD* written) {
  return runtime().write(handle, buffer, to_write, written);
}

ZOLT_SIM_FT_EXPORT FT_STATUS FT_ResetDevice(FT_HANDLE handle) { return runtime().reset_device(handle); }

ZOLT_SIM_FT_EXPORT FT_STATUS FT_Purge(FT_HANDLE handle, ULONG mask) { return runtime().purge(handle, mask); }

ZOLT_SIM_FT_EXPORT FT_STATUS FT_SetTimeouts(FT_HANDLE handle, ULONG read_ms, ULONG write_ms) {
  return runtime().set_timeouts(handle, read_ms, write_ms);
}

ZOLT_SIM_FT_EXPORT FT_STATUS FT_SetLatencyTimer(FT_HANDLE handle, UCHAR milliseconds) {
  return runtime().set_latency_timer(handle, milliseconds);
}

ZOLT_SIM_FT_EXPORT FT_STATUS FT_SetUSBParameters(FT_HANDLE handle, ULONG in_size, ULONG out_size) {
  return runtime().set_usb_parameters(handle, in_size, out_size);
}

ZOLT_SIM_FT_EXPORT FT_STATUS FT_GetQueueStatus(FT_HANDLE handle, DWORD* rx_bytes) {
  return runtime().get_queue_status(handle, rx_bytes);
}

#ifndef ZOLT_SIM_FTDI_WITHOUT_SET_BIT_MODE
ZOLT_SIM_FT_EXPORT FT_STATUS FT_SetBitMode(FT_HANDLE handle, UCHAR mask, UCHAR mode) {
  return runtime().set_bit_mode(handle, mask, mode);
}
#endif

#ifndef ZOLT_SIM_FTDI_WITHOUT_CYCLE_PORT
ZOLT_SIM_FT_EXPORT FT_STATUS FT_CyclePort(FT_HANDLE handle) { return runtime().cycle_port(handle); }
#endif

// The program-data record is the runtime's own large structure; the
// emulation keeps only the strings, so the record is left as it is.
ZOLT_SIM_FT_EXPORT FT_STATUS FT_EE_ReadEx(FT_HANDLE handle, void* /*program_data*/, char* manufacturer,
                                         char* manufacturer_id, char* description, char* serial) {
  return runtime().ee_read(handle, manufacturer, manufacturer_id, description, serial);
}

ZOLT_SIM_FT_EXPORT FT_STATUS FT_EE_ProgramEx(FT_HANDLE handle, void* /*program_data*/, char* /*manufacturer*/,
                                            char* /*manufacturer_id*/, char* description, char* serial) {
  return runtime().ee_program(handle, description, serial);
}
