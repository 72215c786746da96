#include "tests/end_to_end/road.h"

#include <QDir>

namespace {

QString PicturePath()
{
    auto const* test = testing::UnitTest::GetInstance()->current_test_info();
    auto name = QString::fromUtf8(test->test_suite_name()) + QLatin1Char('.') +
                QString::fromUtf8(test->name()) + QStringLiteral(".png");
    return QDir(QStringLiteral(FW_PICTURE_DIR))
        .filePath(name.replace(QLatin1Char('/'), QLatin1Char('_')));
}

}  // namespace

void Road::Start(QStringList const& unit_options)
{
    PlugIn(unit_options);
    StartProgram();
}

void Road::PlugIn(QStringList const& unit_options)
{
    // Later options replace earlier ones, so a test may ask for another unit.
    unit_ = std::make_unique<UnitProcess>(UnitOptions() + unit_options);
}

void Road::StartProgram()
{
    program_ = std::make_unique<Program>(bundle_, Environment());
}

void Road::StartUpdate()
{
    ExpectScreen(IsReady);
    program_->PressUpdate();
}

void Road::UpdateToTheEnd()
{
    StartUpdate();
    ExpectUpdateEnds();
}

void Road::ExpectUpdateEnds()
{
    ExpectScreen([this](Screen const& screen) { return IsDoneScreen(screen); },
                 std::chrono::seconds(60));
    ExpectUnitHoldsImage();
}

void Road::ExpectUpdateFailsWith(QString const& fault, QStringList const& unit_options)
{
    Start(unit_options);
    ExpectScreen(IsReady);
    unit_->Command(fault);
    program_->PressUpdate();
    ExpectScreen(IsFailed);
    EXPECT_TRUE(program_->IsRunning());
}

void Road::Replug()
{
    unit_->Command(QStringLiteral("clear-faults"));
    unit_->Command(QStringLiteral("unplug"));
    ExpectScreen(IsWaiting);
    unit_->Command(QStringLiteral("reset"));
    unit_->Command(QStringLiteral("plug"));
}

void Road::ExpectScreen(Condition const& condition, std::chrono::milliseconds limit)
{
    auto const seen = program_->WaitFor(condition, limit);
    if (!seen) {
        program_->SavePicture(PicturePath());
    }
    ASSERT_TRUE(seen) << "last read: "
                      << (program_->LastScreen() ? *program_->LastScreen() : Screen{})
                      << ", picture: " << PicturePath().toStdString();
}

void Road::ExpectScreenStays(Condition const& condition, std::chrono::milliseconds time)
{
    ASSERT_FALSE(program_->WaitFor([&](Screen const& screen) { return !condition(screen); }, time))
        << "changed to: " << *program_->LastScreen();
}

qsizetype Road::CountInJournal(QString const& word)
{
    return unit_->Journal().filter(word).size();
}
