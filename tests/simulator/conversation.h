// Conversations with a simulated bootloader as text, in steps that semicolons divide. A step is a
// request, after ">" the answer if there is one, and after "=" the journal's last line if that
// matters. Beside the requests of its protocol, each bootloader has these:
//   fault NAME [AT [COUNT [PARAMETER]]]   adds a fault (simulator/faults.h)
//   clear-faults, reset, silent on, silent off
//   load ADDRESS BYTES                    changes the memory
//   memory ADDRESS SIZE                   is answered with bytes of the memory
//   unit KEY                              is answered with a value of the program's status line,
//                                         or with yes or no for the key "left"
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>

#include "simulator/program/control_session.h"
#include "tests/simulator/bootloader_client.h"

namespace simulator::test {

// A row of a table of conversations.
template <typename Options>
struct Conversation {
    char const* name;
    std::string steps;
    Options options = {};

    friend void PrintTo(Conversation const& row, std::ostream* stream) { *stream << row.name; }
};

template <typename Row>
std::string NameOf(testing::TestParamInfo<Row> const& row)
{
    return row.param.name;
}

inline std::string Trim(std::string const& text)
{
    auto const first = text.find_first_not_of(' ');
    return first == std::string::npos ? std::string()
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The answer to a request that each bootloader has; none for a request of its protocol.
inline std::optional<std::string> Control(ChipBootloader& unit, std::string const& request)
{
    std::istringstream stream(request);
    std::string name;
    std::string word;
    stream >> name >> word;
    std::string rest;
    std::getline(stream, rest);
    if (name == "fault") {
        Fault fault{FindFaultKind(word).value()};
        std::istringstream numbers(rest);
        for (auto* number : {&fault.at, &fault.count, &fault.parameter}) {
            if (numbers >> word) {
                *number = ParseNumber(word).value();
            }
        }
        unit.Faults().Add(fault);
    } else if (name == "clear-faults") {
        unit.Faults().Clear();
    } else if (name == "reset") {
        unit.Reset();
    } else if (name == "silent") {
        unit.SetSilent(word == "on");
    } else if (name == "load") {
        unit.Memory().Load(ParseNumber(word).value(), Hex(rest));
    } else if (name == "memory") {
        return ToHex(
            unit.Memory().Read(ParseNumber(word).value(), ParseNumber(Trim(rest)).value()));
    } else if (name == "unit" && word == "left") {
        return unit.HasLeft() ? "yes" : "no";
    } else if (name == "unit") {
        auto const status = ' ' + ToText(unit.Status()) + ' ';
        auto const value = status.substr(status.find(' ' + word + '=') + word.size() + 2);
        return value.substr(0, value.find(' '));
    } else {
        return std::nullopt;
    }
    return "";
}

// `ask` returns the unit's answer to a request of its protocol, in the notation of the
// conversation.
inline void ExpectConversation(ChipBootloader& unit, std::string const& conversation,
                               std::function<std::string(std::string const&)> const& ask)
{
    std::istringstream steps(conversation);
    for (std::string step; std::getline(steps, step, ';');) {
        auto const line = step.find('=');
        auto const answer = std::min(step.find('>'), line);
        auto const request = Trim(step.substr(0, answer));
        auto const control = Control(unit, request);
        EXPECT_EQ(control ? *control : ask(request),
                  answer == line ? "" : Trim(step.substr(answer + 1, line - answer - 1)))
            << "in: " << step;
        if (line != std::string::npos) {
            EXPECT_EQ(LastLine(unit), Trim(step.substr(line + 1))) << "in: " << step;
        }
    }
}

}  // namespace simulator::test
