// The one-time-programmable (OTP) area of a unit's microcontroller as a table of tagged records.
// Pure: works on a copy of the area in memory and leaves programming to a function of the caller.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace otp {

namespace impl {

// A tag as it is in the area: little-endian.
constexpr std::array<std::byte, 4> ToByteTuple(unsigned int tag)
{
    return {static_cast<std::byte>(tag & 0xFF), static_cast<std::byte>((tag >> 8) & 0xFF),
            static_cast<std::byte>((tag >> 16) & 0xFF), static_cast<std::byte>((tag >> 24) & 0xFF)};
}

// Payload bytes as text; the view refers to the same memory.
inline std::string_view ToStringView(std::span<std::byte const> payload)
{
    return {reinterpret_cast<char const*>(payload.data()), payload.size()};
}

}  // namespace impl

// Results of writing a record. A write function may return further ones of its own.
inline constexpr unsigned int kWritten = 0;       // written, or already there
inline constexpr unsigned int kConflict = 1;      // there is another payload with this tag
inline constexpr unsigned int kNoFreeRecord = 2;  // the area is full
inline constexpr unsigned int kTooLong = 3;       // the payload does not fit into a record

class IOtpHandler {
public:
    // Programs the first free record. Programs nothing when there is a record with the same tag and
    // payload already; that counts as written.
    virtual unsigned int Write(unsigned int tag, std::span<std::byte const> payload) = 0;

    // The text of the first record with this tag, up to the first zero byte; the view refers to the
    // area. The search for that byte ends with the area, not with the record, so a payload that
    // fills its record runs on into the following ones.
    virtual std::optional<std::string_view> Read(unsigned int tag) const = 0;

    // The same, but programs the record with this index, whatever is in it.
    virtual unsigned int Write(unsigned int tag, std::span<std::byte const> payload,
                               unsigned char index) = 0;

    virtual ~IOtpHandler() = default;
};

template <size_t RecordSize, size_t RecordCount>
class OtpHandler : public IOtpHandler {
    static constexpr size_t kTagSize = 4;
    static_assert(RecordSize > kTagSize);
    static_assert(RecordCount <= 256, "a record's index is one byte");

public:
    using Record = std::span<std::byte const, RecordSize>;
    // Programs `record` at the place with this index; returns a status, 0 on success.
    using WriteFunction = std::function<unsigned int(Record record, unsigned char index)>;

    // `area` must outlive the handler. A record that is not wholly inside it counts as absent.
    OtpHandler(std::span<std::byte const> area, WriteFunction write)
        : area_(area.first(std::min(area.size(), RecordSize * RecordCount))),
          write_(std::move(write))
    {}

    // The first record with this tag, its tag included.
    std::optional<Record> FindRecord(unsigned int tag) const
    {
        auto const index = FindIndex(impl::ToByteTuple(tag));
        return index ? std::optional(GetRecord(*index)) : std::nullopt;
    }

    unsigned int Write(unsigned int tag, std::span<std::byte const> payload) override
    {
        if (auto const present = Read(tag)) {
            return *present == impl::ToStringView(payload) ? kWritten : kConflict;
        }
        // An unprogrammed record reads as ones, its tag too.
        auto const free = FindIndex(impl::ToByteTuple(0xFFFFFFFF));
        return free ? Write(tag, payload, static_cast<unsigned char>(*free)) : kNoFreeRecord;
    }

    std::optional<std::string_view> Read(unsigned int tag) const override
    {
        auto const index = FindIndex(impl::ToByteTuple(tag));
        if (!index) {
            return std::nullopt;
        }
        auto const text = impl::ToStringView(area_.subspan(*index * RecordSize + kTagSize));
        return text.substr(0, text.find('\0'));
    }

    unsigned int Write(unsigned int tag, std::span<std::byte const> payload,
                       unsigned char index) override
    {
        if (payload.size() > RecordSize - kTagSize) {
            return kTooLong;
        }
        std::array<std::byte, RecordSize> record{};
        std::ranges::copy(impl::ToByteTuple(tag), record.begin());
        std::ranges::copy(payload, record.begin() + kTagSize);
        return write_(record, index);
    }

private:
    size_t CountRecords() const { return area_.size() / RecordSize; }

    Record GetRecord(size_t index) const
    {
        return area_.subspan(index * RecordSize).template first<RecordSize>();
    }

    std::optional<size_t> FindIndex(std::array<std::byte, kTagSize> const& tag) const
    {
        for (size_t index = 0; index < CountRecords(); ++index) {
            if (std::ranges::equal(GetRecord(index).template first<kTagSize>(), tag)) {
                return index;
            }
        }
        return std::nullopt;
    }

    std::span<std::byte const> area_;
    WriteFunction write_;
};

}  // namespace otp
