// What this process holds, for tests of code that must leave nothing behind.
#pragma once

#include <malloc.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QString>
#include <ostream>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FW_ADDRESS_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define FW_ADDRESS_SANITIZER
#endif
#ifdef FW_ADDRESS_SANITIZER
#include <sanitizer/allocator_interface.h>
inline constexpr bool kHasAddressSanitizer = true;
#else
inline constexpr bool kHasAddressSanitizer = false;
#endif

struct ProcessResources {
    qsizetype threads;
    qsizetype descriptors;

    bool operator==(ProcessResources const&) const = default;
    friend void PrintTo(ProcessResources const& resources, std::ostream* out)
    {
        *out << resources.threads << " threads, " << resources.descriptors << " descriptors";
    }
};

inline ProcessResources GetProcessResources()
{
    auto const count = [](char const* folder) {
        return QDir(QString::fromLatin1(folder))
            .entryList(QDir::NoDotAndDotDot | QDir::System | QDir::AllEntries)
            .size();
    };
    return {count("/proc/self/task"), count("/proc/self/fd")};
}

// Bytes that were allocated and not freed, in all threads.
inline qint64 GetAllocatedBytes()
{
#ifdef FW_ADDRESS_SANITIZER
    return static_cast<qint64>(__sanitizer_get_current_allocated_bytes());
#else
    auto const heap = mallinfo2();
    return static_cast<qint64>(heap.uordblks + heap.hblkhd);
#endif
}

// Bytes of this process that are in memory; -1 if that is unknown. AddressSanitizer keeps what was
// freed for a while.
inline qint64 GetResidentBytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    return file.open(QIODevice::ReadOnly)
               ? file.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE)
               : -1;
}
