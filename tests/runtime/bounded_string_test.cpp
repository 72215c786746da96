#include "runtime/bounded_string.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

TEST(BoundedString, StartsEmptyWithAllFlagsClear)
{
    etl::string<256> const text;

    EXPECT_EQ(text.view(), "");
    EXPECT_EQ(text.size(), 0U);
    EXPECT_EQ(text.capacity(), 256U);
    EXPECT_STREQ(text.c_str(), "");
    EXPECT_FALSE(text.truncated());
    EXPECT_FALSE(text.secure());
}

TEST(BoundedString, CutsWhatDoesNotFitAndRemembersThat)
{
    etl::string<5> text;
    text.append("abc");
    text.append("de");
    text.append("");
    EXPECT_STREQ(text.c_str(), "abcde");
    EXPECT_FALSE(text.truncated()) << "nothing was lost";

    std::ranges::copy(std::string_view("fg"), std::back_inserter(text));
    EXPECT_STREQ(text.c_str(), "abcde");
    EXPECT_EQ(text.size(), 5U);
    EXPECT_TRUE(text.truncated());
}

TEST(BoundedString, ACopyHasItsOwnStorageAndTheFlags)
{
    etl::string<4> text("abcdef");
    text.set_secure();

    etl::string<4> const copy(text);
    etl::string<4> assigned("zz");
    assigned = text;
    etl::string<4> const& same = assigned;
    assigned = same;

    for (auto const* other : {&copy, &same}) {
        EXPECT_NE(other->c_str(), text.c_str());
        EXPECT_STREQ(other->c_str(), "abcd");
        EXPECT_TRUE(other->truncated());
        EXPECT_TRUE(other->secure());
    }
}

TEST(BoundedString, AnAssignmentLeavesNothingOfTheOldText)
{
    etl::string<8> text("password");
    text = etl::string<8>("ab");
    text.append("cd");

    EXPECT_STREQ(text.c_str(), "abcd");
    EXPECT_EQ(std::string_view(text.c_str() + 4, 4), std::string_view("\0\0\0\0", 4));
}

TEST(BoundedString, OnlyASecureTextIsWipedWhenItIsDestroyed)
{
    for (bool const secure : {true, false}) {
        std::array<char, 7> storage{};
        storage.back() = '#';
        {
            etl::string_base text(storage);
            text.append("secret");
            if (secure) {
                text.set_secure();
            }
            EXPECT_STREQ(storage.data(), "secret");
        }
        EXPECT_EQ(storage, secure ? decltype(storage){} : std::to_array("secret"));
    }
}
