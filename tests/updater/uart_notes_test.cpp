// What the support log says about each way in which a session over UART can end.
#include <gmock/gmock.h>

#include "tests/support/pattern_image.h"
#include "tests/support/warnings.h"
#include "tests/updater/uart_unit.h"

using namespace Qt::StringLiterals;

namespace {

using simulator::FaultKind;
using testing::ElementsAre;
using testing::MatchesRegex;

constexpr char kStm32[] = "STM32 with product id 0x0469, bootloader version 3.1; ";

class UartNotes : public UartUnitTest {
protected:
    std::unique_ptr<UartFirmwareUpdater> MakeNotingBackend(QString const& path = {},
                                                           QString const& fw_target_type = {})
    {
        auto backend = MakeBackend(path, fw_target_type);
        backend->SetNotes([this](QString const& line) {
            auto text = line;
            notes_.push_back(text.replace(port_, u"PORT"_s).toStdString());
        });
        return backend;
    }

    // What is noted about a connect to the unit, just reset, with this fault.
    std::vector<std::string> NotesOfAConnect(std::vector<simulator::Fault> const& faults,
                                             QList<uint8_t> const& models,
                                             QString const& fw_target_type = {})
    {
        notes_.clear();
        unit_->Reset();
        unit_->ClearFaults();
        for (auto const& fault : faults) {
            unit_->AddFault(fault);
        }
        MakeNotingBackend({}, fw_target_type)->onConnectToDevice(port_, models, true);
        return notes_;
    }

    // What is noted about an update of the unit, just reset, with this fault.
    std::vector<std::string> NotesOfAnUpdate(size_t size,
                                             std::vector<simulator::Fault> const& faults = {})
    {
        unit_->Reset();
        unit_->ClearFaults();
        auto const backend = MakeNotingBackend(MakeFile(PatternImage<QByteArray>(size)));
        backend->onConnectToDevice(port_, {kModel}, true);
        for (auto const& fault : faults) {
            unit_->AddFault(fault);
        }
        notes_.clear();
        backend->onStartUpdate();
        return notes_;
    }

    std::vector<std::string> notes_;
};

}  // namespace

TEST_F(UartNotes, NameWhatAConnectFoundOrWhyItFailed)
{
    auto const on_port = [](char const* result) {
        return std::string(result) + " on PORT (10c4:ea60): ";
    };
    EXPECT_THAT(NotesOfAConnect({}, {7, kModel}), ElementsAre(on_port("unit found") + kStm32 +
                                                              "model 12; this firmware is for 7, "
                                                              "12"));
    EXPECT_THAT(NotesOfAConnect({}, {7}),
                ElementsAre(on_port("unit refused") + kStm32 + "model 12; this firmware is for 7"));
    EXPECT_THAT(
        NotesOfAConnect({}, {}, u"service"_s),
        ElementsAre(on_port("unit found") + kStm32 + "model not checked: service firmware"));
    EXPECT_THAT(NotesOfAConnect({{.kind = FaultKind::kNackCommand, .at = 3}}, {kModel}),
                ElementsAre(MatchesRegex(".*unit refused on .*; the OTP area cannot be read: Read "
                                         "Memory at 0x1FFF7000: refused .NACK. after [0-9]+ ms")));
    EXPECT_THAT(NotesOfAConnect({{.kind = FaultKind::kNackCommand, .at = 2}}, {kModel}),
                ElementsAre(MatchesRegex(".*unit refused on .*: bootloader version 3.1; Get ID: "
                                         "refused .NACK. after [0-9]+ ms")));
    EXPECT_THAT(
        NotesOfAConnect({{.kind = FaultKind::kDropAnswer}}, {kModel}),
        ElementsAre(on_port("no unit answers") + "the first byte, 0x7F: no answer within 1000 ms"));
}

TEST_F(UartNotes, NameHowAnUpdateEnded)
{
    EXPECT_THAT(NotesOfAnUpdate(520),
                ElementsAre(MatchesRegex(
                    "update succeeded: 520 bytes in [0-9.]+ s, [0-9.]+ kB/s; erase [0-9.]+ s, "
                    "writing [0-9.]+ s, 0 refused blocks, slowest answer [0-9]+ ms.*")));
    EXPECT_THAT(NotesOfAnUpdate(520, {{.kind = FaultKind::kSilentInWrite, .at = 2}}),
                ElementsAre(MatchesRegex(
                    "update failed after 256 of 520 bytes and [0-9.]+ s: Write Memory at "
                    "0x08000100, block 2 of 3: no answer within 1000 ms; erase [0-9.]+ s, writing "
                    "1.[0-9] s, 0 refused blocks, slowest answer .*")));
    EXPECT_THAT(NotesOfAnUpdate(520, {{.kind = FaultKind::kNackErase}}),
                ElementsAre(MatchesRegex(
                    "update failed after 0 of 520 bytes and [0-9.]+ s: Extended Erase: refused "
                    ".NACK. after [0-9]+ ms; erase [0-9.]+ s, slowest answer .*")));
    EXPECT_THAT(NotesOfAnUpdate(4),
                ElementsAre(MatchesRegex("update failed after 0 of .* bytes and [0-9.]+ s: the "
                                         "image is smaller than 5 bytes; slowest answer .*")));
    EXPECT_THAT(NotesOfAnUpdate(520, {{.kind = FaultKind::kSilentInWrite, .at = 4}}),
                ElementsAre(MatchesRegex("update succeeded: .*"),
                            MatchesRegex("the updated unit was not restarted: Write Memory at "
                                         "0x4000A414: no answer within 1000 ms")));
}

TEST_F(UartNotes, NameWhatStoppedAnUpdateBeforeItsFirstByte)
{
    ExpectWarning(std::string("UartFirmwareUpdater: no unit is connected"));
    auto backend = MakeNotingBackend(u"/no/image"_s);
    backend->onStartUpdate();
    backend = MakeNotingBackend(MakeFile(PatternImage<QByteArray>(520)));
    backend->onStartUpdate();
    EXPECT_THAT(notes_,
                ElementsAre(MatchesRegex(".*: the image cannot be read"),
                            MatchesRegex("update failed after 0 of 520 bytes and .* s: no unit "
                                         "is connected")));
}
