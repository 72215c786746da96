#include "tests/random_walk/steps.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <span>
#include <vector>

#include "mcuboot/limits.h"
#include "simulator/faults.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

using simulator::FaultKind;
using std::chrono::milliseconds;

// Mostly short, since most orders of events are decided within a fraction of a second.
milliseconds ChoosePause(Chance& chance)
{
    constexpr std::array<uint32_t, 6> kLongest{5, 50, 400, 400, 1500, 4500};
    return milliseconds(chance.Below(chance.Of(kLongest)));
}

// All that an added fault delays, together, at most.
constexpr milliseconds kLongestDelay = 10s;

uint32_t ChooseParameter(Chance& chance, FaultKind kind)
{
    constexpr std::array<uint32_t, 10> kBytes{0, 1, 2, 7, 20, 0x1F, 0x79, 0x7F, 0xFF, 1000};
    constexpr std::array<uint32_t, 8> kDelays{5, 50, 90, 300, 990, 1500, 3500, 9900};
    constexpr std::array<uint32_t, 5> kOffsets{0, 1, mcuboot::kChunkSize, 100'000, 0xFFFFFFFF};
    switch (kind) {
        case FaultKind::kLateAnswer:
            return chance.Of(kDelays);
        case FaultKind::kAskForOffset:
            return chance.Of(kOffsets);
        default:
            return chance.Of(kBytes);
    }
}

// What a step may be, and how often it is.
struct Choice {
    uint32_t weight;
    std::function<void(QList<Step>&)> add;
};

void AddOneOf(std::span<Choice const> choices, Chance& chance, QList<Step>& steps)
{
    uint32_t sum = 0;
    for (auto const& choice : choices) {
        sum += choice.weight;
    }
    auto left = chance.Below(sum);
    for (auto const& choice : choices) {
        if (left < choice.weight) {
            choice.add(steps);
            return;
        }
        left -= choice.weight;
    }
}

}  // namespace

QString Describe(Step const& step)
{
    auto const pause = u", then %1 ms"_s.arg(step.pause.count());
    switch (step.kind) {
        case Step::Kind::kUnit:
            return step.command + pause;
        case Step::Kind::kPress:
            return u"press x%1"_s.arg(step.times) + pause;
        case Step::Kind::kClose:
            return u"close the window"_s + pause;
        case Step::Kind::kCover:
            return u"cover the window"_s + pause;
        case Step::Kind::kWaitEvent:
            return u"wait until the window changes"_s + pause;
        case Step::Kind::kWaitReady:
            return u"wait for a unit"_s + pause;
    }
    return {};
}

QString ChooseUnitOptions(Chance& chance, targetInterfaceType type)
{
    constexpr std::array kPaces{"0", "460800", "460800", "115200", "57600"};
    auto options = u"--baud %1"_s.arg(QLatin1String(chance.Of(kPaces)));
    if (type == TargetUart) {
        constexpr std::array kErases{"legacy", "extended", "both"};
        options += u" --erase-commands %1"_s.arg(QLatin1String(chance.Of(kErases)));
    } else if (chance.OneIn(3)) {
        options += u" --answer-line 20"_s;
    }
    return options;
}

qsizetype ChooseImageSize(Chance& chance)
{
    constexpr std::array<qsizetype, 5> kSizes{16, 6000, 16'000, 30'000, 30'000};
    return chance.Of(kSizes);
}

QString ChooseFault(Chance& chance, targetInterfaceType type)
{
    auto const bootloader = type == TargetUart ? simulator::kOnStm32 : simulator::kOnMcuboot;
    std::vector<simulator::FaultRow> faults;
    std::ranges::copy_if(simulator::kFaults, std::back_inserter(faults),
                         [&](auto const& fault) { return (fault.bootloaders & bootloader) != 0; });
    constexpr std::array<uint32_t, 4> kLatest{2, 8, 30, 100};
    constexpr std::array<uint32_t, 6> kCounts{1, 1, 1, 3, 12, 1000};
    auto const& [kind, name, moment, bootloaders] = chance.Of(faults);
    auto const at = 1 + chance.Below(chance.Of(kLatest));
    auto count = chance.Of(kCounts);
    auto const parameter = ChooseParameter(chance, kind);
    if (kind == FaultKind::kLateAnswer) {
        count = std::min(count, static_cast<uint32_t>(kLongestDelay.count()) / parameter);
    }
    return u"fault %1 %2 %3 %4"_s.arg(QString::fromUtf8(name)).arg(at).arg(count).arg(parameter);
}

QList<Step> ChooseSteps(Chance& chance, targetInterfaceType type, QString const& first_name,
                        QString const& other_name)
{
    auto const add = [&](QList<Step>& steps, QString const& command) {
        steps.append({Step::Kind::kUnit, command, 1, ChoosePause(chance)});
    };
    auto const unit = [&](QString const& command) {
        return [&add, command](QList<Step>& steps) { add(steps, command); };
    };
    auto const simple = [&](Step::Kind kind) {
        return [&chance, kind](QList<Step>& steps) {
            steps.append({kind, {}, 1, ChoosePause(chance)});
        };
    };
    auto const replug = [&](QString const& name) {
        return [&add, name](QList<Step>& steps) {
            add(steps, u"unplug 1"_s);
            add(steps, u"plug 1 "_s + name);
        };
    };
    auto const press = [&](QList<Step>& steps) {
        auto const times = chance.OneIn(2) ? 1 : 1 + static_cast<int>(chance.Below(4));
        steps.append({Step::Kind::kPress, {}, times, ChoosePause(chance)});
    };
    auto const fault = [&](QList<Step>& steps) { add(steps, ChooseFault(chance, type)); };
    std::vector<Choice> const losses{{10, unit(u"unplug 1"_s)},      {6, replug(first_name)},
                                     {6, replug(other_name)},        {6, unit(u"fade 1"_s)},
                                     {4, unit(u"silent on"_s)},      {4, unit(u"reset 1"_s)},
                                     {2, simple(Step::Kind::kClose)}};
    // A unit that is found anew.
    auto const fresh = [&](QList<Step>& steps) {
        add(steps, u"unplug 1"_s);
        simple(Step::Kind::kWaitEvent)(steps);
        add(steps, u"clear-faults"_s);
        add(steps, u"silent off"_s);
        add(steps, u"plug 1"_s);
        simple(Step::Kind::kWaitReady)(steps);
    };
    // An update in which something happens.
    auto const update = [&](QList<Step>& steps) {
        if (!chance.OneIn(3)) {
            fresh(steps);
        }
        if (chance.OneIn(2)) {
            fault(steps);
        }
        press(steps);
        if (!chance.OneIn(3)) {
            AddOneOf(losses, chance, steps);
        }
        if (chance.OneIn(2)) {
            press(steps);
        }
    };
    std::vector<Choice> const choices{
        {30, update},
        {6, unit(u"plug 1"_s)},
        {3, unit(u"silent off"_s)},
        {1, unit(u"block on"_s)},
        {2, unit(u"block off"_s)},
        {1, unit(u"plug 2"_s)},
        {2, unit(u"unplug 2"_s)},
        {4, unit(u"clear-faults"_s)},
        {6, fault},
        {6, press},
        {4, simple(Step::Kind::kWaitEvent)},
        {6, simple(Step::Kind::kWaitReady)},
        {3, simple(Step::Kind::kCover)},
        {8, [&](QList<Step>& steps) { AddOneOf(losses, chance, steps); }},
    };
    QList<Step> steps;
    auto const count = 3 + chance.Below(6);
    for (uint32_t i = 0; i < count; ++i) {
        AddOneOf(choices, chance, steps);
    }
    return steps;
}
