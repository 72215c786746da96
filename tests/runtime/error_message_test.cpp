#include "runtime/error_message.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "tests/runtime/locations.h"

using kelvane::ErrorMessage;
using kelvane::ExceptionString;

TEST(ErrorMessage, HasBaseNameLineMessageAndANewline)
{
    char const* const nothing = nullptr;
    etl::string_view const view = etl::string_view("no answer").substr(0, 2);
    struct {
        ErrorMessage error;
        char const* text;
    } const rows[] = {
        {ErrorMessage("no answer", locations::kEngine), "engine.cpp:42 no answer\n"},
        {ErrorMessage("x", locations::kWithoutSlash), "plain.cpp:7 x\n"},
        {ErrorMessage("x", locations::kNone), ":0 x\n"},
        {ErrorMessage("x", locations::kOnlyFolders), ":123456 x\n"},
        {ErrorMessage(view, locations::kEngine), "engine.cpp:42 no\n"},
        {ErrorMessage(etl::string_view(), locations::kEngine), "engine.cpp:42 \n"},
        {ErrorMessage(nothing, locations::kEngine), "engine.cpp:42 \n"},
    };
    for (auto const& [error, text] : rows) {
        EXPECT_EQ(error.Text().view(), text);
    }
}

// "plain.cpp:7 " has 12 characters.
TEST(ErrorMessage, IsCutAt256CharactersTheNewlineIncluded)
{
    for (size_t const size : {size_t{243}, size_t{244}, size_t{1000}}) {
        std::string const message(size, 'm');
        auto const whole = "plain.cpp:7 " + message + "\n";
        for (auto const& error :
             {ErrorMessage(message.c_str(), locations::kWithoutSlash),
              ErrorMessage(etl::string_view(message), locations::kWithoutSlash)}) {
            EXPECT_EQ(error.Text().view(), whole.substr(0, 256)) << size;
            EXPECT_EQ(error.Text().truncated(), size > 243) << size;
        }
    }
}

TEST(ErrorMessage, PutsTheCauseBehindAnArrowAndIsCutWithIt)
{
    ErrorMessage const cause("port closed", locations::kWithoutSlash);
    ErrorMessage const error(etl::string<256>("no answer"), cause, locations::kEngine);
    EXPECT_EQ(error.Text().view(), "engine.cpp:42 no answer\n  <- plain.cpp:7 port closed\n");
    EXPECT_FALSE(error.Text().truncated());

    auto const ms = std::string(100, 'm');
    auto const cs = std::string(300, 'c');
    ErrorMessage const long_cause(cs.substr(0, 200).c_str(), locations::kWithoutSlash);
    ASSERT_FALSE(long_cause.Text().truncated());
    ErrorMessage const cut(etl::string<256>(ms), long_cause, locations::kWithoutSlash);
    EXPECT_EQ(cut.Text().view(), "plain.cpp:7 " + ms + "\n  <- plain.cpp:7 " + cs.substr(0, 126));
    EXPECT_TRUE(cut.Text().truncated());

    ErrorMessage const cut_cause(cs.c_str(), locations::kWithoutSlash);
    EXPECT_TRUE(ErrorMessage(etl::string<256>(), cut_cause, locations::kNone).Text().truncated());
}

TEST(ErrorMessage, NamesTheCallersLineWhenNoLocationIsGiven)
{
    auto const line = std::to_string(__LINE__ + 1);
    ErrorMessage const error("x");

    EXPECT_EQ(error.Text().view(), "error_message_test.cpp:" + line + " x\n");
}

TEST(ExceptionString, IsAStandardExceptionWithTheSameTextButNoNewline)
{
    try {
        throw ExceptionString("no answer, command Read", locations::kEngine);
    } catch (std::exception const& error) {
        EXPECT_STREQ(error.what(), "engine.cpp:42 no answer, command Read");
    }
}

TEST(ExceptionString, IsCutAtTheCapacity)
{
    std::string const fitting(256 - 12, 'm');
    EXPECT_FALSE(ExceptionString(fitting.c_str(), locations::kWithoutSlash).Text().truncated());

    ExceptionString const error((fitting + "m").c_str(), locations::kWithoutSlash);

    EXPECT_EQ(error.what(), "plain.cpp:7 " + fitting);
    EXPECT_TRUE(error.Text().truncated());
}

TEST(ExceptionString, TheCopyOfASecretOutlivesItAndStaysASecret)
{
    auto secret = std::make_unique<ExceptionString>("key", locations::kWithoutSlash);
    secret->SetSecure();
    ExceptionString const copy(*secret);

    secret.reset();

    EXPECT_STREQ(copy.what(), "plain.cpp:7 key");
    EXPECT_TRUE(copy.Text().secure());
}
