// What a simulated DFU device tells about itself, byte for byte.
#include "simulator/bootloaders/dfu_descriptors.h"

#include <gtest/gtest.h>

#include "tests/simulator/bootloader_client.h"

namespace simulator {
namespace {

using test::B;

TEST(DfuDescriptors, NameTheMemoriesInTheNotationOfDfuSe)
{
    EXPECT_EQ(MakeMemoryNames(kChips.front()),
              (std::vector<std::string>{"@Internal Flash  /0x08000000/256*0002Kg",
                                        "@Option Bytes  /0x1FFF7800/01*048 e/0x1FFFF800/01*048 e",
                                        "@OTP Memory /0x1FFF7000/01*1024 e"}));
}

TEST(DfuDescriptors, DescribeADeviceWithOneInterfaceOfSeveralAlternateSettings)
{
    UsbDfuIdentity identity;
    identity.memories = {"a", "b", "c"};

    EXPECT_EQ(MakeDescriptors(identity), B({18,   1,    0x00, 0x01, 0,    0,    0,    64,   0x83,
                                            0x04, 0x11, 0xDF, 0x00, 0x22, 1,    2,    3,    1,   //
                                            9,    2,    45,   0,    1,    1,    0,    0x80, 50,  //
                                            9,    4,    0,    0,    0,    0xFE, 1,    2,    4,   //
                                            9,    4,    0,    1,    0,    0xFE, 1,    2,    5,   //
                                            9,    4,    0,    2,    0,    0xFE, 1,    2,    6,   //
                                            9,    0x21, 0x0B, 0xFF, 0x00, 0x00, 0x08, 0x1A, 0x01}));
}

TEST(DfuDescriptors, AnswerForTheTextsThatTheyName)
{
    UsbDfuIdentity identity;
    identity.serial_number = "A1";
    identity.memories = {"@F", "@"};

    EXPECT_EQ(MakeStringDescriptor(identity, 0), B({4, 3, 0x09, 0x04}));
    EXPECT_EQ(MakeStringDescriptor(identity, 3), B({6, 3, 'A', 0, '1', 0}));
    EXPECT_EQ(MakeStringDescriptor(identity, 4), B({6, 3, '@', 0, 'F', 0}));
    EXPECT_EQ(MakeStringDescriptor(identity, 5), B({4, 3, '@', 0}));
    EXPECT_EQ(MakeStringDescriptor(identity, 6), B({}));
}

}  // namespace
}  // namespace simulator
