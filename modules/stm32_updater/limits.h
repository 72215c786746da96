// Every figure of the STM32 transports, over UART and over USB DFU, that something outside one
// function depends on: speeds, sizes, counts and times. The engines, the backends, bundle_check,
// the simulator's options, tests and benchmarks all include this file; none keeps a copy.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "runtime/time.h"

namespace stm32_updater {

// ---- UART ----

// Bits a second, 8E1. The bootloader measures the speed from the first byte (AN3155).
inline constexpr unsigned kBaudRate = 460800;

// The most bytes that one Write Memory or Read Memory carries (AN3155).
inline constexpr size_t kMaxBlock = 256;

// Received bytes that may wait to be read, and so the most that one answer may announce.
inline constexpr size_t kRxCapacity = 64;

// Bytes that one Read Memory asks for while the OTP area is read: well within kRxCapacity.
inline constexpr size_t kOtpReadSize = 32;

// The image's last bytes are written last, by a write of their own.
inline constexpr size_t kTrailerSize = 8;

// An image is filled up with zero bytes to a multiple of this.
inline constexpr size_t kWordSize = 4;

// How often a block may be refused before the update ends; a block that is accepted resets the
// count.
inline constexpr unsigned kMaxRefusals = 10;

// AN3155 gives no limit for an answer; a second is ample for every chip and for a slow USB adapter.
inline constexpr Milliseconds kAnswerTimeout{1000};

// An Extended Erase answers only when its pages are erased.
inline constexpr Milliseconds kExtendedEraseTimeout{5000};

// How long the line hooks hold the unit in reset, and how long the bootloader then has to start.
inline constexpr Milliseconds kResetPause{100};
inline constexpr Milliseconds kBootPause{200};

// Progress is reported at each multiple of this many bytes.
inline constexpr size_t kProgressStep = 0x2000;

// Where an image goes when no address is given: the start of flash on every supported chip.
inline constexpr uint32_t kFlashStart = 0x08000000;

// ---- USB DFU ----

// Vendor and product id of the STM32's own USB bootloader (AN2606), as dfu-util takes them.
inline constexpr char const* kDfuDevice = "0483:df11";

// The alternate settings of that bootloader (AN3156).
inline constexpr char const* kFlashSetting = "0";
inline constexpr char const* kOtpSetting = "2";

// For one run of dfu-util that lists devices, and for one that reads the OTP area. A download has
// no limit.
inline constexpr std::chrono::milliseconds kDfuListTimeout{30000};
inline constexpr std::chrono::milliseconds kDfuOtpTimeout{30000};

// How often the output of a download is looked at.
inline constexpr std::chrono::milliseconds kDfuPollInterval{1000};

}  // namespace stm32_updater
