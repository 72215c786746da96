#include "runtime/bounded_string.h"

#include <gmock/gmock.h>

#include <array>
#include <iterator>
#include <string>

using testing::Each;

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

    text.append("f");
    EXPECT_STREQ(text.c_str(), "abcde");
    EXPECT_TRUE(text.truncated());

    etl::string<5> other("abc");
    other.append("def");
    EXPECT_STREQ(other.c_str(), "abcde");
    EXPECT_EQ(other.size(), 5U);
    EXPECT_TRUE(other.truncated());
}

TEST(BoundedString, TakesCharactersThroughAnInserter)
{
    etl::string<3> text;
    std::string const source = "wxyz";
    std::copy(source.begin(), source.end(), std::back_inserter(text));

    EXPECT_STREQ(text.c_str(), "wxy");
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

TEST(BoundedString, ASecureTextIsWipedWhenItIsDestroyed)
{
    std::array<char, 9> storage;
    storage.fill('#');
    {
        etl::string_base text(storage);
        text.append("secret");
        text.set_secure();
        EXPECT_EQ(storage[0], 's');
    }
    EXPECT_THAT(storage, Each('\0'));
}

TEST(BoundedString, AnOrdinaryTextIsNotWiped)
{
    std::array<char, 7> storage{};
    {
        etl::string_base text(storage);
        text.append("public");
    }
    EXPECT_STREQ(storage.data(), "public");
}
