// Conversations with a simulated bootloader as text: "REQUEST > ANSWER", or with the journal's last
// line "REQUEST > ANSWER = LINE"; divided by semicolons.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

#include "tests/simulator/bootloader_client.h"

namespace simulator::test {

// `ask` returns the unit's answer to a request, in the same notation as the conversation.
inline void ExpectConversation(ChipBootloader const& unit, std::string const& conversation,
                               std::function<std::string(std::string const&)> const& ask)
{
    auto const trim = [](std::string const& text) {
        auto const first = text.find_first_not_of(' ');
        return first == std::string::npos
                   ? std::string()
                   : text.substr(first, text.find_last_not_of(' ') - first + 1);
    };
    std::istringstream steps(conversation);
    for (std::string step; std::getline(steps, step, ';');) {
        auto const arrow = step.find('>');
        auto const equals = step.find('=');
        ASSERT_NE(arrow, std::string::npos) << "not a step: " << step;
        EXPECT_EQ(ask(trim(step.substr(0, arrow))),
                  trim(step.substr(arrow + 1, equals - arrow - 1)))
            << "in: " << step;
        if (equals != std::string::npos) {
            EXPECT_EQ(LastLine(unit), trim(step.substr(equals + 1))) << "in: " << step;
        }
    }
}

}  // namespace simulator::test
