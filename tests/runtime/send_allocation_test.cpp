// The bus and the heap, in a program of its own that counts allocations and lets them fail.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

#include "runtime/dispatcher.h"
#include "runtime/logger.h"
#include "runtime/message_helper.h"
#include "tests/runtime/allocation_counter.h"

namespace {

class CountingListener : public IListener, public IFastListener {
public:
    void OnMessage(std::span<std::byte const>) override { ++messages; }
    void OnFastMessage(Receiver, std::span<std::byte const, 2>) override { ++fast_messages; }

    int messages = 0;
    int fast_messages = 0;
};

class SendAllocationTest : public testing::Test {
protected:
    SendAllocationTest()
    {
        std::vector<std::pair<SubsystemId, MessageId>> const messages{
            {0, 1}, {0, 2}, {0, 3}, {0, 5}, {0, 7}};
        for (int i = 0; i < 31; ++i) {
            cookies_.push_back(bus_.AddListener(5, messages, listener_));
        }
    }

    dispatcher::Dispatcher bus_{{}, 1};
    CountingListener listener_;
    std::vector<ListenerCookie> cookies_;
};

}  // namespace

TEST_F(SendAllocationTest, TheCounterSeesAnAllocation)
{
    auto const before = GetAllocationCount();
    std::vector<int> const some(100);

    EXPECT_EQ(GetAllocationCount() - before, 1U);
    EXPECT_EQ(some.size(), 100U);
}

TEST_F(SendAllocationTest, SendingDoesNotAllocate)
{
    auto const fast = bus_.AddFastListener(5, listener_);
    constexpr std::array broadcast{std::byte{0}, std::byte{3}, std::byte{0}, std::byte{9}};
    constexpr std::array directed{std::byte{0}, std::byte{3}, std::byte{5}, std::byte{9}};
    constexpr std::array unknown{std::byte{9}, std::byte{9}, std::byte{0}, std::byte{9}};

    auto const before = GetAllocationCount();
    bus_.SendMessage(broadcast);
    bus_.SendMessage(directed);
    bus_.SendMessage(unknown);
    bus_.SendFastMessage(9, std::array{std::byte{1}, std::byte{2}});
    auto const allocations = GetAllocationCount() - before;

    EXPECT_EQ(allocations, 0U);
    EXPECT_EQ(listener_.messages, 62);
    EXPECT_EQ(listener_.fast_messages, 1);
}

TEST_F(SendAllocationTest, AnsweringAndLoggingDoNotAllocate)
{
    MessageHelper helper(bus_, 9);
    logger::Logger const log(helper);
    constexpr std::array request{std::byte{8}, std::byte{2}, std::byte{9}, std::byte{5}};

    auto const before = GetAllocationCount();
    helper.SendOkResponse(request);
    helper.SendFailResponse(request, 1);
    helper.SendSizeError(request, 1, 2);
    helper.ReportOverflow(8, 2, "Image");
    auto const allocations = GetAllocationCount() - before;

    EXPECT_EQ(allocations, 0U);
    EXPECT_EQ(listener_.messages, 4 * 31);
}

TEST(AddListenerAllocation, AFailedOneRegistersNothing)
{
    constexpr std::array message{std::byte{0}, std::byte{3}, std::byte{0}, std::byte{9}};
    constexpr std::array messages{std::pair<SubsystemId, MessageId>{0, 3}};
    dispatcher::Dispatcher bus({}, 1);
    CountingListener listener;
    ListenerCookie cookie;
    int failures = 0;
    for (uint64_t n = 1; cookie == nullptr; ++n) {
        FailAllocation(n);
        try {
            cookie = bus.AddListener(5, messages, listener);
        } catch (std::bad_alloc const&) {
            ++failures;
        }
        FailAllocation(0);
        if (cookie == nullptr) {
            EXPECT_FALSE(bus.TaskIsAttached(5)) << n;
            bus.SendMessage(message);
            EXPECT_EQ(listener.messages, 0) << n;
        }
    }
    EXPECT_GT(failures, 0);
    bus.SendMessage(message);
    EXPECT_EQ(listener.messages, 1);

    std::vector<ListenerCookie> rest;
    for (int i = 0; i < 31; ++i) {
        rest.push_back(bus.AddListener(5, messages, listener));
        EXPECT_NE(rest.back(), nullptr) << "slot " << i << " was lost to a failure";
    }
}
