#include "tests/end_to_end/transport.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

QString PicturePath()
{
    auto const* test = testing::UnitTest::GetInstance()->current_test_info();
    auto const name = QString::fromUtf8(test->test_suite_name()) + u'.' +
                      QString::fromUtf8(test->name()) + u".png"_s;
    return QDir(QStringLiteral(FW_PICTURE_DIR)).filePath(QString(name).replace(u'/', u'_'));
}

// "started", "succeeded" and "failed", in their order.
QStringList GetUpdateEvents(QByteArray const& log)
{
    static QRegularExpression const pattern(u" window: update (started|succeeded|failed)\n"_s);
    QStringList events;
    for (auto const& match : pattern.globalMatch(QString::fromUtf8(log))) {
        events.append(match.captured(1));
    }
    return events;
}

}  // namespace

void Transport::Start(QString const& unit_options)
{
    PlugIn(unit_options);
    StartProgram();
}

void Transport::PlugIn(QString const& unit_options)
{
    // Later options replace earlier ones.
    unit_ = std::make_unique<UnitProcess>(GetUnitOptions(bundle_) +
                                          unit_options.split(u' ', Qt::SkipEmptyParts));
}

void Transport::StartProgram()
{
    auto environment = unit_->Environment();
    environment.insert(u"TMPDIR"_s, temporary_.path());
    program_ = std::make_unique<Program>(bundle_, environment);
}

void Transport::StartUpdate()
{
    ExpectScreen(IsReady);
    program_->PressUpdate();
}

void Transport::PressUpdateWith(QString const& fault)
{
    ExpectScreen(IsReady);
    unit_->Command(fault);
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
    ExpectOneOutcomeEach(u"succeeded"_s);
}

void Transport::ExpectUpdateFailsWith(QString const& fault, QString const& unit_options)
{
    Start(unit_options);
    PressUpdateWith(fault);
    ExpectScreen(IsFailed);
    EXPECT_TRUE(program_->IsRunning());
    ExpectOneOutcomeEach(u"failed"_s);
}

void Transport::Replug()
{
    unit_->Command(u"clear-faults"_s);
    unit_->Command(u"unplug"_s);
    ExpectScreen(IsWaiting);
    unit_->Command(u"reset"_s);
    unit_->Command(u"plug"_s);
}

void Transport::ExpectScreen(Program::Condition const& condition, Program::Limit limit)
{
    auto const seen = program_->WaitFor(condition, limit);
    if (!seen) {
        program_->SavePicture(PicturePath());
    }
    ASSERT_TRUE(seen) << "last read: " << program_->LastScreen().value_or(Screen{})
                      << ", picture: " << PicturePath().toStdString() << ", log:\n"
                      << program_->ReadLog().toStdString();
}

void Transport::ExpectScreenStays(Program::Condition const& condition, Program::Limit time)
{
    ASSERT_FALSE(program_->WaitFor([&](Screen const& screen) { return !condition(screen); }, time))
        << "changed to: " << *program_->LastScreen();
    EXPECT_TRUE(program_->IsRunning());
}

void Transport::ExpectUnitHoldsImage()
{
    for (auto const& [name, expected, actual] : ReadUnitFacts(bundle_, *unit_)) {
        EXPECT_EQ(actual, expected) << name.toStdString();
    }
}

void Transport::ExpectLogged(QString const& pattern) const
{
    auto const log = QString::fromUtf8(program_->ReadLog());
    EXPECT_EQ(log.count(QRegularExpression(pattern)), 1) << pattern.toStdString() << " in\n"
                                                         << log.toStdString();
}

void Transport::ExpectUnitIsUntouched()
{
    static QRegularExpression const traces(u"erase|write|upload|reset|go|leave"_s);
    EXPECT_EQ(unit_->Journal().filter(traces), QStringList());
}

void Transport::ExpectOneOutcomeEach(QString const& outcome)
{
    auto const events = GetUpdateEvents(program_->ReadLog());
    EXPECT_EQ(events.mid(events.size() - 2), QStringList({u"started"_s, outcome}));
    EXPECT_EQ(events.size(), 2 * events.count(u"started"_s)) << events.join(u' ').toStdString();
}

qsizetype Transport::CountInJournal(QString const& word)
{
    return unit_->Journal().filter(word).size();
}
