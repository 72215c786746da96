// How much of the disk and of the memory records may take.
#pragma once

#include <QtGlobal>
#include <chrono>

namespace record {

inline constexpr int kMostRecords = 20;  // the newest are kept
// Bytes: of all records together, and of one; of a longer one the middle is left out.
inline constexpr qint64 kAllRecords = qint64{64} * 1024 * 1024;
inline constexpr qint64 kLargestRecord = qint64{16} * 1024 * 1024;

// Tests use smaller ones.
struct Limits {
    int records = kMostRecords;
    qint64 all_records = kAllRecords;       // bytes
    qint64 record = kLargestRecord;         // bytes
    qsizetype buffer = 4 * 1024 * 1024;     // bytes; at most a quarter of a record
    std::chrono::milliseconds flush{500};   // a kill loses what came in so long, and a write's time
    std::chrono::milliseconds ending{500};  // events this late still belong to a session
    int waiting_sessions = 4;  // for a disk that does not answer; more are not recorded
};

// Bytes. Wireshark takes packets up to four times as large.
inline constexpr qsizetype kLargestPacket = 65536;

}  // namespace record
