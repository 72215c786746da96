// A host's side of a simulated DFU bootloader, in process: sends control requests, at a time that
// the test sets.
#pragma once

#include <chrono>
#include <string>

#include "simulator/bootloaders/dfuse_bootloader.h"
#include "tests/simulator/bootloader_client.h"

namespace simulator::test {

class DfuseClient {
public:
    explicit DfuseClient(DfuseBootloader& bootloader) : bootloader_(bootloader) {}

    void Pass(std::chrono::milliseconds time) { now_ += time; }

    DfuAnswer Download(uint16_t block, Bytes const& data)
    {
        return bootloader_.Handle(
            {DfuRequest::kDownload, block, static_cast<uint16_t>(data.size()), data}, now_);
    }

    DfuAnswer Upload(uint16_t block, uint16_t length)
    {
        return bootloader_.Handle({DfuRequest::kUpload, block, length}, now_);
    }

    DfuAnswer Ask(DfuRequest request, uint16_t length = 0)
    {
        return bootloader_.Handle({request, 0, length}, now_);
    }

    // The six bytes, or nothing when the unit does not answer.
    Bytes GetStatus() { return Ask(DfuRequest::kGetStatus, 6).data; }

    // A download and the two status requests that carry it out; the second one's answer.
    Bytes CarryOut(uint16_t block, Bytes const& data)
    {
        if (Download(block, data).kind != DfuAnswer::Kind::kDone) {
            return {};
        }
        GetStatus();
        return GetStatus();
    }

    std::string LastLine() const { return ToText(bootloader_.GetJournal().Entries().back()); }

private:
    DfuseBootloader& bootloader_;
    DfuseBootloader::TimePoint now_{};
};

}  // namespace simulator::test
