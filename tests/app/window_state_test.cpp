// The window's table: every event under every transport.
#include "app/window_state.h"

#include <gtest/gtest.h>

#include <ostream>

using namespace Qt::StringLiterals;

namespace {

// U+2014 is the em dash.
const auto kError = u"Error connecting to device \u2014 Disconnect device and repeat step 1-3"_s;

struct Row {
    const char* name;
    WindowEvent event;
    targetInterfaceType type;
    WindowChange change;
};

void PrintTo(Row const& row, std::ostream* out)
{
    *out << row.name << " under transport " << row.type;
}

WindowChange UpdateStarted()
{
    return {.button_text = u"UPDATING"_s, .button_style = ButtonStyle::Ready};
}

WindowChange UpdateStartedOnUart()
{
    auto change = UpdateStarted();
    change.progress_format = u"%p%"_s;
    return change;
}

// The rows that are the same for every transport.
std::vector<Row> CommonRows(targetInterfaceType type)
{
    return {
        {"UpdateRequested", WindowEvent::UpdateRequested, type, {.button_enabled = false}},
        {"UpdateSucceeded",
         WindowEvent::UpdateSucceeded,
         type,
         {.button_text = u"DONE"_s,
          .button_style = ButtonStyle::Ready,
          .button_enabled = false,
          .progress_value = 100}},
        {"UpdateFailed",
         WindowEvent::UpdateFailed,
         type,
         {.button_style = ButtonStyle::Disabled,
          .button_enabled = false,
          .progress_format = kError}},
        {"UnitConnected",
         WindowEvent::UnitConnected,
         type,
         {.button_text = u"UPDATE"_s,
          .button_style = ButtonStyle::Ready,
          .button_enabled = true,
          .unit_ready = true}},
        {"UnitDisconnected",
         WindowEvent::UnitDisconnected,
         type,
         {.button_text = u"UPDATE"_s,
          .button_style = ButtonStyle::Disabled,
          .button_enabled = false,
          .progress_value = 0,
          .progress_format = u""_s,
          .unit_ready = false}},
        {"UnitRefused",
         WindowEvent::UnitRefused,
         type,
         {.button_text = u"UPDATE"_s,
          .button_style = ButtonStyle::Disabled,
          .button_enabled = false,
          .progress_format = kError,
          .unit_ready = false}},
        {"EraseStarted", WindowEvent::EraseStarted, type, {.progress_format = u"Erasing"_s}},
        {"EraseFinished",
         WindowEvent::EraseFinished,
         type,
         {.progress_value = 0, .progress_format = u"%p%"_s}},
    };
}

std::vector<Row> AllRows()
{
    std::vector<Row> rows;
    for (const auto type : {TargetUart, TargetUsb, TargetMcubootSerial}) {
        for (auto const& row : CommonRows(type)) {
            rows.push_back(row);
        }
        rows.push_back({"UpdateStarted", WindowEvent::UpdateStarted, type,
                        type == TargetUart ? UpdateStartedOnUart() : UpdateStarted()});
    }
    return rows;
}

class WindowTable : public testing::TestWithParam<Row> {};

}  // namespace

TEST_P(WindowTable, ChangesExactlyWhatItsRowSays)
{
    Row const& row = GetParam();

    const auto change = GetWindowChange(row.event, row.type);

    EXPECT_EQ(change.button_text, row.change.button_text);
    EXPECT_EQ(change.button_style, row.change.button_style);
    EXPECT_EQ(change.button_enabled, row.change.button_enabled);
    EXPECT_EQ(change.progress_value, row.change.progress_value);
    EXPECT_EQ(change.progress_format, row.change.progress_format);
    EXPECT_EQ(change.unit_ready, row.change.unit_ready);
}

INSTANTIATE_TEST_SUITE_P(EveryEvent, WindowTable, testing::ValuesIn(AllRows()),
                         [](auto const& row) {
                             return std::string(row.param.name) + std::to_string(row.param.type);
                         });

TEST(WindowEvents, StandForTheConnectionStatuses)
{
    EXPECT_EQ(GetConnectionEvent(ConnectionStatus::Connected), WindowEvent::UnitConnected);
    EXPECT_EQ(GetConnectionEvent(ConnectionStatus::Disconnected), WindowEvent::UnitDisconnected);
    EXPECT_EQ(GetConnectionEvent(ConnectionStatus::VerificationFailed), WindowEvent::UnitRefused);
}

TEST(WindowEvents, AreNoneForAStatusOutsideTheEnumeration)
{
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
