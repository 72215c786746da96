#include "simulator/faults.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace simulator {
namespace {

constexpr bool RowsAreInTheOrderOfTheKinds()
{
    for (size_t i = 0; i < kFaults.size(); ++i) {
        if (kFaults[i].kind != static_cast<FaultKind>(i)) {
            return false;
        }
    }
    return true;
}
static_assert(RowsAreInTheOrderOfTheKinds());
static_assert(kFaults.back().kind == FaultKind::kStuckInWrite, "the last of the enumeration");

}  // namespace

FaultMoment GetMoment(FaultKind kind)
{
    return kFaults[static_cast<size_t>(kind)].moment;
}

std::string_view GetName(FaultKind kind)
{
    return kFaults[static_cast<size_t>(kind)].name;
}

std::optional<FaultKind> FindFaultKind(std::string_view name)
{
    auto const* const found = std::ranges::find(kFaults, name, &FaultRow::name);
    return found == kFaults.end() ? std::nullopt : std::optional(found->kind);
}

void FaultList::Add(Fault const& fault)
{
    if (std::ranges::find(kinds_, fault.kind) == kinds_.end()) {
        throw std::invalid_argument("this kind of unit cannot show the fault " +
                                    std::string(GetName(fault.kind)));
    }
    armed_.push_back({fault});
    bool const is_xor =
        fault.kind == FaultKind::kFlipReadData || fault.kind == FaultKind::kWrongCheckValue;
    if (is_xor && fault.parameter == 0) {
        armed_.back().fault.parameter = 1;
    }
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
