#include "runtime/message_helper.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "runtime/dispatcher.h"
#include "runtime/logger.h"
#include "tests/runtime/recording_listener.h"

using dispatcher::Dispatcher;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

// Request 0x1B of subsystem 8, from endpoint 0x21 to endpoint 5.
std::vector<uint8_t> const kRequest{0x08, 0x1B, 0x05, 0x21, 0xFF};

class MessageHelperTest : public testing::Test {
protected:
    void Send(std::vector<uint8_t> const& message) { bus_.SendMessage(AsMessage(message)); }

    Dispatcher bus_{{}, 1};
    RecordingListener everything_;
    ListenerCookie cookie_ = bus_.AddListener(
        0, MessageList{{0, 0}, {0, 1}, {0, 2}, {0, 3}, {0, 4}, {0, 5}, {0, 6}, {0, 7}},
        everything_);
};

// A bus on which the return of an id runs a function.
class WatchedDispatcher : public Dispatcher {
public:
    explicit WatchedDispatcher(std::function<void(Receiver)> on_return)
        : Dispatcher({}, 1), on_return_(std::move(on_return))
    {}
    void ReturnDispatcherEndpointId(Receiver id) override { on_return_(id); }

private:
    std::function<void(Receiver)> on_return_;
};

using MessageHelperDeathTest = MessageHelperTest;

}  // namespace

TEST_F(MessageHelperTest, AttachesAFreshOrGivenIdAndReturnsIt)
{
    {
        MessageHelper const fresh(bus_);
        auto const id = bus_.GetNextDispatcherEndpointId();
        ASSERT_EQ(id, 2) << "the helper has 1";
        MessageHelper const given(bus_, id);
        EXPECT_TRUE(bus_.TaskIsAttached(1));
        EXPECT_TRUE(bus_.TaskIsAttached(2));
        EXPECT_EQ(bus_.GetNextDispatcherEndpointId(), 3);
    }
    EXPECT_FALSE(bus_.TaskIsAttached(1));
    EXPECT_FALSE(bus_.TaskIsAttached(2));
    EXPECT_EQ(bus_.GetNextDispatcherEndpointId(), 1);
    EXPECT_EQ(bus_.GetNextDispatcherEndpointId(), 2);
}

TEST_F(MessageHelperTest, ReturnsItsIdBeforeItsRegistrationEnds)
{
    std::vector<bool> attached;
    WatchedDispatcher* watched = nullptr;
    WatchedDispatcher bus([&](Receiver id) { attached.push_back(watched->TaskIsAttached(id)); });
    watched = &bus;
    {
        MessageHelper const helper(bus);
    }
    EXPECT_THAT(attached, ElementsAre(true));
    EXPECT_FALSE(bus.TaskIsAttached(1));
}

TEST_F(MessageHelperTest, ThrowsWhenNoFreshIdIsLeft)
{
    Dispatcher full({}, 255);

    EXPECT_THROW(MessageHelper{full}, std::bad_optional_access);
    EXPECT_THROW((MessageHelper{full, everything_, {}}), std::bad_optional_access);
}

TEST_F(MessageHelperTest, RegistersTheGivenListenerUnderItsId)
{
    RecordingListener fresh, given;
    MessageHelper const with_fresh_id(bus_, fresh, MessageList{{0, 8}});
    MessageHelper const with_given_id(bus_, given, 50, MessageList{{0, 8}});

    Send({0, 8, 1, 9});
    Send({0, 8, 50, 9});

    EXPECT_THAT(fresh.heard, ElementsAre(ElementsAre(0, 8, 1, 9)));
    EXPECT_THAT(given.heard, ElementsAre(ElementsAre(0, 8, 50, 9)));
}

// On a full bus as well, since the helper's own slot, which it has even without messages, is freed
// first.
TEST_F(MessageHelperTest, ReplacesItsOldMessagesByNewOnes)
{
    RecordingListener listener;
    MessageHelper helper(bus_, listener, MessageList{{0, 8}});
    std::vector<std::unique_ptr<MessageHelper>> others;
    for (int i = 0; i < 30; ++i) {
        others.push_back(std::make_unique<MessageHelper>(bus_));
    }
    ASSERT_EQ(bus_.AddListener(60, {}, everything_), nullptr);

    helper.SetHandledMessages(MessageList{{0, 9}});
    Send({0, 8, 0, 99});
    Send({0, 9, 0, 99});

    EXPECT_THAT(listener.heard, ElementsAre(ElementsAre(0, 9, 0, 99)));
    EXPECT_TRUE(bus_.TaskIsAttached(1));
}

TEST_F(MessageHelperTest, StaysUsableAfterARefusedRegistration)
{
    RecordingListener listener;
    MessageHelper helper(bus_, listener, MessageList{{0, 8}});
    for (auto const subsystem : {SubsystemId{77}, SubsystemId{0}}) {
        helper.SetHandledMessages(MessageList{{subsystem, 8}});
        Send({0, 8, 0, 9});
        EXPECT_THAT(listener.heard, SizeIs(subsystem == 0 ? 1 : 0));
        EXPECT_EQ(bus_.TaskIsAttached(1), subsystem == 0);
    }
}

// Each answer twice where it has two forms: to an explicit request, and to the bytes of one.
TEST_F(MessageHelperTest, AnswersARequest)
{
    MessageHelper const helper(bus_, 5);
    auto const request = AsMessage(kRequest);

    helper.SendOkResponse(0x21, 0x08, 0x1B);
    helper.SendOkResponse(request);
    helper.SendFailResponse(0x21, 0x08, 0x1B, 0xA1B2C3D4);
    helper.SendFailResponse(request, 0xA1B2C3D4);
    helper.SendSizeError(request, 0xF0, 0x0F);

    auto const ok = ElementsAre(0x00, 0x01, 0x21, 0x05, 0x08, 0x1B);
    auto const fail = ElementsAre(0x00, 0x02, 0x21, 0x05, 0x08, 0x1B, 0xD4, 0xC3, 0xB2, 0xA1);
    auto const size = ElementsAre(0x00, 0x05, 0x21, 0x05, 0x08, 0x1B, 0xF0, 0x0F);
    EXPECT_THAT(everything_.heard, ElementsAre(ok, ok, fail, fail, size));
}

TEST_F(MessageHelperTest, DoesNotAnswerARequestWithoutAWholeHeader)
{
    MessageHelper const helper(bus_, 5);
    for (size_t size = 0; size <= 4; ++size) {
        auto const cut = AsMessage(kRequest).first(size);
        helper.SendOkResponse(cut);
        helper.SendFailResponse(cut, 1);
        helper.SendSizeError(cut, 1, 2);
        EXPECT_THAT(everything_.heard, SizeIs(size < 4 ? 0 : 3)) << size;
    }
}

TEST_F(MessageHelperTest, SendsItsOwnBytesUnchanged)
{
    MessageHelper const helper(bus_, 5);
    std::vector<uint8_t> const message{0x00, 0x06, 0x00, 0x63, 0xAA};  // not the helper's id

    helper.DoSend(AsMessage(message));

    EXPECT_THAT(everything_.heard, ElementsAre(ElementsAre(0x00, 0x06, 0x00, 0x63, 0xAA)));
}

TEST_F(MessageHelperTest, ReportsAnOverflowInTheLog)
{
    MessageHelper helper(bus_);
    logger::Logger const log(helper);

    helper.ReportOverflow(8, 200, "Image");

    std::string const text = "Message size overflow, message subsystem/ID 8:200 (Image)";
    ASSERT_THAT(everything_.heard, SizeIs(1));
    auto const& line = everything_.heard[0];
    EXPECT_EQ(std::string(line.begin() + 6, line.end()), text);
}

TEST_F(MessageHelperDeathTest, EndsTheProgramWhenItsIdCannotBeReturned)
{
    WatchedDispatcher bus([](Receiver) { throw std::runtime_error("kept"); });

    EXPECT_DEATH({ MessageHelper const helper(bus); }, "");
}
