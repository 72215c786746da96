#include "tests/random_walk/steps.h"

#include <algorithm>
#include <array>
#include <functional>
#include <vector>

#include "mcuboot/limits.h"
#include "simulator/faults.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

using simulator::FaultKind;
using std::chrono::milliseconds;

// Mostly short, since most orders of events are decided within a fraction of a second.
milliseconds ChoosePause(Random& random)
{
    constexpr std::array<uint32_t, 6> kLongest{5, 50, 400, 400, 1500, 4500};
    return milliseconds(random.Below(random.Pick(kLongest)));
}

// All that an added fault delays, together, at most.
constexpr milliseconds kLongestDelay = 10s;

uint32_t ChooseParameter(Random& random, FaultKind kind)
{
    constexpr std::array<uint32_t, 10> kBytes{0, 1, 2, 7, 20, 0x1F, 0x79, 0x7F, 0xFF, 1000};
    constexpr std::array<uint32_t, 8> kDelays{5, 50, 90, 300, 990, 1500, 3500, 9900};
    constexpr std::array<uint32_t, 5> kOffsets{0, 1, mcuboot::kChunkSize, 100'000, 0xFFFFFFFF};
    switch (kind) {
        case FaultKind::kLateAnswer:
            return random.Pick(kDelays);
        case FaultKind::kAskForOffset:
            return random.Pick(kOffsets);
        default:
            return random.Pick(kBytes);
    }
}

class StepList {
public:
    StepList(Random& random, targetInterfaceType type, QString const& first_name,
             QString const& other_name)
        : random_(random), type_(type), first_name_(first_name), other_name_(other_name)
    {}

    QList<Step> const& Steps() const { return steps_; }

    void AddAny()
    {
        AddOneOf({{30, [this] { AddUpdate(); }},
                  {8, [this] { AddLoss(); }},
                  {6, [this] { AddFault(); }},
                  {6, [this] { AddPress(); }},
                  {6, [this] { Add(Step::Kind::kWaitReady); }},
                  {4, [this] { Add(Step::Kind::kWaitEvent); }},
                  {6, [this] { AddUnit(u"plug 1"_s); }},
                  {4, [this] { AddUnit(u"clear-faults"_s); }},
                  {3, [this] { AddUnit(u"silent off"_s); }},
                  {2, [this] { AddUnit(u"block off"_s); }},
                  {2, [this] { AddUnit(u"unplug 2"_s); }},
                  {1, [this] { AddUnit(u"block on"_s); }},
                  {1, [this] { AddUnit(u"plug 2"_s); }}});
    }

private:
    struct Choice {
        uint32_t weight;  // how often it is chosen, compared with the others
        std::function<void()> add;
    };

    void AddOneOf(std::vector<Choice> const& choices)
    {
        uint32_t sum = 0;
        for (auto const& choice : choices) {
            sum += choice.weight;
        }
        auto left = random_.Below(sum);
        auto choice = choices.begin();
        for (; left >= choice->weight; ++choice) {
            left -= choice->weight;
        }
        choice->add();
    }

    void Add(Step::Kind kind) { steps_.append({kind, {}, 1, ChoosePause(random_)}); }

    void AddUnit(QString const& command)
    {
        steps_.append({Step::Kind::kUnit, command, 1, ChoosePause(random_)});
    }

    void AddReplug(QString const& name)
    {
        AddUnit(u"unplug 1"_s);
        AddUnit(u"plug 1 "_s + name);
    }

    void AddPress()
    {
        auto const times = random_.OneIn(2) ? 1 : 1 + random_.Below(4);
        steps_.append({Step::Kind::kPress, {}, times, ChoosePause(random_)});
    }

    void AddFault() { AddUnit(ChooseFault(random_, type_)); }

    // Something that ends an update.
    void AddLoss()
    {
        AddOneOf({{10, [this] { AddUnit(u"unplug 1"_s); }},
                  {6, [this] { AddReplug(first_name_); }},
                  {6, [this] { AddReplug(other_name_); }},
                  {6, [this] { AddUnit(u"fade 1"_s); }},
                  {4, [this] { AddUnit(u"silent on"_s); }},
                  {4, [this] { AddUnit(u"reset 1"_s); }},
                  {2, [this] { Add(Step::Kind::kClose); }}});
    }

    // A unit that is found anew.
    void AddFreshUnit()
    {
        AddUnit(u"unplug 1"_s);
        Add(Step::Kind::kWaitEvent);
        AddUnit(u"clear-faults"_s);
        AddUnit(u"silent off"_s);
        if (random_.OneIn(3)) {
            AddFault();  // during the connect
        }
        AddUnit(u"plug 1"_s);
        Add(Step::Kind::kWaitReady);
    }

    // An update in which something happens.
    void AddUpdate()
    {
        if (!random_.OneIn(3)) {
            AddFreshUnit();
        }
        if (random_.OneIn(2)) {
            AddFault();
        }
        AddPress();
        if (!random_.OneIn(3)) {
            AddLoss();
        }
        if (random_.OneIn(2)) {
            AddPress();
        }
    }

    Random& random_;
    targetInterfaceType type_;
    QString first_name_;
    QString other_name_;
    QList<Step> steps_;
};

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
        case Step::Kind::kWaitEvent:
            return u"wait until the window changes"_s + pause;
        case Step::Kind::kWaitReady:
            return u"wait for a unit"_s + pause;
    }
    return {};
}

QString ChooseUnitOptions(Random& random, targetInterfaceType type)
{
    constexpr std::array kPaces{"0", "460800", "460800", "115200", "57600"};
    auto options = u"--baud %1"_s.arg(QLatin1String(random.Pick(kPaces)));
    if (type == TargetUart) {
        constexpr std::array kErases{"legacy", "extended", "both"};
        options += u" --erase-commands %1"_s.arg(QLatin1String(random.Pick(kErases)));
    } else if (random.OneIn(3)) {
        options += u" --answer-line 20"_s;
    }
    return options;
}

qsizetype ChooseImageSize(Random& random)
{
    constexpr std::array<qsizetype, 5> kSizes{16, 6000, 16'000, 30'000, 30'000};
    return random.Pick(kSizes);
}

QString ChooseFault(Random& random, targetInterfaceType type)
{
    constexpr std::array<uint32_t, 4> kLatest{2, 8, 30, 100};
    constexpr std::array<uint32_t, 6> kCounts{1, 1, 1, 3, 12, 1000};
    auto const kind = type == TargetUart ? random.Pick(simulator::kStm32FaultKinds)
                                         : random.Pick(simulator::kMcubootFaultKinds);
    auto const at = 1 + random.Below(random.Pick(kLatest));
    auto count = random.Pick(kCounts);
    auto const parameter = ChooseParameter(random, kind);
    if (kind == FaultKind::kLateAnswer) {
        count = std::min(count, static_cast<uint32_t>(kLongestDelay.count()) / parameter);
    }
    auto const name = simulator::kFaults.at(static_cast<size_t>(kind)).name;
    return u"fault %1 %2 %3 %4"_s.arg(QLatin1String(name.data(), static_cast<int>(name.size())))
        .arg(at)
        .arg(count)
        .arg(parameter);
}

QList<Step> ChooseSteps(Random& random, targetInterfaceType type, QString const& first_name,
                        QString const& other_name)
{
    StepList list(random, type, first_name, other_name);
    auto const count = 3 + random.Below(6);
    for (int i = 0; i < count; ++i) {
        list.AddAny();
    }
    return list.Steps();
}
