#include "simulator/bootloaders/unit_protocol.h"

namespace simulator {

std::vector<std::byte> JoinAnswers(std::span<Answer const> answers)
{
    std::vector<std::byte> bytes;
    for (auto const& answer : answers) {
        bytes.insert(bytes.end(), answer.bytes.begin(), answer.bytes.end());
    }
    return bytes;
}

}  // namespace simulator
