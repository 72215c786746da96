#include "tests/runtime/recording_listener.h"

#include <gmock/gmock.h>

#include <array>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(RecordingListener, KeepsEveryMessageInOrder)
{
    RecordingListener listener;
    EXPECT_THAT(listener.heard, IsEmpty());

    std::vector<uint8_t> const first{1, 255};
    listener.OnMessage(AsMessage(first));
    listener.OnMessage({});

    EXPECT_THAT(listener.heard, ElementsAre(ElementsAre(1, 255), IsEmpty()));
}

TEST(RecordingFastListener, KeepsTheSenderWithTheTwoBytes)
{
    RecordingFastListener listener;

    listener.OnFastMessage(9, std::array{std::byte{1}, std::byte{2}});

    EXPECT_THAT(listener.heard, ElementsAre(ElementsAre(9, 1, 2)));
}
