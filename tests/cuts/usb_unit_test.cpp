// Updates over USB in which the unit is pulled out, or its tool killed or stopped, at any page and
// any block. The real backend runs the installed dfu-util on a simulated unit. The table "usb-unit"
// of docs/cut-matrix.md is the result.

#include <gtest/gtest.h>
#include <signal.h>

#include <QTemporaryDir>
#include <array>
#include <string>
#include <vector>

#include "tests/cuts/long_run.h"
#include "tests/cuts/side_by_side.h"
#include "tests/cuts/usb_run.h"
#include "tests/support/files.h"
#include "tests/support/pattern_image.h"
#include "tests/support/unit_process.h"

using namespace Qt::StringLiterals;

namespace cuts {
namespace {

// Three blocks of dfu-util's and a part of a fourth, in as many pages.
constexpr int kPlaces = 4;
constexpr qsizetype kImageSize = 3 * 2048 + 304;

constexpr uint32_t kImageAddress = 0x08000000;

enum class UnitEvent { kPulledOut, kToolKilled, kToolStopped };

struct UnitCase {
    bool in_erase;
    UnitEvent event;
    int place;  // page or block, from 1
};

// The fault that pulls the unit out, or keeps it busy until something happens to the tool.
QString GetFault(UnitCase const& row)
{
    auto const place = QString::number(row.place);
    if (row.event == UnitEvent::kPulledOut) {
        return (row.in_erase ? u"fault vanish-in-erase "_s : u"fault vanish-in-write "_s) + place;
    }
    return row.in_erase ? u"fault slow-erase %1 1 60000"_s.arg(place)
                        : u"fault stuck-in-write "_s + place;
}

// Stops or kills the tool once the unit is busy.
void EndTool(UsbSession& session, UnitProcess& unit, UnitEvent event)
{
    session.WaitUntil([&] { return unit.Status(u"fault-strikes"_s) == u"1"_s; },
                      "the fault does not strike");
    auto const tool = session.AskForTool();
    if (event == UnitEvent::kToolStopped) {
        ::kill(tool, SIGSTOP);
        session.WaitUntil([&] { return GetProcessState(tool) == 'T'; }, "not stopped");
        if (session.AskForTool() != tool || session.IsFinished()) {
            throw UsbTimeout("an end without an end of the tool");
        }
    }
    ::kill(tool, SIGKILL);
}

UsbEnd RunUpdate(UnitProcess& unit, QString const& image,
                 std::function<void(UsbSession&)> const& interfere)
{
    UsbSession session(QStringLiteral(FW_DFU_UTIL), image, unit.Environment());
    session.Send("connect");
    session.WaitFor(u"Connected"_s);
    interfere(session);
    session.WaitFor(u"100"_s);
    return session.Close();
}

// The interrupted update, and then another one of the unit that was plugged in again.
UsbEnd RunUnitCase(UnitCase const& row)
{
    QTemporaryDir const folder;
    auto const image_path = folder.filePath(u"image"_s);
    auto const image = PatternImage<QByteArray>(kImageSize);
    WriteFile(image_path, image);
    UnitProcess unit({u"--protocol"_s, u"dfu"_s});

    auto end = RunUpdate(unit, image_path, [&](UsbSession& session) {
        unit.Command(GetFault(row));
        session.Send("update");
        if (row.event != UnitEvent::kPulledOut) {
            EndTool(session, unit, row.event);
        }
        session.WaitForStatus();
    });
    end.problem += unit.Status(u"state"_s) == u"bootloader"_s ? "" : "the unit left; ";

    unit.Command(u"clear-faults"_s);
    unit.Command(u"plug"_s);
    auto const second = RunUpdate(unit, image_path, [](UsbSession& session) {
        session.Send("update");
        session.WaitForStatus();
    });
    end.problem += second.problem;
    end.problem += second.result == "finished true" ? "" : "the second update failed; ";
    end.problem += unit.ReadMemory(kImageAddress, kImageSize) == image ? "" : "other flash; ";
    end.problem += unit.Status(u"state"_s) == u"running"_s ? "" : "not started; ";
    return end;
}

// By UnitEvent.
constexpr std::array kUnitEvents{"the unit is pulled out; the tool ends by itself",
                                 "the tool is killed",
                                 "the tool is stopped; nothing ends until it is killed"};

char const* Describe(UnitEvent event)
{
    return kUnitEvents.at(static_cast<size_t>(event));
}

std::vector<UnitCase> ListUnitCases()
{
    std::vector<UnitCase> rows;
    for (auto const in_erase : {true, false}) {
        for (auto const event :
             {UnitEvent::kPulledOut, UnitEvent::kToolKilled, UnitEvent::kToolStopped}) {
            for (int place = 1; place <= kPlaces; place += IsLongRun() ? 1 : kPlaces - 1) {
                rows.push_back({in_erase, event, place});
            }
        }
    }
    return rows;
}

// The tool ends with an error code when the unit is gone, and the program takes every tool that
// ends by itself for a success.
UsbEnd GetExpectedEnd(UnitCase const& row)
{
    return row.event == UnitEvent::kPulledOut
               ? UsbEnd{"finished true", "DONE", ""}
               : UsbEnd{"finished false", std::string("UPDATING") + kUsbError, ""};
}

// The unit is gone before the backend asks for its model.
UsbEnd RunWithoutUnit()
{
    UnitProcess unit({u"--protocol"_s, u"dfu"_s});
    unit.Command(u"unplug"_s);
    UsbSession session(QStringLiteral(FW_DFU_UTIL), u"image"_s, unit.Environment());
    session.Send("connect");
    session.WaitForStatus();
    return session.Close();
}

TEST(UsbMatrix, EndsRightWhateverHappensAtAnyPageAndBlockAndTheNextUpdateWritesTheUnit)
{
    auto const cases = ListUnitCases();
    auto const ends = RunSideBySide<UsbEnd>(
        cases.size(), kUsbRunsAtOnce, [&](size_t index) { return RunUnitCase(cases[index]); });
    UsbTable table;
    table.Add("before the OTP area is read", Describe(UnitEvent::kPulledOut), "", RunWithoutUnit(),
              {"VerificationFailed", std::string("UPDATE") + kUsbError, ""});
    for (size_t i = 0; i < cases.size(); ++i) {
        auto const& row = cases[i];
        table.Add(row.in_erase ? "while a page is erased" : "while a block is written",
                  Describe(row.event), std::to_string(row.place), ends[i], GetExpectedEnd(row));
    }
    EXPECT_TRUE(table.IsInDocument("usb-unit"));
}

}  // namespace
}  // namespace cuts
