// What each operation returns and logs for each way in which it can end, verbose or not.
#include <gmock/gmock.h>

#include <QFile>
#include <tuple>

#include "tests/updater/mcuboot/updater_on_line.h"

namespace {

using mcuboot::test::FromHex;
using mcuboot::test::Line;
using mcuboot::test::OffAnswer;
using mcuboot::test::OtpAnswer;
using mcuboot::test::RcAnswer;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr uint32_t kModelIdKey = 0x01234711;
constexpr uint32_t kSerialNumberKey = 0x3CA6A4AF;

using RecoveryBackend = UpdaterOnLine;

// A dump of {"rc": rc}; `mark` begins each line.
Lines Dump(std::string const& label, int rc, std::string const& mark = "")
{
    return {mark + "D: --- SMP CBOR \"" + label + "\" ---", mark + "D: {",
            mark + "D:   rc: " + std::to_string(rc), mark + "D: }",
            mark + "D: --- end SMP CBOR \"" + label + "\" ---"};
}

Lines operator+(Lines left, std::string const& line)
{
    left.push_back(line);
    return left;
}

// What is expected of an updater: "?" begins a line that only a verbose one logs, "~" is the name
// of the class.
Lines Expand(Lines const& lines, bool verbose)
{
    Lines expanded;
    for (auto const& line : lines) {
        auto text = QString::fromStdString(line);
        if (verbose || !text.startsWith(u'?')) {
            text.replace(u'~', QStringLiteral("McubootSerialUpdater"));
            expanded.push_back(text.remove(u'?').toStdString());
        }
    }
    return expanded;
}

TEST_F(RecoveryBackend, LogsHowARequestEnded)
{
    using Updater = McubootSerialUpdater&;
    auto const state = [](Updater updater) { return updater.readImageState(); };
    auto const otp = [](Updater updater) { return updater.readOtpData(kModelIdKey).has_value(); };
    auto const erase = [](Updater updater) { return updater.eraseImage(); };
    auto const verify = [](Updater updater) { return updater.verifyDeviceId({3, 'A'}); };
    auto const other = [](Updater updater) { return updater.verifyDeviceId({3}); };
    auto const none = [](Updater updater) { return updater.verifyDeviceId({}); };
    auto const command = [](Updater updater) {
        return !updater.sendSmpCommand(2, 300, 7, {}).isEmpty();
    };
    QByteArray const noise = "noise\n";
    auto const model = OtpAnswer("AB");  // also its own serial number
    std::string const read_model = "?D: ~::verifyDeviceId: device model ID 65 serial number AB";
    Lines const mismatch{read_model, "?W: ~::verifyDeviceId: model ID mismatch: 65"};
    Lines const no_model{"W: ~::readOtpData: key 0x1234711 not found in OTP",
                         "?W: ~::verifyDeviceId: failed to read model ID from OTP"};
    std::string const no_data = "W: ~::readOtpData: 'data' key not found or empty";
    using Row = std::tuple<bool (*)(Updater), QByteArray, bool, Lines>;
    for (auto const& [operation, answer, ok, lines] : {
             Row{state, RcAnswer(0), true, Dump("image-state", 0, "?")},
             Row{state, RcAnswer(-6), false,
                 Dump("image-state", -6, "?") + "W: ~::readImageState: rc= -6"},
             Row{state, noise, false, {"?W: ~::readImageState: parse error"}},
             Row{state, {}, false, {"?W: ~::readImageState: no response from device"}},
             Row{otp, model, true, {}},
             Row{otp, RcAnswer(5), false, {"W: ~::readOtpData: key 0x1234711 not found in OTP"}},
             Row{otp, RcAnswer(7), false, {"W: ~::readOtpData: rc= 7"}},
             Row{otp, RcAnswer(0), false, {no_data}},
             Row{otp, OtpAnswer({}), false, {no_data}},
             Row{otp, noise, false, {"W: ~::readOtpData: parse error"}},
             Row{otp, {}, false, {"W: ~::readOtpData: no response"}},
             Row{erase, RcAnswer(0), true, Dump("image-erase", 0) + "D: ~::eraseImage: success"},
             Row{erase, RcAnswer(3), false, Dump("image-erase", 3) + "W: ~::eraseImage: rc= 3"},
             Row{erase, noise, false, {"W: ~::eraseImage: parse error"}},
             Row{erase, {}, false, {"W: ~::eraseImage: no response (timeout)"}},
             Row{command, RcAnswer(0), true, Dump("raw-cmd g300/c7", 0)},
             Row{command, RcAnswer(3), true, Dump("raw-cmd g300/c7", 3)},
             Row{command, noise, false, {"W: ~::sendSmpCommand: parse error"}},
             Row{command, {}, false, {"W: ~::sendSmpCommand: no response group= 300 cmd= 7"}},
             Row{verify, model, true, {read_model, "?D: ~::verifyDeviceId: model ID 65 OK"}},
             Row{other, model, false, mismatch},
             Row{none, model, false, mismatch},
             Row{verify, RcAnswer(5), false, no_model},
         }) {
        for (auto const verbose : {false, true}) {
            Connect(verbose);
            line_.AlwaysAnswers(answer);
            EXPECT_EQ(operation(*updater_), ok) << answer.toStdString();
            EXPECT_EQ(LinesSinceConnect(), Expand(lines, verbose)) << "verbose: " << verbose;
            EXPECT_EQ(open_lines_, 1) << "the port stays open";
        }
    }
}

TEST_F(RecoveryBackend, LogsHowAnUploadEnded)
{
    WriteImage(QByteArray(4000, 'x'));
    // The answer to the second chunk and all that follow; the log.
    using Row = std::pair<QByteArray, Lines>;
    for (auto const& [answer, lines] : {
             Row{{}, {"?W: ~: no response for upload packet at offset 1483"}},
             Row{"noise\n", {"?W: ~: failed to parse response for upload packet at offset 1483"}},
             Row{RcAnswer(3),
                 {"?W: ~: device returned error code 3 for upload packet at offset 1483"}},
             Row{OffAnswer(-7), {"?W: ~: device asked for offset -7"}},
             Row{OffAnswer(1483), {"?W: ~: device does not advance at offset 1483"}},
             Row{RcAnswer(0), {}},
         }) {
        for (auto const verbose : {false, true}) {
            Connect(verbose);
            line_.Answers(OffAnswer(1483));
            line_.AlwaysAnswers(answer);
            EXPECT_EQ(updater_->upload(ImagePath(), {}), lines.empty());
            EXPECT_EQ(LinesSinceConnect(), Expand(lines, verbose));
            EXPECT_EQ(open_lines_, 1) << "the port stays open";
        }
    }
}

TEST_F(RecoveryBackend, LogsAnImageThatCannotBeReadAndSendsNothing)
{
    // Longer than offsets reach, but sparse: it takes no room on the disk.
    QFile too_long(directory_.filePath(QStringLiteral("too long")));
    ASSERT_TRUE(too_long.open(QIODevice::WriteOnly) && too_long.resize(qint64{0x80000000}));
    for (auto const verbose : {false, true}) {
        Connect(verbose);
        auto const sent = line_.Lines().size();
        for (auto const& path : {ImagePath(), directory_.path(), too_long.fileName(),
                                 QStringLiteral("/proc/self/mem")}) {
            lines_at_connect_ = log_.Lines().size();
            EXPECT_FALSE(updater_->upload(path, {}));
            EXPECT_THAT(LinesSinceConnect(),
                        ElementsAre("W: McubootSerialUpdater: cannot open " + path.toStdString()));
        }
        EXPECT_EQ(line_.Lines().size(), sent);
    }
}

TEST_F(RecoveryBackend, WithoutAPortLogsNothingButTheFailureOfAnUpload)
{
    MakeUpdater(true);
    WriteImage("image");
    updater_->reset();
    EXPECT_TRUE(updater_->sendSmpCommand(0, 0, 0, {}).isEmpty());
    EXPECT_TRUE(updater_->sendAndReceive("x", 30000).isEmpty());
    EXPECT_THAT(log_.Lines(), IsEmpty());
    EXPECT_FALSE(updater_->upload(ImagePath(), {}));
    EXPECT_THAT(log_.Lines(),
                ElementsAre("W: McubootSerialUpdater: no response for upload packet at offset 0"));
}

// ---- Values ----

TEST_F(RecoveryBackend, ReturnsAnOtpValueAsBytesAsItsFirstByteOrAsTextUpToAZero)
{
    Connect();
    line_.AlwaysAnswers(OtpAnswer(FromHex("f1e400313233")));
    EXPECT_EQ(updater_->readOtpData(kModelIdKey), FromHex("f1e400313233"));
    EXPECT_EQ(updater_->readOtpKey(kModelIdKey), 0xF1);
    EXPECT_EQ(updater_->readOtpKeyStr(kSerialNumberKey), QString::fromLatin1("\xF1\xE4"));
    line_.AlwaysAnswers(OtpAnswer("SN123"));
    EXPECT_EQ(updater_->readOtpKeyStr(kSerialNumberKey), QStringLiteral("SN123")) << "no zero byte";
    line_.AlwaysAnswers(OtpAnswer(FromHex("00313233")));
    EXPECT_EQ(updater_->readOtpKeyStr(kSerialNumberKey), QString());
    EXPECT_THAT(LinesSinceConnect(), IsEmpty());
    line_.AlwaysAnswers(RcAnswer(5));
    EXPECT_EQ(updater_->readOtpKey(kModelIdKey), std::nullopt);
    EXPECT_EQ(updater_->readOtpKeyStr(kSerialNumberKey), std::nullopt);
    EXPECT_THAT(LinesSinceConnect(),
                Contains("W: McubootSerialUpdater::readOtpData: key 0x3ca6a4af not found in OTP"));
}

TEST_F(RecoveryBackend, AsksForTheSerialNumberOnlyForItsLogAndCanDoWithoutIt)
{
    Connect(true);
    line_.Answers(OtpAnswer("A")).Answers(RcAnswer(5));
    EXPECT_TRUE(updater_->verifyDeviceId({'A'}));
    EXPECT_EQ(line_.Request(1).payload, FromHex("bf636b65791a01234711ff"));
    EXPECT_EQ(line_.Request(2).payload, FromHex("bf636b65791a3ca6a4afff"));
    Connect(false);
    line_.Answers(OtpAnswer("A"));
    EXPECT_TRUE(updater_->verifyDeviceId({'A'}));
    EXPECT_EQ(line_.Lines().size(), 5U);
}

TEST_F(RecoveryBackend, ReturnsTheWholePayloadOfACommandAndTakesTheTimeoutOfARawLineInMilliseconds)
{
    Connect();
    line_.Answers(mcuboot::test::AnswerWith(FromHex("a1617205"))).StaysSilent();
    EXPECT_EQ(updater_->sendSmpCommand(2, 300, 7, FromHex("a0")), FromHex("a1617205"));
    EXPECT_EQ(line_.Request(1).payload, FromHex("a0"));
    auto const before = line_.Now();
    EXPECT_EQ(updater_->sendAndReceive(line_.Lines().front(), 300), "");
    EXPECT_EQ(line_.Now() - before, std::chrono::milliseconds(13 + 300));
}

TEST(RecoveryBackendMembers, ReturnWhatTheFunctionsOfMcubootReturn)
{
    using Updater = McubootSerialUpdater;
    std::array<uint8_t, 32> buffer{};
    std::array<uint8_t, 1> const chunk{0xAA};
    EXPECT_EQ(Updater::crc16Ccitt(chunk.data(), 0, 0x1234), 0x1234);
    EXPECT_EQ(Updater::parseResponse(RcAnswer(3)), FromHex("a162726303"));
    EXPECT_EQ(Updater::buildPacket(2, 1, 5, FromHex("bfff"), 255), Line("AAwCAAACAAH/Bb//um4="));
    EXPECT_EQ(Updater::cborEncodeEmptyMap(buffer), 2);
    EXPECT_EQ(Updater::cborEncodeEmptyMap(std::span(buffer).first(1)), -1);
    EXPECT_EQ(Updater::cborEncodeEchoRequest(buffer, "hi", 2), 7);
    EXPECT_EQ(buffer[4], 'h');
    EXPECT_EQ(Updater::cborEncodeUploadChunk(buffer, chunk.data(), 1, 1483, 1484, false), 16);
    EXPECT_EQ(Updater::cborDecodeMapInt(FromHex("a162726303"), "rc"), 3);
    EXPECT_EQ(Updater::cborDecodeMapBstr(FromHex("a161644107"), "d"), FromHex("07"));
}

}  // namespace
