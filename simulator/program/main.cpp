// simulated_unit: a microcontroller in one of its bootloaders on a simulated USB port, as a
// program: options make the unit, lines on standard input control it. See README.md.

#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QCoreApplication>
#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>
#include <string>

#include "simulator/program/control_session.h"
#include "simulator/program/unit_options.h"

namespace {

using simulator::ProgramOptions;

std::unique_ptr<simulator::SimulatedUnit> MakeUnit(
    std::shared_ptr<simulator::UsbTestbed> const& testbed, ProgramOptions const& options,
    unsigned number)
{
    auto unit_options = options.unit;
    unit_options.port.name = fmt::format("ttyUSB{}", options.first_port + number - 1);
    unit_options.port.serial_number = fmt::format("{:04}", number);
    unit_options.usb_device.serial_number = unit_options.port.serial_number;
    if (number == options.foreign_unit) {
        unit_options.usb_device.vendor_id = 0x1209;
        unit_options.usb_device.product_id = 0x0002;
    }
    if (!options.journal_path.empty()) {
        auto const path =
            options.journal_path + (number == 1 ? std::string() : fmt::format(".{}", number));
        auto file = std::make_shared<std::ofstream>(path);
        unit_options.journal_sink = [file](simulator::JournalEntry const& entry) {
            *file << simulator::ToText(entry) << '\n' << std::flush;
        };
    }
    auto unit = std::make_unique<simulator::SimulatedUnit>(testbed, std::move(unit_options));
    if (!options.flash.empty()) {
        unit->LoadMemory(simulator::kFlashStart, options.flash);
    }
    return unit;
}

void Print(std::string const& text)
{
    fmt::print("{}\n", text);
    std::fflush(stdout);
}

void PlugUnits(simulator::ControlSession& session, unsigned units)
{
    for (unsigned number = 1; number <= units; ++number) {
        session.Unit(number).Plug();
        auto const status = session.Unit(number).Status();
        auto const suffix = number == 1 ? std::string() : fmt::format("{}", number);
        Print(fmt::format("port{}={}", suffix, status.device_path));
        if (!status.pty_path.empty()) {
            Print(fmt::format("pty{}={}", suffix, status.pty_path));
        }
    }
}

// Handles commands until "quit", the end of standard input, or a signal.
void Serve(simulator::ControlSession& session, int signals)
{
    std::string input;
    std::array<pollfd, 2> fds{pollfd{STDIN_FILENO, POLLIN, 0}, pollfd{signals, POLLIN, 0}};
    while (!session.Finished() && poll(fds.data(), fds.size(), -1) > 0 && fds[1].revents == 0) {
        std::array<char, 4096> buffer;
        auto const count = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count <= 0) {
            return;
        }
        input.append(buffer.data(), static_cast<size_t>(count));
        for (auto end = input.find('\n'); end != std::string::npos && !session.Finished();
             end = input.find('\n')) {
            auto const answer = session.Handle(input.substr(0, end));
            input.erase(0, end + 1);
            if (!answer.empty()) {
                Print(answer);
            }
        }
    }
}

void Run(ProgramOptions const& options, int signals)
{
    auto const testbed = std::make_shared<simulator::UsbTestbed>();
    simulator::ControlSession session(
        [&](unsigned number) { return MakeUnit(testbed, options, number); });
    Print("UMOCKDEV_DIR=" + testbed->Root());
    Print("preload=libumockdev-preload.so.0");
    PlugUnits(session, options.units);
    Print("ready");
    Serve(session, signals);
}

// A descriptor that becomes readable when the program is asked to end. The signals stay blocked, so
// this comes before the first thread.
int CatchSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

}  // namespace

int main(int argc, char** argv)
{
    int const signals = CatchSignals();
    QCoreApplication const application(argc, argv);
    try {
        Run(simulator::ReadProgramOptions(QCoreApplication::arguments()), signals);
    } catch (std::exception const& error) {
        fmt::print(stderr, "simulated_unit: {}\n", error.what());
        return 1;
    }
    return 0;
}
