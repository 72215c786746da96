// An image is read to its end or not at all.
#include "updater/image_file.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QTemporaryDir>
#include <algorithm>

#include "tests/support/files.h"

using namespace Qt::StringLiterals;

namespace {

// A medium of `size` bytes that can be read up to `readable`. Behind that it fails, or ends without
// an error.
class BrokenMedium : public QIODevice {
public:
    BrokenMedium(qint64 size, qint64 readable, bool reports) : size_(size), left_(readable)
    {
        end_ = reports ? -1 : 0;
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

    qint64 size() const override { return size_; }
    bool WasRead() const { return was_read_; }

protected:
    qint64 readData(char* data, qint64 max_size) override
    {
        was_read_ = true;
        auto const count = std::min(max_size, left_);
        std::fill_n(data, count, 'x');
        left_ -= count;
        return count > 0 ? count : end_;
    }
    qint64 writeData(char const* /*data*/, qint64 /*size*/) override { return -1; }

private:
    qint64 size_;
    qint64 left_;
    qint64 end_ = 0;
    bool was_read_ = false;
};

constexpr qint64 kTwoGigabytes = 0x7FFFFFFF;

TEST(ReadImage, ReturnsAllOfADeviceOfAnySize)
{
    for (auto const size : {0, 1, 65535, 65536, 65537, 200000}) {
        QByteArray content(size, 'x');
        QBuffer device(&content);
        ASSERT_TRUE(device.open(QIODevice::ReadOnly));
        EXPECT_EQ(ReadImage(device), content) << size;
    }
}

TEST(ReadImage, ReturnsNothingOfADeviceThatBreaksAtAnyPoint)
{
    for (auto const readable : {0, 1, 1483, 16384, 65536, 99999}) {
        for (auto const reports : {true, false}) {
            BrokenMedium device(100000, readable, reports);
            EXPECT_EQ(ReadImage(device), std::nullopt) << readable << " reports: " << reports;
        }
    }
    BrokenMedium without_size(0, 10, true);
    EXPECT_EQ(ReadImage(without_size), std::nullopt);
}

TEST(ReadImage, RefusesADeviceThatIsTooLargeBeforeReadingIt)
{
    BrokenMedium too_large(kTwoGigabytes + 1, 10, false);
    EXPECT_EQ(ReadImage(too_large, kTwoGigabytes), std::nullopt);
    EXPECT_FALSE(too_large.WasRead());
    BrokenMedium fits(kTwoGigabytes, 10, false);
    EXPECT_EQ(ReadImage(fits, kTwoGigabytes), std::nullopt) << "broken, but not too large";
    EXPECT_TRUE(fits.WasRead());
    BrokenMedium endless(0, kTwoGigabytes, false);
    EXPECT_EQ(ReadImage(endless, 1000), std::nullopt) << "its size is not the truth";
}

TEST(ReadImageFile, ReturnsTheContentOrNothing)
{
    QTemporaryDir const directory;
    auto const path = directory.filePath(u"image"_s);
    EXPECT_EQ(ReadImageFile(path), std::nullopt) << "missing";
    WriteFile(path, "image");
    EXPECT_EQ(ReadImageFile(path), QByteArray("image"));
    EXPECT_EQ(ReadImageFile(path, 5), QByteArray("image"));
    EXPECT_EQ(ReadImageFile(path, 4), std::nullopt);
    EXPECT_EQ(ReadImageFile(directory.path()), std::nullopt) << "a directory";
    // It opens, but nothing is mapped where it begins.
    EXPECT_EQ(ReadImageFile(u"/proc/self/mem"_s), std::nullopt);
}

}  // namespace
