#include "runtime/bounded_string.h"

#include <algorithm>

namespace etl {

string_base::string_base(std::span<char> storage) noexcept : storage_(storage)
{
    storage_[0] = '\0';
}

string_base::~string_base()
{
    if (secure_) {
        Wipe();
        secure_ = false;
    }
}

void string_base::append(string_view text) noexcept
{
    auto const fitting = text.substr(0, capacity() - size_);
    std::copy(fitting.begin(), fitting.end(), storage_.data() + size_);
    size_ += fitting.size();
    storage_[size_] = '\0';
    if (fitting.size() < text.size()) {
        truncated_ = true;
    }
}

void string_base::CopyFrom(string_base const& other) noexcept
{
    Wipe();
    size_ = 0;
    append(other.view());
    truncated_ = other.truncated_;
    secure_ = other.secure_;
}

void string_base::Wipe() noexcept
{
    // Volatile, since a compiler may drop ordinary stores to an object that is about to go.
    char volatile* const characters = storage_.data();
    for (size_t i = 0; i < storage_.size(); ++i) {
        characters[i] = '\0';
    }
}

}  // namespace etl
