// Every fault at every step of one whole conversation (connect, read, update, exit): one answer is
// missing, refused, garbled, cut or too long. The operation has to fail with the right text after
// the right time, and nothing further may be sent.
#include <algorithm>

#include "simulator/faults.h"
#include "tests/modules/stm32_updater/updater_fixture.h"

namespace stm32_updater::test {
namespace {

using simulator::FaultKind;
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

// The steps of one conversation, in order.
class Script {
public:
    using Values = std::initializer_list<int>;

    void Begin(Operation operation, std::string command)
    {
        operation_ = operation;
        command_ = std::move(command);
    }
    void Add(std::string name, Values sent, Values answer = {0x79},
             std::vector<Wait> waits = {kAckWait})
    {
        steps.push_back({std::move(name), operation_, command_, ToBytes(sent), ToBytes(answer),
                         std::move(waits)});
    }
    void AddWrite(std::string const& name, Values address, Values frame)
    {
        size_t const start = steps.size();
        Add(name, {0x31, 0xCE});
        Add(name + "Address", address);
        Add(name + "Data", frame);
        for (size_t i = start; i < steps.size(); ++i) {
            steps[i].write_start = start;
        }
    }

    std::vector<Step> steps;

private:
    Operation operation_{};
    std::string command_;
};

constexpr Wait Data(size_t size)
{
    return {WaitKind::kData, size};
}

std::vector<Step> Conversation(bool extended)
{
    Script script;
    script.Begin(Operation::kConnect, "Init con");
    script.Add("Sync", {0x7F});
    script.Begin(Operation::kConnect, "Get");
    script.Add("Get", {0x00, 0xFF},
               {0x79, 0x06, 0x31, 0x00, 0x01, 0x02, 0x11, 0x31, extended ? 0x44 : 0x43, 0x79},
               {kAckWait, kCountWait, Data(7), kAckWait});
    script.Begin(Operation::kConnect, "Get ID");
    script.Add("GetId", {0x02, 0xFD}, {0x79, 0x01, 0x04, 0x69, 0x79},
               {kAckWait, kCountWait, Data(2), kAckWait});
    script.Begin(Operation::kGetOtp, "Read");
    script.Add("Read", {0x11, 0xEE});
    script.Add("ReadAddress", {0x1F, 0xFF, 0x70, 0x00, 0x90});
    script.Add("ReadCount", {0x07, 0xF8}, {0x79, 1, 2, 3, 4, 5, 6, 7, 8}, {kAckWait, Data(8)});
    script.Begin(Operation::kUpdate, "Get Ver Rops");
    script.Add("GetVersion", {0x01, 0xFE}, {0x79, 0x31, 0x00, 0x00, 0x79},
               {kAckWait, Data(3), kAckWait});
    if (extended) {
        script.Begin(Operation::kUpdate, "Erase Ext");
        script.Add("Erase", {0x44, 0xBB});
        script.Add("ErasePages", {0, 0, 0, 0, 0});
    } else {
        script.Begin(Operation::kUpdate, "Erase");
        script.Add("Erase", {0x43, 0xBC});
        script.Add("ErasePages", {0, 0, 0});
    }
    script.Begin(Operation::kUpdate, "Write");
    script.AddWrite("Write", {0x08, 0x00, 0x00, 0x00, 0x08},
                    {0x07, 0x01, 0x08, 0x0F, 0x16, 0x1D, 0x24, 0x2B, 0x32, 0x37});
    script.AddWrite("Trailer", {0x08, 0x00, 0x00, 0x08, 0x00},
                    {0x07, 0x39, 0x40, 0x47, 0x4E, 0x05, 0x00, 0x00, 0x00, 0x72});
    script.Begin(Operation::kExit, "Write");
    script.AddWrite("Marker", {0x20, 0x00, 0x10, 0x00, 0x30}, {0x03, 'P', 'U', 'W', 'F', 0x17});
    script.Add("Go", {0x21, 0xDE});
    script.Add("GoAddress", {0x08, 0x00, 0x00, 0x00, 0x08}, {}, {});
    return script.steps;
}

// Of the simulator's faults those that the engine can tell apart at a wait. Here they hit one wait
// within an answer, not a whole answer.
struct Case {
    bool extended;
    size_t step;
    size_t wait;
    FaultKind fault;
};

std::string NameOf(::testing::TestParamInfo<Case> const& info)
{
    auto const& param = info.param;
    auto const step = Conversation(param.extended)[param.step];
    auto name = std::string(param.extended ? "Extended" : "Legacy") + step.name + "_wait" +
                std::to_string(param.wait) + "_" + std::string(simulator::GetName(param.fault));
    std::ranges::replace(name, '-', '_');
    return name;
}

std::vector<FaultKind> FaultsOf(Wait const& wait, bool is_last)
{
    std::vector<FaultKind> faults{FaultKind::kDropAnswer};
    auto const add = [&](bool when, std::initializer_list<FaultKind> more) {
        faults.insert(faults.end(), when ? more.begin() : more.end(), more.end());
    };
    add(wait.size > 1, {FaultKind::kCutAnswer});
    add(wait.kind == WaitKind::kAck, {FaultKind::kNackCommand, FaultKind::kGarbageAnswer});
    add(wait.kind == WaitKind::kCount, {FaultKind::kWrongCount});
    add(is_last, {FaultKind::kExtraByte});
    return faults;
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
            auto const& waits = steps[step].waits;
            for (size_t wait = 0; wait < waits.size(); ++wait) {
                for (auto const fault : FaultsOf(waits[wait], wait + 1 == waits.size())) {
                    cases.push_back({extended, step, wait, fault});
                }
            }
        }
    }
    return cases;
}

class FaultMatrixTest : public UpdaterTest, public ::testing::WithParamInterface<Case> {
protected:
    FaultMatrixTest() : steps(Conversation(GetParam().extended)) {}

    Step const& FaultyStep() const { return steps[GetParam().step]; }

    Bytes FaultyAnswer() const
    {
        auto answer = FaultyStep().answer;
        if (GetParam().fault == FaultKind::kExtraByte) {
            answer.push_back(std::byte{0xEE});
            return answer;
        }
        size_t offset = 0;
        for (size_t i = 0; i < GetParam().wait; ++i) {
            offset += FaultyStep().waits[i].size;
        }
        answer.resize(GetParam().fault == FaultKind::kDropAnswer ? offset : offset + 1);
        if (GetParam().fault == FaultKind::kNackCommand) {
            answer[offset] = std::byte{0x1F};
        } else if (GetParam().fault == FaultKind::kGarbageAnswer) {
            answer[offset] = std::byte{0x55};
        } else if (GetParam().fault == FaultKind::kWrongCount) {
            answer[offset] = std::byte{64};
        }
        return answer;
    }

    bool RepeatedTenTimes() const
    {
        return GetParam().fault == FaultKind::kNackCommand && FaultyStep().write_start != SIZE_MAX;
    }

    void Expect(size_t first, size_t last)
    {
        for (size_t i = first; i < last; ++i) {
            uart.Expect(steps[i].sent).Answer(steps[i].answer);
        }
    }

    // Everything that the engine sends, up to its failure.
    void WriteScript()
    {
        size_t const step = GetParam().step;
        Expect(0, step);
        uart.Expect(FaultyStep().sent).Answer(FaultyAnswer());
        if (GetParam().fault == FaultKind::kExtraByte) {
            uart.Expect(steps[step + 1].sent);  // the engine takes the extra byte for its answer
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
        auto const size = std::to_string(FaultyStep().waits[GetParam().wait].size);
        bool const learning = FailingStep().name == "Sync";
        std::string const invalid =
            learning ? "Invalid ACK byte setup 0x" : "Invalid ACK/NACK received 0x";
        auto const text = [&]() -> std::string {
            switch (GetParam().fault) {
                case FaultKind::kDropAnswer:
                case FaultKind::kCutAnswer:
                    return "receive timeout for " + size + " bytes";
                case FaultKind::kNackCommand:
                    return RepeatedTenTimes() ? "10 NACKs received"
                           : learning         ? invalid + "1f"
                                              : "NACK received";
                case FaultKind::kGarbageAnswer:
                    return invalid + "55";
                case FaultKind::kWrongCount:
                    return "Too many bytes to receive";
                default:
                    return invalid + "ee";
            }
        };
        return text() + ", command " + FailingStep().command;
    }

    // In ms; only a missing byte costs time.
    std::vector<uint32_t> ExpectedTimeouts() const
    {
        auto const fault = GetParam().fault;
        if (fault != FaultKind::kDropAnswer && fault != FaultKind::kCutAnswer) {
            return {};
        }
        bool const erasing = FaultyStep().name == "ErasePages" && GetParam().extended;
        return {erasing ? 5000U : 1000U};
    }

    // True on success; the last operation only prints.
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

    std::vector<Step> const steps;
};

TEST_P(FaultMatrixTest, EndsTheOperationWithTheRightTextAfterTheRightTime)
{
    WriteScript();
    auto const failing = FailingStep().operation;
    // Nothing is read after the very last byte, so nothing can fail.
    bool const harmless = FailingStep().waits.empty();
    bool succeeded = false;
    for (auto operation = Operation::kConnect; operation < failing;
         operation = Operation{static_cast<int>(operation) + 1}) {
        EXPECT_THAT(Printed([&] { EXPECT_TRUE(Run(operation)); }), IsEmpty());
    }

    auto const printed = Printed([&] { succeeded = Run(failing); });

    EXPECT_EQ(succeeded, harmless || failing == Operation::kExit);
    EXPECT_THAT(printed,
                harmless ? ::testing::Matcher<std::string>(IsEmpty()) : IsFailure(ExpectedText()));
    EXPECT_EQ(log.Lines().size(), harmless ? 0U : 1U);
    EXPECT_EQ(updater->Facts().failure.empty(), harmless);
    EXPECT_EQ(time.timeouts, ExpectedTimeouts());
    EXPECT_SCRIPT_DONE();
}

INSTANTIATE_TEST_SUITE_P(All, FaultMatrixTest, ::testing::ValuesIn(AllCases()), NameOf);

using LateAnswerTest = UpdaterTest;

// The next connect would drop it.
TEST_F(LateAnswerTest, IsTakenForTheAnswerToTheNextCommandOfTheSameSession)
{
    Connect();
    uart.Expect({0x11, 0xEE});
    Printed([&] { EXPECT_THAT(updater->GetOtp(0x1FFF7000, 8), IsEmpty()); });
    uart.Receive({0x1F});
    uart.Expect({0x01, 0xFE});
    ExpectUpdateFails(kImage, "NACK received, command Get Ver Rops");
}

}  // namespace
}  // namespace stm32_updater::test
