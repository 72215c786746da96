#include "runtime/endpoint_id_allocator.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace {

std::vector<int> TakeAll(DispatcherEndpointIdAllocator& allocator)
{
    std::vector<int> ids;
    while (auto const id = allocator.TryGetNextDispatcherEndpointId()) {
        ids.push_back(*id);
    }
    return ids;
}

std::vector<int> FreeIdsFrom(int first)
{
    std::vector<int> ids;
    for (int id = first; id <= 237; ++id) {
        if (id != 19 && id != 200) {
            ids.push_back(id);
        }
    }
    return ids;
}

}  // namespace

TEST(EndpointIdAllocator, HandsOutTheIdsFromTheReservedCountOnWithoutTheFixedOnes)
{
    DispatcherEndpointIdAllocator plain;
    auto const ids = TakeAll(plain);
    EXPECT_EQ(ids.size(), 235U);
    EXPECT_EQ(ids, FreeIdsFrom(1));
    EXPECT_EQ(plain.TryGetNextDispatcherEndpointId(), std::nullopt);
    EXPECT_THROW(plain.GetNextDispatcherEndpointId(), std::bad_optional_access);

    for (int const reserved : {0, 1, 2, 30, 255}) {
        DispatcherEndpointIdAllocator allocator(static_cast<unsigned char>(reserved));
        EXPECT_EQ(TakeAll(allocator), FreeIdsFrom(std::max(reserved, 1))) << reserved;
    }
}

TEST(EndpointIdAllocator, HandsOutAReturnedIdAgainBeforeHigherOnes)
{
    DispatcherEndpointIdAllocator allocator;
    allocator.ReturnDispatcherEndpointId(1);  // free already: no effect
    for (int expected = 1; expected <= 4; ++expected) {
        EXPECT_EQ(allocator.GetNextDispatcherEndpointId(), expected);
    }

    allocator.ReturnDispatcherEndpointId(3);
    allocator.ReturnDispatcherEndpointId(2);

    EXPECT_EQ(allocator.GetNextDispatcherEndpointId(), 2);
    EXPECT_EQ(allocator.GetNextDispatcherEndpointId(), 3);
    EXPECT_EQ(allocator.GetNextDispatcherEndpointId(), 5);
}

TEST(EndpointIdAllocator, FreesAReservedIdThatIsReturned)
{
    DispatcherEndpointIdAllocator allocator;
    TakeAll(allocator);

    for (int const id : {0, 19, 200, 238, 255}) {
        allocator.ReturnDispatcherEndpointId(static_cast<Receiver>(id));
        EXPECT_EQ(allocator.TryGetNextDispatcherEndpointId(), static_cast<Receiver>(id));
    }
}
