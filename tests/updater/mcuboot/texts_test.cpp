// What each operation returns and logs for each way in which it can end, verbose or not.
#include <gmock/gmock.h>

#include <functional>

#include "tests/updater/mcuboot/updater_on_line.h"

namespace {

using mcuboot::test::FromHex;
using mcuboot::test::OffAnswer;
using mcuboot::test::OtpAnswer;
using mcuboot::test::RcAnswer;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr uint32_t kModelIdKey = 0x01234711;
constexpr uint32_t kSerialNumberKey = 0x3CA6A4AF;

using Texts = UpdaterOnLine;

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

// "?" begins a line that only a verbose updater logs, "~" is the name of the class.
Lines Expand(Lines const& lines, bool verbose)
{
    Lines expanded;
    for (auto line : lines) {
        if (line.front() == '?' && !verbose) {
            continue;
        }
        line.erase(0, line.front() == '?' ? 1 : 0);
        if (auto const at = line.find('~'); at != std::string::npos) {
            line.replace(at, 1, "McubootSerialUpdater");
        }
        expanded.push_back(line);
    }
    return expanded;
}

bool State(McubootSerialUpdater& updater)
{
    return updater.readImageState();
}
bool Otp(McubootSerialUpdater& updater)
{
    return updater.readOtpData(kModelIdKey).has_value();
}
bool Erase(McubootSerialUpdater& updater)
{
    return updater.eraseImage();
}
bool Verify(McubootSerialUpdater& updater)
{
    return updater.verifyDeviceId({3, 'A'});
}
bool VerifyOther(McubootSerialUpdater& updater)
{
    return updater.verifyDeviceId({3});
}
bool VerifyNone(McubootSerialUpdater& updater)
{
    return updater.verifyDeviceId({});
}
bool Command(McubootSerialUpdater& updater)
{
    return !updater.sendSmpCommand(2, 300, 7, {}).isEmpty();
}

TEST_F(Texts, AreTheseForEveryEndOfARequest)
{
    QByteArray const noise = "noise\n";
    auto const model = OtpAnswer("AB");  // also its own serial number
    std::string const read_model = "?D: ~::verifyDeviceId: device model ID 65 serial number AB";
    std::string const no_data = "W: ~::readOtpData: 'data' key not found or empty";
    struct Row {
        bool (*operation)(McubootSerialUpdater&);
        QByteArray answer;
        bool ok;
        Lines lines;
    };
    for (auto const& [operation, answer, ok, lines] : {
             Row{State, RcAnswer(0), true, Dump("image-state", 0, "?")},
             Row{State, RcAnswer(-6), false,
                 Dump("image-state", -6, "?") + "W: ~::readImageState: rc= -6"},
             Row{State, noise, false, {"?W: ~::readImageState: parse error"}},
             Row{State, {}, false, {"?W: ~::readImageState: no response from device"}},
             Row{Otp, model, true, {}},
             Row{Otp, RcAnswer(5), false, {"W: ~::readOtpData: key 0x1234711 not found in OTP"}},
             Row{Otp, RcAnswer(7), false, {"W: ~::readOtpData: rc= 7"}},
             Row{Otp, RcAnswer(0), false, {no_data}},
             Row{Otp, OtpAnswer({}), false, {no_data}},
             Row{Otp, noise, false, {"W: ~::readOtpData: parse error"}},
             Row{Otp, {}, false, {"W: ~::readOtpData: no response"}},
             Row{Erase, RcAnswer(0), true, Dump("image-erase", 0) + "D: ~::eraseImage: success"},
             Row{Erase, RcAnswer(3), false, Dump("image-erase", 3) + "W: ~::eraseImage: rc= 3"},
             Row{Erase, noise, false, {"W: ~::eraseImage: parse error"}},
             Row{Erase, {}, false, {"W: ~::eraseImage: no response (timeout)"}},
             Row{Command, RcAnswer(0), true, Dump("raw-cmd g300/c7", 0)},
             Row{Command, RcAnswer(3), true, Dump("raw-cmd g300/c7", 3)},
             Row{Command, noise, false, {"W: ~::sendSmpCommand: parse error"}},
             Row{Command, {}, false, {"W: ~::sendSmpCommand: no response group= 300 cmd= 7"}},
             Row{Verify, model, true, {read_model, "?D: ~::verifyDeviceId: model ID 65 OK"}},
             Row{VerifyOther,
                 model,
                 false,
                 {read_model, "?W: ~::verifyDeviceId: model ID mismatch: 65"}},
             Row{VerifyNone,
                 model,
                 false,
                 {read_model, "?W: ~::verifyDeviceId: model ID mismatch: 65"}},
             Row{Verify,
                 RcAnswer(5),
                 false,
                 {"W: ~::readOtpData: key 0x1234711 not found in OTP",
                  "?W: ~::verifyDeviceId: failed to read model ID from OTP"}},
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

TEST_F(Texts, AreTheseForEveryEndOfAnUpload)
{
    WriteImage(QByteArray(4000, 'x'));
    struct Row {
        QByteArray answer;  // to the second chunk and all that follow
        Lines lines;
    };
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

TEST_F(Texts, NameAnImageThatCannotBeReadVerboseOrNotAndNothingIsSent)
{
    for (auto const verbose : {false, true}) {
        Connect(verbose);
        auto const sent = line_.Lines().size();
        for (auto const& path :
             {ImagePath(), directory_.path(), QStringLiteral("/proc/self/mem")}) {
            lines_at_connect_ = log_.Lines().size();
            EXPECT_FALSE(updater_->upload(path, {}));
            EXPECT_THAT(LinesSinceConnect(),
                        ElementsAre("W: McubootSerialUpdater: cannot open " + path.toStdString()));
        }
        EXPECT_EQ(line_.Lines().size(), sent);
    }
}

// A sparse file takes no room on the disk.
TEST_F(Texts, NameAnImageThatIsLongerThanOffsetsReach)
{
    Connect();
    QFile file(ImagePath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(qint64{0x80000000}));
    EXPECT_FALSE(updater_->upload(ImagePath(), {}));
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("W: McubootSerialUpdater: cannot open " + ImagePath().toStdString()));
    EXPECT_THAT(line_.Journal(), ElementsAre("0 1 0 0"));
}

TEST_F(Texts, WithoutAPortOnlyAnUploadSaysThatNothingCame)
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

TEST_F(Texts, OtpValuesAreBytesAFirstByteOrTextUpToAZero)
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
    EXPECT_EQ(LinesSinceConnect().back(),
              "W: McubootSerialUpdater::readOtpData: key 0x3ca6a4af not found in OTP");
}

TEST_F(Texts, ModelCheckAsksForTheSerialNumberOnlyForItsLogAndCanDoWithoutIt)
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

TEST_F(Texts, CommandReturnsTheWholePayload)
{
    Connect();
    line_.Answers(mcuboot::test::AnswerWith(FromHex("a1617205")));
    EXPECT_EQ(updater_->sendSmpCommand(2, 300, 7, FromHex("a0")), FromHex("a1617205"));
    EXPECT_EQ(line_.Request(1).payload, FromHex("a0"));
}

TEST_F(Texts, RawLinesPassWithTheTimeoutInMilliseconds)
{
    Connect();
    line_.StaysSilent();
    auto const before = line_.Now();
    EXPECT_EQ(updater_->sendAndReceive(line_.Lines().front(), 300), "");
    EXPECT_EQ(line_.Now() - before, std::chrono::milliseconds(13 + 300));
}

TEST(Members, ReturnWhatTheFunctionsOfMcubootReturn)
{
    using Updater = McubootSerialUpdater;
    std::array<uint8_t, 32> buffer{};
    std::array<uint8_t, 1> const chunk{0xAA};
    EXPECT_EQ(Updater::crc16Ccitt(chunk.data(), 0, 0x1234), 0x1234);
    EXPECT_EQ(Updater::parseResponse(RcAnswer(3)), FromHex("a162726303"));
    EXPECT_EQ(Updater::buildPacket(2, 1, 5, FromHex("bfff"), 255),
              "\x06\x09"
              "AAwCAAACAAH/Bb//um4=\n");
    EXPECT_EQ(Updater::cborEncodeEmptyMap(buffer), 2);
    EXPECT_EQ(Updater::cborEncodeEmptyMap(std::span(buffer).first(1)), -1);
    EXPECT_EQ(Updater::cborEncodeEchoRequest(buffer, "hi", 2), 7);
    EXPECT_EQ(buffer[4], 'h');
    EXPECT_EQ(Updater::cborEncodeUploadChunk(buffer, chunk.data(), 1, 1483, 1484, false), 16);
    EXPECT_EQ(Updater::cborDecodeMapInt(FromHex("a162726303"), "rc"), 3);
    EXPECT_EQ(Updater::cborDecodeMapBstr(FromHex("a161644107"), "d"), FromHex("07"));
}

}  // namespace
