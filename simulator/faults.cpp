#include "simulator/faults.h"

#include <algorithm>
#include <cstddef>

namespace simulator {
namespace {

struct KindRow {
    FaultKind kind;
    FaultMoment moment;
    std::string_view name;
};

constexpr std::array<KindRow, kAllFaultKinds.size()> kKindRows{{
    {FaultKind::kNackCommand, FaultMoment::kCommand, "nack-command"},
    {FaultKind::kNackWriteCommand, FaultMoment::kWrite, "nack-write-command"},
    {FaultKind::kNackWriteAddress, FaultMoment::kWriteAddress, "nack-write-address"},
    {FaultKind::kNackWriteData, FaultMoment::kWriteData, "nack-write-data"},
    {FaultKind::kNackErase, FaultMoment::kErase, "nack-erase"},
    {FaultKind::kDropAnswer, FaultMoment::kAnswer, "drop-answer"},
    {FaultKind::kGarbageAnswer, FaultMoment::kAnswer, "garbage-answer"},
    {FaultKind::kCutAnswer, FaultMoment::kAnswer, "cut-answer"},
    {FaultKind::kExtraByte, FaultMoment::kAnswer, "extra-byte"},
    {FaultKind::kLateAnswer, FaultMoment::kAnswer, "late-answer"},
    {FaultKind::kWrongCount, FaultMoment::kCountedBlock, "wrong-count"},
    {FaultKind::kFlipReadData, FaultMoment::kReadData, "flip-read-data"},
    {FaultKind::kSilentAtCommand, FaultMoment::kCommand, "silent-at-command"},
    {FaultKind::kSilentInWrite, FaultMoment::kWrite, "silent-in-write"},
    {FaultKind::kVanishInWrite, FaultMoment::kWrite, "vanish-in-write"},
}};

constexpr bool RowsAreInTheOrderOfTheKinds()
{
    for (size_t i = 0; i < kKindRows.size(); ++i) {
        if (kKindRows[i].kind != kAllFaultKinds[i] ||
            kAllFaultKinds[i] != static_cast<FaultKind>(i)) {
            return false;
        }
    }
    return true;
}
static_assert(RowsAreInTheOrderOfTheKinds());

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
    auto const* const found = std::ranges::find(kAllFaultKinds, name, GetName);
    return found == kAllFaultKinds.end() ? std::nullopt : std::optional(*found);
}

void FaultList::Add(Fault const& fault)
{
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
