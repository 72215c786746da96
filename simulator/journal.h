// Records what a simulated bootloader was asked and how it ended: one entry for each command.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace simulator {

enum class Outcome {
    kAck,     // carried out
    kNack,    // refused, for the entry's `reason`
    kSilent,  // the unit hung or left its host before the end
};

struct JournalEntry {
    std::string command;                // "sync", "get", "read", "write", "erase", "upload", ...
    std::optional<uint32_t> address{};  // of read, write and go; an upload's offset; an OTP key
    std::optional<size_t> size{};       // in bytes, of read, write and upload
    std::string pages{};                // of the erase commands: "0-31", "3,7", "all", "bank1"
    Outcome outcome = Outcome::kAck;
    std::string reason{};  // "checksum", "address", "fault", ...; of a write that is acknowledged:
                           // why not all of it is stored; otherwise empty
    std::optional<uint8_t> sequence{};  // of an SMP request
    std::string keys{};                 // of an SMP request's map, in their order: "data,off"

    bool operator==(JournalEntry const&) const = default;
};

// One line without its end: "write 0x08000000 256 ack", "erase 0-31 ack", "read 0x00000000 nack
// address", "upload 0x000005cb 1483 seq=1 keys=data,off ack".
std::string ToText(JournalEntry const& entry);

// "0-31,40" for page numbers in the order of their request; empty for none.
std::string PagesToText(std::vector<unsigned> const& pages);

// Not thread-safe.
class Journal {
public:
    // `sink` is called with each further entry at once, on the thread that drives the unit.
    void SetSink(std::function<void(JournalEntry const&)> sink) { sink_ = std::move(sink); }

    void Add(JournalEntry entry);
    void Clear() { entries_.clear(); }

    std::vector<JournalEntry> const& Entries() const { return entries_; }

private:
    std::vector<JournalEntry> entries_;
    std::function<void(JournalEntry const&)> sink_;
};

}  // namespace simulator
