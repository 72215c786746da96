// Every rule of docs/for-vendors/the-unit.md, tried with the product's code on a simulated unit or
// on a scripted line. A rule without a check fails the test, and so does a check without a rule.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QRegularExpression>
#include <QTemporaryDir>
#include <cstring>
#include <mutex>
#include <ostream>
#include <set>
#include <utility>

#include "for_firmware/unit_side.h"
#include "make_otp/otp_image.h"
#include "mcuboot/limits.h"
#include "mcuboot/queries.h"
#include "mcuboot/request_maps.h"
#include "mcuboot/upload.h"
#include "modules/stm32_updater/dfu_util_arguments.h"
#include "modules/stm32_updater/limits.h"
#include "modules/stm32_updater/stm32_uart_updater.h"
#include "runtime/dispatcher.h"
#include "simulator/bootloaders/dfu_descriptors.h"
#include "simulator/bootloaders/mcuboot_recovery.h"
#include "simulator/chips/otp_image.h"
#include "tests/mcuboot/scripted_line.h"
#include "tests/modules/stm32_updater/simulated_line.h"
#include "tests/modules/stm32_updater/virtual_time.h"
#include "tests/simulator/bootloader_client.h"
#include "tests/support/collected_log.h"
#include "tests/support/files.h"
#include "tests/support/pattern_image.h"
#include "updater/mcuboot_serial_updater.h"
#include "updater/model_id.h"
#include "updater/otp_handler.h"

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using mcuboot::Outcome;
using mcuboot::test::AnswerWith;
using mcuboot::test::OffAnswer;
using mcuboot::test::RcAnswer;
using mcuboot::test::ScriptedLine;
using simulator::FaultKind;
using simulator::test::Bytes;
using testing::ElementsAre;

namespace {

// ---- OTP area ----

constexpr uint8_t kModel = 7;
constexpr char kFree[] = "ffffffffffffffffffffffffffffffff";
constexpr char kModelRecord[] = "11472301070000000000000000000000";
constexpr char kOtherModelRecord[] = "11472301080000000000000000000000";

Bytes FromHexRecords(QByteArray const& hex)
{
    auto const bytes = QByteArray::fromHex(hex);
    auto const view = std::as_bytes(std::span(bytes));
    return {view.begin(), view.end()};
}

bool IsAccepted(QByteArray const& hex, QList<uint8_t> const& models = {kModel})
{
    return checkModelIdInOtp(FromHexRecords(hex), models);
}

void CheckOtpTable()
{
    EXPECT_TRUE(IsAccepted(QByteArray(kFree).repeated(31) + kModelRecord));
    EXPECT_FALSE(IsAccepted(QByteArray(kFree).repeated(32) + kModelRecord));
}

void CheckModelRecord()
{
    EXPECT_TRUE(IsAccepted(kModelRecord));
    EXPECT_FALSE(IsAccepted(kModelRecord, {kModel + 1}));
    EXPECT_FALSE(IsAccepted("01234711070000000000000000000000"));
}

void CheckMissingModel()
{
    EXPECT_FALSE(IsAccepted(QByteArray(kFree).repeated(32), {0, kModel, 255}));
}

void CheckFreeRecordsBefore()
{
    EXPECT_TRUE(IsAccepted(QByteArray(kFree) + kModelRecord));
}

void CheckTwoModels()
{
    EXPECT_TRUE(IsAccepted(QByteArray(kModelRecord) + kOtherModelRecord, {7}));
    EXPECT_FALSE(IsAccepted(QByteArray(kModelRecord) + kOtherModelRecord, {8}));
}

void CheckSerialNumber()
{
    using Handler = otp::OtpHandler<kOtpRecordSize, kOtpRecords>;
    auto const read = [](QByteArray const& text) {
        auto const area = FromHexRecords("afa4a63c" + text.toHex() +
                                         QByteArray(2 * (12 - text.size()), '0') + kModelRecord);
        return std::string(Handler(area, {}).Read(kSerialNumberTag).value());
    };
    EXPECT_EQ(read("01234567890"), "01234567890");
    EXPECT_NE(read("012345678901"), "012345678901");
    EXPECT_EQ(make_otp::kLongestSerialNumber, 11);
}

void CheckOtpAddresses()
{
    for (auto const& [product_id, address] :
         {std::pair{0x469, 0x1FFF7000U}, {0x479, 0x1FFF7000U}, {0x482, 0x0BFA0000U}}) {
        auto const chip = simulator::FindChip(static_cast<uint16_t>(product_id)).value();
        EXPECT_EQ(chip.otp_address, address);
        EXPECT_GE(chip.otp_size, kOtpRecords * kOtpRecordSize);
    }
}

// ---- UART ----

constexpr uint32_t kFlash = 0x08000000;
constexpr uint32_t kMarkerAddress = 0x20004000;
constexpr Bytes::value_type kOld{0xA5};

// A unit in the system bootloader and the engine on its line.
class UartBench {
public:
    explicit UartBench(uint16_t product_id = 0x469)
        : line_(MakeOptions(product_id)),
          engine_([this](bool level) { line_.SetReset(level); }, [](bool) {}, line_, bus_, mutex_,
                  stm32_updater::kMcuId, false, [] {}, [] {},
                  hal::uart::IUartDriver::Rate::kBootloader, time_.GetWaits())
    {
        Bytes const old(4 * Unit().Options().chip.page_size, kOld);
        Unit().Memory().Load(kFlash, old);
    }

    bool Update(Bytes const& image)
    {
        auto const ignore_progress = [](auto, unsigned) {};
        return engine_.ConnectDevice() && engine_.Update(image, ignore_progress, kFlash);
    }

    bool Start(uint32_t marker_address)
    {
        engine_.DisconnectDevice();
        engine_.ExitDfu(kFlash, marker_address);
        return Unit().GetState() == simulator::UnitState::kRunning;
    }

    Bytes Flash(size_t size) { return Unit().Memory().Read(kFlash, size); }

    bool IsComplete(size_t size)
    {
        auto const flash = Flash(size);
        return unit_image_is_complete(reinterpret_cast<uint8_t const*>(flash.data() + size - 4));
    }

    simulator::Stm32Bootloader& Unit() { return line_.Unit(); }
    stm32_updater::test::SimulatedLine& Line() { return line_; }
    stm32_updater::test::VirtualTime& Time() { return time_; }

private:
    static simulator::Stm32BootloaderOptions MakeOptions(uint16_t product_id)
    {
        simulator::Stm32BootloaderOptions options;
        options.chip = simulator::FindChip(product_id).value();
        options.boot_mode_address = kMarkerAddress;
        return options;
    }

    dispatcher::Dispatcher bus_{{}, 1};
    std::mutex mutex_;
    stm32_updater::test::VirtualTime time_;
    stm32_updater::test::SimulatedLine line_;
    stm32_updater::Stm32UartUpdater engine_;
};

Bytes WithTrailer(Bytes image)
{
    image.resize(image.size() - 4);
    image.insert(image.end(), {std::byte{1}, std::byte{0}, std::byte{0}, std::byte{0}});
    return image;
}

void CheckLineSettings()
{
    EXPECT_EQ(stm32_updater::kBaudRate, 460800U);
    UartBench bench;
    EXPECT_TRUE(bench.Update(PatternImage(64)));
    EXPECT_EQ(bench.Line().GetSetup().second, hal::uart::IUartDriver::Settings::k8E1);
}

void CheckFirstByte()
{
    simulator::Stm32Bootloader unit({});
    EXPECT_EQ(simulator::test::Ask(unit, "7F"), simulator::test::Hex("79"));
    unit.Reset();
    EXPECT_TRUE(simulator::test::Ask(unit, "0D 7F 7F").empty());
    unit.Reset();
    EXPECT_EQ(simulator::test::Ask(unit, "7F"), simulator::test::Hex("79"));
}

void CheckErasedPages()
{
    UartBench bench;
    auto const page = bench.Unit().Options().chip.page_size;
    EXPECT_TRUE(bench.Update(PatternImage(2 * page + 8)));
    EXPECT_EQ(bench.Flash(4 * page).at(3 * page - 1), simulator::kErased);
    EXPECT_EQ(bench.Flash(4 * page).at(3 * page), kOld);
}

// Without the last answer of the erase, and no other, the engine waits for that long.
void CheckEraseTime()
{
    EXPECT_EQ(stm32_updater::kExtendedEraseTimeout, Milliseconds{5000});
    int long_waits = 0;
    for (unsigned answer = 1; answer <= 20; ++answer) {
        UartBench bench;
        bench.Unit().Faults().Add({.kind = FaultKind::kDropAnswer, .at = answer});
        bench.Update(PatternImage(8));
        for (auto const timeout : bench.Time().timeouts) {
            EXPECT_TRUE(timeout == 1000 || timeout == 5000) << timeout;
            long_waits += timeout == 5000 ? 1 : 0;
        }
    }
    EXPECT_EQ(long_waits, 1);
}

void CheckLastBytes()
{
    UartBench bench;
    auto const image = PatternImage(1000);
    EXPECT_TRUE(bench.Update(image));
    EXPECT_EQ(bench.Flash(1000), WithTrailer(image));
    EXPECT_TRUE(bench.IsComplete(1000));
}

void CheckLastWrite()
{
    UartBench bench;
    EXPECT_TRUE(bench.Update(PatternImage(1000)));
    EXPECT_EQ(simulator::test::LastLine(bench.Unit()), "write 0x080003e0 8 ack");
    EXPECT_EQ(stm32_updater::kTrailerSize, 8U);
}

void CheckInterruptedUpdate()
{
    auto const image = PatternImage(1000);
    for (unsigned block = 1; block <= 5; ++block) {  // four of the body, and the trailer
        UartBench bench;
        bench.Unit().Memory().Load(kFlash, WithTrailer(image));
        EXPECT_TRUE(bench.IsComplete(1000));
        bench.Unit().Faults().Add({.kind = FaultKind::kSilentInWrite, .at = block});
        EXPECT_FALSE(bench.Update(image)) << block;
        EXPECT_FALSE(bench.IsComplete(1000)) << block;
    }
}

void CheckImageWithTrailer()
{
    UartBench bench;
    auto const image = WithTrailer(PatternImage(1000));
    EXPECT_TRUE(bench.Update(image));
    EXPECT_EQ(bench.Flash(1000), image);
}

void CheckSizes(uint16_t product_id, size_t unit, size_t rest)
{
    for (size_t size = 512; size <= 560; size += 4) {
        UartBench bench(product_id);
        EXPECT_TRUE(bench.Update(PatternImage(size)));
        EXPECT_EQ(bench.IsComplete(size), size % unit == rest) << size;
    }
}

void CheckSizesOfG4()
{
    CheckSizes(0x469, 8, 0);
}

void CheckSizesOfU5()
{
    CheckSizes(0x482, 16, 8);
}

void CheckMarker()
{
    UartBench bench;
    EXPECT_TRUE(bench.Update(PatternImage(64)));
    EXPECT_TRUE(bench.Start(kMarkerAddress));
    uint32_t word = 0;
    std::memcpy(&word, bench.Unit().Marker().data(), sizeof(word));
    EXPECT_EQ(word, 0x46575550U);
}

void CheckClosedRam()
{
    for (uint32_t const offset : {0U, 0x3FFCU, 0x4000U}) {
        UartBench bench;
        EXPECT_TRUE(bench.Update(PatternImage(64)));
        EXPECT_EQ(bench.Start(simulator::kRamStart + offset), offset == 0x4000) << offset;
    }
}

void CheckStart()
{
    UartBench bench;
    EXPECT_TRUE(bench.Update(PatternImage(64)));
    EXPECT_TRUE(bench.Start(kMarkerAddress));
    EXPECT_EQ(bench.Unit().JumpAddress(), kFlash);
    EXPECT_EQ(simulator::test::LastLine(bench.Unit()), "go 0x08000000 ack");
    auto const& entries = bench.Unit().GetJournal().Entries();
    EXPECT_EQ(ToText(entries.at(entries.size() - 2)), "write 0x20004000 4 ack");
}

// ---- USB ----

void CheckDfuIdentity()
{
    EXPECT_STREQ(stm32_updater::kDfuDevice, "0483:df11");
    auto const names = simulator::MakeMemoryNames(simulator::kChips.front());
    EXPECT_THAT(names.at(QByteArray(stm32_updater::kFlashSetting).toUInt()),
                testing::HasSubstr("Internal Flash"));
    EXPECT_THAT(names.at(QByteArray(stm32_updater::kOtpSetting).toUInt()),
                testing::HasSubstr("OTP Memory"));
    EXPECT_STREQ(stm32_updater::kFlashSetting, "0");
    EXPECT_STREQ(stm32_updater::kOtpSetting, "2");
}

void CheckDfuDownload()
{
    EXPECT_EQ(stm32_updater::GetDownloadArguments(u"0483:df11"_s, u"image.bin"_s, kFlash),
              (QStringList{u"-d"_s, u"0483:df11"_s, u"-a"_s, u"0"_s, u"-s"_s,
                           u"0X08000000:fast:leave"_s, u"-D"_s, u"image.bin"_s}));
}

// ---- MCUboot: messages ----

// The unit's answer to the request that a test makes, read by the product.
mcuboot::Answer AskForState(std::vector<ScriptedLine::Piece> pieces)
{
    ScriptedLine line;
    mcuboot::Exchange exchange;
    exchange.Attach(line);
    line.AnswersInPieces(std::move(pieces));
    return mcuboot::QueryImageState(exchange);
}

mcuboot::Answer AskForState(QByteArray const& answer)
{
    return AskForState(std::vector{ScriptedLine::Piece{.bytes = answer}});
}

bool IsReadyAfter(std::vector<ScriptedLine::Piece> pieces)
{
    return AskForState(std::move(pieces)).outcome == Outcome::kSuccess;
}

// A unit in serial recovery as the product's line.
class RecoveryLine final : public mcuboot::ILine {
public:
    explicit RecoveryLine(simulator::McubootRecovery& unit) : unit_(unit) {}

    void Write(QByteArray const& bytes) override
    {
        for (auto const byte : JoinAnswers(unit_.Receive(std::as_bytes(std::span(bytes))))) {
            received_.append(static_cast<char>(byte));
        }
    }
    QByteArray Read(std::chrono::milliseconds /*time*/) override
    {
        return std::exchange(received_, {});
    }
    void Clear() override { received_.clear(); }
    void Pause(std::chrono::milliseconds /*time*/) override {}

private:
    simulator::McubootRecovery& unit_;
    QByteArray received_;
};

// The unit and the backend that updates it.
class RecoveryBench {
public:
    explicit RecoveryBench(simulator::McubootRecoveryOptions options) : unit_(std::move(options))
    {
        WriteFile(ImagePath(), PatternImage<QByteArray>(4000));
    }

    bool Connect() { return backend_.connect(u"port"_s); }
    bool Verify() { return backend_.verifyDeviceId({kModel}); }
    bool Upload() { return backend_.upload(ImagePath(), {}); }
    void Reset() { backend_.reset(); }
    std::vector<simulator::JournalEntry> const& Entries() { return unit_.GetJournal().Entries(); }

private:
    QString ImagePath() const { return directory_.filePath(u"image"_s); }

    QTemporaryDir directory_;
    CollectedLog log_;
    simulator::McubootRecovery unit_;
    McubootSerialUpdater backend_{
        {}, 921600, false, {}, nullptr, [this](auto&&...) -> std::unique_ptr<mcuboot::ILine> {
            return std::make_unique<RecoveryLine>(unit_);
        }};
};

simulator::McubootRecoveryOptions WithOtp(QByteArray const& hex)
{
    simulator::McubootRecoveryOptions options;
    options.otp = simulator::ReadOtpRecords(FromHexRecords(hex));
    return options;
}

void CheckLongestLine()
{
    for (auto const& [buffer, outcome] :
         {std::pair{size_t{UNIT_SMP_LONGEST_LINE}, Outcome::kSuccess},
          {size_t{UNIT_SMP_LONGEST_LINE} - 1, Outcome::kNoAnswer}}) {
        simulator::McubootRecoveryOptions options;
        options.line_buffer = buffer;
        simulator::McubootRecovery unit(options);
        RecoveryLine line(unit);
        mcuboot::Exchange exchange;
        exchange.Attach(line);
        // A size above 65,535 takes as many bytes in the first chunk as any other.
        auto const result = mcuboot::Upload(exchange, QByteArray(70'000, 'x'), {});
        EXPECT_EQ(result.outcome, outcome) << buffer;
    }
}

void CheckCheckValues()
{
    QByteArray const packet("\x01\x00\x00\x02\x00\x01\x00\x00\xBF\xFF", 10);
    auto const* const bytes = reinterpret_cast<uint8_t const*>(packet.constData());
    auto const answer = [&](uint16_t check) {
        QByteArray body("\x00\x0C", 2);
        body.append(packet);
        body.append(static_cast<char>(check >> 8));
        body.append(static_cast<char>(check & 0xFF));
        return mcuboot::test::Line(body.toBase64());
    };
    EXPECT_EQ(AskForState(answer(unit_answer_check(bytes, 10))).outcome, Outcome::kSuccess);
    EXPECT_EQ(AskForState(answer(unit_request_check(bytes, 10))).outcome, Outcome::kUnusable);
    EXPECT_EQ(unit_answer_check(bytes, 8), unit_request_check(bytes, 8));
}

void CheckForeignHeader()
{
    auto const answer = simulator::MakeSmpAnswer({3, 99, 77, 55, QByteArray("\xBF\xFF", 2)});
    EXPECT_EQ(AskForState(simulator::MakeSmpLines(answer)).outcome, Outcome::kSuccess);
}

void CheckErrorCodes()
{
    EXPECT_EQ(AskForState(AnswerWith(QByteArray())).outcome, Outcome::kUnusable);
    EXPECT_EQ(AskForState(RcAnswer(0)).outcome, Outcome::kSuccess);
    EXPECT_EQ(AskForState(RcAnswer(1)).outcome, Outcome::kErrorCode);
    EXPECT_EQ(AskForState(AnswerWith(QCborMap())).outcome, Outcome::kSuccess);
}

void CheckNextLine()
{
    auto const block = simulator::MakeSmpAnswer({1, 1, 0, 0, QByteArray("\xBF\xFF", 2)});
    auto const lines = simulator::MakeSmpLines(block, 12);
    auto const first = lines.indexOf('\n') + 1;
    EXPECT_TRUE(IsReadyAfter({{lines.first(first)}, {lines.sliced(first), 2ms}}));
    EXPECT_FALSE(IsReadyAfter({{lines.first(first)}, {lines.sliced(first), 20ms}}));
    EXPECT_TRUE(IsReadyAfter({{lines}}));
}

void CheckForeignLines()
{
    EXPECT_TRUE(IsReadyAfter({{"log: one\r\nlog: two\n" + RcAnswer(0)}}));
    EXPECT_TRUE(IsReadyAfter({{RcAnswer(0) + "log: one\r\n"}}));
}

void CheckPrompt()
{
    EXPECT_FALSE(IsReadyAfter({{"uart:~$ " + RcAnswer(0)}}));
}

// ---- MCUboot: requests ----

void CheckRequests()
{
    RecoveryBench bench(WithOtp(kModelRecord));
    EXPECT_TRUE(bench.Connect() && bench.Verify() && bench.Upload());
    bench.Reset();
    std::vector<std::string> commands;
    for (auto const& entry : bench.Entries()) {
        if (commands.empty() || commands.back() != entry.command) {
            commands.push_back(entry.command);
        }
    }
    EXPECT_THAT(commands, ElementsAre("image-state", "read-otp", "upload", "reset"));
}

void CheckImageState()
{
    EXPECT_EQ(AskForState(AnswerWith(QCborMap())).outcome, Outcome::kSuccess);
    EXPECT_EQ(AskForState(AnswerWith(QCborMap{{u"x"_s, u"y"_s}})).outcome, Outcome::kSuccess);
    EXPECT_TRUE(IsReadyAfter({{RcAnswer(0), 1900ms}}));
    EXPECT_FALSE(IsReadyAfter({{RcAnswer(0), 2100ms}}));
}

void CheckOtpRead()
{
    ScriptedLine line;
    mcuboot::Exchange exchange;
    exchange.Attach(line);
    line.Answers(mcuboot::test::OtpAnswer("abc"));
    EXPECT_EQ(mcuboot::QueryOtp(exchange, kModelIdTag).data, "abc");
    auto const request = line.Request(0);
    EXPECT_EQ(request.operation, 0);
    EXPECT_EQ(request.group, 64);
    EXPECT_EQ(request.command, 0);
    EXPECT_EQ(request.payload.toHex(), "bf636b65791a01234711ff");
}

void CheckOtpData()
{
    {
        RecoveryBench whole(WithOtp(kModelRecord));
        EXPECT_TRUE(whole.Connect() && whole.Verify());
    }
    simulator::McubootRecoveryOptions options;
    options.otp[simulator::kModelIdKey] = {std::byte{kModel}};
    RecoveryBench one_byte(options);
    EXPECT_TRUE(one_byte.Connect() && one_byte.Verify());
}

void CheckUnusableOtp()
{
    simulator::McubootRecoveryOptions options;
    options.otp[simulator::kModelIdKey] = {};
    {
        RecoveryBench empty(options);
        EXPECT_TRUE(empty.Connect());
        EXPECT_FALSE(empty.Verify());
    }
    RecoveryBench without({});
    EXPECT_TRUE(without.Connect());
    EXPECT_FALSE(without.Verify());
    EXPECT_EQ(without.Entries().back().reason, "rc=5");
}

void CheckChunks()
{
    RecoveryBench bench(WithOtp(kModelRecord));
    EXPECT_TRUE(bench.Connect() && bench.Upload());
    std::vector<std::string> keys;
    for (auto const& entry : bench.Entries()) {
        if (entry.command == "upload") {
            keys.push_back(entry.keys);
        }
    }
    EXPECT_THAT(keys, ElementsAre("data,off,len,image", "data,off", "data,off"));
}

mcuboot::UploadResult UploadWith(ScriptedLine& line, int size)
{
    mcuboot::Exchange exchange;
    exchange.Attach(line);
    return mcuboot::Upload(exchange, PatternImage<QByteArray>(static_cast<size_t>(size)), {});
}

void CheckChunkTimes()
{
    struct {
        std::chrono::milliseconds first;
        std::chrono::milliseconds second;
        Outcome outcome;
    } const rows[] = {{9900ms, 2900ms, Outcome::kSuccess},
                      {10100ms, -1ms, Outcome::kNoAnswer},
                      {9900ms, 3100ms, Outcome::kNoAnswer}};
    for (auto const& [first, second, outcome] : rows) {
        ScriptedLine line;
        line.AnswersInPieces({{OffAnswer(1483), first}});
        if (second >= 0ms) {
            line.AnswersInPieces({{OffAnswer(2000), second}});
        }
        EXPECT_EQ(UploadWith(line, 2000).outcome, outcome) << first.count() << second.count();
    }
}

void CheckOffset()
{
    ScriptedLine line;
    line.Answers(OffAnswer(1483)).Answers(OffAnswer(100)).Answers(OffAnswer(2000));
    EXPECT_EQ(UploadWith(line, 2000).outcome, Outcome::kSuccess);
    EXPECT_EQ(mcuboot::cborDecodeMapInt(line.Request(2).payload, "off"), 100);
}

void CheckStalls()
{
    ScriptedLine line;
    for (int answer = 0; answer < 16; ++answer) {
        line.Answers(OffAnswer(0));
    }
    EXPECT_EQ(UploadWith(line, 2000).outcome, Outcome::kStalled);
    ScriptedLine patient;
    for (int answer = 0; answer < 15; ++answer) {
        patient.Answers(OffAnswer(0));
    }
    patient.Answers(OffAnswer(2000));
    EXPECT_EQ(UploadWith(patient, 2000).outcome, Outcome::kSuccess);
}

void CheckReset()
{
    ScriptedLine line;
    mcuboot::Exchange exchange;
    exchange.Attach(line);
    line.StaysSilent();
    mcuboot::Reset(exchange);
    EXPECT_THAT(line.Steps().back(), testing::StartsWith("write "));
}

// ---- The page ----

struct Rule {
    char const* text;  // as on the page
    void (*check)();

    friend void PrintTo(Rule const& rule, std::ostream* stream) { *stream << rule.text; }
};

constexpr Rule kRules[] = {
    {"The OTP area begins with a table of 32 records of 16 bytes.", CheckOtpTable},
    {"The model identifier is byte 4 of a record whose tag is 11 47 23 01.", CheckModelRecord},
    {"A unit without a model record is refused, even if 255 is in the list.", CheckMissingModel},
    {"Records that are not programmed may lie before the model record.", CheckFreeRecordsBefore},
    {"Of two model records the first one counts.", CheckTwoModels},
    {"A serial number has at most 11 characters, and a zero byte follows.", CheckSerialNumber},
    {"The area is at 0x1FFF7000 on the STM32G4 and at 0x0BFA0000 on the STM32U5.",
     CheckOtpAddresses},
    {"The line has 460800 baud, 8 data bits, even parity and 1 stop bit.", CheckLineSettings},
    {"The first byte after a reset must be the program's 7F: another one makes the bootloader deaf "
     "until the next reset.",
     CheckFirstByte},
    {"Erasing begins at the first page of flash and covers the image.", CheckErasedPages},
    {"The unit has 5 s to erase.", CheckEraseTime},
    {"The image's last four bytes become 01 00 00 00.", CheckLastBytes},
    {"They are written last, together with the four bytes before them.", CheckLastWrite},
    {"An update that ends at any block before the trailer leaves other last bytes, even if the "
     "same image was complete before.",
     CheckInterruptedUpdate},
    {"An image that already ends with 01 00 00 00 is stored as it is.", CheckImageWithTrailer},
    {"On the STM32G4 the image's size must be a multiple of 8, or the trailer is lost.",
     CheckSizesOfG4},
    {"On the STM32U5 the image's size must be 8 more than a multiple of 16, or the trailer is "
     "lost.",
     CheckSizesOfU5},
    {"The marker is the word 0x46575550 (\"PUWF\") at `boot_mode_address`.", CheckMarker},
    {"The first 16 KiB of RAM belong to the bootloader: a marker there is refused, and the "
     "firmware is not started.",
     CheckClosedRam},
    {"After the marker the unit jumps to `start_address`.", CheckStart},
    {"The unit has the IDs 0483:df11, its flash is alternate setting 0, and its OTP area alternate "
     "setting 2.",
     CheckDfuIdentity},
    {"Only the image is written: no trailer, and no marker.", CheckDfuDownload},
    {"A request is one line of up to 2039 bytes, its newline included.", CheckLongestLine},
    {"The check value of a request is the inverted CRC of header and map; that of an answer "
     "follows another rule.",
     CheckCheckValues},
    {"Operation, group, command and sequence number of an answer are not compared.",
     CheckForeignHeader},
    {"Every answer has a map, and an `rc` other than 0 in it is an error.", CheckErrorCodes},
    {"An answer ends with a newline, and the next of its lines must follow within 3 ms.",
     CheckNextLine},
    {"Whole lines without a marker may come directly before and after an answer.",
     CheckForeignLines},
    {"Text without a newline directly before an answer spoils the answer.", CheckPrompt},
    {"An update consists of image state, OTP read, upload and reset.", CheckRequests},
    {"Any answer to the image-state request makes the unit ready if it has no error code.",
     CheckImageState},
    {"An OTP value is read with group 64, command 0 and the map {key}, and the answer has it under "
     "`data`.",
     CheckOtpRead},
    {"`data` begins with the model identifier, and what follows is not looked at.", CheckOtpData},
    {"A unit with an empty `data`, or that answers with rc 5 because it has no such record, is "
     "refused.",
     CheckUnusableOtp},
    {"A chunk has `data` and `off`, and the first one also `len` and `image`, which is 0.",
     CheckChunks},
    {"The unit has 10 s for the first chunk and 3 s for every other.", CheckChunkTimes},
    {"`off` in the answer decides which chunk is sent next.", CheckOffset},
    {"The update ends when the unit has asked for the same offset 16 times in a row.", CheckStalls},
    {"The answer to the reset request is not awaited.", CheckReset},
};

// What the page prints in bold at the beginning of a list item, on one line.
std::set<std::string> ReadRules()
{
    static QRegularExpression const item(
        u"^- \\*\\*(.*?)\\*\\*"_s,
        QRegularExpression::MultilineOption | QRegularExpression::DotMatchesEverythingOption);
    static QRegularExpression const mark(u"<!--.*?-->"_s);
    auto const page = QString::fromUtf8(ReadFile(QStringLiteral(FW_UNIT_PAGE)));
    std::set<std::string> rules;
    for (auto const& match : item.globalMatch(page)) {
        rules.insert(match.captured(1).remove(mark).simplified().toStdString());
    }
    return rules;
}

}  // namespace

TEST(UnitPage, HasExactlyTheRulesThatAreCheckedHere)
{
    std::set<std::string> rules;
    for (auto const& rule : kRules) {
        rules.insert(rule.text);
    }
    EXPECT_EQ(ReadRules(), rules);
    EXPECT_EQ(rules.size(), std::size(kRules));
}

class UnitPageRule : public testing::TestWithParam<Rule> {};

TEST_P(UnitPageRule, Holds)
{
    GetParam().check();
}

INSTANTIATE_TEST_SUITE_P(All, UnitPageRule, testing::ValuesIn(kRules));
