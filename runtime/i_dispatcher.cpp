#include "runtime/i_dispatcher.h"

#include <cstdint>

ListenerCookie CreateListenerCookie(std::function<void(int*)> unregister)
{
    // Never dereferenced: any pointer but null makes the cookie run its deleter.
    auto* const mark = reinterpret_cast<int*>(uintptr_t{1});  // NOLINT(performance-no-int-to-ptr)
    return ListenerCookie(mark, std::move(unregister));
}
