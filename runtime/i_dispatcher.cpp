#include "runtime/i_dispatcher.h"

#include <cstdint>

ListenerCookie CreateListenerCookie(std::function<void(int*)> unregister)
{
    auto* const mark = reinterpret_cast<int*>(uintptr_t{1});
    return ListenerCookie(mark, std::move(unregister));
}
