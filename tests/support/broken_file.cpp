#include "tests/support/broken_file.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace {

using Status = struct stat;

// Not for other threads: they read as well, at any time.
thread_local BrokenFile const* current = nullptr;

}  // namespace

BrokenFile::BrokenFile(std::string const& path, off_t readable) : readable_(readable)
{
    Status status{};
    if (stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    device_ = status.st_dev;
    inode_ = status.st_ino;
    current = this;
}

BrokenFile::~BrokenFile()
{
    current = nullptr;
}

bool BrokenFile::IsOpenAs(int descriptor) const
{
    Status status{};
    return fstat(descriptor, &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

// Qt and the standard library's streams read with this function of the C library; a program's own
// one goes before it.
extern "C" ssize_t read(int descriptor, void* buffer, size_t size)
{
    using Function = ssize_t (*)(int, void*, size_t);
    static auto const real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "read"));
    if (current == nullptr || !current->IsOpenAs(descriptor)) {
        return real(descriptor, buffer, size);
    }
    auto const left = current->Readable() - lseek(descriptor, 0, SEEK_CUR);
    if (left <= 0) {
        errno = EIO;
        return -1;
    }
    return real(descriptor, buffer, std::min(size, static_cast<size_t>(left)));
}
