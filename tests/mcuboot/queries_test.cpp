// The single requests: what each sends, how long it waits, and what it makes of the answer.
#include "mcuboot/queries.h"

#include <gmock/gmock.h>

#include <functional>
#include <tuple>

#include "tests/mcuboot/scripted_line.h"

namespace mcuboot {
namespace {

using namespace std::chrono_literals;
using test::AnswerWith;
using test::FromHex;
using test::OtpAnswer;
using test::RcAnswer;
using test::ScriptedLine;
using testing::ElementsAre;

constexpr uint32_t kKey = 0x3CA6A4AF;

class Query : public testing::Test {
protected:
    Query() { exchange_.Attach(line_); }

    ScriptedLine line_;
    Exchange exchange_;
};

TEST_F(Query, SendsItsRequestAndWaitsItsTime)
{
    // What asks; "operation group command sequence"; the payload; the wait.
    using Row = std::tuple<std::function<Answer(Exchange&)>, char const*, char const*,
                           std::chrono::milliseconds>;
    auto const command = [](char const* payload) {
        return [payload](Exchange& exchange) {
            return SendCommand(exchange, {2, 300, 7, FromHex(payload)});
        };
    };
    for (auto const& [ask, request, payload, waits] : {
             Row{QueryImageState, "0 1 0 0", "bfff", 2001ms},
             Row{[](Exchange& exchange) { return QueryOtp(exchange, kKey).answer; }, "0 64 0 0",
                 "bf636b65791a3ca6a4afff", 2001ms},
             Row{EraseImage, "2 1 5 0", "bfff", 30000ms},
             Row{command("a0"), "2 300 7 0", "a0", 5001ms},
             Row{command(""), "2 300 7 0", "bfff", 5001ms},
         }) {
        ScriptedLine line;
        Exchange exchange;
        exchange.Attach(line);
        auto const before = line.Now();
        EXPECT_EQ(ask(exchange).outcome, Outcome::kNoAnswer) << request;
        EXPECT_EQ(line.Now() - before, 13ms + waits) << request;
        EXPECT_THAT(line.Journal(), ElementsAre(request));
        EXPECT_EQ(line.Request(0).payload, FromHex(payload)) << request;

        line.Answers(RcAnswer(3));
        auto const answer = ask(exchange);
        EXPECT_EQ(answer.outcome, Outcome::kErrorCode) << request;
        EXPECT_EQ(answer.error_code, 3) << request;
        EXPECT_EQ(answer.payload, FromHex("a162726303")) << request;
    }
}

TEST_F(Query, ResetWritesItsRequestAndReturnsAtOnce)
{
    auto const steps = line_.Steps().size();
    auto const before = line_.Now();
    Reset(exchange_);
    EXPECT_EQ(line_.Steps().size(), steps + 1) << "a write and nothing else";
    EXPECT_EQ(line_.Steps().back(), "write 23");
    EXPECT_EQ(line_.Now(), before);
    EXPECT_THAT(line_.Journal(), ElementsAre("2 0 5 0"));
    EXPECT_EQ(line_.Request(0).payload, FromHex("bfff"));
}

TEST_F(Query, OtpValueIsThereOrItsAbsenceHasAReason)
{
    using Row = std::tuple<QByteArray, Outcome, QByteArray>;
    for (auto const& [raw, outcome, data] : {
             Row{OtpAnswer(FromHex("0c00")), Outcome::kSuccess, FromHex("0c00")},
             // {"data": 07}, without an error code
             Row{AnswerWith(FromHex("a16464617461 4107")), Outcome::kSuccess, FromHex("07")},
             Row{RcAnswer(0), Outcome::kNoData, {}},
             Row{OtpAnswer({}), Outcome::kNoData, {}},
             // {"data": "\7"}, as text
             Row{AnswerWith(FromHex("a16464617461 6107")), Outcome::kNoData, {}},
             // {"rc": 5, "data": 07}
             Row{AnswerWith(FromHex("a2627263056464617461 4107")), Outcome::kErrorCode, {}},
             Row{"noise\n", Outcome::kUnusable, {}},
         }) {
        line_.Answers(raw);
        auto const value = QueryOtp(exchange_, kKey);
        EXPECT_EQ(value.answer.outcome, outcome) << raw.toStdString();
        EXPECT_EQ(value.data, data) << raw.toStdString();
    }
}

}  // namespace
}  // namespace mcuboot
