// Collects what goes through Qt's logging while it lives. There must be only one at a time.
#pragma once

#include <QtGlobal>
#include <string>
#include <vector>

class CollectedLog {
public:
    CollectedLog();
    ~CollectedLog();
    CollectedLog(CollectedLog const&) = delete;
    CollectedLog& operator=(CollectedLog const&) = delete;

    // "D: text" for a debug line, "I: text" for information, "W: text" for all else, in order.
    std::vector<std::string> const& Lines() const { return lines_; }
    std::vector<std::string> Warnings() const;

private:
    static void Collect(QtMsgType type, QMessageLogContext const& context, QString const& text);

    static CollectedLog* current_;
    QtMessageHandler previous_ = nullptr;
    std::vector<std::string> lines_;
};
