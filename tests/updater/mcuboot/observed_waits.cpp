#include "tests/updater/mcuboot/observed_waits.h"

namespace {

ObservedWaits* current = nullptr;

}  // namespace

ObservedWaits::ObservedWaits(Waits waits) : waits_(waits)
{
    current = this;
}

ObservedWaits::~ObservedWaits()
{
    current = nullptr;
}

// The linker's names for QThread::msleep and QSerialPort::waitForReadyRead, and for what replaces
// them.
extern "C" {
void __real__ZN7QThread6msleepEm(unsigned long milliseconds);
bool __real__ZN11QSerialPort16waitForReadyReadEi(void* port, int milliseconds);

void __wrap__ZN7QThread6msleepEm(unsigned long milliseconds)
{
    if (current != nullptr) {
        current->sleeps.push_back(milliseconds);
    }
    __real__ZN7QThread6msleepEm(milliseconds);
}

bool __wrap__ZN11QSerialPort16waitForReadyReadEi(void* port, int milliseconds)
{
    if (current == nullptr) {
        return __real__ZN11QSerialPort16waitForReadyReadEi(port, milliseconds);
    }
    current->passes += milliseconds == 3 ? 1 : 0;
    current->other_waits += milliseconds != 3 && milliseconds != 0 ? 1 : 0;
    auto const has_data =
        __real__ZN11QSerialPort16waitForReadyReadEi(port, current->EndAtOnce() ? 0 : milliseconds);
    current->waits_with_data += has_data ? 1 : 0;
    return has_data;
}
}
