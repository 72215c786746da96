// The single requests: image state, OTP values, model check, erase, reset and the generic command.
#include <gmock/gmock.h>

#include "tests/updater/mcuboot/observed_waits.h"
#include "tests/updater/mcuboot/updater_fixture.h"

namespace {

using mcuboot::test::FromHex;
using mcuboot::test::MakeAnswer;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr uint32_t kModelIdKey = 0x01234711;
constexpr uint32_t kSerialNumberKey = 0x3CA6A4AF;

class Query : public UpdaterFixture {
protected:
    // The operation must fail after waits of 3 ms that add up to the time-out.
    template <typename Operation>
    void ExpectTimeout(int milliseconds, Operation const& operation)
    {
        ConnectUpdater();
        unit_.StaysSilent();
        ObservedWaits const waits(ObservedWaits::Waits::kEndAtOnce);
        EXPECT_FALSE(operation());
        EXPECT_TRUE(waits.CountedPasses((milliseconds + 2) / 3)) << waits.passes;
        EXPECT_EQ(waits.other_waits, 0);
    }
};

// ---- Image state ----

TEST_F(Query, ImageStateSucceedsWithErrorCodeZeroOrNone)
{
    ConnectUpdater();
    unit_.Answers(RcAnswer(0));
    EXPECT_TRUE(updater_->readImageState());
    unit_.Answers(MakeAnswer(FromHex("bf66696d6167657380ff")));
    EXPECT_TRUE(updater_->readImageState());
    EXPECT_THAT(LinesSinceConnect(), IsEmpty());
}

TEST_F(Query, ImageStateTakesAnErrorCodeThatIsNoNumberOrTooLargeForNone)
{
    ConnectUpdater();
    unit_.Answers(MakeAnswer(FromHex("bf6272636135ff")));
    EXPECT_TRUE(updater_->readImageState());
    unit_.Answers(MakeAnswer(FromHex("bf6272631a80000000ff")));
    EXPECT_TRUE(updater_->readImageState());
}

TEST_F(Query, ImageStateWaitsTwoSeconds)
{
    ExpectTimeout(2000, [this] { return updater_->readImageState(); });
}

TEST_F(Query, ImageStateTellsOfAnErrorCodeVerboseOrNot)
{
    for (auto const verbose : {false, true}) {
        ConnectUpdater(verbose);
        unit_.Answers(MakeAnswer(FromHex("bf62726325ff")));
        EXPECT_FALSE(updater_->readImageState());
        EXPECT_THAT(LinesSinceConnect(),
                    Contains(MatchesRegex("W: McubootSerialUpdater::readImageState: rc= ?-6")));
        updater_->disconnect();
    }
}

TEST_F(Query, ImageStateTellsOfAParseErrorOnlyWhenVerbose)
{
    ConnectUpdater(false);
    unit_.Answers("noise\n");
    EXPECT_FALSE(updater_->readImageState());
    EXPECT_THAT(LinesSinceConnect(), IsEmpty());
    ConnectUpdater(true);
    unit_.Answers("noise\n");
    EXPECT_FALSE(updater_->readImageState());
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("W: McubootSerialUpdater::readImageState: parse error"));
}

TEST_F(Query, ImageStateTakesAnAnswerWithoutPayloadForAParseError)
{
    ConnectUpdater(true);
    unit_.Answers(MakeAnswer({}));
    EXPECT_FALSE(updater_->readImageState());
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("W: McubootSerialUpdater::readImageState: parse error"));
}

TEST_F(Query, ImageStateTellsOfAMissingAnswerWhenVerbose)
{
    ConnectUpdater(true);
    unit_.Vanishes();
    EXPECT_FALSE(updater_->readImageState());
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("W: McubootSerialUpdater::readImageState: no response from device"));
}

TEST_F(Query, ImageStateIsSilentAboutAMissingAnswerWhenNotVerbose)
{
    ConnectUpdater(false);
    unit_.Vanishes();
    EXPECT_FALSE(updater_->readImageState());
    EXPECT_THAT(LinesSinceConnect(), IsEmpty());
}

TEST_F(Query, ImageStateIsDumpedWhenVerbose)
{
    ConnectUpdater(true);
    unit_.Answers(RcAnswer(0));
    EXPECT_TRUE(updater_->readImageState());
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("D: --- SMP CBOR \"image-state\" ---", "D: {", "D:   rc: 0", "D: }",
                            "D: --- end SMP CBOR \"image-state\" ---"));
}

// ---- OTP values ----

TEST_F(Query, OtpReadSendsTheKeyAndReturnsTheData)
{
    ConnectUpdater();
    unit_.Answers(RcAnswer(0));
    updater_->readImageState();
    unit_.Answers(OtpAnswer(FromHex("0c00")));
    EXPECT_EQ(updater_->readOtpData(kSerialNumberKey), FromHex("0c00"));
    EXPECT_EQ(unit_.WaitForLines(3)[2],
              "\x06\x09"
              "ABUAAAALAEACAL9ja2V5GjympK//IVw=\n");
    EXPECT_THAT(LinesSinceConnect(), IsEmpty());
}

TEST_F(Query, OtpReadTakesDataWithoutAnErrorCode)
{
    ConnectUpdater();
    unit_.Answers(MakeAnswer(FromHex("a16464617461 4107")));
    EXPECT_EQ(updater_->readOtpData(kModelIdKey), FromHex("07"));
}

TEST_F(Query, OtpReadWaitsTwoSeconds)
{
    ExpectTimeout(2000, [this] { return updater_->readOtpData(kModelIdKey).has_value(); });
}

TEST_F(Query, OtpReadTellsOfEveryFailureVerboseOrNot)
{
    ConnectUpdater(false);
    unit_.Answers("noise\n")
        .Answers(RcAnswer(5))
        .Answers(RcAnswer(7))
        .Answers(RcAnswer(0))
        .Answers(OtpAnswer({}))
        .Answers(MakeAnswer(FromHex("a16464617461 6107")))
        .Vanishes();
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(updater_->readOtpData(kModelIdKey), std::nullopt);
    }
    auto const* const no_data =
        "W: McubootSerialUpdater::readOtpData: 'data' key not found or empty";
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("W: McubootSerialUpdater::readOtpData: parse error",
                            "W: McubootSerialUpdater::readOtpData: key 0x1234711 not found in OTP",
                            MatchesRegex("W: McubootSerialUpdater::readOtpData: rc= ?7"), no_data,
                            no_data, no_data, "W: McubootSerialUpdater::readOtpData: no response"));
}

TEST_F(Query, OtpReadNamesAKeyInLowercaseHexadecimal)
{
    ConnectUpdater();
    unit_.Answers(RcAnswer(5));
    EXPECT_EQ(updater_->readOtpData(kSerialNumberKey), std::nullopt);
    EXPECT_THAT(
        LinesSinceConnect(),
        ElementsAre("W: McubootSerialUpdater::readOtpData: key 0x3ca6a4af not found in OTP"));
}

TEST_F(Query, OtpKeyIsTheFirstByteOfTheData)
{
    ConnectUpdater();
    unit_.Answers(OtpAnswer(FromHex("f10203"))).Answers(RcAnswer(5));
    EXPECT_EQ(updater_->readOtpKey(kModelIdKey), 0xF1);
    EXPECT_EQ(updater_->readOtpKey(kModelIdKey), std::nullopt);
}

TEST_F(Query, OtpTextEndsAtItsFirstZeroByteOrIsTakenWhole)
{
    ConnectUpdater();
    unit_.Answers(OtpAnswer("SN123"))
        .Answers(OtpAnswer(QByteArray("SN\0"
                                      "123",
                                      6)))
        .Answers(OtpAnswer(QByteArray("\0"
                                      "123",
                                      4)))
        .Answers(OtpAnswer("\xE4"))
        .Answers(RcAnswer(5));
    EXPECT_EQ(updater_->readOtpKeyStr(kSerialNumberKey), QStringLiteral("SN123"));
    EXPECT_EQ(updater_->readOtpKeyStr(kSerialNumberKey), QStringLiteral("SN"));
    EXPECT_EQ(updater_->readOtpKeyStr(kSerialNumberKey), QString());
    EXPECT_EQ(updater_->readOtpKeyStr(kSerialNumberKey), QString(QChar(0xE4)));
    EXPECT_EQ(updater_->readOtpKeyStr(kSerialNumberKey), std::nullopt);
}

// ---- Model check ----

TEST_F(Query, ModelCheckAcceptsAListedModelAndRefusesAnyOther)
{
    ConnectUpdater();
    unit_.AlwaysAnswers(OtpAnswer(FromHex("0c00")));
    EXPECT_TRUE(updater_->verifyDeviceId({3, 12}));
    EXPECT_FALSE(updater_->verifyDeviceId({3, 13, 0}));
    EXPECT_FALSE(updater_->verifyDeviceId({}));
    EXPECT_THAT(LinesSinceConnect(), IsEmpty());
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0", "0 64 0 1", "0 64 0 2", "0 64 0 3"));
    EXPECT_EQ(unit_.WaitForRequests(2)[1].payload, FromHex("bf636b65791a01234711ff"));
}

TEST_F(Query, ModelCheckIsSkippedForServiceFirmwareOnly)
{
    ConnectUpdater(true, QStringLiteral("service"));
    EXPECT_TRUE(updater_->verifyDeviceId({}));
    EXPECT_EQ(unit_.Journal().size(), 1U);
    EXPECT_THAT(LinesSinceConnect(), IsEmpty());

    ConnectUpdater(false, QStringLiteral("Service"));
    unit_.Answers(OtpAnswer(FromHex("0c")));
    EXPECT_FALSE(updater_->verifyDeviceId({}));
}

TEST_F(Query, ModelCheckFailsWhenTheModelCannotBeRead)
{
    ConnectUpdater(false);
    unit_.Answers(RcAnswer(5));
    EXPECT_FALSE(updater_->verifyDeviceId({12}));
    EXPECT_THAT(
        LinesSinceConnect(),
        ElementsAre("W: McubootSerialUpdater::readOtpData: key 0x1234711 not found in OTP"));

    ConnectUpdater(true);
    unit_.Answers(RcAnswer(5));
    EXPECT_FALSE(updater_->verifyDeviceId({12}));
    EXPECT_THAT(
        LinesSinceConnect(),
        ElementsAre("W: McubootSerialUpdater::readOtpData: key 0x1234711 not found in OTP",
                    "W: McubootSerialUpdater::verifyDeviceId: failed to read model ID from OTP"));
}

TEST_F(Query, ModelCheckTellsModelAndSerialNumberWhenVerbose)
{
    ConnectUpdater(true);
    unit_.Answers(OtpAnswer(FromHex("0c"))).Answers(OtpAnswer("SN1"));
    EXPECT_TRUE(updater_->verifyDeviceId({12}));
    EXPECT_THAT(
        LinesSinceConnect(),
        ElementsAre("D: McubootSerialUpdater::verifyDeviceId: device model ID 12 serial number SN1",
                    "D: McubootSerialUpdater::verifyDeviceId: model ID 12 OK"));
    EXPECT_EQ(unit_.WaitForRequests(3)[2].payload, FromHex("bf636b65791a3ca6a4afff"));
}

TEST_F(Query, ModelCheckTellsOfAMismatchWhenVerbose)
{
    ConnectUpdater(true);
    unit_.Answers(OtpAnswer(FromHex("0c"))).Answers(OtpAnswer("SN1"));
    EXPECT_FALSE(updater_->verifyDeviceId({13}));
    EXPECT_THAT(LinesSinceConnect(),
                Contains("W: McubootSerialUpdater::verifyDeviceId: model ID mismatch: 12"));
}

TEST_F(Query, ModelCheckDoesNotNeedASerialNumber)
{
    ConnectUpdater(true);
    unit_.Answers(OtpAnswer(FromHex("0c"))).Answers(RcAnswer(5));
    EXPECT_TRUE(updater_->verifyDeviceId({12}));
}

// ---- Erase ----

TEST_F(Query, EraseSucceedsWithErrorCodeZeroOrNoneAndIsAlwaysDumped)
{
    ConnectUpdater(false);
    unit_.Answers(RcAnswer(0)).Answers(MakeAnswer(FromHex("bfff")));
    EXPECT_TRUE(updater_->eraseImage());
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("D: --- SMP CBOR \"image-erase\" ---", "D: {", "D:   rc: 0", "D: }",
                            "D: --- end SMP CBOR \"image-erase\" ---",
                            "D: McubootSerialUpdater::eraseImage: success"));
    EXPECT_TRUE(updater_->eraseImage());
    auto const request = unit_.WaitForRequests(3)[1];
    EXPECT_THAT(unit_.Journal()[1], "2 1 5 1");
    EXPECT_EQ(request.payload, FromHex("bfff"));
}

TEST_F(Query, EraseTellsOfEveryFailureVerboseOrNot)
{
    ConnectUpdater(false);
    unit_.Answers("noise\n").Answers(RcAnswer(3)).Vanishes();
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(updater_->eraseImage());
    }
    EXPECT_THAT(log_.Warnings(),
                ElementsAre("W: McubootSerialUpdater::eraseImage: parse error",
                            MatchesRegex("W: McubootSerialUpdater::eraseImage: rc= ?3"),
                            "W: McubootSerialUpdater::eraseImage: no response (timeout)"));
}

TEST_F(Query, EraseWaitsThirtySeconds)
{
    ExpectTimeout(30000, [this] { return updater_->eraseImage(); });
}

// ---- Reset ----

TEST_F(Query, ResetSendsItsRequestAndWaitsForNothing)
{
    ConnectUpdater(true);
    updater_->reset();
    EXPECT_EQ(unit_.WaitForRequests(2)[1].payload, FromHex("bfff"));
    EXPECT_THAT(unit_.Journal(), ElementsAre("0 1 0 0", "2 0 5 1"));
    EXPECT_THAT(LinesSinceConnect(), IsEmpty());
}

TEST_F(Query, ResetWithoutAPortDoesNothing)
{
    McubootSerialUpdater updater(QString(), 921600, true, QString(), nullptr);
    updater.reset();
    EXPECT_THAT(log_.Lines(), IsEmpty());
}

// ---- Generic command ----

TEST_F(Query, CommandReturnsThePayloadAndIsAlwaysDumped)
{
    ConnectUpdater(false);
    unit_.Answers(MakeAnswer(FromHex("a1617205")));
    EXPECT_EQ(updater_->sendSmpCommand(2, 300, 7, FromHex("a0")), FromHex("a1617205"));
    EXPECT_THAT(unit_.Journal()[1], "2 300 7 1");
    EXPECT_EQ(unit_.WaitForRequests(2)[1].payload, FromHex("a0"));
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("D: --- SMP CBOR \"raw-cmd g300/c7\" ---", "D: {", "D:   r: 5", "D: }",
                            "D: --- end SMP CBOR \"raw-cmd g300/c7\" ---"));
}

TEST_F(Query, CommandWithoutPayloadSendsAnEmptyMap)
{
    ConnectUpdater();
    unit_.Answers(RcAnswer(0));
    updater_->sendSmpCommand(0, 0, 0, {});
    EXPECT_EQ(unit_.WaitForRequests(2)[1].payload, FromHex("bfff"));
}

TEST_F(Query, CommandTellsOfEveryFailureVerboseOrNot)
{
    ConnectUpdater(false);
    unit_.Answers("noise\n").Vanishes();
    EXPECT_TRUE(updater_->sendSmpCommand(2, 300, 7, {}).isEmpty());
    EXPECT_TRUE(updater_->sendSmpCommand(2, 300, 7, {}).isEmpty());
    EXPECT_THAT(LinesSinceConnect(),
                ElementsAre("W: McubootSerialUpdater::sendSmpCommand: parse error",
                            MatchesRegex("W: McubootSerialUpdater::sendSmpCommand: no response "
                                         "group= ?300 cmd= ?7")));
}

TEST_F(Query, CommandWaitsFiveSeconds)
{
    ExpectTimeout(5000, [this] { return !updater_->sendSmpCommand(0, 0, 0, {}).isEmpty(); });
}

TEST_F(Query, CommandWithoutAPortReturnsNothingAndLogsNothing)
{
    McubootSerialUpdater updater(QString(), 921600, true, QString(), nullptr);
    EXPECT_TRUE(updater.sendSmpCommand(0, 0, 0, {}).isEmpty());
    EXPECT_THAT(log_.Lines(), IsEmpty());
}

// ---- The functions of mcuboot/ under the backend's name ----

TEST(BackendMembers, GiveWhatTheFunctionsGive)
{
    std::array<uint8_t, 32> buffer{};
    EXPECT_EQ(McubootSerialUpdater::crc16Ccitt(nullptr, 0, 0x1234), 0x1234);
    EXPECT_EQ(McubootSerialUpdater::cborEncodeEmptyMap(buffer), 2);
    EXPECT_EQ(McubootSerialUpdater::cborEncodeEmptyMap(std::span(buffer).first(1)), -1);
    EXPECT_EQ(McubootSerialUpdater::cborEncodeEchoRequest(buffer, "hi", 2), 7);
    EXPECT_EQ(buffer[4], 'h');
    EXPECT_EQ(McubootSerialUpdater::cborDecodeMapBstr(FromHex("a161644107"), "d"), FromHex("07"));
}

}  // namespace
