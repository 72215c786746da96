#include "simulator/journal.h"

#include <fmt/format.h>

#include <string_view>

namespace simulator {
namespace {

std::string_view ToText(Outcome outcome)
{
    switch (outcome) {
        case Outcome::kAck:
            return "ack";
        case Outcome::kNack:
            return "nack";
        case Outcome::kSilent:
            break;
    }
    return "silent";
}

}  // namespace

std::string ToText(JournalEntry const& entry)
{
    std::string text = entry.command;
    if (entry.address) {
        text += fmt::format(" 0x{:08x}", *entry.address);
    }
    if (entry.size) {
        text += fmt::format(" {}", *entry.size);
    }
    if (!entry.pages.empty()) {
        text += " " + entry.pages;
    }
    if (entry.sequence) {
        text += fmt::format(" seq={}", *entry.sequence);
    }
    if (!entry.keys.empty()) {
        text += " keys=" + entry.keys;
    }
    text += fmt::format(" {}", ToText(entry.outcome));
    if (!entry.reason.empty()) {
        text += " " + entry.reason;
    }
    return text;
}

std::string PagesToText(std::vector<unsigned> const& pages)
{
    std::string text;
    for (size_t first = 0; first < pages.size();) {
        size_t last = first;
        while (last + 1 < pages.size() && pages[last + 1] == pages[last] + 1) {
            ++last;
        }
        text += text.empty() ? "" : ",";
        text += first == last ? fmt::format("{}", pages[first])
                              : fmt::format("{}-{}", pages[first], pages[last]);
        first = last + 1;
    }
    return text;
}

void Journal::Add(JournalEntry entry)
{
    if (sink_) {
        sink_(entry);
    }
    entries_.push_back(std::move(entry));
}

}  // namespace simulator
