// A backend whose port is a scripted line, and what was logged.
#pragma once

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <memory>
#include <string>
#include <vector>

#include "tests/mcuboot/scripted_line.h"
#include "tests/support/collected_log.h"
#include "tests/support/files.h"
#include "updater/mcuboot_serial_updater.h"

class UpdaterOnLine : public testing::Test {
protected:
    // As long as it lives, the port is open; the script outlives it.
    class OpenLine final : public mcuboot::ILine {
    public:
        OpenLine(mcuboot::ILine& line, int& open_lines) : line_(line), open_lines_(open_lines)
        {
            ++open_lines_;
        }
        ~OpenLine() override { --open_lines_; }
        void Write(QByteArray const& bytes) override { line_.Write(bytes); }
        QByteArray Read(std::chrono::milliseconds time) override { return line_.Read(time); }
        void Clear() override { line_.Clear(); }
        void Pause(std::chrono::milliseconds time) override { line_.Pause(time); }
        std::chrono::milliseconds Time() const override { return line_.Time(); }

    private:
        mcuboot::ILine& line_;
        int& open_lines_;
    };

    void MakeUpdater(bool verbose = false, QString const& fw_target_type = {})
    {
        updater_ = std::make_unique<McubootSerialUpdater>(
            ImagePath(), 921600, verbose, fw_target_type, nullptr,
            [this](QString const& name, unsigned, QObject*,
                   QString* reason) -> std::unique_ptr<mcuboot::ILine> {
                EXPECT_EQ(open_lines_, 0) << "a port cannot be opened twice";
                *reason = QStringLiteral("no such port");
                return name == kPort ? std::make_unique<OpenLine>(line_, open_lines_) : nullptr;
            });
    }

    // A backend that is connected: the probe is the first request.
    void Connect(bool verbose = false)
    {
        MakeUpdater(verbose);
        line_.Answers(mcuboot::test::RcAnswer(0));
        ASSERT_TRUE(updater_->connect(kPort));
        lines_at_connect_ = log_.Lines().size();
    }

    QString ImagePath() const { return directory_.filePath(QStringLiteral("image")); }

    void WriteImage(QByteArray const& image) const { WriteFile(ImagePath(), image); }

    std::vector<std::string> LinesSinceConnect() const
    {
        auto const& lines = log_.Lines();
        return {lines.begin() + static_cast<std::ptrdiff_t>(lines_at_connect_), lines.end()};
    }

    QString const kPort = QStringLiteral("port");
    QTemporaryDir directory_;
    CollectedLog log_;
    mcuboot::test::ScriptedLine line_;
    int open_lines_ = 0;
    size_t lines_at_connect_ = 0;
    std::unique_ptr<McubootSerialUpdater> updater_;
};
