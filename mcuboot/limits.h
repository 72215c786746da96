// Every figure of MCUboot serial recovery that something outside one function depends on: sizes,
// counts and times. The conversation, the backend, bundle_check, tests and
// benchmarks all include this file; none keeps a copy.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace mcuboot {

// Image bytes in one upload request. With this, the longest request line (2039 bytes) stays within
// the unit's line buffer of 2048.
inline constexpr int32_t kChunkSize = 1483;

// The most bytes that a request's map may have before it is framed.
inline constexpr size_t kEmptyMapBuffer = 8;
inline constexpr size_t kOtpRequestBuffer = 16;
inline constexpr size_t kUploadBuffer = 2048;

// How many answers in a row may ask for the same offset again, and how many may go back without one
// in between that goes beyond all before, until the unit is taken to be stuck. A unit that lost a
// line asks again once or twice.
inline constexpr int kMaxStalls = 16;

// How long an answer may take, counted in waits of kPass and not measured.
inline constexpr std::chrono::milliseconds kQueryTimeout{2000};
inline constexpr std::chrono::milliseconds kFirstChunkTimeout{10000};  // the unit may erase first
inline constexpr std::chrono::milliseconds kChunkTimeout{3000};
inline constexpr std::chrono::milliseconds kEraseTimeout{30000};
inline constexpr std::chrono::milliseconds kCommandTimeout{5000};

// Times that really pass. The unit needs a moment between two lines, and a USB bridge one to hand
// on what it has.
inline constexpr std::chrono::milliseconds kAfterOpen{100};
inline constexpr std::chrono::milliseconds kBeforeRequest{10};
inline constexpr std::chrono::milliseconds kPass{3};

}  // namespace mcuboot
