// A unit in serial recovery mode at the far end of a pty: plays a script, one reaction to each line
// that comes, from a thread of its own. Every line must be a good request, or the test fails.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/mcuboot/unit_side.h"

class PtyUnit {
public:
    PtyUnit();
    ~PtyUnit();
    PtyUnit(PtyUnit const&) = delete;
    PtyUnit& operator=(PtyUnit const&) = delete;

    // What a serial port object takes for the port's name.
    QString PortName() const;

    // The script: one call for each request, in order.
    PtyUnit& Answers(QByteArray const& raw);
    // Each piece is sent once the program has taken the one before it.
    PtyUnit& AnswersInPieces(std::vector<QByteArray> pieces);
    PtyUnit& StaysSilent();
    // Is pulled out.
    PtyUnit& Vanishes();
    // What it answers once the script is over; silence, if not said.
    void AlwaysAnswers(QByteArray const& raw);

    // Sends bytes unasked and waits until they are there to be read.
    void Sends(QByteArray const& raw);

    // Waits, with a bound, until that many lines have come; all lines that have.
    std::vector<QByteArray> WaitForLines(size_t count);
    // The same as requests.
    std::vector<mcuboot::test::Request> WaitForRequests(size_t count);
    // "op group id seq" of each request that has come.
    std::vector<std::string> Journal();

private:
    struct Reaction {
        std::vector<QByteArray> pieces;
        bool vanishes = false;
    };

    PtyUnit& Then(Reaction reaction);
    void Run();
    bool ReadInput();
    void TakeLine(QByteArray const& line);
    void React(Reaction const& reaction);
    int CountWaiting() const;
    bool WaitUntilWaiting(bool waiting, std::chrono::milliseconds bound) const;
    void Write(QByteArray const& raw) const;
    void Close();

    int master_ = -1;
    int slave_ = -1;
    int wake_[2] = {-1, -1};
    QString port_name_;
    QByteArray input_;  // the thread's own

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Reaction> script_;
    Reaction after_script_;
    std::vector<QByteArray> lines_;
    std::thread thread_;
};
