// The window's table: every event on every transport.
#include "app/window_state.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Qt::StringLiterals;

namespace {

// U+2014 is the em dash.
auto const kError = u"Error connecting to device \u2014 Disconnect device and repeat step 1-3"_s;

// The row does not change this.
constexpr auto same = std::nullopt;

struct Row {
    char const* name;
    WindowEvent event;
    // button text, style and enabled, bar value and text, unit ready
    WindowChange change;
};

std::vector<Row> AllRows(targetInterfaceType type)
{
    using enum WindowEvent;
    constexpr auto grey = ButtonStyle::Disabled;
    constexpr auto black = ButtonStyle::Ready;
    auto const format = type == TargetUart ? std::optional(u"%p%"_s) : std::nullopt;
    return {
        {"UpdateRequested", UpdateRequested, {same, same, false, same, same, same}},
        {"UpdateStarted", UpdateStarted, {u"UPDATING"_s, black, false, same, format, same}},
        {"UpdateSucceeded", UpdateSucceeded, {u"DONE"_s, black, false, 100, same, same}},
        {"UpdateFailed", UpdateFailed, {same, grey, false, same, kError, same}},
        {"UnitConnected", UnitConnected, {u"UPDATE"_s, black, true, same, same, true}},
        {"UnitDisconnected", UnitDisconnected, {u"UPDATE"_s, grey, false, 0, u""_s, false}},
        {"UnitRefused", UnitRefused, {u"UPDATE"_s, grey, false, same, kError, false}},
        {"EraseStarted", EraseStarted, {same, same, same, same, u"Erasing"_s, same}},
        {"EraseFinished", EraseFinished, {same, same, same, 0, u"%p%"_s, same}},
    };
}

}  // namespace

TEST(WindowTable, ChangesExactlyTheCellsOfEachRow)
{
    for (auto const type : {TargetUart, TargetUsb, TargetMcubootSerial}) {
        for (auto const& [name, event, expected] : AllRows(type)) {
            SCOPED_TRACE(testing::Message() << name << " on transport " << type);
            auto const change = GetWindowChange(event, type);

            EXPECT_EQ(change.button_text, expected.button_text);
            EXPECT_EQ(change.button_style, expected.button_style);
            EXPECT_EQ(change.button_enabled, expected.button_enabled);
            EXPECT_EQ(change.progress_value, expected.progress_value);
            EXPECT_EQ(change.progress_format, expected.progress_format);
            EXPECT_EQ(change.unit_ready, expected.unit_ready);
        }
    }
}

TEST(WindowEvents, BelongToTheConnectionStatuses)
{
    EXPECT_EQ(GetConnectionEvent(ConnectionStatus::Connected), WindowEvent::UnitConnected);
    EXPECT_EQ(GetConnectionEvent(ConnectionStatus::Disconnected), WindowEvent::UnitDisconnected);
    EXPECT_EQ(GetConnectionEvent(ConnectionStatus::VerificationFailed), WindowEvent::UnitRefused);
    EXPECT_EQ(GetConnectionEvent(static_cast<ConnectionStatus>(3)), std::nullopt);
    EXPECT_EQ(GetConnectionEvent(static_cast<ConnectionStatus>(-1)), std::nullopt);
}

TEST(ButtonStyles, AreTheTwoFixedTexts)
{
    EXPECT_EQ(GetButtonStyleSheet(ButtonStyle::Disabled),
              u"background-color: rgba(249, 249, 249,1); color: rgba(204, 204, 204, 1); "
              "border: none; border-radius: 3px;"_s);
    EXPECT_EQ(GetButtonStyleSheet(ButtonStyle::Ready),
              u"background-color: rgba(249, 249, 249,1); color: rgba(0, 0, 0, 1); "
              "border: none; border-radius: 3px;"_s);
}
