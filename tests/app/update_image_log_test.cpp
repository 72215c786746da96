// When the image is read for the log: at the start of an update, not at the start of the program.
#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>
#include <array>
#include <thread>

#include "app/session_report.h"
#include "app/support_log.h"
#include "tests/support/fake_backend.h"

namespace {

using testing::EndsWith;

// Notices that a file is opened.
class OpenWatch {
public:
    explicit OpenWatch(QString const& path)
        : events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
          watch_(inotify_add_watch(events_, path.toLocal8Bit().constData(), IN_OPEN))
    {
        EXPECT_NE(watch_, -1);
    }
    ~OpenWatch() { close(events_); }
    OpenWatch(OpenWatch const&) = delete;
    OpenWatch& operator=(OpenWatch const&) = delete;

    bool WasOpened() const
    {
        alignas(inotify_event) std::array<char, 4096> events{};
        return read(events_, events.data(), events.size()) > 0;
    }

private:
    int events_;
    int watch_;
};

class UpdateImageLog : public testing::Test {
protected:
    void WriteImage(QByteArray const& content)
    {
        QFile image(image_);
        ASSERT_TRUE(image.open(QIODevice::WriteOnly));
        ASSERT_EQ(image.write(content), content.size());
    }

    // The log after one update, on a thread that is not this one.
    std::string LogOfAnUpdate()
    {
        SupportLog log(directory_.filePath(QStringLiteral("log")));
        FakeBackend backend;
        LogImageOfEachUpdate(backend, image_, log);
        std::thread([&] { Q_EMIT backend.UpdateStarted(); }).join();
        QFile file(log.CurrentFile());
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll().trimmed().toStdString();
    }

    QTemporaryDir directory_;
    QString image_ = directory_.filePath(QStringLiteral("image.bin"));
};

}  // namespace

TEST_F(UpdateImageLog, DoesNotOpenTheImageAtTheStartOfTheProgram)
{
    WriteImage("abc");
    OpenWatch const watch(image_);

    DescribeSession({}, image_);
    EXPECT_FALSE(watch.WasOpened());

    LogOfAnUpdate();
    EXPECT_TRUE(watch.WasOpened());
}

TEST_F(UpdateImageLog, HasSizeAndDigestOfTheImageThatAnUpdateWrites)
{
    WriteImage("abc");

    EXPECT_THAT(LogOfAnUpdate(),
                EndsWith(" update, image: " + image_.toStdString() +
                         ", 3 bytes, SHA-256 "
                         "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
}

TEST_F(UpdateImageLog, HasOnlyTheSizeOfAnImageThatIsTooLargeToRead)
{
    WriteImage({});
    ASSERT_TRUE(QFile::resize(image_, qint64{1} << 30));

    EXPECT_THAT(LogOfAnUpdate(), EndsWith(", 1073741824 bytes"));
}

TEST_F(UpdateImageLog, SaysWhenThereIsNoImage)
{
    EXPECT_THAT(LogOfAnUpdate(), EndsWith(image_.toStdString() + ", not there"));
}
