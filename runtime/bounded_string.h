// Strings of fixed capacity with their own storage, for texts that must not need the heap.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace etl {

using string_view = std::string_view;

// A text in storage that belongs to another object and outlives this one. The text always ends with
// a NUL. What does not fit is cut off and sets `truncated`.
class string_base {
public:
    using value_type = char;

    // storage.size() >= 1; one character of it is for the NUL.
    explicit string_base(std::span<char> storage) noexcept;

    // A secure text is wiped: every character of the storage becomes 0.
    ~string_base();

    string_base(string_base const&) = delete;
    string_base& operator=(string_base const&) = delete;

    void append(string_view text) noexcept;
    void push_back(char character) noexcept { append(string_view(&character, 1)); }

    char const* c_str() const noexcept { return storage_.data(); }
    size_t size() const noexcept { return size_; }
    size_t capacity() const noexcept { return storage_.size() - 1; }
    string_view view() const noexcept { return {storage_.data(), size_}; }
    operator string_view() const noexcept { return view(); }

    bool truncated() const noexcept { return truncated_; }

    // True for a secret that must not stay behind in memory.
    bool secure() const noexcept { return secure_; }
    void set_secure() noexcept { secure_ = true; }

protected:
    // Copies the other's text and flags; the old text is wiped.
    void CopyFrom(string_base const& other) noexcept;

private:
    void Wipe() noexcept;

    std::span<char> storage_;
    size_t size_ = 0;
    bool truncated_ = false;
    bool secure_ = false;
};

// A base class, so that the characters outlive string_base's destructor, which may wipe them.
template <size_t Capacity>
struct string_storage {
    std::array<char, Capacity + 1> characters{};
};

// A string of at most Capacity characters. Copies keep the flags: the copy of a secret is a secret.
template <size_t Capacity>
class string : private string_storage<Capacity>, public string_base {
public:
    string() noexcept : string_base(this->characters) {}
    explicit string(string_view text) noexcept : string() { append(text); }
    string(string const& other) noexcept : string() { CopyFrom(other); }

    string& operator=(string const& other) noexcept
    {
        if (this != &other) {
            CopyFrom(other);
        }
        return *this;
    }
};

}  // namespace etl
