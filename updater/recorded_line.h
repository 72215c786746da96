// Adds a record to the line of MCUboot serial recovery, so that the conversation knows nothing of
// it.
#pragma once

#include <QString>
#include <memory>

#include "mcuboot/i_line.h"
#include "record/sink.h"

// A line that behaves as `line` does and hands over what is written and read to `record`, which
// must outlive it. What is discarded unread is not recorded. port_name and baud describe the line.
std::unique_ptr<mcuboot::ILine> RecordLine(std::unique_ptr<mcuboot::ILine> line,
                                           record::ISink& record, QString const& port_name,
                                           unsigned baud);
