#include "tests/updater/mcuboot/observed_waits.h"

#include <dlfcn.h>
#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

namespace {

// Not for the unit's thread, which writes as well.
thread_local ObservedWaits* current = nullptr;

constexpr long kPassNanoseconds = 3'000'000;

}  // namespace

ObservedWaits::ObservedWaits(Waits waits) : waits_(waits)
{
    current = this;
}

ObservedWaits::~ObservedWaits()
{
    current = nullptr;
}

extern "C" {

// The linker's names for QThread::msleep and for what replaces it in the backend.
void __real__ZN7QThread6msleepEm(unsigned long milliseconds);

void __wrap__ZN7QThread6msleepEm(unsigned long milliseconds)
{
    if (current != nullptr) {
        current->steps.push_back("sleep " + std::to_string(milliseconds));
        if (current->on_sleep) {
            current->on_sleep();
        }
    }
    __real__ZN7QThread6msleepEm(milliseconds);
}

// Qt waits for a port and writes to it with these functions of the C library; a program's own ones
// go before them.
int ppoll(pollfd* descriptors, nfds_t count, timespec const* timeout, sigset_t const* mask)
{
    using Function = int (*)(pollfd*, nfds_t, timespec const*, sigset_t const*);
    static auto const real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "ppoll"));
    auto const looks_only = timeout == nullptr || (timeout->tv_sec == 0 && timeout->tv_nsec == 0);
    if (current == nullptr || looks_only) {
        return real(descriptors, count, timeout, mask);
    }
    auto const is_pass = timeout->tv_sec == 0 && timeout->tv_nsec <= kPassNanoseconds;
    (is_pass ? current->passes : current->other_waits) += 1;
    timespec const at_once{};
    auto const ready = real(descriptors, count, current->EndAtOnce() ? &at_once : timeout, mask);
    current->waits_with_data += ready > 0 ? 1 : 0;
    return ready;
}

ssize_t write(int descriptor, void const* data, size_t size)
{
    using Function = ssize_t (*)(int, void const*, size_t);
    static auto const real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "write"));
    auto const written = real(descriptor, data, size);
    if (current != nullptr && written > 0 && isatty(descriptor) == 1) {
        current->steps.push_back("write " + std::to_string(written));
    }
    return written;
}
}
