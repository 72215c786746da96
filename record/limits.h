// How much of the disk and of the memory records may take.
#pragma once

#include <QtGlobal>
#include <chrono>

namespace record {

inline constexpr qint64 kMebibyte = qint64{1024} * 1024;  // bytes

// Tests use smaller ones.
struct Limits {
    int records = 20;                       // that are kept, the newest
    qint64 all_records = 64 * kMebibyte;    // bytes
    qint64 record = 16 * kMebibyte;         // bytes; of a longer one the middle is left out
    qsizetype buffer = 4 * kMebibyte;       // bytes; at most a quarter of a record
    std::chrono::milliseconds flush{500};   // a kill loses what came in so long, and a write's time
    std::chrono::milliseconds ending{500};  // events this late still belong to a session
    int waiting_sessions = 4;  // for a disk that does not answer; more are not recorded
};

// Bytes. Wireshark takes packets up to four times as large.
inline constexpr qsizetype kLargestPacket = 65536;

}  // namespace record
