#include "tests/support/collected_log.h"

#include <QString>
#include <algorithm>
#include <iterator>

CollectedLog* CollectedLog::current_ = nullptr;

CollectedLog::CollectedLog()
{
    current_ = this;
    previous_ = qInstallMessageHandler(&CollectedLog::Collect);
}

CollectedLog::~CollectedLog()
{
    qInstallMessageHandler(previous_);
    current_ = nullptr;
}

void CollectedLog::Collect(QtMsgType type, QMessageLogContext const& /*context*/,
                           QString const& text)
{
    auto const level = type == QtDebugMsg ? "D: " : type == QtInfoMsg ? "I: " : "W: ";
    current_->lines_.push_back(level + text.toStdString());
}

std::vector<std::string> CollectedLog::Warnings() const
{
    std::vector<std::string> warnings;
    std::ranges::copy_if(lines_, std::back_inserter(warnings),
                         [](auto const& line) { return line.starts_with("W: "); });
    return warnings;
}
