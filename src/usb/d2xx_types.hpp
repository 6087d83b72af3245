#pragma once

// The FTDI D2XX runtime's calling convention on x86-64 Linux, declared here
// from its published ABI: DWORD, ULONG and FT_STATUS are 32-bit unsigned,
// handles are opaque pointers, every call returns FT_STATUS with 0 = success.
// The runtime is closed and loaded at run time (see d2xx_api.hpp); nothing
// here is linked against it.

#include <cstdint>

namespace zolt::timing {

using FT_STATUS = std::uint32_t;
using FT_HANDLE = void*;
using FtDword = std::uint32_t;
using FtUlong = std::uint32_t;
using FtUchar = unsigned char;

inline constexpr FT_STATUS kFtOk = 0;
inline constexpr FtDword kFtOpenBySerialNumber = 1;
inline constexpr FtUlong kFtPurgeRx = 1;
inline constexpr FtUlong kFtPurgeTx = 2;
inline constexpr FtUchar kFtBitModeReset = 0x00;
inline constexpr FtUchar kFtBitModeSyncFifo = 0x40;

// Sizes of the text buffers FT_GetDeviceInfoDetail fills in.
inline constexpr unsigned kFtSerialBufferSize = 16;
inline constexpr unsigned kFtDescriptionBufferSize = 64;

using FtCreateDeviceInfoListFn = FT_STATUS (*)(FtDword* count);
using FtGetDeviceInfoDetailFn = FT_STATUS (*)(FtDword index, FtDword* flags, FtDword* type, FtDword* id,
                                              FtDword* location_id, void* serial, void* description,
                                              FT_HANDLE* handle);
using FtOpenExFn = FT_STATUS (*)(void* argument, FtDword open_flags, FT_HANDLE* handle);
using FtCloseFn = FT_STATUS (*)(FT_HANDLE handle);
using FtReadFn = FT_STATUS (*)(FT_HANDLE handle, void* buffer, FtDword to_read, FtDword* read);
using FtWriteFn = FT_STATUS (*)(FT_HANDLE handle, void* buffer, FtDword to_write, FtDword* written);
using FtResetDeviceFn = FT_STATUS (*)(FT_HANDLE handle);
using FtPurgeFn = FT_STATUS (*)(FT_HANDLE handle, FtUlong mask);
using FtSetTimeoutsFn = FT_STATUS (*)(FT_HANDLE handle, FtUlong read_ms, FtUlong write_ms);
using FtSetLatencyTimerFn = FT_STATUS (*)(FT_HANDLE handle, FtUchar milliseconds);
using FtSetUsbParametersFn = FT_STATUS (*)(FT_HANDLE handle, FtUlong in_size, FtUlong out_size);
using FtGetQueueStatusFn = FT_STATUS (*)(FT_HANDLE handle, FtDword* rx_bytes);
using FtSetBitModeFn = FT_STATUS (*)(FT_HANDLE handle, FtUchar mask, FtUchar mode);
using FtCyclePortFn = FT_STATUS (*)(FT_HANDLE handle);
// The EEPROM record is only passed through; its layout is the runtime's.
using FtEepromFn = FT_STATUS (*)(FT_HANDLE handle, void* program_data, char* manufacturer,
                                 char* manufacturer_id, char* description, char* serial);

}  // namespace zolt::timing
