#include "tests/updater/mcuboot/observed_waits.h"

#include <dlfcn.h>
#include <poll.h>
#include <signal.h>
#include <time.h>

namespace {

ObservedWaits* current = nullptr;

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
        current->sleeps.push_back(milliseconds);
    }
    __real__ZN7QThread6msleepEm(milliseconds);
}

// Qt waits for a port with this function of the C library; a program's own one goes before it.
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
}
