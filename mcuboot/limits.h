// The figures of MCUboot serial recovery that more than one function depends on: sizes, counts and
// times. The conversation, the backend, bundle_check, tests and benchmarks include this file; none
// of them keeps a copy.
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

// The unit counts as stuck after this many answers that ask for the same offset again, with no step
// forward in between, or this many that go back, with no new furthest offset in between. A unit
// that lost a line asks again once or twice.
inline constexpr int kMaxStalls = 16;

// How long an answer may take, counted in waits of kPass and not measured.
inline constexpr std::chrono::milliseconds kQueryTimeout{2000};
inline constexpr std::chrono::milliseconds kFirstChunkTimeout{10000};  // the unit may erase first
inline constexpr std::chrono::milliseconds kChunkTimeout{3000};
inline constexpr std::chrono::milliseconds kEraseTimeout{30000};
inline constexpr std::chrono::milliseconds kCommandTimeout{5000};

// Real pauses. The unit needs a moment between two lines, and a USB bridge one to pass on what it
// has received.
inline constexpr std::chrono::milliseconds kAfterOpen{100};
inline constexpr std::chrono::milliseconds kBeforeRequest{10};
inline constexpr std::chrono::milliseconds kPass{3};

}  // namespace mcuboot
