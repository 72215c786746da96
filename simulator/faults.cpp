#include "simulator/faults.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace simulator {
namespace {

struct KindRow {
    FaultKind kind;
    FaultMoment moment;
    std::string_view name;
};

constexpr std::array kKindRows{
    KindRow{FaultKind::kNackCommand, FaultMoment::kCommand, "nack-command"},
    KindRow{FaultKind::kNackWriteCommand, FaultMoment::kWrite, "nack-write-command"},
    KindRow{FaultKind::kNackWriteAddress, FaultMoment::kWriteAddress, "nack-write-address"},
    KindRow{FaultKind::kNackWriteData, FaultMoment::kWriteData, "nack-write-data"},
    KindRow{FaultKind::kNackErase, FaultMoment::kErase, "nack-erase"},
    KindRow{FaultKind::kDropAnswer, FaultMoment::kAnswer, "drop-answer"},
    KindRow{FaultKind::kGarbageAnswer, FaultMoment::kAnswer, "garbage-answer"},
    KindRow{FaultKind::kCutAnswer, FaultMoment::kAnswer, "cut-answer"},
    KindRow{FaultKind::kExtraByte, FaultMoment::kAnswer, "extra-byte"},
    KindRow{FaultKind::kLateAnswer, FaultMoment::kAnswer, "late-answer"},
    KindRow{FaultKind::kWrongCount, FaultMoment::kCountedBlock, "wrong-count"},
    KindRow{FaultKind::kFlipReadData, FaultMoment::kReadData, "flip-read-data"},
    KindRow{FaultKind::kSilentAtCommand, FaultMoment::kCommand, "silent-at-command"},
    KindRow{FaultKind::kSilentInWrite, FaultMoment::kWrite, "silent-in-write"},
    KindRow{FaultKind::kVanishInWrite, FaultMoment::kWrite, "vanish-in-write"},
    KindRow{FaultKind::kForeignLineBefore, FaultMoment::kAnswer, "foreign-line-before"},
    KindRow{FaultKind::kForeignLineAfter, FaultMoment::kAnswer, "foreign-line-after"},
    KindRow{FaultKind::kWrongCheckValue, FaultMoment::kCountedBlock, "wrong-check-value"},
    KindRow{FaultKind::kErrorCode, FaultMoment::kCommand, "error-code"},
    KindRow{FaultKind::kErrorInUpload, FaultMoment::kWrite, "error-in-upload"},
    KindRow{FaultKind::kAskForOffset, FaultMoment::kWrite, "ask-for-offset"},
    KindRow{FaultKind::kKeepOffset, FaultMoment::kWrite, "keep-offset"},
    KindRow{FaultKind::kOmitOffset, FaultMoment::kWriteData, "omit-offset"},
    KindRow{FaultKind::kVanishInErase, FaultMoment::kErase, "vanish-in-erase"},
    KindRow{FaultKind::kSlowErase, FaultMoment::kErase, "slow-erase"},
    KindRow{FaultKind::kErrorInErase, FaultMoment::kErase, "error-in-erase"},
    KindRow{FaultKind::kErrorInWrite, FaultMoment::kWrite, "error-in-write"},
    KindRow{FaultKind::kStuckInWrite, FaultMoment::kWrite, "stuck-in-write"},
};

constexpr bool RowsAreInTheOrderOfTheKinds()
{
    for (size_t i = 0; i < kKindRows.size(); ++i) {
        if (kKindRows[i].kind != static_cast<FaultKind>(i)) {
            return false;
        }
    }
    return true;
}
static_assert(RowsAreInTheOrderOfTheKinds());
static_assert(kKindRows.back().kind == FaultKind::kStuckInWrite, "the last of the enumeration");

}  // namespace

FaultMoment GetMoment(FaultKind kind)
{
    return kKindRows[static_cast<size_t>(kind)].moment;
}

std::string_view GetName(FaultKind kind)
{
    return kKindRows[static_cast<size_t>(kind)].name;
}

std::optional<FaultKind> FindFaultKind(std::string_view name)
{
    auto const* const found = std::ranges::find(kKindRows, name, &KindRow::name);
    return found == kKindRows.end() ? std::nullopt : std::optional(found->kind);
}

void FaultList::Add(Fault const& fault)
{
    if (std::ranges::find(kinds_, fault.kind) == kinds_.end()) {
        throw std::invalid_argument("no fault of this kind of unit: " +
                                    std::string(GetName(fault.kind)));
    }
    armed_.push_back({fault});
}

void FaultList::Clear()
{
    armed_.clear();
    strikes_ = 0;
}

std::vector<Fault> FaultList::Strike(FaultMoment moment)
{
    std::vector<Fault> striking;
    for (auto& [fault, seen] : armed_) {
        if (GetMoment(fault.kind) != moment) {
            continue;
        }
        ++seen;
        if (seen >= fault.at && seen - fault.at < fault.count) {
            striking.push_back(fault);
        }
    }
    strikes_ += static_cast<unsigned>(striking.size());
    return striking;
}

}  // namespace simulator
