// When the window keeps the computer awake.
#include <gmock/gmock.h>

#include <QSemaphore>
#include <string>
#include <utility>
#include <vector>

#include "tests/app/window_fixture.h"

using namespace Qt::StringLiterals;
using testing::ElementsAre;

namespace {

using Notes = std::vector<std::string>;

// Releases at its end, as the real one does.
class NotedInhibitor : public SleepInhibitor {
public:
    explicit NotedInhibitor(Notes& notes) : notes_(notes) {}
    ~NotedInhibitor() override { NotedInhibitor::Release(); }
    void Hold() override
    {
        held_ = true;
        notes_.push_back("hold");
    }
    void Release() override
    {
        if (std::exchange(held_, false)) {
            notes_.push_back("release");
        }
    }

private:
    Notes& notes_;
    bool held_ = false;
};

class StayingAwake : public WindowTest {
protected:
    StayingAwake() { environment_.sleep_inhibitor = std::make_shared<NotedInhibitor>(notes_); }

    Notes notes_;
};

}  // namespace

TEST_F(StayingAwake, LastsFromTheStartOfAnUpdateToItsEnd)
{
    for (auto const outcome : {true, false}) {
        notes_.clear();
        MakeWindow();
        ReportStatus(ConnectionStatus::Connected);
        Button().click();
        EXPECT_THAT(notes_, ElementsAre());
        StartUpdate();
        EXPECT_THAT(notes_, ElementsAre("hold"));
        FinishUpdate(outcome);
        EXPECT_THAT(notes_, ElementsAre("hold", "release"));
    }
}

TEST_F(StayingAwake, LastsUntilTheEndOfAnUpdateThatOutlivesItsWindow)
{
    record_->holds_updates = true;
    MakeWindow();
    environment_.sleep_inhibitor.reset();  // the window has the only one now
    StartUpdate();
    Q_EMIT window_->UpdateDevice();
    ASSERT_TRUE(WaitForCalls(u"update"_s, 1));
    Notes notes_at_the_end{"none"};
    QObject::connect(backend_, &QObject::destroyed, [&] { notes_at_the_end = notes_; });

    record_->update_may_end.release();
    window_.reset();

    EXPECT_THAT(notes_at_the_end, ElementsAre("hold"));
    EXPECT_THAT(notes_, ElementsAre("hold", "release"));
}
