// A file on a medium that fails: it opens like any other, its first bytes can be read, and then
// comes an input/output error.
#pragma once

#include <sys/types.h>

#include <string>

// Only for the thread that made it, and while it lives. One at a time.
class BrokenFile {
public:
    // The file must exist. Throws std::system_error when it does not. `readable`: bytes.
    BrokenFile(std::string const& path, off_t readable);
    ~BrokenFile();
    BrokenFile(BrokenFile const&) = delete;
    BrokenFile& operator=(BrokenFile const&) = delete;

    bool IsOpenAs(int descriptor) const;
    off_t Readable() const { return readable_; }

private:
    dev_t device_ = 0;
    ino_t inode_ = 0;
    off_t readable_;
};
