// The interface of every firmware updater engine: writing an image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

class IFwUpdater {
public:
    enum class State : uint32_t {
        kProgramming = 1,  // the flash is being written; comes with a percentage
    };

    // `percent` is 0 to 100. Called on the thread that called Update.
    using ProgressCallback = std::function<void(State, unsigned percent)>;

    virtual ~IFwUpdater() = default;

    // Writes `image` to the start of flash. Blocks until the write has ended; true on success. A
    // failure leaves the unit in its bootloader, with its flash erased or half written.
    virtual bool Update(std::span<std::byte const> image, ProgressCallback const& progress) = 0;

    // The same, but to the flash address `address`.
    virtual bool Update(std::span<std::byte const> image, ProgressCallback const& progress,
                        unsigned address) = 0;
};
