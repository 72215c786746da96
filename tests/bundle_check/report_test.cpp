// The arithmetic of the predictions, and the report's two forms.
#include "bundle_check/report.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>

#include "bundle_check/bundle_checker.h"
#include "bundle_check/prediction.h"
#include "tests/bundle_check/bundle_folder.h"
#include "tests/bundle_check/test_images.h"

using namespace Qt::StringLiterals;
using namespace bundle_check;

TEST(Prediction, AddsUpWhatATransportDoes)
{
    auto const g4 = GetChipsByOtp(0x1FFF7000).front();
    auto const u5 = GetChipsByOtp(0x0BFA0000).front();
    // 100 pages take 2.45 s; 800 blocks put (204800 + 9600) * 11 bits on a line of 460800 bits a
    // second, 5.118 s; 25600 double words take 2.099 s.
    EXPECT_NEAR(PredictUart(204800, g4), 9.667, 0.001);
    // 25 pages take 0.085 s, 12800 quad words 1.510 s.
    EXPECT_NEAR(PredictUart(204800, u5), 6.714, 0.001);
    // 100 pages, 100 transfers of 5 ms, 25600 double words, 1 s.
    EXPECT_NEAR(PredictUsb(204800, g4), 6.049, 0.001);
    // 73 pages take 1.79 s; 100 chunks: 1.6 s of pauses; (151800 * 4 / 3 + 6000) * 10 bits at
    // 115200, 18.09 s; 18538 double words, 1.52 s.
    EXPECT_NEAR(PredictMcuboot(148300, g4, 115200), 23.0, 0.01);
    EXPECT_NEAR(PredictMcuboot(148300, g4, 921600), 7.17, 0.01);
    EXPECT_EQ(PredictMcuboot(148300, g4, 0), 0);
}

TEST(Prediction, IsGivenForEachProductByInterfaceAndBaudRateIfThereIsAnImage)
{
    BundleFolder bundle;
    bundle.Set("product_list", "Lumen:10c4:ea60, Aria:10c4:ea61");
    EXPECT_EQ(FormatText(CheckBundle(bundle.Root())),
              u"'Aria' over uart: an update takes about 1 s\n"
              "'Lumen' over uart: an update takes about 1 s\n"
              "clean\n"_s);
    bundle.UseMcuboot();
    bundle.Write(u"Resources/firmware.bin"_s, MakeMcubootParts(148196).Image());
    EXPECT_TRUE(FormatText(CheckBundle(bundle.Root()))
                    .contains(u"'Lumen' over mcuboot_serial: an update takes about 7 s"_s));
    bundle.Set("mcuboot_baud", "115200");
    EXPECT_TRUE(FormatText(CheckBundle(bundle.Root())).contains(u"takes about 23 s"_s));
    bundle.Write(u"Resources/firmware.bin"_s, QByteArray(148300, '\xFF'));
    EXPECT_TRUE(CheckBundle(bundle.Root()).predictions.isEmpty()) << "nothing to be written";
    bundle.Delete(u"Resources/firmware.bin"_s);
    EXPECT_TRUE(CheckBundle(bundle.Root()).predictions.isEmpty());
}

TEST(Report, HasPlaceAndWeightInTheOrderOfTheLinesAndTheStatusOfItsWorstFinding)
{
    Report report;
    EXPECT_EQ(GetExitStatus(report), 0);
    report.findings.Note({}, u"No place."_s);
    EXPECT_EQ(GetExitStatus(report), 0);
    report.findings.Warn({u"otp_size"_s, 9}, u"Second."_s);
    report.findings.Warn({{}, 12}, u"Third."_s);
    EXPECT_EQ(GetExitStatus(report), 1);
    report.findings.Fail({u"otp_size"_s, 0}, u"Missing."_s);
    report.findings.Fail({u"strange"_s, 3}, u"First."_s);
    EXPECT_EQ(GetExitStatus(report), 2);
    EXPECT_EQ(FormatText(report),
              u"config.ini:3: error: First.\n"
              "config.ini:9: warning: otp_size: Second.\n"
              "config.ini:12: warning: Third.\n"
              "note: No place.\n"
              "config.ini: error: otp_size: Missing.\n"
              "2 errors, 2 warnings\n"_s);
}

TEST(Report, CountsWhatItDoesNotShow)
{
    Report report;
    for (int i = 0; i < 201; ++i) {
        report.findings.Warn({}, u"w"_s);
    }
    report.findings.Fail({}, u"e"_s);
    EXPECT_TRUE(FormatText(report).endsWith(u"2 more are not shown\n1 error, 201 warnings\n"_s));
    EXPECT_EQ(GetExitStatus(report), 2);
}

TEST(Quote, ShowsNothingThatATerminalObeys)
{
    EXPECT_EQ(Quote(u"a\u001B[2J\n\u202E"_s), u"'a<U+001B>[2J\\n<U+202E>'"_s);
    EXPECT_EQ(Quote(QString(100, u'x')), u"'"_s + QString(60, u'x') + u"...'"_s);
}

TEST(Json, HoldsFindingsAndPredictions)
{
    BundleFolder bundle;
    auto const clean = QJsonDocument::fromJson(FormatJson(CheckBundle(bundle.Root()))).object();
    EXPECT_EQ(clean[u"status"_s], u"clean"_s);
    EXPECT_EQ(clean[u"findings"_s], QJsonArray());
    bundle.Set("otp_size", "x");
    bundle.Set("colour", "red");
    bundle.Remove("fw_version");
    auto const json = QJsonDocument::fromJson(FormatJson(CheckBundle(bundle.Root()))).object();
    EXPECT_EQ(json[u"status"_s], u"errors"_s);
    EXPECT_EQ(json[u"interface"_s], u"uart"_s);
    EXPECT_EQ(json[u"omitted"_s], 0);
    auto const findings = json[u"findings"_s].toArray();
    ASSERT_EQ(findings.size(), 3);
    EXPECT_EQ(findings[0][u"severity"_s], u"error"_s);
    EXPECT_EQ(findings[0][u"key"_s], u"otp_size"_s);
    EXPECT_EQ(findings[0][u"line"_s], 5);
    EXPECT_TRUE(findings[0][u"text"_s].toString().startsWith(u"The program reads 'x' as 0"_s));
    EXPECT_EQ(findings[1][u"severity"_s], u"warning"_s);
    EXPECT_EQ(findings[1][u"key"_s], u"colour"_s);
    EXPECT_EQ(findings[2][u"key"_s], u"fw_version"_s);
    EXPECT_TRUE(findings[2][u"line"_s].isNull());
    QJsonObject const prediction{{u"product"_s, u"Lumen"_s}, {u"seconds"_s, 1}};
    EXPECT_EQ(json[u"predictions"_s], QJsonArray({prediction}));
}

TEST(Json, StaysJsonWhateverTheTextsHold)
{
    for (auto const* value : {"\\xd800:1:1", "a\\xdc00b:1:1", "\xFF\xC3:1:1", "\xED\xA0\x80:1:1",
                              "\"\\\"\\n\\x1f\\x7f\\xffff\":1:1"}) {
        BundleFolder bundle;
        bundle.Set("product_list", value);
        bundle.Set("%UD800", "\xFE");
        bundle.Set("\xC3\x28", "1");
        auto const json = FormatJson(CheckBundle(bundle.Root()));
        QStringDecoder utf8(QStringDecoder::Utf8);
        QString const text = utf8(json);
        EXPECT_FALSE(utf8.hasError()) << json.constData();
        QJsonParseError error{};
        auto const object = QJsonDocument::fromJson(json, &error).object();
        EXPECT_EQ(error.error, QJsonParseError::NoError) << json.constData();
        EXPECT_EQ(object[u"predictions"_s].toArray().size(), 1) << json.constData();
        EXPECT_EQ(object[u"findings"_s].toArray().size(), 2) << json.constData();
    }
}
