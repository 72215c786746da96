// Every fault at every step: one whole conversation (connect, read, update, exit), in which one
// answer is missing, refused, garbled, cut or too long. The operation concerned has to fail, with
// the right text, and nothing further may be sent.
#include <iterator>

#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using ::testing::IsEmpty;

enum class Operation { kConnect, kGetOtp, kUpdate, kExit };

enum class WaitKind { kAck, kCount, kData };

struct Wait {
    WaitKind kind;
    size_t size;  // bytes
};
constexpr Wait kAckWait{WaitKind::kAck, 1};
constexpr Wait kCountWait{WaitKind::kCount, 1};

struct Step {
    std::string name;
    Operation operation;
    std::string command;  // as the error texts call it
    Bytes sent;
    Bytes answer;
    std::vector<Wait> waits;        // what the engine waits for, in order
    size_t write_start = SIZE_MAX;  // where the engine starts again after a NACK
};

Bytes const kImage = PatternImage(16);

void AddConnect(std::vector<Step>& steps, int erase_command)
{
    auto const operation = Operation::kConnect;
    steps.push_back({"Sync", operation, "Init con", ToBytes({0x7F}), ToBytes({0x79}), {kAckWait}});
    steps.push_back({"Get",
                     operation,
                     "Get",
                     ToBytes({0x00, 0xFF}),
                     ToBytes({0x79, 0x06, 0x31, 0x00, 0x01, 0x02, 0x11, 0x31, erase_command, 0x79}),
                     {kAckWait, kCountWait, {WaitKind::kData, 7}, kAckWait}});
    steps.push_back({"GetId",
                     operation,
                     "Get ID",
                     ToBytes({0x02, 0xFD}),
                     ToBytes({0x79, 0x01, 0x04, 0x69, 0x79}),
                     {kAckWait, kCountWait, {WaitKind::kData, 2}, kAckWait}});
}

void AddGetOtp(std::vector<Step>& steps)
{
    auto const operation = Operation::kGetOtp;
    auto const ack = ToBytes({0x79});
    steps.push_back({"Read", operation, "Read", ToBytes({0x11, 0xEE}), ack, {kAckWait}});
    steps.push_back({"ReadAddress",
                     operation,
                     "Read",
                     ToBytes({0x1F, 0xFF, 0x70, 0x00, 0x90}),
                     ack,
                     {kAckWait}});
    steps.push_back({"ReadCount",
                     operation,
                     "Read",
                     ToBytes({0x07, 0xF8}),
                     ToBytes({0x79, 1, 2, 3, 4, 5, 6, 7, 8}),
                     {kAckWait, {WaitKind::kData, 8}}});
}

void AddWrite(std::vector<Step>& steps, std::string const& name, Operation operation,
              Bytes const& address, Bytes const& frame)
{
    auto const ack = ToBytes({0x79});
    size_t const start = steps.size();
    steps.push_back({name, operation, "Write", ToBytes({0x31, 0xCE}), ack, {kAckWait}, start});
    steps.push_back({name + "Address", operation, "Write", address, ack, {kAckWait}, start});
    steps.push_back({name + "Data", operation, "Write", frame, ack, {kAckWait}, start});
}

void AddUpdate(std::vector<Step>& steps, bool extended)
{
    auto const operation = Operation::kUpdate;
    auto const ack = ToBytes({0x79});
    steps.push_back({"GetVersion",
                     operation,
                     "Get Ver Rops",
                     ToBytes({0x01, 0xFE}),
                     ToBytes({0x79, 0x31, 0x00, 0x00, 0x79}),
                     {kAckWait, {WaitKind::kData, 3}, kAckWait}});
    std::string const name = extended ? "Erase Ext" : "Erase";
    steps.push_back({"Erase",
                     operation,
                     name,
                     extended ? ToBytes({0x44, 0xBB}) : ToBytes({0x43, 0xBC}),
                     ack,
                     {kAckWait}});
    steps.push_back({"ErasePages",
                     operation,
                     name,
                     extended ? ToBytes({0, 0, 0, 0, 0}) : ToBytes({0, 0, 0}),
                     ack,
                     {kAckWait}});
    AddWrite(steps, "Write", operation, ToBytes({0x08, 0x00, 0x00, 0x00, 0x08}),
             ToBytes({0x07, 0x01, 0x08, 0x0F, 0x16, 0x1D, 0x24, 0x2B, 0x32, 0x37}));
    AddWrite(steps, "Trailer", operation, ToBytes({0x08, 0x00, 0x00, 0x08, 0x00}),
             ToBytes({0x07, 0x39, 0x40, 0x47, 0x4E, 0x05, 0x00, 0x00, 0x00, 0x72}));
}

void AddExit(std::vector<Step>& steps)
{
    auto const operation = Operation::kExit;
    AddWrite(steps, "Marker", operation, ToBytes({0x20, 0x00, 0x10, 0x00, 0x30}),
             ToBytes({0x03, 'P', 'U', 'W', 'F', 0x17}));
    steps.push_back({"Go", operation, "Write", ToBytes({0x21, 0xDE}), ToBytes({0x79}), {kAckWait}});
    steps.push_back(
        {"GoAddress", operation, "Write", ToBytes({0x08, 0x00, 0x00, 0x00, 0x08}), {}, {}});
}

std::vector<Step> Conversation(bool extended)
{
    std::vector<Step> steps;
    AddConnect(steps, extended ? 0x44 : 0x43);
    AddGetOtp(steps);
    AddUpdate(steps, extended);
    AddExit(steps);
    return steps;
}

enum class FaultKind {
    kSilence,    // the answer ends before this wait
    kCut,        // ... or after its first byte
    kNack,       // 1F in place of the ACK
    kGarbage,    // a byte that is neither ACK nor NACK, or a count that is too high
    kExtraByte,  // one byte more after the answer
};

struct Case {
    bool extended;
    size_t step;
    size_t wait;
    FaultKind fault;
};

std::string ToText(FaultKind fault)
{
    switch (fault) {
        case FaultKind::kSilence:
            return "Silence";
        case FaultKind::kCut:
            return "Cut";
        case FaultKind::kNack:
            return "Nack";
        case FaultKind::kGarbage:
            return "Garbage";
        case FaultKind::kExtraByte:
            return "ExtraByte";
    }
    return {};
}

std::string NameOf(::testing::TestParamInfo<Case> const& info)
{
    auto const& param = info.param;
    auto const step = Conversation(param.extended)[param.step];
    return std::string(param.extended ? "Extended" : "Legacy") + step.name + "Wait" +
           std::to_string(param.wait) + ToText(param.fault);
}

// Silence costs a time-out: once for each command is enough, so not for all three writes.
bool IsRepeatedWrite(Step const& step)
{
    return step.name.starts_with("Trailer") || step.name.starts_with("Marker");
}

void AddCasesOfWait(std::vector<Case>& cases, Case at, Step const& step)
{
    auto const add = [&](FaultKind fault) {
        at.fault = fault;
        cases.push_back(at);
    };
    auto const wait = step.waits[at.wait];
    if (!IsRepeatedWrite(step)) {
        add(FaultKind::kSilence);
        if (wait.size > 1) {
            add(FaultKind::kCut);
        }
    }
    if (wait.kind == WaitKind::kAck) {
        add(FaultKind::kNack);
    }
    if (wait.kind != WaitKind::kData) {
        add(FaultKind::kGarbage);
    }
    if (at.wait + 1 == step.waits.size()) {
        add(FaultKind::kExtraByte);
    }
}

std::vector<Case> AllCases()
{
    std::vector<Case> cases;
    for (bool const extended : {true, false}) {
        auto const steps = Conversation(extended);
        for (size_t step = 0; step < steps.size(); ++step) {
            if (!extended && steps[step].command != "Erase") {
                continue;  // only the erase differs between the two conversations
            }
            for (size_t wait = 0; wait < steps[step].waits.size(); ++wait) {
                AddCasesOfWait(cases, {extended, step, wait, FaultKind::kSilence}, steps[step]);
            }
        }
    }
    return cases;
}

class FaultMatrixTest : public UpdaterTest, public ::testing::WithParamInterface<Case> {
protected:
    FaultMatrixTest() : steps(Conversation(GetParam().extended)) {}

    Step const& FaultyStep() const { return steps[GetParam().step]; }

    size_t OffsetOfWait() const
    {
        size_t offset = 0;
        for (size_t i = 0; i < GetParam().wait; ++i) {
            offset += FaultyStep().waits[i].size;
        }
        return offset;
    }

    Bytes FaultyAnswer() const
    {
        auto answer = FaultyStep().answer;
        auto const offset = OffsetOfWait();
        auto const wait = FaultyStep().waits[GetParam().wait];
        switch (GetParam().fault) {
            case FaultKind::kSilence:
                answer.resize(offset);
                break;
            case FaultKind::kCut:
                answer.resize(offset + 1);
                break;
            case FaultKind::kNack:
                answer.resize(offset + 1);
                answer[offset] = std::byte{0x1F};
                break;
            case FaultKind::kGarbage:
                answer.resize(offset + 1);
                answer[offset] = wait.kind == WaitKind::kCount ? std::byte{64} : std::byte{0x55};
                break;
            case FaultKind::kExtraByte:
                answer.push_back(std::byte{0xEE});
                break;
        }
        return answer;
    }

    bool RepeatedTenTimes() const
    {
        return GetParam().fault == FaultKind::kNack && FaultyStep().write_start != SIZE_MAX;
    }

    void Expect(size_t first, size_t last)
    {
        for (size_t i = first; i < last; ++i) {
            uart.Expect(steps[i].sent).Answer(steps[i].answer);
        }
    }

    // All that the engine sends, up to its failure.
    void WriteScript()
    {
        size_t const step = GetParam().step;
        Expect(0, step);
        uart.Expect(FaultyStep().sent).Answer(FaultyAnswer());
        if (GetParam().fault == FaultKind::kExtraByte) {
            uart.Expect(steps[step + 1].sent);  // the extra byte is taken for its answer
        }
        for (int i = 0; RepeatedTenTimes() && i < 10; ++i) {
            Expect(FaultyStep().write_start, step);
            uart.Expect(FaultyStep().sent).Answer(FaultyAnswer());
        }
    }

    // The step whose wait fails.
    Step const& FailingStep() const
    {
        return steps[GetParam().step + (GetParam().fault == FaultKind::kExtraByte ? 1 : 0)];
    }

    std::string ExpectedText() const
    {
        auto const wait = FaultyStep().waits[GetParam().wait];
        std::string const command = ", command " + FailingStep().command;
        bool const learning = FailingStep().name == "Sync";
        switch (GetParam().fault) {
            case FaultKind::kSilence:
            case FaultKind::kCut:
                return "receive timeout for " + std::to_string(wait.size) + " bytes" + command;
            case FaultKind::kNack:
                if (RepeatedTenTimes()) {
                    return "10 NACKs received" + command;
                }
                return learning ? "Invalid ACK byte setup 0x1f" + command
                                : "NACK received" + command;
            case FaultKind::kGarbage:
                if (wait.kind == WaitKind::kCount) {
                    return "Too many bytes to receive" + command;
                }
                return learning ? "Invalid ACK byte setup 0x55" + command
                                : "Invalid ACK/NACK received 0x55" + command;
            case FaultKind::kExtraByte:
                return "Invalid ACK/NACK received 0xee" + command;
        }
        return {};
    }

    // True on success; the last operation reports nothing but its text.
    bool Run(Operation operation)
    {
        switch (operation) {
            case Operation::kConnect:
                return updater->ConnectDevice();
            case Operation::kGetOtp:
                return updater->GetOtp(0x1FFF7000, 8).size() == 8;
            case Operation::kUpdate:
                return Update(kImage);
            case Operation::kExit:
                updater->ExitDfu(0x08000000, 0x20001000);
                return true;
        }
        return false;
    }

    void RunAllBefore(Operation failing)
    {
        for (auto const operation :
             {Operation::kConnect, Operation::kGetOtp, Operation::kUpdate, Operation::kExit}) {
            if (operation == failing) {
                return;
            }
            EXPECT_TRUE(Run(operation));
        }
    }

    std::vector<Step> const steps;
};

TEST_P(FaultMatrixTest, EndsTheOperationWithTheRightText)
{
    WriteScript();
    auto const failing = FailingStep().operation;
    // After the last byte of all nothing is read, so nothing can fail.
    bool const harmless = FailingStep().waits.empty();
    bool succeeded = false;
    EXPECT_THAT(Printed([&] { RunAllBefore(failing); }), IsEmpty());

    auto const printed = Printed([&] { succeeded = Run(failing); });

    EXPECT_EQ(succeeded, harmless || failing == Operation::kExit);
    EXPECT_THAT(printed,
                harmless ? ::testing::Matcher<std::string>(IsEmpty()) : IsFailure(ExpectedText()));
    EXPECT_EQ(log.Lines().size(), harmless ? 0U : 1U);
    EXPECT_SCRIPT_DONE();
}

INSTANTIATE_TEST_SUITE_P(All, FaultMatrixTest, ::testing::ValuesIn(AllCases()), NameOf);

class LateAnswerTest : public UpdaterTest {};

TEST_F(LateAnswerTest, IsDroppedByTheNextConnect)
{
    Connect();
    uart.Expect({0x11, 0xEE});
    Printed([&] { EXPECT_THAT(updater->GetOtp(0x1FFF7000, 8), IsEmpty()); });
    uart.Receive({0x1F});

    Connect();
}

TEST_F(LateAnswerTest, IsTakenForTheAnswerToTheNextCommandOfTheSameSession)
{
    Connect();
    uart.Expect({0x11, 0xEE});
    Printed([&] { EXPECT_THAT(updater->GetOtp(0x1FFF7000, 8), IsEmpty()); });
    uart.Receive({0x1F});
    uart.Expect({0x01, 0xFE});
    bool updated = true;

    auto const printed = Printed([&] { updated = Update(kImage); });

    EXPECT_FALSE(updated);
    EXPECT_THAT(printed, IsFailure("NACK received, command Get Ver Rops"));
    EXPECT_SCRIPT_DONE();
}

}  // namespace
}  // namespace stm32_updater::test
