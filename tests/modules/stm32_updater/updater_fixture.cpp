#include "tests/modules/stm32_updater/updater_fixture.h"

#include <algorithm>
#include <iterator>

namespace stm32_updater::test {
namespace {

constexpr std::array<std::pair<SubsystemId, MessageId>, 1> kLogMessages{{{0, 7}}};

}  // namespace

LogRecorder::LogRecorder(dispatcher::Dispatcher& dispatcher)
    : sender_(dispatcher), logger_(sender_), cookie_(dispatcher.AddListener(0, kLogMessages, *this))
{}

void LogRecorder::OnMessage(std::span<std::byte const> message)
{
    ASSERT_GE(message.size(), 6U);
    std::string text;
    for (auto const value : message.subspan(6)) {
        text += static_cast<char>(value);
    }
    EXPECT_EQ(std::to_integer<size_t>(message[5]), text.size());
    lines_.push_back({std::to_integer<int>(message[4]), text});
}

std::string Printed(std::function<void()> const& act)
{
    ::testing::internal::CaptureStdout();
    act();
    return ::testing::internal::GetCapturedStdout();
}

::testing::Matcher<std::string> IsFailure(std::string const& message)
{
    std::string pattern = "\nstm32_uart_updater\\.cpp:[0-9]+ ";
    for (char const character : message) {
        if (std::string_view("().{}[]*+?\\^$|").find(character) != std::string_view::npos) {
            pattern += '\\';
        }
        pattern += character;
    }
    return ::testing::MatchesRegex(pattern);
}

void UpdaterTest::Rebuild(Options options)
{
    auto waits = options.real_waits ? Waits() : time.GetWaits();
    waits.pause = [this](Milliseconds duration) {
        uart.Note("pause " + std::to_string(duration.count()));
    };
    updater.reset();
    updater = std::make_unique<Stm32UartUpdater>(
        [this](bool level) { uart.Note(level ? "line a on" : "line a off"); },
        [this](bool level) { uart.Note(level ? "line b on" : "line b off"); }, uart, bus,
        update_mutex, options.mcu_id, options.mass_erase, [this] { uart.Note("first hook"); },
        [this] { uart.Note("second hook"); }, options.rate, waits);
}

void UpdaterTest::ExpectGet(std::initializer_list<int> commands, int version)
{
    Bytes answer = ToBytes({0x79, static_cast<int>(commands.size()), version});
    auto const codes = ToBytes(commands);
    answer.insert(answer.end(), codes.begin(), codes.end());
    answer.push_back(std::byte{0x79});
    uart.Expect({0x00, 0xFF}).Answer(answer);
}

void UpdaterTest::ExpectGetId(int high, int low)
{
    uart.Expect({0x02, 0xFD}).Answer({0x79, 0x01, high, low, 0x79});
}

void UpdaterTest::ExpectGetVersion()
{
    uart.Expect({0x01, 0xFE}).Answer({0x79, 0x31, 0x00, 0x00, 0x79});
}

void UpdaterTest::ExpectExtendedErase(std::initializer_list<int> pages_frame)
{
    uart.Expect({0x44, 0xBB}).Answer({0x79});
    uart.Expect(pages_frame).Answer({0x79});
}

Exchange& UpdaterTest::ExpectWriteUpToData(Bytes const& address, Bytes const& data)
{
    uart.Expect({0x31, 0xCE}).Answer({0x79});
    uart.Expect(address).Answer({0x79});
    Bytes frame{static_cast<std::byte>(data.size() - 1)};
    frame.insert(frame.end(), data.begin(), data.end());
    return uart.Expect(WithXor(frame));
}

void UpdaterTest::ExpectWrite(Bytes const& address, Bytes const& data)
{
    ExpectWriteUpToData(address, data).Answer({0x79});
}

void UpdaterTest::Connect(std::initializer_list<int> commands, int id_low)
{
    ExpectSync();
    ExpectGet(commands);
    ExpectGetId(0x04, id_low);
    ASSERT_TRUE(updater->ConnectDevice());
    ASSERT_TRUE(uart.Done()) << uart.Rest();
    uart.ForgetEvents();
}

bool UpdaterTest::Update(Bytes const& image, unsigned address)
{
    auto const progress = [this](IFwUpdater::State state, unsigned percent) {
        uart.Note("progress " + std::to_string(static_cast<uint32_t>(state)) + " " +
                  std::to_string(percent));
    };
    return updater->Update(image, progress, address);
}

void UpdaterTest::ExpectUpdateFails(Bytes const& image, std::string const& message,
                                    unsigned address)
{
    bool updated = true;
    auto const lines = log.Lines().size();
    auto const printed = Printed([&] { updated = Update(image, address); });
    EXPECT_FALSE(updated);
    EXPECT_THAT(printed, IsFailure(message));
    ASSERT_EQ(log.Lines().size(), lines + 1);
    EXPECT_EQ(log.Lines().back(), (LogLine{3, printed.substr(1)}));
    EXPECT_TRUE(uart.Done()) << "script: " << uart.Rest();
}

Bytes UpdaterTest::TrailerOf(Bytes const& image, int mcu_id)
{
    return Join(Slice(image, image.size() - 8, 4), ToBytes({mcu_id, 0x00, 0x00, 0x00}));
}

std::vector<std::string> UpdaterTest::EventsWith(std::string const& prefix) const
{
    std::vector<std::string> found;
    std::copy_if(uart.Events().begin(), uart.Events().end(), std::back_inserter(found),
                 [&](std::string const& event) { return event.starts_with(prefix); });
    return found;
}

}  // namespace stm32_updater::test
