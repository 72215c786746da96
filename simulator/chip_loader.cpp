#include "simulator/chip_loader.h"

#include <utility>

namespace simulator {

void ChipLoader::Reset()
{
    hung_ = false;
    has_left_ = false;
}

void ChipLoader::Finish(Outcome outcome, std::string reason)
{
    entry_.outcome = outcome;
    entry_.reason = std::move(reason);
    journal_.Add(std::exchange(entry_, {}));
}

void ChipLoader::Hang(FaultKind kind)
{
    Finish(Outcome::kSilent, "fault");
    hung_ = true;
    has_left_ = kind == FaultKind::kVanishInWrite || kind == FaultKind::kVanishInErase;
}

}  // namespace simulator
