#include "tests/end_to_end/transport.h"

#include <QDir>
#include <QRegularExpression>

namespace {

QString PicturePath()
{
    auto const* test = testing::UnitTest::GetInstance()->current_test_info();
    auto name = QString::fromUtf8(test->test_suite_name()) + QLatin1Char('.') +
                QString::fromUtf8(test->name()) + QStringLiteral(".png");
    return QDir(QStringLiteral(FW_PICTURE_DIR))
        .filePath(name.replace(QLatin1Char('/'), QLatin1Char('_')));
}

// "started", "succeeded" and "failed", in their order.
QStringList GetUpdateEvents(QByteArray const& log)
{
    static QRegularExpression const pattern(
        QStringLiteral(" window: update (started|succeeded|failed)\n"));
    QStringList events;
    for (auto const& match : pattern.globalMatch(QString::fromUtf8(log))) {
        events.append(match.captured(1));
    }
    return events;
}

}  // namespace

void Transport::Start(QStringList const& unit_options)
{
    PlugIn(unit_options);
    StartProgram();
}

void Transport::PlugIn(QStringList const& unit_options)
{
    // Later options replace earlier ones, so a test may ask for another unit.
    unit_ = std::make_unique<UnitProcess>(UnitOptions() + unit_options);
}

void Transport::StartProgram()
{
    program_ = std::make_unique<Program>(bundle_, Environment());
}

void Transport::StartUpdate()
{
    ExpectScreen(IsReady);
    program_->PressUpdate();
}

void Transport::UpdateToTheEnd()
{
    StartUpdate();
    ExpectUpdateEnds();
}

void Transport::ExpectUpdateEnds()
{
    ExpectScreen([this](Screen const& screen) { return IsDoneScreen(screen); },
                 std::chrono::seconds(60));
    ExpectUnitHoldsImage();
    ExpectOneOutcomeEach(QStringLiteral("succeeded"));
}

void Transport::ExpectOneOutcomeEach(QString const& outcome)
{
    auto const started = QStringLiteral("started");
    auto const events = GetUpdateEvents(program_->ReadLog());
    EXPECT_EQ(events.mid(events.size() - 2), QStringList({started, outcome}));
    EXPECT_EQ(events.size(), 2 * events.count(started))
        << events.join(QLatin1Char(' ')).toStdString();
}

void Transport::ExpectUpdateFailsWith(QString const& fault, QStringList const& unit_options)
{
    Start(unit_options);
    ExpectScreen(IsReady);
    unit_->Command(fault);
    program_->PressUpdate();
    ExpectScreen(IsFailed);
    EXPECT_TRUE(program_->IsRunning());
    ExpectOneOutcomeEach(QStringLiteral("failed"));
}

void Transport::Replug()
{
    unit_->Command(QStringLiteral("clear-faults"));
    unit_->Command(QStringLiteral("unplug"));
    ExpectScreen(IsWaiting);
    unit_->Command(QStringLiteral("reset"));
    unit_->Command(QStringLiteral("plug"));
}

void Transport::ExpectScreen(Condition const& condition, std::chrono::milliseconds limit)
{
    auto const seen = program_->WaitFor(condition, limit);
    if (!seen) {
        program_->SavePicture(PicturePath());
    }
    ASSERT_TRUE(seen) << "last read: "
                      << (program_->LastScreen() ? *program_->LastScreen() : Screen{})
                      << ", picture: " << PicturePath().toStdString();
}

void Transport::ExpectScreenStays(Condition const& condition, std::chrono::milliseconds time)
{
    ASSERT_FALSE(program_->WaitFor([&](Screen const& screen) { return !condition(screen); }, time))
        << "changed to: " << *program_->LastScreen();
}

qsizetype Transport::CountInJournal(QString const& word)
{
    return unit_->Journal().filter(word).size();
}
