// The figures of the two STM32 transports (UART and USB DFU) that more than one function depends
// on: speeds, sizes, counts and times. The engines, the backends, bundle_check, tests and
// benchmarks include this file; none of them keeps a copy.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "runtime/time.h"

namespace stm32_updater {

// ---- UART ----

// Bits a second, 8E1. The bootloader measures the speed from the first byte (AN3155). This one is
// fast enough that the flash, not the line, sets the pace, and every USB serial bridge in use
// reaches it.
inline constexpr unsigned kBaudRate = 460800;

// The most bytes that one Write Memory or Read Memory carries (AN3155).
inline constexpr size_t kMaxBlock = 256;

// How many received bytes can wait to be read, and so the most that one answer may announce.
inline constexpr size_t kRxCapacity = 64;

// Bytes that one Read Memory requests while the OTP area is read; well within kRxCapacity.
inline constexpr size_t kOtpReadSize = 32;

// The number of the microcontroller that is updated: the first of the four bytes that replace the
// end of the image. The desktop updates one only.
inline constexpr uint8_t kMcuId = 1;

// The last bytes of an image, which are written last, by a write of their own. An image below this
// size has no room for a trailer.
inline constexpr size_t kTrailerSize = 8;

// An image is padded with zero bytes to a multiple of this. AN3155 asks for whole words; what a
// chip's flash needs beyond that is for the image's builder, and bundle_check reports it.
inline constexpr size_t kWordSize = 4;

// The smallest file that becomes an image with room for a trailer when it is padded.
inline constexpr size_t kSmallestImageFile = kTrailerSize - kWordSize + 1;

// How often a block may be refused; the next refusal ends the update. Each accepted block resets
// the count.
inline constexpr unsigned kMaxRefusals = 10;

// The time for each next byte of an answer. AN3155 gives no limit; a second is ample for every chip
// and for a slow USB adapter.
inline constexpr Milliseconds kAnswerTimeout{1000};

// The time for the last answer to an Extended Erase, which comes only when the pages are erased.
inline constexpr Milliseconds kExtendedEraseTimeout{5000};

// How long the reset line is held, and how long the bootloader then has to start.
inline constexpr Milliseconds kResetPause{100};
inline constexpr Milliseconds kBootPause{200};

// The most pages that one (short) Erase can name: the count is one byte, the number of pages minus
// 1, and 0xFF in it means the whole flash (AN3155). The engine does not look at it.
inline constexpr size_t kMaxShortErasePages = 255;

// Progress is reported at each multiple of this many bytes.
inline constexpr size_t kProgressStep = 0x2000;

// The address of an image when none is given: the start of flash on every supported chip.
inline constexpr uint32_t kFlashStart = 0x08000000;

// ---- USB DFU ----

// Vendor and product id of the STM32's own USB bootloader (AN2606), as dfu-util takes them.
inline constexpr char const* kDfuDevice = "0483:df11";

// The alternate settings under which that bootloader offers its memories (AN3156).
inline constexpr char const* kFlashSetting = "0";
inline constexpr char const* kOtpSetting = "2";

// The time limits for one run of dfu-util that lists devices, and for one that reads the OTP area.
// A download has no limit.
inline constexpr std::chrono::milliseconds kDfuListTimeout{30000};
inline constexpr std::chrono::milliseconds kDfuOtpTimeout{30000};

// How often the output of a download is looked at.
inline constexpr std::chrono::milliseconds kDfuPollInterval{1000};

// The most bytes of dfu-util's list that are read: more than thousands of devices need. A tool that
// misbehaves cannot exhaust memory.
inline constexpr size_t kLongestDfuListing = size_t{1} << 20;

// How many bytes of a download's output are kept between two looks: hundreds of progress bars.
inline constexpr size_t kDfuOutputTail = size_t{64} << 10;

}  // namespace stm32_updater
