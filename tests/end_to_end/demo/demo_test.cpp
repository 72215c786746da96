// ./run and the program behind it, as a person starts them on a machine without a display.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <ostream>
#include <string>
#include <utility>

#include "tests/end_to_end/program.h"
#include "tests/end_to_end/test_bundle.h"
#include "tests/support/pattern_image.h"

using namespace Qt::StringLiterals;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int kLimitMs = 120000;

class DemoTest : public testing::Test {
protected:
    explicit DemoTest(char const* staged_bundle = FW_STAGED_BUNDLE)
        : bundle_(QString::fromUtf8(staged_bundle))
    {}

    void Start(QStringList const& arguments)
    {
        process_.setProcessChannelMode(QProcess::MergedChannels);
        process_.start(QStringLiteral(FW_DEMO),
                       QStringList{u"--by-itself"_s, u"--baud"_s, u"0"_s, u"--bundle"_s,
                                   bundle_.Root(), u"--directory"_s, Directory()} +
                           arguments);
    }

    // Its exit status at its end.
    int Finish()
    {
        EXPECT_TRUE(process_.waitForFinished(kLimitMs)) << "it does not end";
        output_ += process_.readAll().toStdString();
        return process_.exitCode();
    }

    // What was printed so far has `text` in it, within the limit.
    bool WaitForOutput(std::string const& text)
    {
        while (output_.find(text) == std::string::npos && process_.waitForReadyRead(kLimitMs)) {
            output_ += process_.readAll().toStdString();
        }
        return output_.find(text) != std::string::npos;
    }

    pid_t Child(QByteArray const& name) const
    {
        return FindChildProcess(process_.processId(), name);
    }

    QString Directory() const { return temporary_.filePath(u"run"_s); }

    QTemporaryDir temporary_;
    TestBundle bundle_;
    QProcess process_;
    std::string output_;
};

TEST_F(DemoTest, TakesABundleOfYourOwnWithAnyTitle)
{
    for (auto const& title :
         {u"\"Kelvane; \\\"Lumen\\\" (v2) [a-z]*\" ; new"_s, QString(3000, u'x')}) {
        bundle_.SetKey(u"window_title"_s, title);
        bundle_.SetKey(u"device_id_list"_s, u"9, 7 ; the models"_s);
        output_.clear();

        Start({});

        EXPECT_EQ(Finish(), 0) << output_;
        EXPECT_THAT(output_, HasSubstr("The unit was updated and holds what it must."));
        for (auto const& picture : {u"1-waiting"_s, u"2-ready"_s, u"3-updating"_s, u"4-done"_s}) {
            EXPECT_EQ(QImage(Directory() + u'/' + picture + u".png"_s).size(), QSize(665, 517))
                << picture.toStdString();
        }
    }
}

TEST_F(DemoTest, RefusesABundleThatCannotBeUsedAndNamesTheRightTransport)
{
    Start({u"--transport"_s, u"mcuboot"_s});
    EXPECT_EQ(Finish(), 2);
    EXPECT_THAT(output_, HasSubstr("not for mcuboot; use --transport uart"));

    ASSERT_TRUE(QFile::remove(bundle_.FirmwarePath()));
    Start({});
    EXPECT_EQ(Finish(), 1);
    EXPECT_THAT(output_, HasSubstr("FAILED: the bundle cannot be used"));

    ASSERT_TRUE(QFile::remove(bundle_.ConfigPath()));
    Start({});
    EXPECT_EQ(Finish(), 1);
    EXPECT_THAT(output_, HasSubstr("FAILED: there is no file "));
}

TEST_F(DemoTest, EndsAtOnceWithTheLogWhenTheUpdaterIsKilled)
{
    Start({});
    ASSERT_TRUE(WaitForOutput("waiting:")) << output_;
    QElapsedTimer timer;
    timer.start();
    ASSERT_EQ(kill(Child("firmware_updater"), SIGKILL), 0);

    EXPECT_EQ(Finish(), 1);

    EXPECT_THAT(output_, HasSubstr("the updater ended by itself, crashed, before its window was "));
    EXPECT_THAT(output_, HasSubstr("kelvane_lumen.bin, 204808 bytes")) << "the end of the log";
    EXPECT_LT(timer.elapsed(), 10000);
}

TEST_F(DemoTest, EndsAtOnceWhenTheUpdatersWindowIsGone)
{
    Start({});
    ASSERT_TRUE(WaitForOutput("waiting:")) << output_;
    QProcess xdotool;
    xdotool.start(u"xdotool"_s, {u"search"_s, u"--onlyvisible"_s, u"--pid"_s,
                                 QString::number(Child("firmware_updater"))});
    ASSERT_TRUE(xdotool.waitForFinished());
    auto const window = QString::fromUtf8(xdotool.readAll().trimmed());
    ASSERT_EQ(QProcess::execute(u"xdotool"_s, {u"windowclose"_s, window}), 0);

    EXPECT_EQ(Finish(), 1);

    EXPECT_THAT(output_, HasSubstr("FAILED: the updater's window was closed"));
}

class McubootDemoTest : public DemoTest {
protected:
    McubootDemoTest() : DemoTest(FW_STAGED_MCUBOOT_BUNDLE) {}
};

TEST_F(McubootDemoTest, EndsAtOnceWithAPictureWhenTheWindowShowsAFailure)
{
    Start({u"--transport"_s, u"mcuboot"_s});
    ASSERT_TRUE(WaitForOutput("waiting:")) << output_;
    // The copy that the program works with; the bundle has been checked by now.
    ASSERT_TRUE(QFile::remove(Directory() + u"/bundle/Contents/Resources/kelvane_aria.bin"_s));

    EXPECT_EQ(Finish(), 1);

    EXPECT_THAT(output_, HasSubstr("the window shows a failure instead of \"updating\""));
    EXPECT_TRUE(QFile::exists(Directory() + u"/3-not-reached.png"_s));
}

// Bundles with the image of the recordings.
class ReplayTest : public DemoTest {
protected:
    void Replay(char const* recording, char const* staged_bundle, char const* transport)
    {
        TestBundle bundle(QString::fromUtf8(staged_bundle));
        bundle.WriteFirmware(PatternImage<QByteArray>(kRecordedImage));
        output_.clear();
        Start({u"--bundle"_s, bundle.Root(), u"--transport"_s, QString::fromUtf8(transport),
               u"--replay"_s,
               QStringLiteral(FW_RECORDINGS "/%1.pcapng").arg(QLatin1String(recording))});
        status_ = Finish();
    }

    static constexpr size_t kRecordedImage = 4000;
    int status_ = -1;
};

struct RecordedRow {
    char const* name;
    char const* staged_bundle;
    char const* transport;
    char const* outcome;

    friend void PrintTo(RecordedRow const& row, std::ostream* stream) { *stream << row.name; }
};

class EveryReplayTest : public ReplayTest, public testing::WithParamInterface<RecordedRow> {};

TEST_P(EveryReplayTest, TheWindowComesToTheRecordedEnd)
{
    auto const& [name, staged_bundle, transport, outcome] = GetParam();
    Replay(name, staged_bundle, transport);
    EXPECT_EQ(status_, 0) << output_;
    EXPECT_THAT(output_, HasSubstr(std::string("replayed             ") + outcome + '\n'));
    EXPECT_THAT(output_, HasSubstr("The session ended as recorded."));
    EXPECT_THAT(output_, Not(HasSubstr("difference")));
}

INSTANTIATE_TEST_SUITE_P(
    , EveryReplayTest,
    testing::Values(RecordedRow{"uart-block-refused", FW_STAGED_BUNDLE, "uart", "failed"},
                    RecordedRow{"uart-cut-answer", FW_STAGED_BUNDLE, "uart", "not-connected"},
                    RecordedRow{"mcuboot-offset-asked-for-again", FW_STAGED_MCUBOOT_BUNDLE,
                                "mcuboot", "done"},
                    RecordedRow{"usb-other-model", FW_STAGED_USB_BUNDLE, "usb", "refused"},
                    RecordedRow{"usb-error-in-write", FW_STAGED_USB_BUNDLE, "usb", "done"}));

TEST_F(ReplayTest, ADifferenceIsNamedAndCountsEvenIfTheEndIsTheSame)
{
    bundle_.WriteFirmware(PatternImage<QByteArray>(kRecordedImage));
    bundle_.SetKey(u"otp_address"_s, u"0x1FFF7800"_s);
    for (auto const& [name, outcome] : {std::pair{"other-model", "refused"}, {"done", "done"}}) {
        output_.clear();
        Start({u"--replay"_s,
               QStringLiteral(FW_RECORDINGS "/uart-%1.pcapng").arg(QLatin1String(name))});

        EXPECT_EQ(Finish(), 1) << name;
        EXPECT_THAT(
            output_,
            ContainsRegex(
                "difference silent packet [0-9]+, byte 3 of 5: 0x70 expected, 0x78 received"));
        EXPECT_THAT(output_, HasSubstr(std::string("recorded             ") + outcome + '\n'));
        EXPECT_THAT(output_, HasSubstr("replayed             refused\n"));
        EXPECT_THAT(output_, HasSubstr("FAILED: the session did not go as recorded."));
    }
}

TEST_F(ReplayTest, AnotherImageOrTransportIsRefusedAtOnce)
{
    Start({u"--replay"_s, QStringLiteral(FW_RECORDINGS "/uart-done.pcapng")});
    EXPECT_EQ(Finish(), 2);
    EXPECT_THAT(output_, HasSubstr("another image: 4000 bytes with the SHA-256 c236481c"));
    EXPECT_THAT(output_, HasSubstr("use --bundle"));

    Start({u"--replay"_s, QStringLiteral(FW_RECORDINGS "/usb-done.pcapng")});
    EXPECT_EQ(Finish(), 2);
    EXPECT_THAT(output_, HasSubstr("the record is of the transport usb"));

    Start({u"--replay"_s, QStringLiteral(FW_RUN)});
    EXPECT_EQ(Finish(), 1);
    EXPECT_THAT(output_, HasSubstr("FAILED: " FW_RUN ": "));
}

TEST(Run, RefusesAWrongOptionAndPrintsItsHelpBeforeAnythingIsBuilt)
{
    QProcess run;
    for (auto const* arguments :
         {"--transport serial", "--baud fast", "--nonsense", "--bundle", "--bundle /",
          "--replay /none", "--replay " FW_RUN, "--keep-open --headless", "--help"}) {
        auto const is_help = std::string(arguments) == "--help";
        run.start(QStringLiteral(FW_RUN), QString::fromLatin1(arguments).split(u' '));
        ASSERT_TRUE(run.waitForFinished()) << arguments;
        EXPECT_EQ(run.exitCode(), is_help ? 0 : 2) << arguments;
        EXPECT_THAT(
            (is_help ? run.readAllStandardOutput() : run.readAllStandardError()).toStdString(),
            HasSubstr(is_help ? "--keep-open" : "see ./run --help"));
    }
}

}  // namespace
