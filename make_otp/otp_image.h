// The OTP area of a unit as a file: the records that the program looks for are written, and any
// area is described. Pure. Where a record lies and what it holds is the program's own code
// (updater/otp_handler.h, updater/model_id.h).
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

namespace make_otp {

// The most characters of a serial number: a zero byte must follow them in the record.
inline constexpr qsizetype kLongestSerialNumber = 11;

// A number from 0 to 255 in decimal digits only, as `device_id_list` in config.ini has it.
std::optional<uint8_t> ReadModel(QString const& text);

// Why the text cannot be a serial number, as a sentence; empty if it can. It has 1 to
// kLongestSerialNumber printable ASCII characters.
QString FindFault(QString const& serial_number);

// The records of the model and, unless it is empty, of the serial number, one after the other and
// nothing else. What is not in the file need not be programmed, and is free for other records.
// FindFault(serial_number) must be empty.
QByteArray MakeImage(uint8_t model, QString const& serial_number);

struct Description {
    QStringList lines;  // one for each record
    QStringList
        faults;  // why the program would not accept the unit, or would not see what is meant
};

// Any bytes: a file of MakeImage(), or an area that was read out of a unit.
Description Describe(QByteArray const& area);

}  // namespace make_otp
