// Keeps what the program prints from the standard output while it lives, and collects its failure
// texts. A matrix prints hundreds of thousands.
#pragma once

#include <string>
#include <vector>

namespace cuts {

// One at a time.
class QuietConsole {
public:
    QuietConsole();
    ~QuietConsole();
    QuietConsole(QuietConsole const&) = delete;
    QuietConsole& operator=(QuietConsole const&) = delete;

    // The texts since the last call, in their order.
    static std::vector<std::string> TakeTexts();

private:
    int stdout_;
};

}  // namespace cuts
