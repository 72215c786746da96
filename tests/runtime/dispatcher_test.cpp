#include "runtime/dispatcher.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/runtime/recording_listener.h"

using dispatcher::Dispatcher;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

MessageList const kOneMessage{{0, 3}};

// The message that kOneMessage registers for, without payload.
std::vector<uint8_t> Message(uint8_t destination, uint8_t sender)
{
    return {0, 3, destination, sender};
}

size_t HighestMessageId(Dispatcher const& bus, SubsystemId subsystem)
{
    auto const ids = bus.GetAllMessageIds();
    auto const last = std::ranges::find(ids.rbegin(), ids.rend(), subsystem,
                                        &std::pair<SubsystemId, MessageId>::first);
    return last == ids.rend() ? 1000 : last->second;
}

// Calls a function for each message, for what a listener does while it is called.
class CallingListener : public IListener {
public:
    explicit CallingListener(std::function<void()> call) : call_(std::move(call)) {}
    void OnMessage(std::span<std::byte const>) override { call_(); }

private:
    std::function<void()> call_;
};

class DispatcherTest : public testing::Test {
protected:
    void Send(std::vector<uint8_t> const& message) { bus_.SendMessage(AsMessage(message)); }

    ListenerCookie Add(Receiver receiver, IListener& listener,
                       MessageList const& messages = kOneMessage)
    {
        return bus_.AddListener(receiver, messages, listener);
    }

    Dispatcher bus_{{}, 1};
    RecordingListener listener_;
};

using ListenerCookieTest = DispatcherTest;
using FastListenerTest = DispatcherTest;

}  // namespace

TEST_F(ListenerCookieTest, RunsItsFunctionOnceWhenItIsDestroyed)
{
    std::vector<int*> calls;
    {
        auto cookie = CreateListenerCookie([&calls](int* mark) { calls.push_back(mark); });
        auto const moved = std::move(cookie);
        EXPECT_NE(moved, nullptr);
        EXPECT_THAT(calls, IsEmpty());
    }
    EXPECT_THAT(calls, ElementsAre(reinterpret_cast<int*>(uintptr_t{1})));
}

TEST_F(DispatcherTest, SizesEachSubsystemFromTheTable)
{
    std::vector<SubsystemId> const all{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 100, 255};
    Dispatcher const bus(all, 1);

    std::vector<size_t> highest;
    for (auto const subsystem : all) {
        highest.push_back(HighestMessageId(bus, subsystem));
    }

    EXPECT_THAT(highest, ElementsAre(9, 27, 4, 4, 3, 43, 9, 8, 29, 12, 99, 24, 24, 43, 43, 43));
}

TEST_F(DispatcherTest, ListsTheTenCommonMessagesAndThoseOfSubsystemsThatAreSetUp)
{
    MessageList common;
    for (MessageId id = 0; id < 10; ++id) {
        common.emplace_back(0, id);
    }
    EXPECT_EQ(bus_.GetAllMessageIds(), common);

    std::vector<SubsystemId> const subsystems{4, 2};
    auto const ids = Dispatcher(subsystems, 1).GetAllMessageIds();
    EXPECT_EQ(MessageList(ids.begin(), ids.begin() + 10), common);
    EXPECT_EQ(
        MessageList(ids.begin() + 10, ids.end()),
        (MessageList{{2, 0}, {2, 1}, {2, 2}, {2, 3}, {2, 4}, {4, 0}, {4, 1}, {4, 2}, {4, 3}}));

    auto const cookie = Add(5, listener_);
    bus_.SetupSubsystem(255, 255);
    EXPECT_THAT(bus_.GetAllMessageIds(), SizeIs(10 + 256));
    Send(Message(0, 9));
    EXPECT_THAT(listener_.heard, SizeIs(1)) << "lower subsystems are kept";
}

TEST_F(DispatcherTest, SettingUpASubsystemAgainLosesItsRegistrationsButNotTheirSlots)
{
    std::array<ListenerCookie, 32> cookies;
    for (auto& cookie : cookies) {
        cookie = Add(5, listener_);
    }

    bus_.SetupSubsystem(0, 9);

    Send(Message(0, 9));
    EXPECT_THAT(listener_.heard, IsEmpty());
    EXPECT_EQ(Add(5, listener_), nullptr) << "the slots are still in use";

    cookies[7].reset();
    auto const added = Add(5, listener_);
    Send(Message(0, 9));
    EXPECT_THAT(listener_.heard, SizeIs(1));
}

TEST_F(DispatcherTest, ARegistrationCanEndAfterItsMessageIsGone)
{
    auto cookie = Add(5, listener_, {{0, 3}, {0, 9}});
    bus_.SetupSubsystem(0, 4);

    cookie.reset();

    EXPECT_FALSE(bus_.TaskIsAttached(5));
    EXPECT_EQ(HighestMessageId(bus_, 0), 4U);
}

TEST_F(DispatcherTest, AMessageNeedsItsWholeHeaderAndIsSeenAsTheSendersOwnBytes)
{
    class AddressListener : public IListener {
    public:
        void OnMessage(std::span<std::byte const> message) override { heard.push_back(message); }
        std::vector<std::span<std::byte const>> heard;
    };
    AddressListener listener;
    auto const cookie = Add(5, listener);
    std::vector<uint8_t> message(255, 0xAB);
    std::ranges::copy(Message(0, 9), message.begin());
    for (size_t const size : {0U, 1U, 3U, 4U, 255U}) {
        bus_.SendMessage(AsMessage(message).first(size));
    }

    ASSERT_THAT(listener.heard, SizeIs(2));
    EXPECT_EQ(listener.heard[0].data(), AsMessage(message).data());
    EXPECT_EQ(listener.heard[0].size(), 4U) << "without payload";
    EXPECT_EQ(listener.heard[1].size(), 255U);
}

TEST_F(DispatcherTest, UnknownMessagesAreDroppedAndRefused)
{
    struct {
        char const* name;
        SubsystemId subsystem;
        MessageId message;
        bool known;
    } const rows[] = {
        {"a gap in the table", 2, 0, false},
        {"beyond the table", 4, 0, false},
        {"the highest subsystem", 255, 3, false},
        {"beyond the subsystem's messages", 0, 10, false},
        {"the same in another subsystem", 3, 5, false},
        {"known, but without listener", 0, 4, true},
        {"the wanted message id in another subsystem", 3, 3, true},
    };
    std::vector<SubsystemId> const subsystems{3};
    Dispatcher bus(subsystems, 1);
    auto const cookie = bus.AddListener(5, kOneMessage, listener_);
    for (auto const& [name, subsystem, message, known] : rows) {
        bus.SendMessage(AsMessage(std::vector<uint8_t>{subsystem, message, 0, 9}));
        EXPECT_THAT(listener_.heard, IsEmpty()) << name;
        auto const added = bus.AddListener(5, MessageList{{subsystem, message}}, listener_);
        EXPECT_EQ(added != nullptr, known) << name;
        EXPECT_EQ(static_cast<bool>(added.get_deleter()), known) << name;
    }
}

TEST_F(DispatcherTest, DeliversByDestinationAndNeverToTheSender)
{
    struct {
        char const* name;
        uint8_t destination;
        uint8_t sender;
        std::array<size_t, 4> heard;  // by the listeners 0 (any destination), 5, 5 and 6
    } const rows[] = {
        {"a broadcast", 0, 9, {1, 1, 1, 1}},
        {"a broadcast of a listener's own endpoint", 0, 5, {1, 0, 0, 1}},
        {"a broadcast of an anonymous sender", 0, 0, {0, 1, 1, 1}},
        {"a directed message", 5, 9, {1, 1, 1, 0}},
        {"a message of an endpoint to itself", 5, 5, {1, 0, 0, 0}},
        {"a directed message of an anonymous sender", 5, 0, {0, 1, 1, 0}},
        {"a message to an endpoint that does not listen", 7, 9, {1, 0, 0, 0}},
    };
    for (auto const& [name, destination, sender, heard] : rows) {
        std::array<RecordingListener, 4> listeners;
        std::array const cookies{Add(0, listeners[0]), Add(5, listeners[1]), Add(5, listeners[2]),
                                 Add(6, listeners[3])};

        Send(Message(destination, sender));

        for (size_t i = 0; i < heard.size(); ++i) {
            EXPECT_EQ(listeners[i].heard.size(), heard[i]) << name << ", listener " << i;
        }
    }
}

TEST_F(DispatcherTest, ListenersAreCalledBeforeSendReturnsAndMaySendThemselves)
{
    CallingListener answering([this] { Send({0, 4, 0, 6}); });
    auto const asked = Add(6, answering);
    auto const answered = Add(5, listener_, {{0, 4}});

    Send(Message(6, 5));

    EXPECT_THAT(listener_.heard, ElementsAre(ElementsAre(0, 4, 0, 6)));
}

TEST_F(DispatcherTest, AListenerRemovedByAnEarlierOneIsNotCalled)
{
    ListenerCookie removed;
    CallingListener removing([&removed] { removed.reset(); });
    auto const cookie = Add(6, removing);
    removed = Add(5, listener_);

    Send(Message(0, 9));

    EXPECT_THAT(listener_.heard, IsEmpty());
}

TEST_F(DispatcherTest, OneRegistrationCoversSeveralMessagesAndEndsForAll)
{
    bus_.SetupSubsystem(10, 99);
    auto cookie = Add(5, listener_, {{0, 0}, {0, 9}, {10, 99}, {0, 9}});
    auto const send_all = [this] {
        Send({0, 0, 0, 9});
        Send({0, 9, 0, 9});
        Send({10, 99, 0, 9});
    };

    send_all();
    EXPECT_THAT(listener_.heard, SizeIs(3));

    cookie.reset();
    send_all();
    EXPECT_THAT(listener_.heard, SizeIs(3));
}

// A new listener takes the lowest free slot, and the calls are in the order of the slots.
TEST_F(DispatcherTest, The33rdListenerIsRefusedUntilASlotIsFreed)
{
    std::string order;
    CallingListener old([&order] { order += '.'; });
    CallingListener first([&order] { order += '1'; });
    CallingListener second([&order] { order += '2'; });
    std::vector<ListenerCookie> cookies;
    for (int i = 0; i < 32; ++i) {
        cookies.push_back(Add(5, old));
        ASSERT_NE(cookies.back(), nullptr) << i;
    }
    EXPECT_EQ(Add(6, first), nullptr);
    EXPECT_FALSE(bus_.TaskIsAttached(6));

    cookies[20].reset();
    cookies[10].reset();
    auto const lowest = Add(6, first);
    auto const highest = Add(6, second);
    EXPECT_EQ(Add(6, first), nullptr);
    Send(Message(0, 9));

    EXPECT_EQ(order, std::string(10, '.') + '1' + std::string(9, '.') + '2' + std::string(11, '.'));
}

TEST_F(DispatcherTest, AFailedRegistrationKeepsItsSlotAndTheMessagesBeforeTheUnknownOne)
{
    RecordingListener failed;
    EXPECT_EQ(Add(5, failed, {{0, 3}, {0, 10}, {0, 4}}), nullptr);
    EXPECT_FALSE(bus_.TaskIsAttached(5));

    std::vector<ListenerCookie> cookies;
    for (int i = 0; i < 31; ++i) {
        cookies.push_back(Add(6, listener_));
        ASSERT_NE(cookies.back(), nullptr) << i;
    }
    EXPECT_EQ(Add(6, listener_), nullptr) << "only 31 slots were left";

    Send({0, 3, 0, 9});
    Send({0, 4, 0, 9});
    EXPECT_THAT(failed.heard, ElementsAre(ElementsAre(0, 3, 0, 9)));
}

TEST_F(DispatcherTest, AttachesEveryReceiverExceptZeroEvenWithoutMessages)
{
    auto const any = Add(0, listener_);
    auto const highest = Add(255, listener_, {});

    ASSERT_NE(highest, nullptr);
    EXPECT_FALSE(bus_.TaskIsAttached(0));
    EXPECT_TRUE(bus_.TaskIsAttached(255));
    EXPECT_FALSE(bus_.TaskIsAttached(1));
}

TEST_F(DispatcherTest, OneOfTwoCookiesOfAReceiverTakesTheAttachedFlagWithIt)
{
    auto first = Add(5, listener_);
    auto const second = Add(5, listener_);

    first.reset();

    EXPECT_FALSE(bus_.TaskIsAttached(5));
    Send(Message(5, 9));
    EXPECT_THAT(listener_.heard, SizeIs(1)) << "the other registration still holds";
}

TEST_F(DispatcherTest, PassesEndpointIdsFromAndToItsAllocator)
{
    EXPECT_EQ(bus_.GetNextDispatcherEndpointId(), 1);
    EXPECT_EQ(bus_.GetNextDispatcherEndpointId(), 2);
    bus_.ReturnDispatcherEndpointId(1);
    EXPECT_EQ(bus_.GetNextDispatcherEndpointId(), 1);

    Dispatcher reserving({}, 237);
    EXPECT_EQ(reserving.GetNextDispatcherEndpointId(), 237);
    EXPECT_THROW(reserving.GetNextDispatcherEndpointId(), std::bad_optional_access);
}

TEST_F(FastListenerTest, HearsEveryFastMessageExceptItsOwn)
{
    RecordingFastListener five, zero;
    auto const first = bus_.AddFastListener(5, five);
    auto const second = bus_.AddFastListener(0, zero);

    bus_.SendFastMessage(5, std::array{std::byte{0x12}, std::byte{0x34}});
    bus_.SendFastMessage(0, std::array{std::byte{0x56}, std::byte{0x78}});

    EXPECT_THAT(five.heard, ElementsAre(ElementsAre(0, 0x56, 0x78)));
    EXPECT_THAT(zero.heard, ElementsAre(ElementsAre(5, 0x12, 0x34)));
}

TEST_F(FastListenerTest, IsRefusedASecondTimeWhateverItsReceiver)
{
    RecordingFastListener listener;
    auto cookie = bus_.AddFastListener(5, listener);
    EXPECT_NE(cookie, nullptr);

    EXPECT_EQ(bus_.AddFastListener(6, listener), nullptr);
    EXPECT_FALSE(bus_.TaskIsAttached(5)) << "fast listeners attach nobody";

    cookie.reset();
    EXPECT_NE(bus_.AddFastListener(6, listener), nullptr);
}

// Into the lowest free slot, which also decides the order of the calls.
TEST_F(FastListenerTest, TheNinthIsRefusedUntilASlotIsFreed)
{
    class NamedListener final : public IFastListener {
    public:
        explicit NamedListener(std::string& order) : order_(order) {}
        void OnFastMessage(Receiver, std::span<std::byte const, 2>) override { order_ += name; }
        char name = 'a';

    private:
        std::string& order_;
    };
    std::string order;
    std::vector<NamedListener> listeners(9, NamedListener(order));
    for (size_t i = 0; i < listeners.size(); ++i) {
        listeners[i].name = static_cast<char>('a' + i);
    }
    std::vector<ListenerCookie> cookies;
    for (size_t i = 0; i < 8; ++i) {
        cookies.push_back(bus_.AddFastListener(5, listeners[i]));
        ASSERT_NE(cookies.back(), nullptr) << i;
    }
    EXPECT_EQ(bus_.AddFastListener(5, listeners[8]), nullptr);

    cookies[6].reset();
    cookies[3].reset();
    auto const ninth = bus_.AddFastListener(5, listeners[8]);
    bus_.SendFastMessage(9, std::array{std::byte{1}, std::byte{2}});

    EXPECT_EQ(order, "abciefh");
}
