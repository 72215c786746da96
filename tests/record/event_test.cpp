// An event of a session as the comment of a packet, and back.
#include "record/event.h"

#include <gtest/gtest.h>

#include "record/pcapng_format.h"

using record::Event;
using record::FormatEvent;
using record::ParseEvent;

namespace {

struct EventText {
    Event event;
    QByteArray text;
};

std::vector<EventText> const& EventTexts()
{
    static std::vector<EventText> const rows{
        {{QStringLiteral("update-started"), {}}, "event: update-started"},
        {{QStringLiteral("connect"),
          {{QStringLiteral("port"), QStringLiteral("ttyUSB0")},
           {QStringLiteral("transport"), QStringLiteral("uart")}}},
         "event: connect port=ttyUSB0 transport=uart"},
        {{QStringLiteral("log"), {{QStringLiteral("text"), QStringLiteral("two words")}}},
         "event: log text=\"two words\""},
        {{QStringLiteral("log"), {{QStringLiteral("text"), QString()}}}, "event: log text=\"\""},
        {{QStringLiteral("log"), {{QStringLiteral("text"), QStringLiteral("a=b")}}},
         "event: log text=\"a=b\""},
        {{QStringLiteral("log"), {{QStringLiteral("text"), QStringLiteral("C:\\x \"y\"\r\n\tz")}}},
         R"(event: log text="C:\\x \"y\"\r\n\tz")"},
        {{QStringLiteral("log"), {{QStringLiteral("text"), QStringLiteral("Größe")}}},
         "event: log text=\"Gr\xC3\xB6\xC3\x9F\x65\""},
    };
    return rows;
}

}  // namespace

TEST(Event, IsATextThatReadsBackAsTheSameEvent)
{
    for (auto const& row : EventTexts()) {
        EXPECT_EQ(FormatEvent(row.event), row.text);
        EXPECT_EQ(ParseEvent(QString::fromUtf8(row.text)), row.event) << row.text.constData();
    }
}

TEST(Event, HasTheFirstValueOfAFieldOrNone)
{
    Event const event{
        QStringLiteral("x"),
        {{QStringLiteral("a"), QStringLiteral("1")}, {QStringLiteral("a"), QStringLiteral("2")}}};

    EXPECT_EQ(event.GetValue("a"), QStringLiteral("1"));
    EXPECT_EQ(event.GetValue("b"), QString());
}

TEST(Event, OtherControlCharactersBecomeSpaces)
{
    EXPECT_EQ(FormatEvent({QStringLiteral("log"),
                           {{QStringLiteral("text"), QStringLiteral("a\x07\x7Fz")}}}),
              "event: log text=\"a  z\"");
}

TEST(Event, OneThatIsTooLongForACommentIsCutAndStillReads)
{
    for (auto const* const part : {"x", "\"", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        auto const text = QString::fromUtf8(part).repeated(70'000);

        auto const comment = FormatEvent({QStringLiteral("log"), {{QStringLiteral("text"), text}}});

        EXPECT_LE(comment.size(), record::kLongestOption) << part;
        auto const event = ParseEvent(QString::fromUtf8(comment));
        ASSERT_TRUE(event) << part;
        EXPECT_TRUE(event->GetValue("text").startsWith(text.first(16'000))) << part;
    }
}

TEST(Event, OtherCommentsAreNone)
{
    constexpr char const* kComments[] = {"",
                                         "look here",
                                         "event:",
                                         "event: ",
                                         "event: Connect",
                                         "Event: connect",
                                         " event: connect",
                                         "event: connect ",
                                         "event: connect  port=x",
                                         "event: connect port",
                                         "event: connect port=",
                                         "event: connect =x",
                                         "event: connect port=\"x",
                                         "event: connect port=\"x\\",
                                         "event: connect port=\"x\\q\"",
                                         "event: connect port=\"x\"y",
                                         "event: connect port=x=y"};
    for (auto const* const comment : kComments) {
        EXPECT_EQ(ParseEvent(QString::fromUtf8(comment)), std::nullopt) << comment;
    }
}
